#include "command.h"

#include <unistd.h>

#include <algorithm>

#include "../config/config.h"
#include "output.h"
#include "transport.h"
#include "wrapper.h"

namespace {

// ssh's own limit for connecting passes first, because its words say more.
constexpr int iCONNECT_GRACE_S = 3;
constexpr int iEND_GRACE_MS = 2000;
// ssh ends at once after the command, unless something was left behind there.
constexpr int iLET_GO_MS = 300;

struct RUNNING {
    CHILD       child;
    MARK_READER marks;
    long        lConnect = 0;  // deadlines, lNOW_MS
    long        lIdle = 0;
    long        lTotal = 0;
};

long lDEADLINE(const RUNNING& running)
{
    const bool bBefore = running.marks.eState() == MARK_READER::BEFORE;
    return std::min(bBefore ? running.lConnect : running.lIdle, running.lTotal);
}

/* Takes what there is. Result 0 the stream has ended. */
int iREAD(RUNNING& running, OUTPUT_SINK& sink, int iIdle)
{
    static char   acBuf[65536];
    const ssize_t iGot = read(running.child.fdOut.iGet(), acBuf, sizeof acBuf);
    if (iGot <= 0) return iGot < 0 && errno == EAGAIN;
    running.lIdle = lNOW_MS() + 1000L * iIdle;
    sink.Take(running.marks.sFeed({acBuf, static_cast<size_t>(iGot)}));
    return 1;
}

/* Reads until the second mark, the end of the child, or a limit.
   Result  0 a limit passed */
int iLISTEN(RUNNING& running, OUTPUT_SINK& sink, int iIdle)
{
    while (running.marks.eState() != MARK_READER::ENDED) {
        std::vector<WAIT_FD> fds{{running.child.fdExit.iGet()}};
        if (running.child.fdOut.bOpen()) fds.push_back({running.child.fdOut.iGet()});
        if (lNOW_MS() >= lDEADLINE(running)) return 0;
        if (iWAIT(fds, lDEADLINE(running)) == WAIT_TIMEOUT) return 0;
        const bool bEnded = fds[0].bReady;
        if (fds.size() > 1 && fds[1].bReady) {
            if (!iREAD(running, sink, iIdle)) running.child.fdOut.Close();
        } else if (bEnded) {
            return 1;  // ended, and nothing more to read
        }
    }
    return 1;
}

std::string sTIMEOUT(const HOST& host, const LIMITS& limits, const RUNNING& running)
{
    if (lNOW_MS() >= running.lTotal) {
        return "Timeout: " + host.sName + " did not come to an end within " +
               std::to_string(limits.iTotal) + " seconds";
    }
    const bool bBefore = running.marks.eState() == MARK_READER::BEFORE;
    return "Timeout: no answer from " + host.sName + " within " +
           std::to_string(bBefore ? limits.iConnect : limits.iIdle) + " seconds";
}

/* Why there was no second mark though no limit has passed. */
std::string sBROKEN(const HOST& host, TRANSPORT& transport, RUNNING& running)
{
    std::string sReason = transport.sREASON(host);
    if (!sReason.empty()) return sReason;
    if (running.marks.eState() == MARK_READER::RUNNING) {
        return "Connection to " + host.sName + " was lost before the command ended";
    }
    OUTPUT      noise;
    OUTPUT_SINK sink(noise);
    running.marks.sRest();
    sink.Take(running.marks.sNoise());
    sink.Finish();
    if (!noise.sLastLine.empty()) return noise.sLastLine;
    return "Connection to " + host.sName +
           " was lost before the command began; its login shell may run none";
}

/* A refused key is not tried again (lockout), and a silent host has used its time. */
bool bWORTH_ANOTHER_TRY(const std::string& sReason)
{
    return !sReason.starts_with("Error: Authentication failed") && !sReason.starts_with("Timeout:");
}

OUTCOME sctTRY(const HOST& host, TRANSPORT& transport, const CHILD_SPEC& sctSpec,
               const LIMITS& limits, OUTPUT& output, bool& bConnected)
{
    OUTCOME     outcome;
    OUTPUT_SINK sink(output);
    RUNNING     running;
    const long  lStart = lNOW_MS();
    running.lConnect = lStart + 1000L * (limits.iConnect + iCONNECT_GRACE_S);
    running.lIdle = lStart + 1000L * limits.iIdle;
    running.lTotal = lStart + 1000L * limits.iTotal;
    if (!iCHILD_START(running.child, sctSpec, outcome.sReason)) return outcome;

    const int iInTime = iLISTEN(running, sink, limits.iIdle);
    bConnected = running.marks.eState() != MARK_READER::BEFORE;
    if (running.marks.eState() == MARK_READER::ENDED) {
        outcome.bRan = true;
        outcome.lStatus = running.marks.lStatus();
    } else {
        outcome.sReason =
            iInTime ? sBROKEN(host, transport, running) : sTIMEOUT(host, limits, running);
        if (bConnected) sink.Take(running.marks.sRest());
    }
    sink.Finish();
    if (outcome.bRan) {
        v_CHILD_LET_GO(running.child, iLET_GO_MS);
    } else {
        v_CHILD_END(running.child, iEND_GRACE_MS);
    }
    return outcome;
}

}  // namespace

LIMITS sctLIMITS(int iTimeout, int iRetries)
{
    if (iTimeout > 0) return {iTimeout, iTimeout, 3 * iTimeout, iRetries};
    return {iCONFIG_CONNECT_TIMEOUT(), iCONFIG_IDLE_TIMEOUT(), iCONFIG_TOTAL_TIMEOUT(), iRetries};
}

OUTCOME sctRUN_COMMAND(const HOST& host, const std::string& sPort, const char* cpCommand,
                       const LIMITS& limits, OUTPUT& output, const str_log& sctLog)
{
    OUTCOME    outcome;
    TRANSPORT& transport = TRANSPORT_OF(host);
    if (*cpCommand == '\0') {
        outcome.sReason =
            "the command line is empty, too long, or holds a character that the "
            "shell of " +
            host.sName + " cannot take";
        return outcome;
    }
    // A shared connection that broke meanwhile earns one more try; what was refused
    // does not, unless the caller asked for it.
    int iTriesLeft = 1 + limits.iRetries + (transport.bESTABLISHED(host) ? 1 : 0);
    while (iTriesLeft-- > 0) {
        CHILD_SPEC sctSpec;
        bool       bConnected = false;
        if (!transport.iFORM(host, sPort, cpCommand, limits.iConnect, sctSpec, outcome.sReason)) {
            return outcome;
        }
        outcome = sctTRY(host, transport, sctSpec, limits, output, bConnected);
        if (sctLog.iLogLevel > 0) {
            WRITE_TRACE(&sctLog, "host %s, mode %s: %s %ld %s", host.sName.c_str(),
                        host.bLocal ? "local" : host.sAccessMode.c_str(),
                        outcome.bRan ? "status" : "not run", outcome.lStatus,
                        outcome.sReason.c_str());
        }
        if (outcome.bRan || bConnected || !bWORTH_ANOTHER_TRY(outcome.sReason)) return outcome;
        if (iTriesLeft > 0) iSLEEP_MS(100);
    }
    return outcome;
}
