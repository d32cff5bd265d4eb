/* Programs of the backup client, and the listing of the root directory. */
#include <dirent.h>
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "common/base/descriptor.h"
#include "common/base/holder.h"
#include "common/config/variables.h"
#include "common/remote/wrapper.h"
#include "common/unix/cm_hal_pipe.h"
#include "common/unix/read_now.h"
#include "gate.h"

namespace {

constexpr std::string_view asvProgram[] = {"qtc", "qtc_smdr", "qtc_ndmp", "vk_client",
                                           "vk_execute_update"};

constexpr int    iEND_GRACE_MS = 3000;
constexpr long   lLISTENER_MS = 60'000;  // a server that takes no output for that long is gone
constexpr size_t uPIECE = 4096;          // what a descriptor that is ready takes at once

/* Waits for the end of the child; the end of standard input ends it. What else
   comes in is no request. */
void LIFELINE(CHILD& child)
{
    char acBuf[uPIECE];
    while (!iCHILD_ENDED(child)) {
        std::vector<WAIT_FD> fds{{child.fdExit.iGet()}, {STDIN_FILENO}};
        iWAIT(fds, 0);
        if (!fds[1].bReady || fds[0].bReady) continue;
        const ssize_t iGot = lREAD(STDIN_FILENO, acBuf, sizeof acBuf);
        if (iGot == 0 || (iGot < 0 && errno != EAGAIN)) return v_CHILD_END(child, iEND_GRACE_MS);
    }
}

/* Hands a piece of output on. Result 0: nobody listens any more. */
int iHAND_ON(std::string_view svPiece)
{
    std::vector<WAIT_FD> fds{{STDOUT_FILENO, true}};
    return iWAIT(fds, lNOW_MS() + lLISTENER_MS) == WAIT_READY && iSAY(svPiece);
}

/* Output of a child that is left to finish goes on as long as somebody listens and
   is thrown away from then on, so that no broken pipe ends it. */
void HAND_ON_UNTIL_END(CHILD& child)
{
    bool bListening = true;
    bool bEnded = false;
    while (child.fdOut.bOpen() || !bEnded) {
        bEnded = iCHILD_ENDED(child) != 0;
        std::string sPiece;
        const bool  bMore = uREAD_NOW(child.fdOut, sPiece, uPIECE) > 0;
        if (bMore && bListening) bListening = iHAND_ON(sPiece) != 0;
        if (bMore) continue;
        if (bEnded) return;  // what it left behind may hold its output open
        std::vector<WAIT_FD> fds{{child.fdExit.iGet()}, {child.fdOut.iGet()}};
        iWAIT(fds, 0);
    }
}

/* What the script has started, such as a service, may go on writing: its output is
   read, and thrown away, for as long as it does. */
void SWALLOW(CHILD& child)
{
    const FD fdNull(open("/dev/null", O_RDWR | O_CLOEXEC));
    for (const int iFd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(fdNull.iGet(), iFd);
    while (child.fdOut.bOpen()) {
        std::vector<WAIT_FD> fds{{child.fdOut.iGet()}};
        iWAIT(fds, 0);
        std::string sThrownAway;
        uREAD_NOW(child.fdOut, sThrownAway, uPIECE);
    }
}

int iRUN_TO_FINISH(const REQUEST& request, CHILD_SPEC& sctSpec, CHILD& child, std::string& sReason)
{
    for (const int iSignal : {SIGHUP, SIGINT, SIGTERM}) signal(iSignal, SIG_IGN);
    sctSpec.bOutlives = true;
    if (!iCHILD_START(child, sctSpec, sReason)) return -1;
    HAND_ON_UNTIL_END(child);
    const int iExit = iANSWER_END(request, child.iStatus);
    SWALLOW(child);
    return iExit;
}

int iRUN_ON_LIFELINE(const REQUEST& request, CHILD_SPEC& sctSpec, CHILD& child,
                     std::string& sReason)
{
    sctSpec.bPipeOut = false;  // it writes to the server itself
    if (!iCHILD_START(child, sctSpec, sReason)) return -1;
    LIFELINE(child);
    return iANSWER_END(request, child.iStatus);
}

}  // namespace

int iGATE_RUN(const REQUEST& request)
{
    const std::string& sProgram = request.asWord[0];
    if (std::find(std::begin(asvProgram), std::end(asvProgram), sProgram) == std::end(asvProgram))
        return iREFUSE("a program that is none of the backup client's");
    CHILD_SPEC  sctSpec;
    CHILD       child;
    std::string sReason;
    sctSpec.asArgument = request.asWord;
    iCONFIG_VARIABLE("gv_ro_bin", sctSpec.asArgument[0]);
    sctSpec.asArgument[0] += sProgram;
    syslog(LOG_INFO, "%s runs %s", sctCALLER().sServer.c_str(), sProgram.c_str());
    v_ANSWER_BEGIN(request);
    const int iExit = iLEFT_TO_FINISH(sProgram)
                          ? iRUN_TO_FINISH(request, sctSpec, child, sReason)
                          : iRUN_ON_LIFELINE(request, sctSpec, child, sReason);
    if (iExit >= 0) return iExit;
    iSAY(sReason + "\n");
    return iANSWER_END(request, 127);  // as a shell says of what it cannot run
}

int iGATE_LIST(const REQUEST& request)
{
    v_ANSWER_BEGIN(request);
    const std::unique_ptr<DIR, FREE_BY<closedir>> pRoot{opendir("/")};
    if (!pRoot) {
        iSAY(std::string("cannot list \"/\": ") + std::strerror(errno) + "\n");
        return iANSWER_END(request, 1);
    }
    std::vector<std::string> asName;
    while (const dirent* pEntry = readdir(pRoot.get())) asName.emplace_back(pEntry->d_name);
    std::sort(asName.begin(), asName.end());
    for (const std::string& sName : asName) iSAY(sName + "\n");
    return iANSWER_END(request, 0);
}
