/* The connection to the database.

   Connecting   the connection text of vk.ini with the settings that this library
                relies on laid around it, all in the start-up message: no
                statement is spent on them
   Statement    sent without parameters through the extended protocol, so it is
                one statement; rows come one by one; every wait has a deadline
                somewhat behind the server's own statement_timeout
   Lost         a connection that broke is dropped; the next statement connects
                anew; standard error is told once per run */
#include "cm_db_connection.h"

#include <poll.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "cm_config.h"
#include "cm_immortal.h"
#include "common.h"
#include "unix/cm_hal_pipe.h"

namespace {

constexpr char szPROGRAM[] = "vk_config_client";
constexpr char szDEFAULT[] = "host=/run/postgresql dbname=velka user=velka";
/* Seconds behind the server's own limit after which it is given up. */
constexpr int iBEHIND_SERVER = 5;

template<auto pFree>
struct FREE_BY {
    template<class T>
    void operator()(T* p) const
    {
        pFree(p);
    }
};
using CONNECTION = std::unique_ptr<PGconn, FREE_BY<PQfinish>>;
using RESULT = std::unique_ptr<PGresult, FREE_BY<PQclear>>;
using CONNINFO = std::unique_ptr<PQconninfoOption, FREE_BY<PQconninfoFree>>;

CONNECTION& CONN()
{
    static IMMORTAL<CONNECTION> connection;
    return connection.Get();
}

void CLOSE_AT_END()
{
    CONN().reset();
}

/* A value that the connection text itself sets, "" when it does not. */
std::string sSET_IN(const PQconninfoOption* pOptions, std::string_view svKeyword)
{
    for (; pOptions != nullptr && pOptions->keyword != nullptr; pOptions++)
        if (svKeyword == pOptions->keyword && pOptions->val != nullptr) return pOptions->val;
    return "";
}

std::string sENVIRONMENT(const char* cpName)
{
    const char* cp = std::getenv(cpName);
    return cp != nullptr ? cp : "";
}

/* Server settings of the session: the text's own first, ours win. */
std::string sSESSION_OPTIONS(const std::string& sOwn)
{
    return (sOwn.empty() ? sENVIRONMENT("PGOPTIONS") : sOwn) +
           " -c standard_conforming_strings=on -c DateStyle=ISO -c statement_timeout=" +
           std::to_string(iCONFIG_STATEMENT_TIMEOUT()) + "s";
}

/* The parameters of the connection. Those before "dbname", which holds the
   connection text, may be overridden by it, those behind it not. */
struct PARAMETERS {
    std::vector<const char*> acpKeyword;
    std::vector<std::string> asValue;

    void Add(const char* cpKeyword, std::string sValue)
    {
        acpKeyword.push_back(cpKeyword);
        asValue.push_back(std::move(sValue));
    }
};

PARAMETERS sctPARAMETERS(const std::string& sText)
{
    /* A text that cannot be parsed is told by the connect itself. */
    const CONNINFO    pOptions{PQconninfoParse(sText.c_str(), nullptr)};
    const std::string sHosts =
        sSET_IN(pOptions.get(), "host") + sSET_IN(pOptions.get(), "hostaddr");
    v_SECRET(sSET_IN(pOptions.get(), "password"));
    PARAMETERS parameters;
    parameters.Add("connect_timeout", "10");
    parameters.Add("application_name", szPROGRAM);
    parameters.Add("keepalives", "1");
    parameters.Add("keepalives_idle", "30");
    parameters.Add("keepalives_interval", "10");
    parameters.Add("keepalives_count", "3");
    parameters.Add("tcp_user_timeout", "60000");
    if ((sHosts.empty() ? sENVIRONMENT("PGHOST") : sHosts).find(',') != std::string::npos)
        parameters.Add("target_session_attrs", "read-write");
    parameters.Add("dbname", sText);
    parameters.Add("client_encoding", "UTF8");
    parameters.Add("options", sSESSION_OPTIONS(sSET_IN(pOptions.get(), "options")));
    return parameters;
}

/* The text of libpq as one line without the line feeds and tabs inside it. */
std::string sERROR_LINE(const char* cpText)
{
    std::string s;
    for (const char c : sONE_LINE(cpText))
        if (c != ' ' || (!s.empty() && s.back() != ' ')) s.push_back(c);
    while (s.ends_with(' ')) s.pop_back();
    return s;
}

void TELL_LOST(const std::string& sError)
{
    v_STDERR_ONCE("database", "cannot use the database: %s", sError.c_str());
}

void IGNORE_NOTICE(void* /*pNone*/, const char* /*cpText*/) {}

int iCONNECT(std::string& sError)
{
    const PARAMETERS parameters = sctPARAMETERS(sCONFIG_TEXT("database", "conninfo", szDEFAULT));
    std::vector<const char*> acpKeyword = parameters.acpKeyword;
    std::vector<const char*> acpValue;
    for (const std::string& s : parameters.asValue) acpValue.push_back(s.c_str());
    acpKeyword.push_back(nullptr);
    acpValue.push_back(nullptr);

    CONNECTION pConn{PQconnectdbParams(acpKeyword.data(), acpValue.data(), 1)};
    if (!pConn || PQstatus(pConn.get()) != CONNECTION_OK || PQsetnonblocking(pConn.get(), 1) != 0) {
        sError = pConn ? sERROR_LINE(PQerrorMessage(pConn.get())) : "no memory";
        return 0;
    }
    PQsetErrorVerbosity(pConn.get(), PQERRORS_TERSE);
    PQsetErrorContextVisibility(pConn.get(), PQSHOW_CONTEXT_NEVER);
    PQsetNoticeProcessor(pConn.get(), IGNORE_NOTICE, nullptr);
    static const bool bRegistered = (v_AT_END(CLOSE_AT_END), true);
    static_cast<void>(bRegistered);
    CONN() = std::move(pConn);
    return 1;
}

/* Waits for the socket. A signal that the caller only wants to see does not end a
   statement that stores an outcome; the deadline does. Result 0: it has passed. */
int iWAIT_SOCKET(PGconn* pConn, bool bWrite, long lDeadline)
{
    std::vector<WAIT_FD> fds{{PQsocket(pConn)}};
    if (bWrite) fds.push_back({PQsocket(pConn), true});
    const WAIT_RESULT eResult = iWAIT(fds, lDeadline);
    if (eResult != WAIT_SIGNAL) return eResult == WAIT_READY;
    pollfd     sctPoll{PQsocket(pConn), static_cast<short>(bWrite ? POLLIN | POLLOUT : POLLIN), 0};
    const long lLeft = lDeadline == 0 ? -1 : std::max(lDeadline - lNOW_MS(), 0L);
    return poll(&sctPoll, 1, static_cast<int>(lLeft)) != 0;
}

/* How the traffic with the server stands. */
enum STEP { STEP_READY, STEP_BROKEN, STEP_LATE, STEP_UNFIT };

STEP eSEND_ALL(PGconn* pConn, long lDeadline)
{
    int iLeft = 0;
    while ((iLeft = PQflush(pConn)) > 0) {
        if (!iWAIT_SOCKET(pConn, true, lDeadline)) return STEP_LATE;
        if (!PQconsumeInput(pConn)) return STEP_BROKEN;
    }
    return iLeft == 0 ? STEP_READY : STEP_BROKEN;
}

/* Waits until the next result can be taken without waiting. */
STEP eAWAIT_RESULT(PGconn* pConn, long lDeadline)
{
    while (PQisBusy(pConn)) {
        if (!iWAIT_SOCKET(pConn, false, lDeadline)) return STEP_LATE;
        if (!PQconsumeInput(pConn)) return STEP_BROKEN;
    }
    return STEP_READY;
}

void FAIL(DB_OUTCOME& outcome, std::string sError)
{
    outcome.bOk = false;
    if (outcome.sError.empty()) outcome.sError = std::move(sError);
}

/* Takes one result in. Result 0: the connection is of no use any more. */
int iTAKE(const PGresult* pResult, const DB_ROW& pRow, DB_OUTCOME& outcome)
{
    switch (PQresultStatus(pResult)) {
        case PGRES_SINGLE_TUPLE:
            outcome.bColumns = true;
            outcome.lRows++;
            pRow(pResult);
            return 1;
        case PGRES_TUPLES_OK:
            outcome.bColumns = true;
            return 1;
        case PGRES_COMMAND_OK:
            outcome.lRows = std::strtol(PQcmdTuples(const_cast<PGresult*>(pResult)), nullptr, 10);
            return 1;
        case PGRES_EMPTY_QUERY:
            FAIL(outcome, "the statement is empty");
            return 1;
        case PGRES_FATAL_ERROR: {
            const char* cpState = PQresultErrorField(pResult, PG_DIAG_SQLSTATE);
            if (cpState != nullptr) outcome.sSqlState = cpState;
            FAIL(outcome, sERROR_LINE(PQresultErrorMessage(pResult)));
            return 1;
        }
        default:
            FAIL(outcome, "the statement opens a copy");
            return 0;
    }
}

/* Takes all results of the statement that was sent. */
STEP eTAKE_ALL(PGconn* pConn, const DB_ROW& pRow, long lDeadline, DB_OUTCOME& outcome)
{
    outcome.bOk = true;
    while (true) {
        const STEP eStep = eAWAIT_RESULT(pConn, lDeadline);
        if (eStep != STEP_READY) return eStep;
        const RESULT pResult{PQgetResult(pConn)};
        if (!pResult) return PQstatus(pConn) == CONNECTION_OK ? STEP_READY : STEP_BROKEN;
        if (!iTAKE(pResult.get(), pRow, outcome)) return STEP_UNFIT;
    }
}

STEP eCONVERSE(PGconn* pConn, const char* cpSql, const DB_ROW& pRow, long lDeadline,
               DB_OUTCOME& outcome)
{
    if (!PQsendQueryParams(pConn, cpSql, 0, nullptr, nullptr, nullptr, nullptr, 0))
        return STEP_BROKEN;
    PQsetSingleRowMode(pConn);
    const STEP eStep = eSEND_ALL(pConn, lDeadline);
    return eStep == STEP_READY ? eTAKE_ALL(pConn, pRow, lDeadline, outcome) : eStep;
}

/* A connection that is late or broken is closed without a word to the server,
   which may not be listening. */
void DROP(STEP eStep, int iLimit, DB_OUTCOME& outcome)
{
    FAIL(outcome, eStep == STEP_LATE
                      ? "no answer from the database within " + std::to_string(iLimit) + " seconds"
                      : sERROR_LINE(PQerrorMessage(CONN().get())));
    outcome.sSqlState.clear();
    CONN().reset();
    if (eStep != STEP_UNFIT) TELL_LOST(outcome.sError);
}

}  // namespace

DB_OUTCOME sctDB_RUN(const char* cpSql, const DB_ROW& pRow)
{
    DB_OUTCOME outcome;
    if (cpSql == nullptr || *cpSql == '\0') {
        outcome.sError = "the statement does not fit its buffer";
        return outcome;
    }
    if (!CONN() && !iCONNECT(outcome.sError)) {
        TELL_LOST(outcome.sError);
        return outcome;
    }
    const int  iTimeout = iCONFIG_STATEMENT_TIMEOUT();
    const int  iLimit = iTimeout + iBEHIND_SERVER;
    const long lDeadline = iTimeout == 0 ? 0 : lNOW_MS() + iLimit * 1000L;
    const STEP eStep = eCONVERSE(CONN().get(), cpSql, pRow, lDeadline, outcome);
    if (eStep != STEP_READY) DROP(eStep, iLimit, outcome);
    return outcome;
}
