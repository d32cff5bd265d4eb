/* The database part of the first setup.

   The connection text is the one given, else vk.ini's, else the default. Where it
   leads into a database, only what is missing there is made. Where it does not, and
   the database server is this machine's own, its superuser (who owns the socket) makes
   role and database; a database elsewhere is its administrator's work, and is reported. */
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "../programs.h"
#include "common/cm_db_access.h"
#include "common/common.h"
#include "common/config/config.h"
#include "common/unix/cm_hal_pipe.h"
#include "database.h"
#include "files.h"
#include "os_release.h"
#include "setup.h"
#include "steps.h"

namespace {

constexpr char szOWNER[] = "velka";  // owns the database of a machine's own server
constexpr int  iSTART_MS = 20000;    // for a database server that starts

/* Another effective user, as whom a socket is opened. */
class AS_USER {
public:
    explicit AS_USER(const passwd& user)
        : m_bDone(setegid(user.pw_gid) == 0 && seteuid(user.pw_uid) == 0)
    {
    }
    AS_USER(const AS_USER&) = delete;
    AS_USER& operator=(const AS_USER&) = delete;
    ~AS_USER()
    {
        // Back from a user without rights works because the real one is unchanged.
        if (seteuid(getuid()) != 0 || setegid(getgid()) != 0) _exit(127);
    }
    bool bDone() const { return m_bDone; }

private:
    bool m_bDone;
};

std::string sUSER_NAME()
{
    const passwd* pUser = getpwuid(geteuid());
    return pUser != nullptr ? pUser->pw_name : "root";
}

/* A value of a connection text. */
std::string sCONN_VALUE(const std::string& sValue)
{
    if (!sValue.empty() && sValue.find_first_of(" '\\;") == std::string::npos) return sValue;
    return "'" + sMARKED(sValue, "'\\") + "'";
}

std::string sTEXT_OF(const CONNECTION_TEXT& text, const std::string& sDatabase,
                     const std::string& sUser)
{
    return "host=" + sCONN_VALUE(text.sHost) +
           (text.sPort == "5432" ? "" : " port=" + sCONN_VALUE(text.sPort)) +
           " dbname=" + sCONN_VALUE(sDatabase) + " user=" + sCONN_VALUE(sUser);
}

std::string sSOCKET(const CONNECTION_TEXT& text)
{
    return text.sHost + "/.s.PGSQL." + text.sPort;
}

/* The machine's own database server, by its superuser. */
CONNECTION pAS_SUPERUSER(const CONNECTION_TEXT& text, const std::string& sDatabase,
                         std::string& sError)
{
    struct stat sctStat {};
    if (stat(sSOCKET(text).c_str(), &sctStat) != 0) {
        sError = "no database server listens on " + sSOCKET(text);
        return nullptr;
    }
    const passwd* pUser = getpwuid(sctStat.st_uid);
    if (pUser == nullptr) {
        sError = "the owner of " + sSOCKET(text) + " is unknown";
        return nullptr;
    }
    const std::string sUser = pUser->pw_name;
    const AS_USER     as(*pUser);
    if (!as.bDone()) {
        sError = "only root may act as " + sUser + ": permission denied";
        return nullptr;
    }
    return pCONNECT(sTEXT_OF(text, sDatabase, sUser), sError);
}

/* Starts the distribution's database server where it is installed, but down. */
void START_LOCAL_SERVER(const CONNECTION_TEXT& text)
{
    if (text.sHost != "/run/postgresql" && text.sHost != "/var/run/postgresql") return;
    const std::string sService = sPROGRAM_PATH("service");
    if (file_exist(sSOCKET(text).c_str()) || sPROGRAM_PATH("pg_ctlcluster").empty() ||
        sService.empty() || geteuid() != 0)
        return;
    const PROGRAM_RUN run = sctRUN_PROGRAM({sService, "postgresql", "start"}, 120);
    const long        lEnd = lNOW_MS() + iSTART_MS;
    while (!file_exist(sSOCKET(text).c_str()) && lNOW_MS() < lEnd) iSLEEP_MS(50);
    if (file_exist(sSOCKET(text).c_str()))
        iSTEP(STEP_MADE, "database server of this machine started");
    else
        iSTEP(STEP_FAILED, "database server of this machine does not start (status " +
                               std::to_string(run.iStatus) +
                               "); its log in /var/log/postgresql says why");
}

/* Runs a statement and reports it. */
int iMAKE(PGconn* pConn, const std::string& sSql, const std::string& sWhat)
{
    std::string sError;
    if (!iRUN(pConn, sSql, nullptr, sError)) return iSTEP(STEP_FAILED, sWhat + ": " + sError);
    return iSTEP(STEP_MADE, sWhat);
}

/* Result 1: sRole is a member of sOwner now. */
int iMAKE_MEMBER(PGconn* pConn, const std::string& sRole, const std::string& sOwner)
{
    char szSql[1024];
    iSQL(szSql, "select pg_has_role('%s','%s','member')", std::string_view(sRole),
         std::string_view(sOwner));
    return sVALUE(pConn, szSql) == "t" ||
           iMAKE(pConn, "grant " + sIDENTIFIER(sOwner) + " to " + sIDENTIFIER(sRole),
                 "role " + sRole + " is a member of " + sOwner);
}

int iMAKE_ROLE(PGconn* pConn, const std::string& sRole, bool bLogin)
{
    char szSql[1024];
    iSQL(szSql, "select rolcanlogin from pg_roles where rolname='%s'", std::string_view(sRole));
    const std::string sLogin = sVALUE(pConn, szSql);
    if (sLogin == "t" || (!sLogin.empty() && !bLogin)) return 1;
    if (!sLogin.empty())
        return iMAKE(pConn, "alter role " + sIDENTIFIER(sRole) + " login",
                     "database role " + sRole + " may log in");
    return iMAKE(pConn, "create role " + sIDENTIFIER(sRole) + (bLogin ? " login" : ""),
                 "database role " + sRole);
}

/* Role and database on the machine's own server. The role that logs in is named as the
   operating-system user, whom the server's usual configuration then admits as it is. */
int iMAKE_LOCAL(const CONNECTION_TEXT& text, const std::string& sOwner)
{
    std::string      sError;
    const CONNECTION pConn = pAS_SUPERUSER(text, "postgres", sError);
    if (!pConn) {
        iSTEP(STEP_FAILED, "database server of this machine: " + sError);
        if (sPROGRAM_PATH("pg_ctlcluster").empty())
            v_STEP_MORE(
                "install one (apt-get install postgresql), or name another with --conninfo");
        return 0;
    }
    char szSql[1024];
    if (!iMAKE_ROLE(pConn.get(), sOwner, sOwner == text.sUser) ||
        !iMAKE_ROLE(pConn.get(), text.sUser, true) ||
        !iMAKE_MEMBER(pConn.get(), text.sUser, sOwner))
        return 0;
    iSQL(szSql, "select 1 from pg_database where datname='%s'", std::string_view(text.sDatabase));
    return !sVALUE(pConn.get(), szSql).empty() ||
           iMAKE(pConn.get(),
                 "create database " + sIDENTIFIER(text.sDatabase) + " owner " +
                     sIDENTIFIER(sOwner) + " encoding 'UTF8' template template0",
                 "database " + text.sDatabase);
}

void TELL_ADMINISTRATOR(const CONNECTION_TEXT& text, const std::string& sError)
{
    const std::string sUser = sIDENTIFIER(text.sUser);
    iSTEP(STEP_TO_DO, sSHOWN(text) + ": " + sError);
    v_STEP_MORE("if it is missing, an administrator of that database server has to do this:");
    v_STEP_MORE("  create role " + sUser + " login password '...';");
    v_STEP_MORE("  create database " + sIDENTIFIER(text.sDatabase) + " owner " + sUser +
                " encoding 'UTF8' template template0;");
    v_STEP_MORE("  in pg_hba.conf: hostssl " + text.sDatabase + " " + text.sUser +
                " ADDRESS-OF-THIS-MACHINE/32 scram-sha-256");
    v_STEP_MORE("then run this command again; it makes the tables");
}

/* The tables by an administrator's hand, where the tool's role may not make them. */
void TELL_TABLES(const CONNECTION_TEXT& text)
{
    const std::string sFolder = sFOLDER(sPRODUCT_FILE("sql/schema.sql"));
    v_STEP_MORE("if the role may not do that, an administrator of the database does:");
    v_STEP_MORE("  " + sTYPED({"psql", "-d", text.sDatabase, "-f", sFolder + "schema.sql"}));
    v_STEP_MORE("  grant select, insert, update, delete on clients, interfaces, oper_systems to " +
                sIDENTIFIER(text.sUser) + ";");
    v_STEP_MORE("then run this command again; it fills them");
}

/* Writes the connection text into vk.ini where that says something else. */
int iKEEP_CONNINFO(const std::string& sText)
{
    if (sCONFIG_TEXT("database", "conninfo", szCONFIG_CONNINFO) == sText) return 1;
    std::string sReason;
    if (sText.find(" ;") != std::string::npos || sText.find('\n') != std::string::npos)
        sReason = "a connection text with \" ;\" or a line feed cannot stand there";
    if (!sReason.empty() || !iINI_SET(sCONFIG_PLACE(), "database", "conninfo", sText, sReason))
        return iSTEP(STEP_FAILED, "conninfo in " + sCONFIG_PLACE() + ": " + sReason);
    v_CONFIG_FORGET();
    return iSTEP(STEP_MADE, "conninfo in " + sCONFIG_PLACE());
}

/* Makes role and database on the machine's own server, and connects. bDefault: neither
   command line nor vk.ini has a connection text; it is completed and kept. Null: reported. */
CONNECTION pLOCAL_DATABASE(CONNECTION_TEXT& text, bool bDefault)
{
    std::string       sError;
    const bool        bUser = bDefault || text.sUser == sUSER_NAME();
    const std::string sOwner = bUser ? szOWNER : text.sUser;
    if (bDefault) {
        text.sUser = sUSER_NAME();
        text.sText = sTEXT_OF(text, text.sDatabase, text.sUser);
    }
    if (!iMAKE_LOCAL(text, sOwner)) return nullptr;
    CONNECTION pConn = pCONNECT(text.sText, sError);
    if (!pConn) {
        iSTEP(STEP_FAILED, sSHOWN(text) + ": " + sError);
        v_STEP_MORE("admit that role in pg_hba.conf, or use a role with the user's name: " +
                    sTYPED({"vk_setup", "server", "--conninfo",
                            sTEXT_OF(text, text.sDatabase, sUSER_NAME())}));
        return nullptr;
    }
    if (bDefault && !iKEEP_CONNINFO(text.sText)) return nullptr;
    return pConn;
}

/* The connection that the tool will use; null: reported. */
CONNECTION pDATABASE(const SETUP_ARGS& args, CONNECTION_TEXT& text)
{
    const std::string sConfigured = sCONFIG_TEXT("database", "conninfo", "");
    const std::string sGiven = args.sConninfo.empty() ? sConfigured : args.sConninfo;
    text = sctCONNECTION_TEXT(sGiven.empty() ? szCONFIG_CONNINFO : sGiven);
    if (!text.sError.empty()) {
        iSTEP(STEP_FAILED, "conninfo: " + text.sError);
        return nullptr;
    }
    if (!args.sConninfo.empty() && !iKEEP_CONNINFO(args.sConninfo)) return nullptr;
    std::string sError;
    if (text.bLocal) START_LOCAL_SERVER(text);
    CONNECTION pConn = pCONNECT(text.sText, sError);
    if (pConn) {
        iSTEP(STEP_THERE, sSHOWN(text));
        return pConn;
    }
    if (text.bLocal) return pLOCAL_DATABASE(text, sGiven.empty());
    TELL_ADMINISTRATOR(text, sError);
    return nullptr;
}

/* The connection that may make tables: the superuser's on the machine's own server,
   else the tool's own. */
PGconn* pMAKER(const CONNECTION_TEXT& text, PGconn* pConn, CONNECTION& pSuper)
{
    std::string sIgnored;
    if (text.bLocal) pSuper = pAS_SUPERUSER(text, text.sDatabase, sIgnored);
    return pSuper ? pSuper.get() : pConn;
}

/* What is made from now on belongs to the owner of the database, where that may be. */
void ACT_AS_OWNER(PGconn* pMaker)
{
    std::string       sIgnored;
    const std::string sOwner = sVALUE(pMaker,
                                      "select pg_get_userbyid(datdba) from pg_database where "
                                      "datname=current_database() and "
                                      "pg_has_role(datdba,'member')");
    if (!sOwner.empty()) iRUN(pMaker, "set role " + sIDENTIFIER(sOwner), nullptr, sIgnored);
}

/* Makes a part. A key that rows of the table break cannot be kept; whose rows those are is
   for the administrator to say. */
int iMAKE_PART(PGconn* pMaker, const SCHEMA_PART& part)
{
    const std::string sWhat = part.sKind + " " + part.sName;
    if (part.sRule.empty()) return iMAKE(pMaker, part.sSql, sWhat);
    if (iMAKE(pMaker, part.sSql, sWhat + " " + part.sRule)) return 1;
    const std::string sColumn = part.sName.substr(part.sTable.size() + 1);
    if (!part.bRefers()) {
        v_STEP_MORE("duplicate values prevent it: select " + sColumn + " from " + part.sTable +
                    " group by 1 having count(*)>1");
        return 0;
    }
    const std::string sOther = part.sRule.substr(11, part.sRule.find(' ', 11) - 11);
    v_STEP_MORE("orphaned rows prevent it: select * from " + part.sTable +
                " t where not exists (select from " + sOther + " o where o." + sColumn + "=t." +
                sColumn + ")");
    return 0;
}

/* Missing tables, columns, then what stands on columns: indexes and keys. */
int iMAKE_PARTS(PGconn* pMaker, const DB_GAPS& gaps)
{
    int iDone = 1;
    for (const char* cpKind : {"table", "column", "index", "key"})
        for (const SCHEMA_PART& part : gaps.parts)
            if (part.sKind == cpKind) iDone &= iMAKE_PART(pMaker, part);
    return iDone;
}

/* The database is one that the setup made: the tool's role has its rights as a member
   of the role that owns it. */
bool bOWN_DATABASE(PGconn* pMaker, const CONNECTION_TEXT& text)
{
    char szSql[256];
    iSQL(szSql,
         "select 1 from pg_database where datname=current_database() and "
         "pg_get_userbyid(datdba)='%s'",
         std::string_view(szOWNER));
    return text.sUser == sUSER_NAME() && !sVALUE(pMaker, szSql).empty();
}

/* Rights on tables: by membership where that gives them, else on each. */
int iGRANT(PGconn* pMaker, const CONNECTION_TEXT& text, PGconn* pConn, const SCHEMA& schema)
{
    std::vector<std::string> asTable = sctGAPS(pConn, schema).asForbidden;
    std::string              sRole = text.sUser;
    std::string              sIgnored;
    int                      iDone = 1;
    if (!asTable.empty() && bOWN_DATABASE(pMaker, text)) {
        sRole = szOWNER;
        iRUN(pMaker, "reset role", nullptr, sIgnored);
        if (!iMAKE_MEMBER(pMaker, text.sUser, sRole)) return 0;
        asTable = sctGAPS(pConn, schema).asForbidden;
    }
    const std::string sTo = " to " + sIDENTIFIER(sRole);
    const std::string sRights = "rights of " + sRole + " on table ";
    for (const std::string& sTable : asTable)
        iDone &= iMAKE(pMaker, "grant select,insert,update,delete on " + sIDENTIFIER(sTable) + sTo,
                       sRights + sTable);
    return iDone;
}

int iFILL_SCHEMA(const CONNECTION_TEXT& text, PGconn* pConn, const SCHEMA& schema)
{
    CONNECTION pSuper;
    DB_GAPS    gaps = sctGAPS(pConn, schema);
    if (gaps.bNone()) return iSTEP(STEP_THERE, "tables, columns and operating systems");
    PGconn* pMaker = pMAKER(text, pConn, pSuper);
    if (gaps.sError.empty()) {
        if (!iGRANT(pMaker, text, pConn, schema)) return 0;
        ACT_AS_OWNER(pMaker);
        if (!iMAKE_PARTS(pMaker, gaps)) {
            if (!text.bLocal) TELL_TABLES(text);
            return 0;
        }
        if (!iGRANT(pMaker, text, pConn, schema)) return 0;
        gaps = sctGAPS(pConn, schema);
    }
    if (!gaps.sError.empty()) return iSTEP(STEP_FAILED, "tables: " + gaps.sError);
    if (gaps.lSystems == 0) return 1;
    return iMAKE(pMaker,
                 "insert into oper_systems (os,platform) select v.os,v.platform from (values " +
                     schema.sSystems +
                     ") v(os,platform) where not exists (select from oper_systems o where "
                     "o.os=v.os)",
                 std::to_string(gaps.lSystems) + " operating systems");
}

/* An operating system's name is no longer than the tool takes it; the columns of older
   installations are wider. One that holds a longer name stays as it is, which is told. */
void NARROW_SYSTEMS(const CONNECTION_TEXT& text, PGconn* pConn, const SCHEMA& schema)
{
    constexpr std::string_view svTYPE = " add column os varchar(";
    CONNECTION                 pSuper;
    char                       szSql[1024];
    for (const SCHEMA_PART& part : schema.parts) {
        const size_t uType = part.sSql.find(svTYPE);
        if (uType == std::string::npos) continue;
        const long lMost = std::strtol(part.sSql.c_str() + uType + svTYPE.size(), nullptr, 10);
        iSQL(szSql,
             "select 1 from pg_attribute where attrelid=to_regclass('%s') and attname='os' "
             "and atttypmod-4>%ld",
             std::string_view(part.sTable), lMost);
        if (sVALUE(pConn, szSql).empty() ||
            iMAKE(pMAKER(text, pConn, pSuper),
                  "alter table " + sIDENTIFIER(part.sTable) + " alter column os type varchar(" +
                      std::to_string(lMost) + ")",
                  "column " + part.sName + " cut to the tool's limit"))
            continue;
        v_STEP_MORE("shorten the names in: select os from " + part.sTable + " where length(os)>" +
                    std::to_string(lMost));
    }
}

/* The operating system of this machine, by a name that the database knows. */
std::string sKNOWN_SYSTEM(PGconn* pConn)
{
    char szSql[1024];
    for (const std::string& sOs : asSYSTEM_NAMES()) {
        iSQL(szSql, "select os from oper_systems where os='%s'", std::string_view(sOs));
        if (!sVALUE(pConn, szSql).empty()) return sOs;
    }
    return sVALUE(pConn, "select os from oper_systems where platform='LINUX' order by os limit 1");
}

int iCHANGE_ROW(PGconn* pConn, const char* cpColumn, const std::string& sValue)
{
    char szSql[2048];
    iSQL(szSql, "update clients set %s='%s' where client_id=0", RAW_TEXT{cpColumn},
         std::string_view(sValue));
    return iMAKE(pConn, szSql,
                 std::string("row of the server: ") + cpColumn + " is \"" + sValue + "\"");
}

int iSERVER_ROW(PGconn* pConn, const SETUP_ARGS& args)
{
    const SERVER_ROW  row = sctSERVER_ROW(pConn);
    const std::string sOs = sKNOWN_SYSTEM(pConn);
    char              szSql[2048];
    if (!row.sError.empty()) return iSTEP(STEP_FAILED, "row of the server: " + row.sError);
    if (row.bThere) {
        const bool bRename = !args.sName.empty() && args.sName != row.sName;
        if (bRename && !iCHANGE_ROW(pConn, "name", args.sName)) return 0;
        if (!row.bKnownOs) return iCHANGE_ROW(pConn, "os", sOs);
        if (!bRename) iSTEP(STEP_THERE, "row of the server: " + row.sName + ", " + row.sOs);
        return 1;
    }
    const std::string sName = args.sName.empty() ? sMACHINE_NAME() : args.sName;
    iSQL(szSql, "select client_id from clients where name='%s'", std::string_view(sName));
    if (const std::string sId = sVALUE(pConn, szSql); !sId.empty()) {
        iSTEP(STEP_FAILED, "row of the server: client " + sId + " has the name \"" + sName + "\"");
        v_STEP_MORE("give the server another one with --name, or remove that client: " +
                    sTYPED({"vk_config_client", "-c", sName, "-C", "d"}));
        return 0;
    }
    iSQL(szSql,
         "insert into clients (client_id,name,os,net_prot,location,accessmode,exec) values "
         "(0,'%s','%s','TCPIP','0','VKSSH','0')",
         std::string_view(sName), std::string_view(sOs));
    return iMAKE(pConn, szSql, "row of the server: " + sName + ", " + sOs);
}

}  // namespace

int iSETUP_DATABASE(const SETUP_ARGS& args)
{
    SCHEMA      schema;
    std::string sError;
    if (!iREAD_SCHEMA(schema, sError))
        return iSTEP(STEP_FAILED, "tables: " + sError + "; install the package again");
    CONNECTION_TEXT  text;
    const CONNECTION pConn = pDATABASE(args, text);
    if (!pConn || !iFILL_SCHEMA(text, pConn.get(), schema)) return 0;
    NARROW_SYSTEMS(text, pConn.get(), schema);
    return iSERVER_ROW(pConn.get(), args);
}
