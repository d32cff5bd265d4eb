/* One child run of a run over many clients. */
#include "multi_client_child.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace {

constexpr size_t uMOST_OUTPUT = size_t{64} * 1024;  // kept of a child's standard output

/* The directory of the running program, empty when it cannot be told. */
std::string sOWN_DIRECTORY()
{
    char          szPath[4096];
    const ssize_t lLength = readlink("/proc/self/exe", szPath, sizeof szPath);
    if (lLength <= 0 || static_cast<size_t>(lLength) >= sizeof szPath) return "";
    const std::string sPath(szPath, static_cast<size_t>(lLength));
    return sPath.substr(0, sPath.find_last_of('/'));
}

std::string sSEARCH_PATH()
{
    const char*       cpPath = std::getenv("PATH");
    const std::string sRest = cpPath != nullptr ? cpPath : "/usr/local/bin:/usr/bin:/bin";
    const std::string sOwn = sOWN_DIRECTORY();
    return sOwn.empty() ? sRest : sOwn + ":" + sRest;
}

void v_NEVER_WAIT(const FD& fd)
{
    const int iFlags = fcntl(fd.iGet(), F_GETFL);
    if (iFlags >= 0) fcntl(fd.iGet(), F_SETFL, iFlags | O_NONBLOCK);
}

/* Appends what can be read now; the descriptor is closed at its end. Reading stops
   after a while for the sake of the other children. */
void v_READ_NOW(FD& fd, std::string& sText)
{
    char szPiece[16384];
    for (int iPiece = 0; iPiece < 8 && fd.bOpen(); ++iPiece) {
        const ssize_t lRead = read(fd.iGet(), szPiece, sizeof szPiece);
        if (lRead > 0) {
            sText.append(szPiece, static_cast<size_t>(lRead));
            continue;
        }
        if (lRead < 0 && errno == EINTR) continue;
        if (lRead == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) fd.Close();
        return;
    }
}

/* The end matters: the status line stands there. */
void v_KEEP_END(std::string& sOut)
{
    if (sOut.size() <= uMOST_OUTPUT) return;
    const size_t uLine = sOut.find('\n', sOut.size() - uMOST_OUTPUT);
    sOut.erase(0, uLine == sOut.npos ? sOut.size() - uMOST_OUTPUT : uLine + 1);
}

void v_TAKE_COMPLETE_LINES(std::string& sErr, std::string& sForward)
{
    size_t uEnd = sErr.find_last_of('\n');
    if (uEnd == sErr.npos && sErr.size() < uMOST_OUTPUT) return;
    uEnd = uEnd == sErr.npos ? sErr.size() : uEnd + 1;
    sForward.append(sErr, 0, uEnd);
    sErr.erase(0, uEnd);
}

}  // namespace

int iCLIENT_START(CLIENT_CHILD* pChild, const char* cpCommand)
{
    static const std::string sPath = sSEARCH_PATH();
    CHILD_SPEC               sctSpec;
    sctSpec.asArgument = {"/bin/sh", "-c", cpCommand};
    sctSpec.asEnvironment = {{"PATH", sPath}};
    sctSpec.bErrToOut = false;
    sctSpec.bPipeErr = true;
    std::string sReason;
    if (!iCHILD_START(pChild->child, sctSpec, sReason)) {
        v_STDERR("%s", sReason.c_str());
        return 0;
    }
    v_NEVER_WAIT(pChild->child.fdOut);
    v_NEVER_WAIT(pChild->child.fdErr);
    return 1;
}

void v_CLIENT_READ(CLIENT_CHILD* pChild, std::string& sForward)
{
    v_READ_NOW(pChild->child.fdOut, pChild->sOut);
    v_KEEP_END(pChild->sOut);
    v_READ_NOW(pChild->child.fdErr, pChild->sErr);
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
