/* The database: that it can be reached, and that it has what the tool reads and writes. */
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <map>

#include "../programs.h"
#include "common/common.h"
#include "common/config/config.h"
#include "common/database/failure.h"
#include "common/remote/cause.h"
#include "database.h"
#include "setup.h"
#include "steps.h"

namespace {

std::string sLIST(std::vector<std::string> asText)
{
    constexpr size_t uMAX = 5;
    const bool       bMore = asText.size() > uMAX;
    if (bMore) asText.resize(uMAX);
    return sJOINED(asText, ", ") + (bMore ? " and more" : "");
}

/* libpq passes over a password file that others may read. */
int iCHECK_PASSWORD_FILE(const CONNECTION_TEXT& text)
{
    struct stat sctStat {};
    if (text.sPassFile.empty()) return 1;
    const std::string sWhat = "password file " + text.sPassFile;
    if (stat(text.sPassFile.c_str(), &sctStat) != 0) {
        v_WRONG_ADVICE(sWhat, "cannot be read", "put HOST:PORT:DATABASE:USER:PASSWORD there");
        return 0;
    }
    if ((sctStat.st_mode & 0077U) != 0) {
        v_WRONG(sWhat, "others may read it, so it is not used",
                sTYPED({"chmod", "600", text.sPassFile}));
        return 0;
    }
    v_GOOD(sWhat);
    return 1;
}

CONNECTION pCHECK_CONNECTION(const CONNECTION_TEXT& text)
{
    std::string sError = text.sError;
    if (!sError.empty()) {
        v_WRONG("database", "conninfo in vk.ini: " + sError,
                sTYPED({"sed", "-i", "s/^[[:space:]]*conninfo/; &/", sCONFIG_PLACE()}) +
                    " && vk_setup server");
        return nullptr;
    }
    if (!iCHECK_PASSWORD_FILE(text)) return nullptr;
    CONNECTION pConn = pCONNECT(text.sText, sError);
    if (pConn) return pConn;
    // On this machine the setup can make what is missing; elsewhere it says who has to,
    // unless it is for vk.ini to say otherwise.
    const FINDING     finding{sctDB_FAILURE("", sError).cpCause, STAGE_NONE, {}};
    const std::string sCure = sctDIAGNOSIS(finding, {{"file", text.sPassFile}}).sCure;
    if (!text.bLocal && sCure.find("conninfo") != sCure.npos)
        v_WRONG_ADVICE(sSHOWN(text), sError, sCure);
    else
        v_WRONG(sSHOWN(text), sError, "vk_setup server");
    return nullptr;
}

/* The statements that take the read-only default away, wherever it was set for this
   database or this role; none: it is not set in the database. */
std::vector<std::string> asRESETS(PGconn* pConn)
{
    DB_ROWS                  rows;
    std::string              sError;
    std::vector<std::string> asSql;
    iRUN(pConn,
         "select 'alter '||case when setrole=0 and setdatabase=0 then 'role all' "
         "when setrole=0 then format('database %I',current_database()) "
         "when setdatabase=0 then format('role %I',session_user) "
         "else format('role %I in database %I',session_user,current_database()) end"
         "||' reset default_transaction_read_only' from pg_db_role_setting "
         "where setrole in (0,(select oid from pg_roles where rolname=session_user)) and "
         "setdatabase in (0,(select oid from pg_database where datname=current_database())) and "
         "exists (select from unnest(setconfig) c where c like 'default_transaction_read_only=%')",
         &rows, sError);
    for (const auto& asRow : rows) asSql.push_back(asRow[0]);
    return asSql;
}

void CHECK_WRITABLE(PGconn* pConn, const CONNECTION_TEXT& text)
{
    const std::string sVersion = sVALUE(pConn, "show server_version");
    const std::string sWhat = sSHOWN(text) + ", PostgreSQL " + sVersion +
                              (text.bLocal              ? ""
                               : PQsslInUse(pConn) != 0 ? ", with TLS"
                                                        : ", without TLS");
    if (sVALUE(pConn, "select pg_is_in_recovery()") == "t")
        return v_WRONG_ADVICE(sWhat, "is a standby", "name the primary, or both, in conninfo");
    if (sVALUE(pConn, "show transaction_read_only") != "on") return v_GOOD(sWhat);
    const std::vector<std::string> asReset = asRESETS(pConn);
    if (asReset.empty())
        return v_WRONG_ADVICE(
            sWhat, "is read-only",
            sVALUE(pConn,
                   "select source from pg_settings where "
                   "name='default_transaction_read_only'") == "client"
                ? "take default_transaction_read_only out of options in conninfo, or of PGOPTIONS"
                : "set default_transaction_read_only off in postgresql.conf and reload it");
    std::vector<std::string> asWord{"psql", "-d", text.sText, "-c",
                                    "set default_transaction_read_only=off"};
    for (const std::string& sSql : asReset) asWord.insert(asWord.end(), {"-c", sSql});
    v_WRONG(sWhat, "is read-only", sTYPED(asWord));
}

void CHECK_TABLES(PGconn* pConn)
{
    SCHEMA      schema;
    std::string sError;
    if (!iREAD_SCHEMA(schema, sError))
        return v_WRONG("tables", sError, "apt-get install --reinstall ./vk-config-client_*.deb");
    const DB_GAPS gaps = sctGAPS(pConn, schema);
    const auto    line = [](bool bGood, const std::string& sWhat, const std::string& sCause) {
        if (bGood)
            v_GOOD(sWhat);
        else
            v_WRONG(sWhat, sCause, "vk_setup server");
    };
    std::map<std::string, std::vector<std::string>> missing;
    for (const SCHEMA_PART& part : gaps.parts)
        if (std::vector<std::string>& asTable = missing["table"];
            std::find(asTable.begin(), asTable.end(), part.sTable) == asTable.end())
            missing[part.sKind].push_back(part.sName);
    line(gaps.sError.empty() && missing["table"].empty(), "tables",
         gaps.sError.empty() ? "missing: " + sLIST(missing["table"]) : gaps.sError);
    line(missing["column"].empty(), "columns", "missing: " + sLIST(missing["column"]));
    line(missing["index"].empty(), "indexes", "missing: " + sLIST(missing["index"]));
    line(missing["key"].empty(), "keys", "missing: " + sLIST(missing["key"]));
    line(gaps.asForbidden.empty(), "rights on the tables", "not all on " + sLIST(gaps.asForbidden));
    line(gaps.lSystems == 0, "operating systems",
         std::to_string(gaps.lSystems) + " of the product's are missing in oper_systems");
}

void CHECK_ROW(PGconn* pConn)
{
    const SERVER_ROW row = sctSERVER_ROW(pConn);
    if (!row.sError.empty())
        v_WRONG("row of the server", row.sError, "vk_setup server");
    else if (!row.bThere)
        v_WRONG("row of the server", "clients has no row with client_id 0", "vk_setup server");
    else if (row.sName.empty())
        v_WRONG("row of the server", "has no name",
                sTYPED({"vk_setup", "server", "--name", sMACHINE_NAME()}));
    else if (!row.bKnownOs)
        v_WRONG("row of the server",
                "its operating system \"" + row.sOs + "\" is not in oper_systems",
                "vk_setup server");
    else
        v_GOOD("row of the server: " + row.sName + ", " + row.sOs);
}

/* Rows of clients that no run can work on. */
void CHECK_CLIENTS(PGconn* pConn)
{
    DB_ROWS                  rows;
    std::string              sError;
    std::vector<std::string> asMode;
    std::string              sConfig;
    iRUN(pConn, "select distinct accessmode from clients where client_id>0 and accessmode<>''",
         &rows, sError);
    for (const auto& asRow : rows) {
        const bool bNoSsh = asRow[0] == "PROXY" || asRow[0] == "VIRTUAL";
        if (!bNoSsh && !iCONFIG_ACCESS(asRow[0].c_str(), sConfig)) asMode.push_back(asRow[0]);
    }
    if (asMode.empty())
        v_GOOD("access modes of the clients");
    else
        v_WRONG("access modes of the clients", "not configured: " + sLIST(asMode),
                sTYPED({"printf", "[access %s]\\nconfig = gv_rw_ini:ssh/config\\n", asMode[0]}) +
                    " >>" + sTYPED({sCONFIG_PLACE()}));
    iRUN(pConn,
         "select name from clients c where client_id>0 and not exists (select from oper_systems o "
         "where o.os=c.os) order by name limit 6",
         &rows, sError);
    std::vector<std::string> asName;
    for (const auto& asRow : rows) asName.push_back(asRow[0]);
    if (asName.empty())
        v_GOOD("operating systems of the clients");
    else
        v_WRONG("operating systems of the clients", "unknown in oper_systems: " + sLIST(asName),
                sTYPED({"vk_config_client", "-t", "0", "-c", asName[0], "-o"}) + " SYSTEM");
}

}  // namespace

void v_CHECK_DATABASE()
{
    const CONNECTION_TEXT text =
        sctCONNECTION_TEXT(sCONFIG_TEXT("database", "conninfo", szCONFIG_CONNINFO));
    const CONNECTION pConn = pCHECK_CONNECTION(text);
    if (!pConn) return;
    CHECK_WRITABLE(pConn.get(), text);
    CHECK_TABLES(pConn.get());
    if (sVALUE(pConn.get(),
               "select to_regclass('clients') is not null and "
               "to_regclass('oper_systems') is not null") != "t")
        return;
    CHECK_ROW(pConn.get());
    CHECK_CLIENTS(pConn.get());
}
