/* Enters a client into the database, or refreshes its entry, and completes its
   interfaces. Several registrations may run at once, and no transaction spans two
   statements: the identifier that one reads as free may be taken by another
   before its insert. The insert tells so (a key is unique), and is made again
   with the next identifier. */
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>

#include "vk_config_client.h"

namespace {

constexpr int         iMOST_TRIES = 50;
constexpr int         iLONGEST_MS = 50;         // pause before another try
constexpr long        lLAST_ID = 9999999;       // szNodeId holds seven digits
constexpr const char* cpUNIQUE_KEPT = "23505";  // SQLSTATE: the key is taken

[[noreturn]] void v_DATABASE_FAILED(SCT_ARGS* pArg, const char* cpMessage)
{
    TRACE("--- INSERT_INTO_DATABASE  error %s ", cpMessage);
    ZFINISH(cpMessage, VK_WARNING, 'n', pArg);
}

[[noreturn]] void v_INSERT_FAILED(SCT_ARGS* pArg, const char* cpDetail)
{
    char szMsg[512];
    MESSAGE_FITTED(szMsg, MSG_E004, cpDetail);
    v_DATABASE_FAILED(pArg, szMsg);
}

/* The row keeps its identifier and its access mode. */
void v_REFRESH_ROW(SCT_ARGS* pArg)
{
    iDB_EXECUTE_SQL(sNOT_STORED("refreshed entry", pArg), strLog,
                    "update clients set accessmode='%s',msg='%s Id=%s',comment='%s Id=%s' where "
                    "client_id='%s'",
                    pArg->szAccessMode, FREE_TEXT{pArg->szNodeAddr}, pArg->szNodeId,
                    FREE_TEXT{pArg->szNodeAddr}, pArg->szNodeId, pArg->szNodeId);
}

/* An existing client has an operating system; a new one must be given one. */
void v_REQUIRE_OPERATING_SYSTEM(SCT_ARGS* pArg)
{
    if (pArg->szOpersys[0] != '\0' && std::strcmp(pArg->szOpersys, "NULL") != 0) return;
    TRACE("OS (-o) parameter is mandatory for adding a new client");
    TRACE("--- INSERT_INTO_DATABASE  OS (-o) parameter is mandatory for adding a new client");
    char szMsg[256];
    MESSAGE(szMsg, MSG_E006);
    ZFINISH(szMsg, VK_ERROR, 'n', pArg);
}

/* One above the highest identifier in use; its text goes to szNodeId. */
int iNEXT_CLIENT_ID(SCT_ARGS* pArg)
{
    TRACE("insert a new, so get MAX client_id from database");
    char szReply[512] = "";
    if (!iDB_ACCESS("select MAX(client_id) from clients", szReply, nullptr, strLog)) {
        char szMsg[256];
        MESSAGE_FITTED(szMsg, MSG_E004, szReply);
        v_DATABASE_FAILED(pArg, szMsg);
    }
    const long lHighest = std::strtol(szReply, nullptr, 10);
    const long lNew = lHighest == 0 ? 1 : lHighest + 1;
    // A longer one would be cut, and the interfaces would go to another client.
    if (lHighest >= lLAST_ID) v_INSERT_FAILED(pArg, "no client identifier below 8 digits is left");
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

/* 1 when a row of that name stands in the table, its operating system known or
   not. */
int iNAME_IS_TAKEN(const SCT_ARGS* pArg)
{
    char szId[256];
    char szSql[2048];
    iSQL(szSql, "select client_id from clients where name='%s'", pArg->szNodeName);
    return iDB_SEL_GETVALUE(szSql, "client_id", szId, strLog);
}

void v_PAUSE(int iTry)
{
    static std::minstd_rand         random{std::random_device{}()};
    std::uniform_int_distribution<> pause(2, std::min(5 * iTry, iLONGEST_MS));
    iSLEEP_MS(pause(random));
}

/* Inserts the new client. When another run has registered it meanwhile, that row
   is refreshed instead. */
void v_ADD_ROW(SCT_ARGS* pArg)
{
    char szReply[256] = "";
    for (int iTry = 1;; ++iTry) {
        const int iNewClientId = iNEXT_CLIENT_ID(pArg);
        if (pArg->cPermit != '0' && pArg->cPermit != '1') pArg->cPermit = '1';
        if (iINSERT_ROW(pArg, iNewClientId, szReply)) return;
        if (sctDB_ERROR().sSqlState != cpUNIQUE_KEPT) v_INSERT_FAILED(pArg, szReply);
        if (iNAME_IS_TAKEN(pArg)) break;
        if (iTry == iMOST_TRIES) v_INSERT_FAILED(pArg, szReply);
        v_PAUSE(iTry);
    }
    if (!iTEST_IF_ALREADY_IN_DATABASE(pArg, "")) v_INSERT_FAILED(pArg, szReply);
    v_REFRESH_ROW(pArg);
}

/* Adds the interfaces that are missing: http and https on any port, and the bare
   name, whatever their letter case. */
void v_ADD_INTERFACES(const SCT_ARGS* pArg, int iOrderHttp, int iOrderHttps)
{
    char           szReply[256];
    char           szSql[2048];
    const RAW_TEXT id{pArg->szNodeId};
    iSQL(szSql,
         "INSERT INTO interfaces (client_id,i_name,i_order) SELECT distinct %s,'http://%s:11000',"
         "%d where 0=(select count(*) from interfaces where client_id=%s AND i_name ilike "
         "'http://%s:%%');",
         id, pArg->szNodeName, iOrderHttp, id, LIKE_TEXT{pArg->szNodeName});
    iDB_ACCESS(szSql, szReply, nullptr, strLog);
    iSQL(szSql,
         "INSERT INTO interfaces (client_id,i_name,i_order) SELECT distinct "
         "%s,'https://%s:11443',%d where 0=(select count(*) from interfaces where client_id=%s AND "
         "i_name ilike 'https://%s:%%');",
         id, pArg->szNodeName, iOrderHttps, id, LIKE_TEXT{pArg->szNodeName});
    iDB_ACCESS(szSql, szReply, nullptr, strLog);
    iSQL(szSql,
         "INSERT INTO interfaces (client_id,i_name,i_order) SELECT distinct %s,'%s',2 where "
         "0=(select count(*) from interfaces where client_id=%s AND i_name ilike '%s');",
         id, pArg->szNodeName, id, LIKE_TEXT{pArg->szNodeName});
    iDB_ACCESS(szSql, szReply, nullptr, strLog);
}

/* A client that has two interfaces or more keeps them as they are. */
void v_COMPLETE_INTERFACES(const SCT_ARGS* pArg)
{
    char szPrefix[256] = "http";
    i_get_default2("vk_conf_default_interface_prefix", "gv_default_interface_prefix", szPrefix,
                   strLog);
    TRACE("default interface prefix is \"%s\"", szPrefix);
    DB_REC_LIS sctList = {"CONFIG_CLIENT", 0, 0, nullptr, nullptr};
    char       szReply[256] = "";
    char       szSql[2048];
    iSQL(szSql, "select * from interfaces where client_id='%s'", pArg->szNodeId);
    iDB_ACCESS(szSql, szReply, &sctList, strLog);
    if (std::strtol(szReply, nullptr, 10) > 1) return;

    TRACE("+++ Add interfaces for http, https and ftp");
    const bool bHttpsFirst = std::strcmp(szPrefix, "https") == 0;
    if (bHttpsFirst) TRACE("Add https interface as first one");
    v_ADD_INTERFACES(pArg, bHttpsFirst ? 1 : 0, bHttpsFirst ? 0 : 1);
    TRACE("--- Add interfaces for http, https and ftp");
}

}  // namespace

void INSERT_INTO_DATABASE(SCT_ARGS* pArg)
{
    TRACE("+++ INSERT_INTO_DATABASE");
    if (iTEST_IF_ALREADY_IN_DATABASE(pArg, "")) {
        v_REFRESH_ROW(pArg);
    } else {
        v_REQUIRE_OPERATING_SYSTEM(pArg);
        v_ADD_ROW(pArg);
    }
    v_COMPLETE_INTERFACES(pArg);
    TRACE("--- INSERT_INTO_DATABASE");
}
