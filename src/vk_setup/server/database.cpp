#include "database.h"

#include "common/base/program.h"
#include "common/common.h"

namespace {

using RESULT = std::unique_ptr<PGresult, FREE_BY<PQclear>>;
using CONNINFO = std::unique_ptr<PQconninfoOption, FREE_BY<PQconninfoFree>>;
using PQ_TEXT = std::unique_ptr<char, FREE_BY<PQfreemem>>;

constexpr char szTIMEOUT[] = "set statement_timeout='60s'";

/* One line, blanks counted once, no "ERROR:" in front. */
std::string sLINE(const char* cpText)
{
    std::string s = sCONDENSED(cpText);
    for (const std::string_view sv : {"ERROR: ", "FATAL: "})
        if (s.starts_with(sv)) s.erase(0, sv.size());
    return s;
}

void TAKE_OPTION(const PQconninfoOption& option, CONNECTION_TEXT& text)
{
    const std::string sKey = option.keyword;
    const std::string sValue = option.val != nullptr ? option.val : "";
    if (sKey == "password") v_SECRET(sValue);
    if (sKey == "host" || (sKey == "hostaddr" && !sValue.empty())) text.sHost = sValue;
    if (sKey == "port") text.sPort = sValue;
    if (sKey == "dbname") text.sDatabase = sValue;
    if (sKey == "user") text.sUser = sValue;
    if (sKey == "passfile") text.sPassFile = sValue;
}

}  // namespace

CONNECTION_TEXT sctCONNECTION_TEXT(const std::string& sText)
{
    CONNECTION_TEXT text;
    text.sText = sText;
    char*          cpError = nullptr;
    const CONNINFO pInfo{PQconninfoParse(sText.c_str(), &cpError)};
    const PQ_TEXT  pError{cpError};
    if (!pInfo) {
        text.sError = pError ? sLINE(pError.get()) : "no memory";
        return text;
    }
    for (const PQconninfoOption* p = pInfo.get(); p->keyword != nullptr; p++) TAKE_OPTION(*p, text);
    if (text.sHost.empty()) text.sHost = sENVIRONMENT("PGHOST");
    if (text.sPassFile.empty()) text.sPassFile = sENVIRONMENT("PGPASSFILE");
    if (text.sPort.empty()) text.sPort = "5432";
    if (text.sHost.empty()) text.sHost = "/run/postgresql";
    if (text.sDatabase.empty()) text.sDatabase = text.sUser;
    text.bLocal = text.sHost.starts_with('/') && text.sHost.find(',') == std::string::npos;
    return text;
}

std::string sSHOWN(const CONNECTION_TEXT& text)
{
    return "database " + text.sDatabase + " at " + text.sHost +
           (text.sUser.empty() ? "" : " as " + text.sUser);
}

CONNECTION pCONNECT(const std::string& sText, std::string& sError)
{
    const bool        bSeveral = sctCONNECTION_TEXT(sText).sHost.find(',') != std::string::npos;
    const char* const acpKeyword[] = {"connect_timeout",
                                      "application_name",
                                      "keepalives_idle",
                                      "keepalives_interval",
                                      "tcp_user_timeout",
                                      "target_session_attrs",
                                      "dbname",
                                      "client_encoding",
                                      nullptr};
    const char* const acpValue[] = {"10",          "vk_setup", "30",
                                    "10",          "60000",    bSeveral ? "read-write" : "any",
                                    sText.c_str(), "UTF8",     nullptr};
    CONNECTION        pConn{PQconnectdbParams(acpKeyword, acpValue, 1)};
    if (!pConn || PQstatus(pConn.get()) != CONNECTION_OK) {
        sError = pConn ? sLINE(PQerrorMessage(pConn.get())) : "no memory";
        return nullptr;
    }
    PQsetErrorVerbosity(pConn.get(), PQERRORS_TERSE);
    PQsetNoticeProcessor(
        pConn.get(), [](void*, const char*) {}, nullptr);
    if (!iRUN(pConn.get(), szTIMEOUT, nullptr, sError)) return nullptr;
    return pConn;
}

int iRUN(PGconn* pConn, const std::string& sSql, DB_ROWS* pRows, std::string& sError)
{
    if (pRows != nullptr) pRows->clear();
    const RESULT pResult{
        PQexecParams(pConn, sSql.c_str(), 0, nullptr, nullptr, nullptr, nullptr, 0)};
    const ExecStatusType eStatus = PQresultStatus(pResult.get());
    if (eStatus != PGRES_TUPLES_OK && eStatus != PGRES_COMMAND_OK) {
        sError = sLINE(pResult ? PQresultErrorMessage(pResult.get()) : PQerrorMessage(pConn));
        if (sError.empty()) sError = "the statement is empty";
        return 0;
    }
    for (int iRow = 0; pRows != nullptr && iRow < PQntuples(pResult.get()); iRow++) {
        std::vector<std::string>& asRow = pRows->emplace_back();
        for (int i = 0; i < PQnfields(pResult.get()); i++)
            asRow.emplace_back(PQgetvalue(pResult.get(), iRow, i));
    }
    return 1;
}

std::string sVALUE(PGconn* pConn, const std::string& sSql)
{
    DB_ROWS     rows;
    std::string sError;
    iRUN(pConn, sSql, &rows, sError);
    return rows.empty() ? "" : rows[0][0];
}

std::string sIDENTIFIER(const std::string& sName)
{
    return "\"" + sMARKED(sVALID_UTF8(sName), "\"", '"') + "\"";
}

SERVER_ROW sctSERVER_ROW(PGconn* pConn)
{
    SERVER_ROW row;
    DB_ROWS    rows;
    if (!iRUN(pConn,
              "select c.name,c.os,o.os is not null from clients c left join oper_systems o on "
              "o.os=c.os where c.client_id=0",
              &rows, row.sError) ||
        rows.empty())
        return row;
    row.bThere = true;
    row.sName = rows[0][0];
    row.sOs = rows[0][1];
    row.bKnownOs = rows[0][2] == "t";
    return row;
}
