#include "command.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "../base/descriptor.h"
#include "../config/config.h"
#include "../lines/secret.h"
#include "../lines/standard_error.h"
#include "../text/text.h"
#include "output.h"
#include "transport.h"
#include "wrapper.h"

namespace {

// ssh's own limit for connecting passes first, because its words say more.
constexpr int    iCONNECT_GRACE_S = 3;
constexpr int    iEND_GRACE_MS = 2000;
constexpr size_t uREAD_AT_ONCE = size_t{256} * 1024;  // then the limits are looked at
// ssh ends at once after the command, unless something was left behind there.
constexpr int iLET_GO_MS = 300;
constexpr int iSTEP_MS = 250;  // how often a child is asked whether it moves
// What a caller may ask for at most.
constexpr int iLONGEST_S = 7 * 86400;
constexpr int iMOST_RETRIES = 1000;

struct RUNNING {
    CHILD       child;
    MARK_READER marks;
    long        lConnect = 0;  // deadlines, lNOW_MS
    long        lIdle = 0;
    long        lTotal = 0;
    RUN_TIME    eTime = TIME_COMMAND;  // whose time it is once the command runs
    STAGE_TIMER timer{TIME_CONNECT};
};

long lDEADLINE(const RUNNING& running)
{
    const bool bBefore = running.marks.eState() == MARK_READER::BEFORE;
    return std::min(bBefore ? running.lConnect : running.lIdle, running.lTotal);
}

/* Takes what there is. From the first mark on the time is the command's. */
void TAKE_OUTPUT(RUNNING& running, OUTPUT_SINK& sink, int iIdle)
{
    std::string sBytes;
    if (uREAD_NOW(running.child.fdOut, sBytes, uREAD_AT_ONCE) == 0) return;
    running.lIdle = lNOW_MS() + 1000L * iIdle;
    const bool bBefore = running.marks.eState() == MARK_READER::BEFORE;
    sink.Take(running.marks.sFeed(sBytes));
    if (bBefore && running.marks.eState() != MARK_READER::BEFORE)
        running.timer.Switch(running.eTime);
}

/* The connection that is being made, for who asks how far it has come. */
struct CONNECTING {
    TRANSPORT*  pTransport = nullptr;
    const HOST* pHost = nullptr;
};
CONNECTING& sctCONNECTING()
{
    static CONNECTING connecting;
    return connecting;
}

enum LISTENED { LISTENED_ENDED, LISTENED_LATE, LISTENED_FAILED };

/* Reads until the second mark, the end of the child, or a limit. */
LISTENED eLISTEN(RUNNING& running, OUTPUT_SINK& sink, int iIdle,
                 const std::function<bool(pid_t)>& bMOVES)
{
    while (running.marks.eState() != MARK_READER::ENDED) {
        if (bMOVES && bMOVES(running.child.iPid)) running.lIdle = lNOW_MS() + 1000L * iIdle;
        std::vector<WAIT_FD> fds{{running.child.fdExit.iGet()}};
        if (running.child.fdOut.bOpen()) fds.push_back({running.child.fdOut.iGet()});
        if (lNOW_MS() >= lDEADLINE(running)) return LISTENED_LATE;
        const long lStep = bMOVES ? lNOW_MS() + iSTEP_MS : lDEADLINE(running);
        if (iWAIT(fds, std::min(lStep, lDEADLINE(running))) == WAIT_FAILED) return LISTENED_FAILED;
        if (fds.size() > 1 && fds[1].bReady)
            TAKE_OUTPUT(running, sink, iIdle);
        else if (fds[0].bReady)
            return LISTENED_ENDED;  // and nothing more to read
    }
    return LISTENED_ENDED;
}

std::string sTIMEOUT(const HOST& host, const LIMITS& limits, const RUNNING& running)
{
    if (lNOW_MS() >= running.lTotal)
        return "Timeout: " + host.sName + " did not come to an end within " +
               std::to_string(limits.iTotal) + " seconds";
    const bool bBefore = running.marks.eState() == MARK_READER::BEFORE;
    return "Timeout: no answer from " + host.sName + " within " +
           std::to_string(bBefore ? limits.iConnect : limits.iIdle) + " seconds";
}

/* Why there was no second mark though no limit has passed. */
std::string sBROKEN(const HOST& host, const COMMAND_END& outcome)
{
    if (!outcome.way.sReason.empty()) return outcome.way.sReason;
    if (outcome.bBegan) return "Connection to " + host.sName + " was lost before the command ended";
    if (!outcome.asBefore.empty()) return outcome.asBefore.back();
    return "Connection to " + host.sName +
           " was lost before the command began; its login shell may run no command";
}

/* The last lines of a text as a person may see them. */
std::vector<std::string> asLAST_LINES(const std::string& sText)
{
    constexpr size_t         uLINES = 5;
    std::vector<std::string> asLine;
    for (const std::string_view svLine : asvPIECES(sText)) {
        const std::string sLine = sONE_LINE(svLine.substr(0, svLine.find('\r')));
        if (sLine.find_first_not_of(' ') != sLine.npos) asLine.push_back(sLine);
        if (asLine.size() > uLINES) asLine.erase(asLine.begin());
    }
    return asLine;
}

/* Says why a command that was heard to eHeard did not end by itself. */
void JUDGE(const HOST& host, TRANSPORT& transport, const LIMITS& limits, LISTENED eHeard,
           RUNNING& running, COMMAND_END& outcome)
{
    outcome.way = transport.sctWAY(host, eHeard == LISTENED_LATE);
    outcome.reached = outcome.way.reached;
    if (!outcome.bBegan) {
        running.marks.sRest();
        outcome.asBefore = asLAST_LINES(running.marks.sNoise() + "\n" + outcome.way.sBeside);
    }
    if (eHeard == LISTENED_LATE) {
        outcome.eFailure = FAILURE_TIME_LIMIT;
        outcome.sReason = sTIMEOUT(host, limits, running);
    } else if (eHeard == LISTENED_FAILED) {
        outcome.sReason = std::string("cannot wait for the command: ") + std::strerror(errno);
    } else {
        if (outcome.way.bRefused) outcome.eFailure = FAILURE_REFUSED;
        outcome.sReason = sBROKEN(host, outcome);
    }
}

/* A refused key is not tried again (lockout), and a silent host has used its time. */
bool bWORTH_ANOTHER_TRY(const COMMAND_END& outcome)
{
    return outcome.eFailure == FAILURE_OTHER;
}

void TRACE_LOG(const std::string& sText, const str_log& sctLog)
{
    for (const std::string_view svLine : asvPIECES(sText))
        WRITE_TRACE(&sctLog, "ssh: %s", std::string(svLine).c_str());
}

/* A command line that could not be formed is empty. */
int iSOUND(const HOST& host, const char* cpCommand, REFUSAL& refusal)
{
    if (!host.sUnread.empty())
        return iREFUSE(
            refusal, host.sUnreadCause,
            "cannot read what the database knows of " + host.sName + ": " + host.sUnread);
    if (*cpCommand != '\0') return 1;
    const size_t uLimit = uCMD_TOO_LONG();
    return iREFUSE(
        refusal, "command-not-formed",
        "the command line for " + host.sName +
            (uLimit > 0 ? " is longer than " + std::to_string(uLimit) + " bytes"
                        : " is empty, or contains a character that its shell cannot accept"));
}

/* Why nothing was started. */
COMMAND_END sctREFUSED(const REFUSAL& refusal)
{
    COMMAND_END outcome;
    outcome.sReason = refusal.sReason;
    outcome.way.eReached = STAGE_SERVER;
    outcome.way.finding = {refusal.sCause, STAGE_SERVER, {refusal.sReason}};
    outcome.way.places = refusal.places;
    return outcome;
}

/* What was asked for cannot even be started on this server. */
COMMAND_END sctNOT_STARTED(const CHILD_SPEC& sctSpec, const std::string& sReason, int iErrno)
{
    REFUSAL refusal{sReason, "server-cannot-run", {}};
    refusal.places = {{"program", sctSpec.asArgument[0]}, {"why", std::strerror(iErrno)}};
    return sctREFUSED(refusal);
}

}  // namespace

STAGE eSTAGE_NOW()
{
    const CONNECTING& connecting = sctCONNECTING();
    switch (sctRUN_RECORD().iAt) {
        case TIME_CONNECT:
            return connecting.pHost != nullptr ? connecting.pTransport->eREACHED(*connecting.pHost)
                                               : STAGE_NAME;
        case TIME_COMMAND:
            return STAGE_ANSWER;
        case TIME_COPY:
            return STAGE_COPY;
        case TIME_SCRIPT:
            return STAGE_SCRIPT;
        default:
            return STAGE_NONE;
    }
}

LIMITS sctLIMITS(int iTimeout, int iRetries)
{
    iTimeout = std::min(iTimeout, iLONGEST_S);
    iRetries = std::clamp(iRetries, 0, iMOST_RETRIES);
    if (iTimeout > 0) return {iTimeout, iTimeout, 3 * iTimeout, iRetries};
    return {iCONFIG_CONNECT_TIMEOUT(), iCONFIG_IDLE_TIMEOUT(), iCONFIG_TOTAL_TIMEOUT(), iRetries};
}

COMMAND_END sctRUN_CHILD(const HOST& host, TRANSPORT& transport, const CHILD_SPEC& sctSpec,
                         const LIMITS& limits, OUTPUT& output, RUN_TIME eTime,
                         const std::function<bool(pid_t)>& bMOVES)
{
    COMMAND_END outcome;
    OUTPUT_SINK sink(output);
    RUNNING     running;
    running.eTime = eTime;
    const long lStart = lNOW_MS();
    running.lConnect = lStart + 1000L * (limits.iConnect + iCONNECT_GRACE_S);
    running.lIdle = lStart + 1000L * limits.iIdle;
    running.lTotal = lStart + 1000L * limits.iTotal;
    std::string sReason;
    if (!iCHILD_START(running.child, sctSpec, sReason))
        return sctNOT_STARTED(sctSpec, sReason, errno);

    sctCONNECTING() = {&transport, &host};
    const LISTENED eHeard = eLISTEN(running, sink, limits.iIdle, bMOVES);
    outcome.bBegan = running.marks.eState() != MARK_READER::BEFORE;
    if (running.marks.eState() == MARK_READER::ENDED) {
        outcome.eFailure = FAILURE_NONE;
        outcome.lStatus = running.marks.lStatus();
        outcome.reached = transport.sctREACHED(host);
    } else {
        JUDGE(host, transport, limits, eHeard, running, outcome);
        if (outcome.bBegan) sink.Take(running.marks.sRest());
    }
    sctCONNECTING() = {};
    sink.Finish();
    if (outcome.bRan())
        v_CHILD_LET_GO(running.child, iLET_GO_MS);
    else
        v_CHILD_END(running.child, iEND_GRACE_MS);
    outcome.iChild = running.child.iStatus;
    if (eHeard == LISTENED_ENDED) outcome.iSignal = running.child.iSignal;
    outcome.sProgram = sctSpec.asArgument[0];
    return outcome;
}

COMMAND_END sctRUN_COMMAND(const HOST& host, const std::string& sPort, const char* cpCommand,
                           const LIMITS& limits, OUTPUT& output, const str_log& sctLog)
{
    COMMAND_END outcome;
    REFUSAL     refusal;
    TRANSPORT&  transport = TRANSPORT_OF(host);
    if (!iSOUND(host, cpCommand, refusal)) return sctREFUSED(refusal);
    // The child's own words do not show it: most transports hand it over another way.
    TRACE_BY(sctLog, "command for %s: %s", host.sName.c_str(), sFOREIGN(cpCommand).c_str());
    // A shared connection that broke meanwhile, or as it was made, earns one more try;
    // what was refused does not, unless the caller asked for it. The first mark may be lost
    // with the connection, so what a client is left to finish could run twice.
    bool       bMayBreak = !transport.bESTABLISHED(host);
    const bool bOnce = bMayBreak || iLEFT_TO_FINISH(cpCommand) != 0;
    int        iTriesLeft = 1 + limits.iRetries + (bOnce ? 0 : 1);
    while (iTriesLeft-- > 0) {
        CHILD_SPEC sctSpec;
        if (!transport.iFORM(host, sPort, cpCommand, limits.iConnect, sctSpec, refusal))
            return sctREFUSED(refusal);
        outcome = sctRUN_CHILD(host, transport, sctSpec, limits, output,
                               iLEFT_TO_FINISH(cpCommand) ? TIME_SCRIPT : TIME_COMMAND);
        if (sctLog.iLogLevel > 2) TRACE_LOG(transport.sLOG(host), sctLog);
        TRACE_BY(sctLog, "host %s, mode %s: %s %ld %s", host.sName.c_str(),
                 host.bLocal ? "local" : host.sAccessMode.c_str(),
                 outcome.bRan() ? "status" : "not run", outcome.lStatus, outcome.sReason.c_str());
        if (outcome.bRan()) transport.TIDY(host);
        const bool bServer = outcome.way.eReached == STAGE_SERVER;
        if (outcome.bRan() || outcome.bBegan || bServer || !bWORTH_ANOTHER_TRY(outcome))
            return outcome;
        if (bMayBreak && transport.bSHARING_FAILED(host)) {
            bMayBreak = false;
            ++iTriesLeft;
        }
        if (transport.bLEARNT(host, outcome.way.sReason.empty() ? outcome.iChild : -1))
            ++iTriesLeft;
        else if (iTriesLeft > 0)
            iSLEEP_MS(100);
    }
    return outcome;
}
