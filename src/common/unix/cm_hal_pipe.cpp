/* Child processes and their pipes. */
#include "cm_hal_pipe.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" {  // the header of some C libraries does not say it
#include <sys/pidfd.h>
}

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "../base/descriptor.h"
#include "../base/immortal.h"
#include "../cm_trace.h"
#include "../lines/secret.h"
#include "../lines/standard_error.h"
#include "../text/command_line.h"
#include "waiting.h"

namespace {

constexpr int iGRACE_MS = 2000;
constexpr int iGROUP_STEP_MS = 5;  // a group has no descriptor to wait for

std::vector<CHILD*>& CHILDREN()
{
    static IMMORTAL<std::vector<CHILD*>> children;
    return children.Get();
}

void FORGET(CHILD& child)
{
    std::erase(CHILDREN(), &child);
}

struct PIPE {
    FD fdRead;
    FD fdWrite;
};

bool bMAKE_PIPE(PIPE& sctPipe)
{
    int aiFd[2];
    if (pipe2(aiFd, O_CLOEXEC) != 0) return false;
    sctPipe.fdRead = FD(aiFd[0]);
    sctPipe.fdWrite = FD(aiFd[1]);
    return true;
}

/* Our environment with the additions of the child in front of it. */
std::vector<std::string> asENVIRONMENT(const CHILD_SPEC& sctSpec)
{
    std::vector<std::string> asAll;
    for (const auto& [sName, sValue] : sctSpec.asEnvironment)
        asAll.push_back(std::string(sName).append("=").append(sValue));
    const std::vector<std::string> asAdded = asAll;
    for (char** ppVar = environ; *ppVar != nullptr; ++ppVar) {
        const std::string sVar = *ppVar;
        const auto        bReplaced = [&](const std::string& sAdded) {
            return sVar.starts_with(sAdded.substr(0, sAdded.find('=') + 1));
        };
        if (std::none_of(asAdded.begin(), asAdded.end(), bReplaced)) asAll.push_back(sVar);
    }
    return asAll;
}

std::vector<char*> POINTERS(std::vector<std::string>& asText)
{
    std::vector<char*> pointers;
    pointers.reserve(asText.size() + 1);
    for (std::string& s : asText) pointers.push_back(s.data());
    pointers.push_back(nullptr);
    return pointers;
}

struct CHILD_SIDE {
    char* const* ppArgument;
    char* const* ppEnvironment;
    pid_t        iParent;
    int          iIn, iOut, iErr, iFailure;
    bool         bOutlives;
};

/* In the child: a session of its own, and its standard streams. Result  false: its
   parent has died, or they cannot be had. */
bool bCHILD_STANDS(const CHILD_SIDE& side)
{
    setsid();
    if (!side.bOutlives) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != side.iParent) return false;  // it died before the signal was set up
    }
    return dup2(side.iIn, 0) >= 0 && dup2(side.iOut, 1) >= 0 && dup2(side.iErr, 2) >= 0;
}

/* In the child, between vfork and exec: only system calls, and nothing written to
   memory, which is still the parent's. */
[[noreturn]] void CHILD_EXEC(const CHILD_SIDE& side)
{
    const bool bStands = bCHILD_STANDS(side);
    v_SIGNALS_OF_CHILD();
    if (bStands) execvpe(side.ppArgument[0], side.ppArgument, side.ppEnvironment);
    const int iErrno = errno;
    static_cast<void>(!write(side.iFailure, &iErrno, sizeof iErrno));
    _exit(127);
}

/* errno of an exec that failed, 0 when the program runs. */
int iEXEC_FAILURE(int iFd)
{
    char acErrno[sizeof(int)];
    int  iErrno = 0;
    if (lREAD(iFd, acErrno, sizeof acErrno) == static_cast<ssize_t>(sizeof acErrno))
        std::memcpy(&iErrno, acErrno, sizeof iErrno);
    return iErrno;
}

void TAKE_STATUS(CHILD& child, int iWaitStatus)
{
    child.iSignal = WIFSIGNALED(iWaitStatus) ? WTERMSIG(iWaitStatus) : 0;
    child.iStatus = child.iSignal != 0 ? 128 + child.iSignal : WEXITSTATUS(iWaitStatus);
    child.iPid = -1;
    FORGET(child);
}

void TRACE_START(const CHILD_SPEC& sctSpec)
{
    const str_log* pLog = pMAIN_LOG();
    if (pLog == nullptr || pLog->iLogLevel <= 0) return;
    std::string sLine;
    for (const std::string& s : sctSpec.asArgument)
        sLine += " " + sSHELL_WORD(SHELL_POSIX, sFOREIGN(s));
    WRITE_TRACE(pLog, "command line:%s", sLine.c_str());
}

/* The ends of the child's standard streams and of the report of a failed exec. */
struct CHILD_PIPES {
    FD   fdNull;
    FD   fdFile;  // the child's standard input, where it is a file
    FD   fdErrFile;
    PIPE sctIn;
    PIPE sctOut;
    PIPE sctErr;
    PIPE sctFailure;
};

/* Puts the first input into the pipe, which is made to hold it: nobody waits. */
bool bFIRST_INPUT(const std::string& sInput, const PIPE& sctIn)
{
    constexpr size_t uPIPE = 65536;
    const int        iFd = sctIn.fdWrite.iGet();
    if (sInput.empty()) return true;
    if (sInput.size() > uPIPE && fcntl(iFd, F_SETPIPE_SZ, static_cast<int>(sInput.size())) < 0)
        return false;
    return iWRITE_ALL(iFd, sInput) != 0;
}

bool bMAKE_PIPES(const CHILD_SPEC& sctSpec, CHILD_PIPES& pipes)
{
    pipes.fdNull = FD(open("/dev/null", O_RDWR | O_CLOEXEC));
    return pipes.fdNull.bOpen() && bMAKE_PIPE(pipes.sctFailure) &&
           (!sctSpec.bPipeIn ||
            (bMAKE_PIPE(pipes.sctIn) && bFIRST_INPUT(sctSpec.sFirstInput, pipes.sctIn))) &&
           (!sctSpec.bPipeOut || bMAKE_PIPE(pipes.sctOut)) &&
           (!sctSpec.bPipeErr || bMAKE_PIPE(pipes.sctErr));
}

/* A child whose end cannot be waited for must not begin its work: what is refused
   here (no descriptor left, a filter) is refused for the child, too. */
bool bEXIT_CAN_BE_SEEN()
{
    return FD(pidfd_open(getpid(), 0)).bOpen();
}

/* The child between fork and exec, or its process id. The page tables are not
   copied, which would take as long as a statement of the database; they are where it is
   to go on with what stands in memory. */
pid_t iFORK(const CHILD_SPEC& sctSpec, const CHILD_PIPES& pipes)
{
    std::vector<std::string> asArgument = sctSpec.asArgument;
    std::vector<std::string> asEnvironment = asENVIRONMENT(sctSpec);
    const std::vector<char*> arguments = POINTERS(asArgument);
    const std::vector<char*> environment = POINTERS(asEnvironment);

    CHILD_SIDE side{arguments.data(),
                    environment.data(),
                    getpid(),
                    pipes.fdNull.iGet(),
                    1,
                    2,
                    pipes.sctFailure.fdWrite.iGet(),
                    sctSpec.bOutlives};
    if (sctSpec.bPipeIn) side.iIn = pipes.sctIn.fdRead.iGet();
    if (pipes.fdFile.bOpen()) side.iIn = pipes.fdFile.iGet();
    if (sctSpec.bPipeOut) side.iOut = pipes.sctOut.fdWrite.iGet();
    if (sctSpec.bErrToOut) side.iErr = side.iOut;
    if (sctSpec.bPipeErr) side.iErr = pipes.sctErr.fdWrite.iGet();
    if (pipes.fdErrFile.bOpen()) side.iErr = pipes.fdErrFile.iGet();
    // A handler in the child would work on our memory, and leave it an alarm.
    const SIGNALS_HELD held;
    if (sctSpec.pBody != nullptr) {
        const pid_t iPid = fork();
        if (iPid == 0 && bCHILD_STANDS(side)) sctSpec.pBody(sctSpec);
        if (iPid == 0) _exit(127);
        return iPid;
    }
    const pid_t iPid = vfork();       // NOLINT(clang-analyzer-security.insecureAPI.vfork)
    if (iPid == 0) CHILD_EXEC(side);  // NOLINT(clang-analyzer-unix.Vfork)
    return iPid;
}

/* Fills the record of a process that runs, and registers it. Result  0: its end
   cannot be seen (errno). */
int iADOPT(CHILD& child, pid_t iPid, bool bOutlives, CHILD_PIPES& pipes)
{
    child.fdExit = FD(pidfd_open(iPid, 0));
    if (!child.fdExit.bOpen()) return 0;
    child.iPid = iPid;
    child.iStatus = -1;
    child.bOutlives = bOutlives;
    child.fdIn = std::move(pipes.sctIn.fdWrite);
    child.fdOut = std::move(pipes.sctOut.fdRead);
    child.fdErr = std::move(pipes.sctErr.fdRead);
    for (const FD* pFd : {&child.fdOut, &child.fdErr})
        if (pFd->bOpen()) fcntl(pFd->iGet(), F_SETFL, O_NONBLOCK);
    CHILDREN().push_back(&child);
    return 1;
}

/* To the group of a child that is not reaped yet. One that was just forked may not lead
   it yet. */
void SIGNAL_GROUP(pid_t iPid, int iSignal)
{
    if (kill(-iPid, iSignal) != 0) kill(iPid, iSignal);
}

void KILL_AND_REAP(pid_t iPid)
{
    SIGNAL_GROUP(iPid, SIGKILL);
    while (waitpid(iPid, nullptr, 0) < 0 && errno == EINTR) {
    }
}

void REAP(CHILD& child)
{
    int iWaitStatus = 0;
    while (waitpid(child.iPid, &iWaitStatus, 0) < 0 && errno == EINTR) {
    }
    TAKE_STATUS(child, iWaitStatus);
}

/* Waits until the child has ended or the time is up. */
void WAIT_FOR_CHILD(CHILD& child, long lDeadline)
{
    while (!iCHILD_ENDED(child) && lNOW_MS() < lDeadline) {
        std::vector<WAIT_FD> fds{{child.fdExit.iGet()}};
        if (iWAIT(fds, lDeadline) == WAIT_FAILED) return;
    }
}

/* The same for its group. */
void WAIT_FOR_GROUP(pid_t iGroup, long lDeadline)
{
    while (kill(-iGroup, 0) == 0 && lNOW_MS() < lDeadline) iSLEEP_MS(iGROUP_STEP_MS);
}

}  // namespace

void v_END_CHILDREN()
{
    for (CHILD* pChild : std::vector<CHILD*>(CHILDREN()))
        if (!pChild->bOutlives) v_CHILD_SIGNAL(*pChild, SIGTERM);
    for (CHILD* pChild : std::vector<CHILD*>(CHILDREN())) v_CHILD_END(*pChild, iGRACE_MS);
}

void v_FORGET_CHILDREN()
{
    for (CHILD* pChild : CHILDREN()) pChild->iPid = -1;
    CHILDREN().clear();
}

CHILD::~CHILD()
{
    v_CHILD_END(*this, iGRACE_MS);
}

int iCHILD_START(CHILD& child, const CHILD_SPEC& sctSpec, std::string& sReason)
{
    const auto iFAILED = [&](int iErrno) {
        errno = iErrno;
        iCANNOT("run", sctSpec.asArgument[0], sReason);
        errno = iErrno;
        return 0;
    };
    TRACE_START(sctSpec);
    CHILD_PIPES pipes;
    if (!sctSpec.sInFile.empty()) {
        pipes.fdFile = fdOPEN_FILE(sctSpec.sInFile, O_RDONLY);
        if (!pipes.fdFile.bOpen()) return iCANNOT("read", sctSpec.sInFile, sReason);
    }
    if (!sctSpec.sErrFile.empty())
        pipes.fdErrFile =
            FD(open(sctSpec.sErrFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    if (!bMAKE_PIPES(sctSpec, pipes) || !bEXIT_CAN_BE_SEEN()) return iFAILED(errno);
    v_GIVE_BACK_AT_EXIT();
    const pid_t iPid = iFORK(sctSpec, pipes);
    if (iPid < 0) return iFAILED(errno);
    pipes.sctFailure.fdWrite.Close();
    const int iNoExec =
        sctSpec.pBody == nullptr ? iEXEC_FAILURE(pipes.sctFailure.fdRead.iGet()) : 0;
    if (iNoExec != 0) {
        KILL_AND_REAP(iPid);
        return iFAILED(iNoExec);
    }
    if (iADOPT(child, iPid, sctSpec.bOutlives, pipes)) return 1;
    const int iErrno = errno;
    KILL_AND_REAP(iPid);
    return iFAILED(iErrno);
}

std::string sSAID_BY(const std::vector<std::string>& asArgument, int iLimitMs, int* pStatus)
{
    constexpr size_t uMOST = size_t{4} << 20;
    CHILD            child;
    CHILD_SPEC       sctSpec;
    std::string      sOut;
    sctSpec.asArgument = asArgument;
    sctSpec.asEnvironment = {{"LC_ALL", "C"}};
    const int  iStarted = iCHILD_START(child, sctSpec, sOut);
    const long lDeadline = lNOW_MS() + iLimitMs;
    // What it leaves behind may hold its output open.
    for (bool bEnded = !iStarted; !bEnded && child.fdOut.bOpen() && sOut.size() < uMOST;) {
        std::vector<WAIT_FD> fds{{child.fdExit.iGet()}, {child.fdOut.iGet()}};
        if (iWAIT(fds, lDeadline) != WAIT_READY) break;
        bEnded = fds[0].bReady;
        uREAD_NOW(child.fdOut, sOut, uMOST - sOut.size());
    }
    child.fdOut.Close();  // who says more than that is not waited for
    if (iStarted && lNOW_MS() >= lDeadline) v_CHILD_END(child, 500);
    if (iStarted) v_CHILD_LET_GO(child, 500);
    if (pStatus != nullptr) *pStatus = child.iStatus;
    return sOut;
}

int iCHILD_ENDED(CHILD& child)
{
    if (child.iPid < 0) return 1;
    int         iWaitStatus = 0;
    const pid_t iReaped = waitpid(child.iPid, &iWaitStatus, WNOHANG);
    if (iReaped == 0) return 0;
    TAKE_STATUS(child, iReaped == child.iPid ? iWaitStatus : W_EXITCODE(127, 0));
    return 1;
}

void v_CHILD_END(CHILD& child, int iGraceMs)
{
    child.fdIn.Close();
    if (child.iPid < 0) return;
    if (child.bOutlives) {
        child.iPid = -1;
        FORGET(child);
        return;
    }
    const pid_t iGroup = child.iPid;
    const long  lDeadline = lNOW_MS() + iGraceMs;
    SIGNAL_GROUP(iGroup, SIGTERM);
    WAIT_FOR_CHILD(child, lDeadline);
    WAIT_FOR_GROUP(iGroup, lDeadline);
    if (child.iPid < 0) {
        kill(-iGroup, SIGKILL);
        return;
    }
    SIGNAL_GROUP(iGroup, SIGKILL);
    REAP(child);
}

void v_CHILD_LET_GO(CHILD& child, int iGraceMs)
{
    for (const int iSignal : {SIGTERM, SIGKILL}) {
        WAIT_FOR_CHILD(child, lNOW_MS() + iGraceMs);
        if (child.iPid < 0) return;
        kill(child.iPid, iSignal);
    }
    REAP(child);
}

void v_CHILD_SIGNAL(const CHILD& child, int iSignal)
{
    if (child.iPid > 0) SIGNAL_GROUP(child.iPid, iSignal);
}
