/* The connection to the database.

   Connecting   the connection text of vk.ini with the settings that this library
                relies on laid around it, all in the start-up message: no
                statement is spent on them
   Statement    sent without parameters through the extended protocol, so it is
                one statement; rows come one by one; every wait has a deadline
                somewhat behind the server's own statement_timeout
   Lost         a connection that broke is dropped; the next statement connects
                anew; standard error is told once per run */
#include "connection.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "../config/config.h"
#include "../text/holder.h"
#include "../text/immortal.h"
#include "../text/program.h"
#include "../text/secret.h"
#include "../text/standard_error.h"
#include "../text/text.h"
#include "../unix/cm_hal_pipe.h"

namespace {

constexpr char szDEFAULT[] = "host=/run/postgresql dbname=velka user=velka";
/* Seconds behind the server's own limit after which it is given up. */
constexpr int iBEHIND_SERVER = 5;
/* Seconds for connecting to one host, unless the connection text says. */
constexpr int iCONNECT_TIMEOUT = 10;
/* A connect that failed after this long met silence, not a refusal. */
constexpr long lSILENT_MS = 1500;

using CONNECTION = std::unique_ptr<PGconn, FREE_BY<PQfinish>>;
using RESULT = std::unique_ptr<PGresult, FREE_BY<PQclear>>;
using CONNINFO = std::unique_ptr<PQconninfoOption, FREE_BY<PQconninfoFree>>;

CONNECTION& CONN()
{
    static IMMORTAL<CONNECTION> connection;
    return connection.Get();
}

bool& CONNECTED_ONCE()
{
    static bool bOnce = false;
    return bOnce;
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
    bool                     bOneHost = true;  // libpq has no other host to try
    int                      iTimeout = iCONNECT_TIMEOUT;

    void Add(const char* cpKeyword, std::string sValue)
    {
        acpKeyword.push_back(cpKeyword);
        asValue.push_back(std::move(sValue));
    }
};

PARAMETERS sctPARAMETERS(const std::string& sText)
{
    /* A text that cannot be parsed is told by the connect itself. */
    const CONNINFO          pInfo{PQconninfoParse(sText.c_str(), nullptr)};
    const PQconninfoOption* pOptions = pInfo.get();
    v_SECRET(sSET_IN(pOptions, "password"));
    std::string       sHosts = sSET_IN(pOptions, "host") + sSET_IN(pOptions, "hostaddr");
    const std::string sTimeout = sSET_IN(pOptions, "connect_timeout");
    if (sHosts.empty()) sHosts = sENVIRONMENT("PGHOST");
    const bool bSeveral = sHosts.find(',') != std::string::npos;
    const bool bService = !(sSET_IN(pOptions, "service") + sENVIRONMENT("PGSERVICE")).empty();
    PARAMETERS parameters;
    parameters.bOneHost = !bSeveral && !bService;
    if (!sTimeout.empty())
        parameters.iTimeout = static_cast<int>(std::strtol(sTimeout.c_str(), nullptr, 10));
    parameters.Add("connect_timeout", std::to_string(iCONNECT_TIMEOUT));
    parameters.Add("application_name", cpPROGRAM_NAME());
    parameters.Add("keepalives", "1");
    parameters.Add("keepalives_idle", "30");
    parameters.Add("keepalives_interval", "10");
    parameters.Add("keepalives_count", "3");
    parameters.Add("tcp_user_timeout", "60000");
    if (bSeveral) parameters.Add("target_session_attrs", "read-write");
    parameters.Add("dbname", sText);
    parameters.Add("client_encoding", "UTF8");
    parameters.Add("options", sSESSION_OPTIONS(sSET_IN(pOptions, "options")));
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

/* Waits for the socket. A signal that the caller only wants to see does not end a
   statement that stores an outcome; the deadline does. Result 0: it has passed. */
int iWAIT_SOCKET(PGconn* pConn, bool bRead, bool bWrite, long lDeadline)
{
    WAIT_RESULT eResult = WAIT_SIGNAL;
    while (eResult == WAIT_SIGNAL) {
        std::vector<WAIT_FD> fds;
        if (bRead) fds.push_back({PQsocket(pConn)});
        if (bWrite) fds.push_back({PQsocket(pConn), true});
        eResult = iWAIT(fds, lDeadline);
    }
    // Where the system cannot wait, the socket is looked at from time to time.
    if (eResult == WAIT_FAILED) return lDeadline == 0 || lNOW_MS() < lDeadline;
    return eResult == WAIT_READY;
}

/* Carries a begun connect to its end, so that a signal ends the wait. */
int iFINISH_CONNECT(PGconn* pConn, int iTimeout, std::string& sError)
{
    const long                lDeadline = iTimeout > 0 ? lNOW_MS() + iTimeout * 1000L : 0;
    PostgresPollingStatusType eNext =
        PQstatus(pConn) == CONNECTION_BAD ? PGRES_POLLING_FAILED : PGRES_POLLING_WRITING;
    while (eNext == PGRES_POLLING_READING || eNext == PGRES_POLLING_WRITING) {
        const bool bWrite = eNext == PGRES_POLLING_WRITING;
        if (!iWAIT_SOCKET(pConn, !bWrite, bWrite, lDeadline)) {
            sError = std::string("connection to server at \"") + PQhost(pConn) + "\", port " +
                     PQport(pConn) + " failed: timeout expired";
            return 0;
        }
        eNext = PQconnectPoll(pConn);
    }
    return eNext == PGRES_POLLING_OK;
}

/* Of several hosts only libpq's own connect goes on to the next one when a host
   says nothing; it is then libpq that waits. */
CONNECTION pOPENED(const PARAMETERS& parameters, std::string& sError)
{
    std::vector<const char*> acpKeyword = parameters.acpKeyword;
    std::vector<const char*> acpValue;
    for (const std::string& s : parameters.asValue) acpValue.push_back(s.c_str());
    acpKeyword.push_back(nullptr);
    acpValue.push_back(nullptr);
    if (!parameters.bOneHost)
        return CONNECTION{PQconnectdbParams(acpKeyword.data(), acpValue.data(), 1)};
    CONNECTION pConn{PQconnectStartParams(acpKeyword.data(), acpValue.data(), 1)};
    if (pConn) iFINISH_CONNECT(pConn.get(), parameters.iTimeout, sError);
    return pConn;
}

int iCONNECT(std::string& sError)
{
    CONNECTION pConn =
        pOPENED(sctPARAMETERS(sCONFIG_TEXT("database", "conninfo", szDEFAULT)), sError);
    if (!pConn || PQstatus(pConn.get()) != CONNECTION_OK || PQsetnonblocking(pConn.get(), 1) != 0) {
        if (sError.empty()) sError = pConn ? sERROR_LINE(PQerrorMessage(pConn.get())) : "no memory";
        return 0;
    }
    PQsetErrorVerbosity(pConn.get(), PQERRORS_TERSE);
    PQsetErrorContextVisibility(pConn.get(), PQSHOW_CONTEXT_NEVER);
    PQsetNoticeProcessor(pConn.get(), IGNORE_NOTICE, nullptr);
    if (!bDB_CONNECTED_ONCE()) v_AT_END(CLOSE_AT_END);
    CONNECTED_ONCE() = true;
    CONN() = std::move(pConn);
    return 1;
}

/* Connects for a statement. A server that let the whole time pass is not asked
   again for as long: a run whose database is silent ends after one wait. */
int iCONNECT_OR_REMEMBER(std::string& sError)
{
    static IMMORTAL<std::string> sLastError;
    static long                  lNotBefore = 0;
    const long                   lStart = lNOW_MS();
    if (lStart < lNotBefore) {
        sError = sLastError.Get();
        return 0;
    }
    if (iCONNECT(sError)) return 1;
    sLastError.Get() = sError;
    const long lWaited = lNOW_MS() - lStart;
    lNotBefore = lWaited > lSILENT_MS ? lNOW_MS() + lWaited : 0;
    TELL_LOST(sError);
    return 0;
}

/* How the traffic with the server stands. */
enum STEP { STEP_READY, STEP_BROKEN, STEP_LATE, STEP_UNFIT };

STEP eSEND_ALL(PGconn* pConn, long lDeadline)
{
    int iLeft = 0;
    while ((iLeft = PQflush(pConn)) > 0) {
        if (!iWAIT_SOCKET(pConn, true, true, lDeadline)) return STEP_LATE;
        if (!PQconsumeInput(pConn)) return STEP_BROKEN;
    }
    return iLeft == 0 ? STEP_READY : STEP_BROKEN;
}

/* Waits until the next result can be taken without waiting. */
STEP eAWAIT_RESULT(PGconn* pConn, long lDeadline)
{
    while (PQisBusy(pConn)) {
        if (!iWAIT_SOCKET(pConn, true, false, lDeadline)) return STEP_LATE;
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

bool bDB_CONNECTED_ONCE()
{
    return CONNECTED_ONCE();
}

DB_OUTCOME sctDB_RUN(const char* cpSql, const DB_ROW& pRow)
{
    DB_OUTCOME outcome;
    if (cpSql == nullptr || *cpSql == '\0') {
        outcome.sError = "the statement does not fit its buffer";
        return outcome;
    }
    if (!CONN() && !iCONNECT_OR_REMEMBER(outcome.sError)) return outcome;
    const int  iTimeout = iCONFIG_STATEMENT_TIMEOUT();
    const int  iLimit = iTimeout + iBEHIND_SERVER;
    const long lDeadline = iTimeout == 0 ? 0 : lNOW_MS() + iLimit * 1000L;
    const STEP eStep = eCONVERSE(CONN().get(), cpSql, pRow, lDeadline, outcome);
    if (eStep != STEP_READY) DROP(eStep, iLimit, outcome);
    return outcome;
}
