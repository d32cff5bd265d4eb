/* Waits, signals, and the end of the process. The register of what must be released
   then is here, since exit does not unwind. */
#include "waiting.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <stdio_ext.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>

#include "../base/descriptor.h"
#include "../base/immortal.h"
#include "../lines/standard_error.h"
#include "cm_hal_pipe.h"
#include "drain.h"

namespace {

constexpr int    iNO_MEMORY_TRIES = 50;
constexpr long   lNO_MEMORY_PAUSE_NS = 20000000;
constexpr int    iOUTPUT_LOST = 2;  // exit code when standard output could not be written
constexpr size_t uRESERVE = size_t{256} * 1024;
constexpr long   lDRAIN_MS = 250;
constexpr int    iUNHEARD_S = 4;  // after which a signal ends the process as it stands
constexpr int    aiSignal[] = {SIGINT, SIGTERM, SIGHUP};

volatile sig_atomic_t iPendingSignal = 0;
volatile sig_atomic_t bUnreported = 0;  // a signal came that no wait has told yet
volatile sig_atomic_t iSecondsLeft = iUNHEARD_S;
bool                  bSignalsSetUp = false;
bool                  bToCaller = false;
bool                  bEnding = false;
sigset_t              setHandled;  // what the handlers below are for
void (*pAtSignal)() = nullptr;

std::vector<void (*)()>& AT_END()
{
    static IMMORTAL<std::vector<void (*)()>> atEnd;
    return atEnd.Get();
}

void NOTE_SIGNAL(int iSignal)
{
    if (bINTERRUPTED == 0) alarm(1);
    iPendingSignal = iSignal;
    bUnreported = 1;
    bINTERRUPTED = 1;
}

/* A second has passed since the signal. What still waits somewhere is interrupted again,
   in case it began to wait just after the last time. */
void TICK(int /*iSignal*/)
{
    iSecondsLeft = iSecondsLeft - 1;
    if (iSecondsLeft > 0) {
        alarm(1);
        return;
    }
    signal(iPendingSignal, SIG_DFL);
    sigprocmask(SIG_UNBLOCK, &setHandled, nullptr);
    raise(iPendingSignal);
}

void HANDLE(int iSignal, void (*pHandler)(int))
{
    struct sigaction sctAction {};
    sctAction.sa_handler = pHandler;
    sigaction(iSignal, &sctAction, nullptr);
}

/* Nobody may read our output any more: then it goes nowhere, and holds nobody. */
void LET_STALLED_OUTPUT_GO()
{
    for (const int iFd : {STDOUT_FILENO, STDERR_FILENO}) {
        pollfd sctPoll{iFd, POLLOUT, 0};
        if (poll(&sctPoll, 1, 0) != 0) continue;
        const FD fdNull(open("/dev/null", O_WRONLY | O_CLOEXEC));
        dup2(fdNull.iGet(), iFd);
    }
}

void GIVE_BACK()
{
    bEnding = true;
    v_END_CHILDREN();
    while (!AT_END().empty()) {
        void (*pDone)() = AT_END().back();
        AT_END().pop_back();
        pDone();
    }
}

/* What is registered here is the parent's to give back. */
void FORGET_PARENTS()
{
    AT_END().clear();
    v_FORGET_CHILDREN();
}

/* What was printed has left. The stream may have failed long before; its reason is
   known only when it does so now. */
bool bOUTPUT_WRITTEN()
{
    errno = 0;
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return true;
    if (iPendingSignal != 0) return false;
    const char* cpCause = std::strerror(errno != 0 ? errno : EIO);
    v_STDERR_ONCE("stdout", "cannot write standard output: %s", cpCause);
    return false;
}

/* Looks at a signal that came. Result 1 the caller is to be told. */
int iTAKE_SIGNAL()
{
    if (bUnreported == 0 || bEnding) return 0;
    bUnreported = 0;
    if (!bToCaller) v_END_BY_SIGNAL(iPendingSignal);
    LET_STALLED_OUTPUT_GO();
    return 1;
}

/* What this process still holds when memory runs out, so that it can end in order. */
std::unique_ptr<char[]>& RESERVE()
{
    static LASTING<std::unique_ptr<char[]>> reserve;
    return reserve.Get();
}

[[noreturn]] void NO_MEMORY()
{
    constexpr int iEXIT = 2;
    RESERVE().reset();
    std::set_new_handler([] { _exit(iEXIT); });
    v_STDERR("out of memory; the run ends");
    v_END_PROCESS(iEXIT);
}

timespec sctLEFT(long lDeadline)
{
    const long lLeft = lDeadline == 0 ? 3600000 : std::max(0L, lDeadline - lNOW_MS());
    return {lLeft / 1000, lLeft % 1000 * 1000000};
}

long lDRAIN_NEXT = 0;  // when programs that write beside a wait are listened to again

/* Reads what programs write beside what a wait is for, now and then: every line of it
   would wake us. */
class DRAINING {
public:
    long lUntil(long lDeadline)
    {
        m_bLook = lNOW_MS() >= lDRAIN_NEXT;
        if (m_bLook || DRAINS().empty()) return lDeadline;
        return lDeadline == 0 ? lDRAIN_NEXT : std::min(lDRAIN_NEXT, lDeadline);
    }
    /* Puts them behind the others, where it is time to. */
    void Add(std::vector<pollfd>& polls)
    {
        m_uOthers = polls.size();
        for (const DRAIN* pDrain : DRAINS())
            if (m_bLook) polls.push_back({pDrain->iFd(), POLLIN, 0});
    }
    /* Result  how many were ready */
    int iTake(std::vector<pollfd>& polls)
    {
        int iTaken = 0;
        for (size_t u = m_uOthers; u < polls.size(); ++u) {
            if (polls[u].revents == 0) continue;
            DRAINS()[u - m_uOthers]->Take();
            ++iTaken;
        }
        polls.resize(m_uOthers);
        if (iTaken > 0) lDRAIN_NEXT = lNOW_MS() + lDRAIN_MS;
        return iTaken;
    }

private:
    bool   m_bLook = false;
    size_t m_uOthers = 0;
};

}  // namespace

void v_GIVE_BACK_AT_EXIT()
{
    static const int iOnce = (v_AFTER_FORK(FORGET_PARENTS), std::atexit(GIVE_BACK));
    static_cast<void>(iOnce);
}

void v_SIGNALS_OF_CHILD()
{
    for (int iSignal : aiSignal) signal(iSignal, SIG_DFL);
    signal(SIGPIPE, SIG_DFL);
    if (!bSignalsSetUp) return;
    sigset_t setNone;
    sigemptyset(&setNone);
    sigprocmask(SIG_SETMASK, &setNone, nullptr);
}

SIGNALS_HELD::SIGNALS_HELD()
{
    if (bSignalsSetUp) sigprocmask(SIG_BLOCK, &setHandled, &m_setBefore);
}

SIGNALS_HELD::~SIGNALS_HELD()
{
    if (bSignalsSetUp) sigprocmask(SIG_SETMASK, &m_setBefore, nullptr);
}

void v_PROCESS_ANEW(int iKept)
{
    iPendingSignal = 0;
    bUnreported = 0;
    bINTERRUPTED = 0;
    iSecondsLeft = iUNHEARD_S;
    bSignalsSetUp = bToCaller = bEnding = false;
    pAtSignal = nullptr;
    for (int iSignal : aiSignal) signal(iSignal, SIG_DFL);
    __fpurge(stdout);
    clearerr(stdout);
    v_RUN_OBJECTS_ANEW();
    const auto uKept = static_cast<unsigned>(iKept);  // none: past all others
    if (uKept > STDERR_FILENO + 1U) close_range(STDERR_FILENO + 1, uKept - 1, 0);
    if (iKept >= 0) close_range(uKept + 1, ~0U, 0);
}

long lNOW_MS()
{
    timespec sctNow{};
    clock_gettime(CLOCK_MONOTONIC, &sctNow);
    return sctNow.tv_sec * 1000L + sctNow.tv_nsec / 1000000L;
}

WAIT_RESULT iWAIT(std::vector<WAIT_FD>& fds, long lDeadline)
{
    std::vector<pollfd> polls;
    for (WAIT_FD& fd : fds) {
        fd.bReady = false;
        polls.push_back({fd.iFd, static_cast<short>(fd.bWrite ? POLLOUT : POLLIN), 0});
    }
    const SIGNALS_HELD held;
    const sigset_t*    pMask = bSignalsSetUp && !bEnding ? held.pBefore() : nullptr;
    DRAINING           draining;
    for (int iTriesLeft = iNO_MEMORY_TRIES;;) {
        if (iTAKE_SIGNAL()) return WAIT_SIGNAL;
        const timespec sctLeft = sctLEFT(draining.lUntil(lDeadline));
        draining.Add(polls);
        const int iReady = ppoll(polls.data(), polls.size(), &sctLeft, pMask);
        const int iErrno = errno;
        const int iTaken = draining.iTake(polls);
        errno = iErrno;
        if (iReady > iTaken) break;
        if (iReady >= 0 && lDeadline != 0 && lNOW_MS() >= lDeadline) return WAIT_TIMEOUT;
        if (iReady >= 0 || errno == EINTR) continue;
        // The kernel is short of memory, which may pass.
        if (--iTriesLeft == 0) return WAIT_FAILED;
        const timespec sctPause{0, lNO_MEMORY_PAUSE_NS};
        nanosleep(&sctPause, nullptr);
    }
    for (size_t u = 0; u < fds.size(); ++u) fds[u].bReady = polls[u].revents != 0;
    return WAIT_READY;
}

int iSLEEP_MS(long lMilliseconds)
{
    std::vector<WAIT_FD> none;
    return iWAIT(none, lNOW_MS() + std::max(1L, lMilliseconds)) != WAIT_SIGNAL;
}

void v_STANDARD_DESCRIPTORS()
{
    signal(SIGXFSZ, SIG_IGN);  // what a limit refuses is a failed write
    for (const int iFd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(iFd, F_GETFD) < 0) open("/dev/null", O_RDWR);  // takes the lowest, which is iFd
}

void v_MEMORY_SETUP()
{
    std::set_new_handler(NO_MEMORY);
    if (!RESERVE()) RESERVE() = std::make_unique_for_overwrite<char[]>(uRESERVE);
}

void v_SIGNALS_SETUP()
{
    if (bSignalsSetUp) return;
    sigset_t setNone;
    sigemptyset(&setNone);
    sigemptyset(&setHandled);
    for (int iSignal : aiSignal) {
        struct sigaction sctOld {};
        sigaction(iSignal, nullptr, &sctOld);
        if (sctOld.sa_handler == SIG_IGN) continue;  // nohup stays in force
        HANDLE(iSignal, NOTE_SIGNAL);
        sigaddset(&setHandled, iSignal);
    }
    HANDLE(SIGALRM, TICK);
    sigaddset(&setHandled, SIGALRM);
    sigprocmask(SIG_SETMASK, &setNone, nullptr);
    signal(SIGPIPE, SIG_IGN);
    v_MEMORY_SETUP();
    signal(SIGCHLD, SIG_DFL);  // where it is ignored, a child's status is lost
    bSignalsSetUp = true;
}

void v_SIGNALS_TO_CALLER()
{
    bToCaller = true;
    iSecondsLeft = iUNHEARD_S + 1;
}

void v_AT_SIGNAL(void (*pDo)())
{
    pAtSignal = pDo;
}

int iSIGNALLED()
{
    return iPendingSignal;
}

void v_AT_END(void (*pDone)())
{
    v_GIVE_BACK_AT_EXIT();
    AT_END().push_back(pDone);
}

void v_AFTER_FORK(void (*pForget)())
{
    pthread_atfork(nullptr, nullptr, pForget);
}

void v_END_PROCESS(int iExit)
{
    const bool bWritten = bOUTPUT_WRITTEN();
    if (!bWritten && iPendingSignal != 0) v_END_BY_SIGNAL(iPendingSignal);
    GIVE_BACK();
    std::exit(iExit == 0 && !bWritten ? iOUTPUT_LOST : iExit);
}

void v_END_BY_SIGNAL(int iSignal)
{
    bEnding = true;
    LET_STALLED_OUTPUT_GO();
    if (pAtSignal != nullptr) pAtSignal();
    bOUTPUT_WRITTEN();
    GIVE_BACK();
    signal(iSignal, SIG_DFL);
    raise(iSignal);
    sigprocmask(SIG_UNBLOCK, &setHandled, nullptr);
    _exit(128 + iSignal);
}
