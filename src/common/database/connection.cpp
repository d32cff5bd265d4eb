/* The connection to the database, and statements over it.

   Statement    sent without parameters through the extended protocol, so it is
                one statement; rows come one by one; every wait has a deadline
                somewhat behind the server's own statement_timeout
   Closed       a connection that the server has closed in the meantime is noticed
                before a statement is sent, and replaced
   Lost         one that breaks under a statement is replaced too; the statement is
                sent again, once, where that can do no harm, else it fails
   Connections are made in connect.cpp. */
#include "connection.h"

#include <poll.h>
#include <strings.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "../base/immortal.h"
#include "../lines/secret.h"
#include "../lines/standard_error.h"
#include "../log/outcome_log.h"
#include "../unix/cm_hal_pipe.h"
#include "connect.h"

namespace {

/* Seconds behind the server's own limit after which it is given up. */
constexpr int iBEHIND_SERVER = 5;

using RESULT = std::unique_ptr<PGresult, FREE_BY<PQclear>>;

/* The session of this process. */
struct SESSION {
    CONNECTION  pConn;
    bool        bOnce = false;           // there was one
    bool        bInTransaction = false;  // what breaks is not replaced
    bool        bEnding = false;         // the server has said that it ends the session
    std::string sWord;                   // what it said last
    bool*       pIdle = nullptr;         // of a connection that the parent gets back
};

SESSION& HERE()
{
    static IMMORTAL<SESSION> session;
    return session.Get();
}

void CLOSE_AT_END()
{
    SESSION&   here = HERE();
    const bool bIdle = here.pConn && PQstatus(here.pConn.get()) == CONNECTION_OK &&
                       PQtransactionStatus(here.pConn.get()) == PQTRANS_IDLE && !here.bEnding;
    if (here.pIdle != nullptr && bIdle) {
        *here.pIdle = true;
        static_cast<void>(here.pConn.release());
    }
    here.pConn.reset();
}

/* In a forked process: the session goes on in its parent. To free it would tell the
   server that it ends. */
void LEAVE_TO_PARENT()
{
    static LASTING<std::vector<CONNECTION>> parents;
    if (HERE().pConn) {
        close(PQsocket(HERE().pConn.get()));
        parents.Get().push_back(std::move(HERE().pConn));
    }
    HERE() = {};
}

void TELL_LOST(const std::string& sError)
{
    v_STDERR_ONCE("database", "cannot use the database: %s",
                  sFOREIGN(sError, SECRET_OF_DATABASE).c_str());
}

/* Notices are of no interest, but for the server's last words. */
void v_TAKE_NOTICE(void* /*pNone*/, const PGresult* pResult)
{
    const char* cpState = PQresultErrorField(pResult, PG_DIAG_SQLSTATE);
    if (cpState == nullptr || sctDB_FAILURE(cpState, "").eKind != DB_STARTING) return;
    HERE().bEnding = true;
    HERE().sWord = sCONDENSED(PQresultErrorMessage(pResult));
}

/* How the traffic with the server stands. */
enum STEP { STEP_READY, STEP_BROKEN, STEP_LATE, STEP_UNFIT };

STEP eSEND_ALL(PGconn* pConn, long lDeadline)
{
    int iLeft = 0;
    while ((iLeft = PQflush(pConn)) > 0) {
        if (!iDB_WAIT(pConn, true, true, lDeadline)) return STEP_LATE;
        if (!PQconsumeInput(pConn)) return STEP_BROKEN;
    }
    return iLeft == 0 ? STEP_READY : STEP_BROKEN;
}

/* Waits until the next result can be taken without waiting. */
STEP eAWAIT_RESULT(PGconn* pConn, long lDeadline)
{
    while (PQisBusy(pConn)) {
        if (!iDB_WAIT(pConn, true, false, lDeadline)) return STEP_LATE;
        if (!PQconsumeInput(pConn)) return STEP_BROKEN;
    }
    return STEP_READY;
}

void FAIL(DB_OUTCOME& outcome, const std::string& sState, const std::string& sText)
{
    outcome.bOk = false;
    if (outcome.error.eKind == DB_FINE) outcome.error = sctDB_FAILURE(sState, sText);
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
            FAIL(outcome, "", "the statement is empty");
            return 1;
        case PGRES_FATAL_ERROR: {
            const char* cpState = PQresultErrorField(pResult, PG_DIAG_SQLSTATE);
            FAIL(outcome, cpState != nullptr ? cpState : "",
                 sCONDENSED(PQresultErrorMessage(pResult)));
            return 1;
        }
        default:
            FAIL(outcome, "", "the statement opens a copy");
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

/* Lets a connection go that is late or broken, without a word to the server, which
   may not be listening. */
void v_DROP(STEP eStep, int iLimit, DB_OUTCOME& outcome)
{
    outcome.bOk = false;
    std::string sText = outcome.error.sText;
    if (sText.empty())
        sText = eStep == STEP_LATE
                    ? "no answer from the database within " + std::to_string(iLimit) + " seconds"
                    : sCONDENSED(PQerrorMessage(HERE().pConn.get()));
    if (eStep != STEP_UNFIT) outcome.error = sctDB_FAILURE("", sText);
    if (eStep == STEP_BROKEN && outcome.error.eKind != DB_STARTING) {
        outcome.error.eKind = DB_LOST;
        outcome.error.cpCause = "database-lost";
    }
    HERE().pConn.reset();
}

/* Runs a statement over the connection that there is. */
DB_OUTCOME sctRUN(const char* cpSql, const DB_ROW& pRow, STEP& eStep)
{
    const int  iTimeout = iDB_STATEMENT_TIMEOUT();
    const int  iLimit = iTimeout + iBEHIND_SERVER;
    const long lDeadline = iTimeout == 0 ? 0 : lNOW_MS() + iLimit * 1000L;
    DB_OUTCOME outcome;
    eStep = eCONVERSE(HERE().pConn.get(), cpSql, pRow, lDeadline, outcome);
    if (eStep != STEP_READY) v_DROP(eStep, iLimit, outcome);
    return outcome;
}

int iCONNECT(DB_ERROR& error)
{
    CONNECTION pConn = pDB_CONNECT(error);
    if (!pConn) return 0;
    v_DB_SET_UP(pConn.get());
    SESSION&         here = HERE();
    static const int iOnce = (v_AFTER_FORK(LEAVE_TO_PARENT), 1);
    static_cast<void>(iOnce);
    if (!here.bOnce) v_AT_END(CLOSE_AT_END);
    here.bOnce = true;
    here.bEnding = false;
    here.pIdle = nullptr;
    here.pConn = std::move(pConn);
    for (const std::string& sSet : asDB_SETTINGS_LEFT(here.pConn.get())) {
        STEP             eStep = STEP_READY;
        const DB_OUTCOME outcome = sctRUN(
            sSet.c_str(), [](const PGresult*) {}, eStep);
        if (outcome.bOk) continue;
        error = outcome.error;
        here.pConn.reset();
        return 0;
    }
    return 1;
}

/* Connects for a statement. A server that let the whole time pass is not asked
   again for as long: a run whose database is silent ends after one wait. */
int iCONNECT_OR_REMEMBER(DB_ERROR& error)
{
    struct LAST {
        DB_ERROR error;
        long     lNotBefore = 0;
    };
    static IMMORTAL<LAST> failed;
    LAST&                 last = failed.Get();
    const long            lStart = lNOW_MS();
    if (lStart < last.lNotBefore) {
        error = last.error;
        return 0;
    }
    if (iCONNECT(error)) return 1;
    last.error = error;
    const long lWaited = lNOW_MS() - lStart;
    last.lNotBefore = error.eKind == DB_SILENT ? lNOW_MS() + lWaited : 0;
    TELL_LOST(error.sText);
    return 0;
}

/* 1 when the server has not closed the connection meanwhile. What it says unasked is
   read first: its last words may be among it. */
int iSTILL_OPEN()
{
    PGconn* pConn = HERE().pConn.get();
    while (true) {
        pollfd sctPoll{PQsocket(pConn), POLLIN, 0};
        if (poll(&sctPoll, 1, 0) <= 0) return PQstatus(pConn) == CONNECTION_OK;
        if (!PQconsumeInput(pConn)) return 0;
        const std::unique_ptr<PGnotify, FREE_BY<PQfreemem>> pUnasked{PQnotifies(pConn)};
        if (HERE().bEnding || PQstatus(pConn) != CONNECTION_OK) return 0;
    }
}

/* 1 for a statement that may run twice without harm: a question, or a change that
   sets fixed values, or removes, by name or identifier, as all of this program's
   updates and deletes do. An insert is none. */
int iREPEATABLE(const char* cpSql)
{
    for (const char* cpWord : {"select ", "update ", "delete ", "begin"})
        if (strncasecmp(cpSql, cpWord, std::strlen(cpWord)) == 0) return 1;
    return 0;
}

/* A connection for the next statement. Inside a transaction only its own will do. */
int iREADY(DB_OUTCOME& outcome)
{
    SESSION& here = HERE();
    if (here.pConn && !iSTILL_OPEN()) {
        if (here.sWord.empty()) here.sWord = sCONDENSED(PQerrorMessage(here.pConn.get()));
        outcome.sNote = "the server had closed the connection: " + here.sWord;
        here.pConn.reset();
    }
    here.sWord.clear();
    if (here.pConn) return 1;
    if (!here.bInTransaction) return iCONNECT_OR_REMEMBER(outcome.error);
    outcome.error = sctDB_FAILURE("", "the connection was lost inside a transaction");
    outcome.error.eKind = DB_LOST;
    outcome.error.cpCause = "database-lost";
    return 0;
}

/* Whether a statement that failed is to be sent again, on a new connection: once, and
   for as long as there is patience where it never reached a server. */
int iAGAIN(const char* cpSql, STEP eStep, const DB_OUTCOME& outcome, int iTry,
           DB_PATIENCE& patience)
{
    if (outcome.bOk || HERE().bInTransaction) return 0;
    const DB_KIND eKind = outcome.error.eKind;
    if (eStep == STEP_BROKEN && eKind == DB_STARTING) return patience.iAnother();
    if (eStep == STEP_BROKEN) return iTry == 1 && iREPEATABLE(cpSql);
    // Refused, so it has not run: another host has become the one that takes changes.
    return iTry == 1 && eStep == STEP_READY && eKind == DB_READ_ONLY && bDB_SEVERAL_HOSTS();
}

}  // namespace

void v_DB_SET_UP(PGconn* pConn)
{
    PQsetErrorVerbosity(pConn, PQERRORS_TERSE);
    PQsetErrorContextVisibility(pConn, PQSHOW_CONTEXT_NEVER);
    PQsetNoticeReceiver(pConn, v_TAKE_NOTICE, nullptr);
    PQsetnonblocking(pConn, 1);
}

PGconn* pDB_HERE()
{
    return HERE().pConn.get();
}

void v_DB_BORROW(PGconn* pConn, bool* pIdle)
{
    SESSION& here = HERE();
    v_AT_END(CLOSE_AT_END);
    here.bOnce = true;
    here.pConn.reset(pConn);
    here.pIdle = pIdle;
}

bool bDB_CONNECTED_ONCE()
{
    return HERE().bOnce;
}

void v_DB_IN_TRANSACTION(bool bInside)
{
    HERE().bInTransaction = bInside;
}

DB_OUTCOME sctDB_RUN(const char* cpSql, const DB_ROW& pRow)
{
    const STAGE_TIMER timer(TIME_DATABASE);
    DB_OUTCOME        outcome;
    if (cpSql == nullptr || *cpSql == '\0') {
        outcome.error = {DB_OTHER, "", "the statement does not fit its buffer", "not-recognised"};
        return outcome;
    }
    STEP        eStep = STEP_READY;
    DB_PATIENCE patience;
    std::string sFirst;  // why it was sent again
    for (int iTry = 1;; iTry++) {
        if (!iREADY(outcome)) return outcome;
        const std::string sNote = sFirst.empty() ? outcome.sNote : "sent again after: " + sFirst;
        outcome = sctRUN(cpSql, pRow, eStep);
        outcome.sNote = sNote;
        if (eStep == STEP_READY) DB_PATIENCE::Restore();
        if (!iAGAIN(cpSql, eStep, outcome, iTry, patience)) break;
        if (sFirst.empty()) sFirst = outcome.error.sText;
        HERE().pConn.reset();
        pRow(nullptr);
        outcome = {};
    }
    if (!outcome.bOk && (eStep == STEP_BROKEN || eStep == STEP_LATE))
        TELL_LOST(outcome.error.sText);
    return outcome;
}
