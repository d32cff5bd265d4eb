/* Enters a client into the database, or refreshes its entry, and completes its
   interfaces. Several registrations may run at once: the identifier that one reads
   as free may be taken by another before its insert. The insert tells so (a key is
   unique), and is made again with the next identifier. The interfaces of a client are
   added while its row is held against removal, so that a removal at the same moment
   leaves nothing behind and no other client gets them. Nothing here waits for rows of
   other programs that refer to the client, or for an update of its other columns. */
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>

#include "run_outcome.h"
#include "vk_config_client.h"

namespace {

constexpr int  iMOST_TRIES = 50;
constexpr int  iLONGEST_MS = 50;    // pause before another try
constexpr long lLAST_ID = 9999999;  // szNodeId holds seven digits

[[noreturn]] void v_INSERT_FAILED(SCT_ARGS* pArg, const char* cpDetail, size_t uSize = 512)
{
    v_END_RUN(pArg, VK_WARNING, MSG_E004, cpDetail, uSize, "INSERT_INTO_DATABASE  error");
}

/* Keeps the client's row from being removed, and other registrations of the client from
   adding interfaces, for the rest of the transaction. Result 0: it failed, or the row is
   not there any more, which is told. */
int iHOLD(const SCT_ARGS* pArg, const char* cpWhat)
{
    const int iRows =
        iDB_RUN_SQL(strLog,
                    "select pg_advisory_xact_lock('interfaces'::regclass::oid::int,client_id::int) "
                    "from clients where client_id='%s' and name='%s' for key share",
                    pArg->szNodeId, pArg->szNodeName);
    if (iRows == 0) v_TELL_NO_ROW(sNOT_STORED(cpWhat, pArg), pArg);
    return iRows > 0;
}

/* The row keeps its identifier and its access mode. Under the name as well: the
   identifier may belong to another client by now. */
void v_REFRESH_ROW(const SCT_ARGS* pArg)
{
    const std::string sWhat = sNOT_STORED("refreshed entry", pArg);
    const int         iRows = iDB_EXECUTE_SQL(
                sWhat, strLog,
                "update clients set accessmode='%s',msg='%s Id=%s',comment='%s Id=%s' where "
                        "client_id='%s' and name='%s'",
                pArg->szAccessMode, FREE_TEXT{pArg->szNodeAddr}, pArg->szNodeId,
                FREE_TEXT{pArg->szNodeAddr}, pArg->szNodeId, pArg->szNodeId, pArg->szNodeName);
    if (iRows == 0) v_TELL_NO_ROW(sWhat, pArg);
}

/* A new client must be given an operating system, and so must a stored one whose system
   is not known. */
void v_REQUIRE_OPERATING_SYSTEM(SCT_ARGS* pArg, int iStored)
{
    if (bGIVEN(pArg->szOpersys)) return;
    if (iStored)
        TELL(
            "%s is stored with an operating system that is not in oper_systems; give another with "
            "-o",
            pArg->szNodeName);
    else
        TELL("%s is not registered; give its operating system with -o", pArg->szNodeName);
    v_CAUSE("system-not-given");
    TRACE("OS (-o) parameter is mandatory for adding a new client");
    TRACE("--- INSERT_INTO_DATABASE  OS (-o) parameter is mandatory for adding a new client");
    v_END_RUN(pArg, VK_ERROR, MSG_E006);
}

/* One above the highest identifier in use; its text goes to szNodeId. */
int iNEXT_CLIENT_ID(SCT_ARGS* pArg)
{
    TRACE("insert a new, so get MAX client_id from database");
    char szReply[512] = "";
    if (!iDB_ACCESS("select MAX(client_id) from clients", szReply, nullptr, strLog))
        v_INSERT_FAILED(pArg, szReply, 256);
    const long lHighest = std::strtol(szReply, nullptr, 10);
    const long lNew = lHighest == 0 ? 1 : lHighest + 1;
    // A longer one would be cut, and the interfaces would go to another client.
    if (lHighest >= lLAST_ID)
        v_INSERT_FAILED(pArg, "no client identifier of up to 7 digits is free");
    iTEXT_SET(pArg->szNodeId, intoas(lNew));
    return static_cast<int>(lNew);
}

/* The insert of the client with this password. */
void v_FORM_INSERT(const SCT_ARGS* pArg, int iNewClientId, const char* cpPassword,
                   char (&szSql)[2048])
{
    iSQL(szSql,
         "insert into clients (client_id,name,os,net_prot,msg,comment,location,accessmode,exec,"
         "access_options,user_comment,os_user,os_password) values (%d,'%s','%s','TCPIP',"
         "'%s Id=%s','%s Id=%s','%s','%s','%c','%s','%s','%s','%s')",
         iNewClientId, pArg->szNodeName, pArg->szOpersys, FREE_TEXT{pArg->szNodeAddr},
         pArg->szNodeId, FREE_TEXT{pArg->szNodeAddr}, pArg->szNodeId, pArg->szLocationId,
         pArg->szAccessMode, pArg->cPermit, pArg->szOptions, FREE_TEXT{pArg->szUserComment},
         pArg->szUser, cpPassword);
}

/* The statement carries a password, so the trace shows another text. */
template<size_t N>
int iINSERT_ROW(SCT_ARGS* pArg, int iNewClientId, char (&szReply)[N])
{
    char szSql[2048];
    v_FORM_INSERT(pArg, iNewClientId, pArg->szPassword[0] != '\0' ? "***" : "", szSql);
    TRACE("statement: %s", szSql);
    v_FORM_INSERT(pArg, iNewClientId, pArg->szPassword, szSql);
    str_log sctQuiet = strLog;
    sctQuiet.iLogLevel = 0;
    return iDB_ACCESS(szSql, szReply, nullptr, sctQuiet);
}

void v_PAUSE(int iTry)
{
    static std::minstd_rand         random{std::random_device{}()};
    std::uniform_int_distribution<> pause(2, std::min(5 * iTry, iLONGEST_MS));
    iSLEEP_MS(pause(random));
}

/* Inserts the new client. Result 0: another run has registered it meanwhile, and no
   third one has removed it again. */
int iADD_ROW(SCT_ARGS* pArg)
{
    char szReply[256] = "";
    for (int iTry = 1;; ++iTry) {
        const int iNewClientId = iNEXT_CLIENT_ID(pArg);
        if (pArg->cPermit != '0' && pArg->cPermit != '1') pArg->cPermit = '1';
        if (iINSERT_ROW(pArg, iNewClientId, szReply)) return 1;
        if (sctDB_ERROR().eKind != DB_KEY_TAKEN) v_INSERT_FAILED(pArg, szReply);
        if (iTEST_IF_ALREADY_IN_DATABASE(pArg, "")) return 0;
        if (iTry == iMOST_TRIES) v_INSERT_FAILED(pArg, szReply);
        v_PAUSE(iTry);
    }
}

/* Adds the interfaces that are missing: http and https on any port, and the bare
   name, whatever their letter case. Result 0: a statement failed. */
int iADD_INTERFACES(const SCT_ARGS* pArg, int iOrderHttp, int iOrderHttps)
{
    const RAW_TEXT id{pArg->szNodeId};
    return iDB_RUN_SQL(strLog,
                       "INSERT INTO interfaces (client_id,i_name,i_order) SELECT distinct "
                       "%s,'http://%s:11000',%d where 0=(select count(*) from interfaces where "
                       "client_id=%s AND i_name ilike 'http://%s:%%');",
                       id, pArg->szNodeName, iOrderHttp, id, LIKE_TEXT{pArg->szNodeName}) >= 0 &&
           iDB_RUN_SQL(strLog,
                       "INSERT INTO interfaces (client_id,i_name,i_order) SELECT distinct "
                       "%s,'https://%s:11443',%d where 0=(select count(*) from interfaces where "
                       "client_id=%s AND i_name ilike 'https://%s:%%');",
                       id, pArg->szNodeName, iOrderHttps, id, LIKE_TEXT{pArg->szNodeName}) >= 0 &&
           iDB_RUN_SQL(
               strLog,
               "INSERT INTO interfaces (client_id,i_name,i_order) SELECT distinct %s,'%s',2 "
               "where 0=(select count(*) from interfaces where client_id=%s AND i_name "
               "ilike '%s');",
               id, pArg->szNodeName, id, LIKE_TEXT{pArg->szNodeName}) >= 0;
}

/* A client that has two interfaces or more keeps them as they are. */
int iINTERFACES_MISSING(const SCT_ARGS* pArg)
{
    DB_REC_LIS sctList = {"CONFIG_CLIENT", 0, 0, nullptr, nullptr};
    char       szReply[256] = "";
    iDB_ACCESS(SQL("select * from interfaces where client_id='%s'", pArg->szNodeId), szReply,
               &sctList, strLog);
    DB_TELL_FAILURE(std::string("interfaces of ") + pArg->szNodeName + " not counted", strLog);
    return std::strtol(szReply, nullptr, 10) <= 1;
}

/* All three at once: a run that is killed between two of them would leave a client
   that looks complete. Each insert looks for itself whether its row is there, so what
   another run has added since they were counted is not added again. */
void v_COMPLETE_INTERFACES(const SCT_ARGS* pArg)
{
    constexpr const char* cpWhat = "interfaces";
    char                  szPrefix[256] = "http";
    i_get_default2("vk_conf_default_interface_prefix", "gv_default_interface_prefix", szPrefix,
                   strLog);
    TRACE("default interface prefix is \"%s\"", szPrefix);
    const bool bHttpsFirst = bIS(szPrefix, "https");
    if (!iINTERFACES_MISSING(pArg)) return;
    if (!bHttpsFirst && !bIS(szPrefix, "http"))
        TELL("default interface prefix \"%s\" is not http or https; http comes first", szPrefix);
    TRACE("+++ Add interfaces for http, https and ftp");
    if (bHttpsFirst) TRACE("Add https interface as first one");
    iDB_TRANSACTION(sNOT_STORED(cpWhat, pArg), strLog, [&] {
        return iHOLD(pArg, cpWhat) &&
               iADD_INTERFACES(pArg, bHttpsFirst ? 1 : 0, bHttpsFirst ? 0 : 1);
    });
    TRACE("--- Add interfaces for http, https and ftp");
}

/* Looks for the name in any letter case. Result 1: one client has exactly this name,
   which the lookup has not found, so its operating system is not known. Others are
   told: names are compared as they stand. */
int iSTORED_WITH_UNKNOWN_SYSTEM(const SCT_ARGS* pArg)
{
    DB_REC_LIS sctList = {"CONFIG_CLIENT", 0, 0, nullptr, nullptr};
    char       szReply[256] = "";
    int        iExact = 0;
    iDB_ACCESS(SQL("select name from clients where lower(name)=lower('%s')", pArg->szNodeName),
               szReply, &sctList, strLog);
    DB_TELL_FAILURE(std::string("names like ") + pArg->szNodeName + " not read", strLog);
    for (int iRow = 1; iRow <= sctList.iRows; iRow++) {
        char szName[256] = "";
        iDB_SEL_GET(&sctList, iRow, szReply, &strLog, "name", szName, "d");
        if (bIS(szName, pArg->szNodeName))
            iExact++;
        else
            TELL("client \"%s\" exists already; \"%s\" is another one", szName, pArg->szNodeName);
    }
    return iExact == 1;
}

/* Gives a stored client the operating system of -o, which is what it lacks to count as
   registered. Result 0: another run has removed it meanwhile. */
int iREPAIR_SYSTEM(SCT_ARGS* pArg)
{
    if (pArg->szPlatform[0] == '\0')
        v_INSERT_FAILED(pArg, "the client is stored with an unknown operating system");
    TRACE("operating system of %s becomes %s", pArg->szNodeName, pArg->szOpersys);
    const int iRows = iDB_RUN_SQL(strLog, "update clients set os='%s' where name='%s'",
                                  pArg->szOpersys, pArg->szNodeName);
    const int iFound = iRows > 0 && iTEST_IF_ALREADY_IN_DATABASE(pArg, "");
    if (!iFound && sctDB_ERROR().eKind != DB_FINE)
        v_INSERT_FAILED(pArg, sctDB_ERROR().sText.c_str());
    return iFound;
}

/* A stored client keeps these, whatever is given. cpSystem: of -o */
void v_TELL_KEPT(const SCT_ARGS* pArg, const char* cpSystem)
{
    std::string sOptions;
    if (bGIVEN(cpSystem) && !bIS(cpSystem, pArg->szOpersys)) sOptions += " -o";
    if (!bIS(pArg->szLocationId, "0")) sOptions += " -l";
    if (pArg->szOptions[0] != '\0') sOptions += " -O";
    if (pArg->szUserComment[0] != '\0') sOptions += " -u";
    if (pArg->szPassword[0] != '\0') sOptions += " -p";
    if (!sOptions.empty())
        TELL("%s is registered already; not used:%s", pArg->szNodeName, sOptions.c_str());
}

/* The lookup has not found the client. Result 0: it is stored all the same, either with a
   system that is known by now, or by another run. */
int iENTER_NEW(SCT_ARGS* pArg)
{
    const int iStored = iSTORED_WITH_UNKNOWN_SYSTEM(pArg);
    v_REQUIRE_OPERATING_SYSTEM(pArg, iStored);
    v_TELL_UNKNOWN_SYSTEM(pArg);
    return !(iStored && iREPAIR_SYSTEM(pArg)) && iADD_ROW(pArg);
}

}  // namespace

void INSERT_INTO_DATABASE(SCT_ARGS* pArg)
{
    TRACE("+++ INSERT_INTO_DATABASE");
    const std::string sSystem =
        pArg->szSystemGiven[0] != '\0' ? pArg->szSystemGiven : pArg->szOpersys;
    if (iTEST_IF_ALREADY_IN_DATABASE(pArg, "") || !iENTER_NEW(pArg)) {
        v_TELL_KEPT(pArg, sSystem.c_str());
        v_REFRESH_ROW(pArg);
    }
    v_COMPLETE_INTERFACES(pArg);
    TRACE("--- INSERT_INTO_DATABASE");
}
