/* One child run of a run over many clients. */
#include "observed_child.h"

#include <unistd.h>

#include "../base/descriptor.h"
#include "../config/config.h"
#include "forked_run.h"
#include "local_command.h"

namespace {

constexpr size_t uMOST_OUTPUT = size_t{64} * 1024;    // kept of a child's standard output
constexpr size_t uMOST_AT_ONCE = size_t{128} * 1024;  // read before the other children's turn

/* The end matters: the status line stands there. */
void v_KEEP_END(std::string& sOut)
{
    if (sOut.size() <= uMOST_OUTPUT) return;
    const size_t uLine = sOut.find('\n', sOut.size() - uMOST_OUTPUT);
    sOut.erase(0, uLine == sOut.npos ? sOut.size() - uMOST_OUTPUT : uLine + 1);
}

/* A line without an end is broken where it gets too long to be kept. */
void v_TAKE_COMPLETE_LINES(std::string& sErr, std::string& sForward)
{
    const size_t uEnd = sErr.find_last_of('\n');
    if (uEnd != sErr.npos) {
        sForward.append(sErr, 0, uEnd + 1);
        sErr.erase(0, uEnd + 1);
    } else if (sErr.size() >= uMOST_OUTPUT) {
        sForward.append(sErr).push_back('\n');
        sErr.clear();
    }
}

}  // namespace

int iCLIENT_START(CLIENT_CHILD* pChild, const std::vector<std::string>& asWord,
                  const std::function<void(CHILD_SPEC&)>& pReady, std::string& sReason)
{
    CHILD_SPEC        sctSpec;
    const std::string sPath = sSEARCH_PATH_OF_PROGRAM();
    const std::string sBeside = sPath.substr(0, sPath.find(':')) + "/" + asWord[0];
    sctSpec.asArgument = asWord;
    if (access(sBeside.c_str(), X_OK) == 0) {
        sctSpec.asArgument[0] = sBeside;
        if (bRUN_CAN_BE_FORKED(sBeside)) sctSpec.pBody = v_FORKED_RUN;
    }
    sctSpec.asEnvironment = {{"PATH", sPath}, {cpCONFIG_TOLD, "1"}};
    sctSpec.bErrToOut = false;
    sctSpec.bPipeErr = true;
    if (sctSpec.pBody != nullptr) pReady(sctSpec);
    const int iStarted = iCHILD_START(pChild->child, sctSpec, sReason);
    pChild->lPid = pChild->child.iPid;
    return iStarted;
}

void v_CLIENT_READ(CLIENT_CHILD* pChild, std::string& sForward)
{
    uREAD_NOW(pChild->child.fdOut, pChild->sOut, uMOST_AT_ONCE);
    v_KEEP_END(pChild->sOut);
    uREAD_NOW(pChild->child.fdErr, pChild->sErr, uMOST_AT_ONCE);
    v_TAKE_COMPLETE_LINES(pChild->sErr, sForward);
}

void v_CLIENT_DRAIN(CLIENT_CHILD* pChild, std::string& sForward)
{
    v_CLIENT_READ(pChild, sForward);
    if (!pChild->sErr.empty()) sForward += pChild->sErr + "\n";
    pChild->sErr.clear();
    pChild->child.fdOut.Close();
    pChild->child.fdErr.Close();
}

void v_CLIENT_WAIT_FOR(const CLIENT_CHILD* pChild, std::vector<WAIT_FD>& fds)
{
    for (const FD* pFd : {&pChild->child.fdOut, &pChild->child.fdErr, &pChild->child.fdExit})
        if (pFd->bOpen()) fds.push_back({pFd->iGet()});
}
