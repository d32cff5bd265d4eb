/* Runs a command and tells on descriptor FD what it took.

     measure FD COMMAND...      wall and processor seconds (with all that it waited for)
     measure FD -m COMMAND...   peak memory of COMMAND alone in KiB, by a look at it
                                when it ends
     measure FD -t COMMAND...   follows all its processes too, which costs time: their
                                number, and how many programs they started

   A line is "status wall processor peak processes programs", 0 for what was not
   asked for. This program is small so that its own memory, which a child starts
   with, is not what is measured. */
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

struct FIGURES {
    int    iStatus = -1;
    double dWall = 0;
    double dProcessor = 0;
    long   lPeak = 0;
    long   lProcesses = 0;
    long   lPrograms = 0;
};

double dNOW()
{
    timespec sctNow{};
    clock_gettime(CLOCK_MONOTONIC, &sctNow);
    return static_cast<double>(sctNow.tv_sec) + static_cast<double>(sctNow.tv_nsec) / 1e9;
}

double dSECONDS(const timeval& sctTime)
{
    return static_cast<double>(sctTime.tv_sec) + static_cast<double>(sctTime.tv_usec) / 1e6;
}

int iSTATUS(int iWait)
{
    return WIFSIGNALED(iWait) ? 128 + WTERMSIG(iWait) : WEXITSTATUS(iWait);
}

/* A process that is about to end still has its memory. */
long lPEAK(pid_t iPid)
{
    char szLine[256];
    long lPeak = 0;
    std::snprintf(szLine, sizeof szLine, "/proc/%d/status", iPid);
    FILE* pFile = std::fopen(szLine, "r");
    if (pFile == nullptr) return 0;
    while (std::fgets(szLine, sizeof szLine, pFile) != nullptr)
        if (std::sscanf(szLine, "VmHWM: %ld", &lPeak) == 1) break;
    std::fclose(pFile);
    return lPeak;
}

void FOLLOW(pid_t iPid, bool bAll, FIGURES& figures)
{
    constexpr long lAll =
        PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC;
    int   iWait = 0;
    pid_t iOne = waitpid(iPid, &iWait, WUNTRACED);
    ptrace(PTRACE_SEIZE, iPid, nullptr, PTRACE_O_TRACEEXIT | (bAll ? lAll : 0));
    kill(iPid, SIGCONT);
    figures.lProcesses = 1;
    while ((iOne = waitpid(-1, &iWait, __WALL)) > 0 || errno == EINTR) {
        if (iOne < 0) continue;
        if (!WIFSTOPPED(iWait)) {
            if (iOne == iPid) figures.iStatus = iSTATUS(iWait);
            continue;
        }
        const int iEvent = iWait >> 16;
        if (iEvent == PTRACE_EVENT_FORK || iEvent == PTRACE_EVENT_VFORK ||
            iEvent == PTRACE_EVENT_CLONE)
            ++figures.lProcesses;
        if (iEvent == PTRACE_EVENT_EXEC) ++figures.lPrograms;
        if (iEvent == PTRACE_EVENT_EXIT && iOne == iPid) figures.lPeak = lPEAK(iPid);
        const long lSignal = iEvent == 0 ? WSTOPSIG(iWait) : 0;
        ptrace(PTRACE_CONT, iOne, nullptr, lSignal);
    }
}

void TIME(pid_t iPid, double dStart, FIGURES& figures)
{
    int    iWait = 0;
    rusage sctUsage{};
    while (wait4(iPid, &iWait, 0, &sctUsage) < 0 && errno == EINTR) {
    }
    figures.dWall = dNOW() - dStart;
    figures.dProcessor = dSECONDS(sctUsage.ru_utime) + dSECONDS(sctUsage.ru_stime);
    figures.iStatus = iSTATUS(iWait);
}

}  // namespace

int main(int argc, char** argv)
{
    const bool   bAll = argc > 2 && std::strcmp(argv[2], "-t") == 0;
    const bool   bTrace = bAll || (argc > 2 && std::strcmp(argv[2], "-m") == 0);
    char** const ppCommand = argv + (bTrace ? 3 : 2);
    if (argc < (bTrace ? 4 : 3)) return 2;
    const int    iFd = std::atoi(argv[1]);
    FIGURES      figures;
    const double dStart = dNOW();
    const pid_t  iPid = fork();
    if (iPid == 0) {
        if (bTrace) raise(SIGSTOP);
        close(iFd);
        execvp(ppCommand[0], ppCommand);
        _exit(127);
    }
    if (iPid < 0) return 1;
    if (bTrace)
        FOLLOW(iPid, bAll, figures);
    else
        TIME(iPid, dStart, figures);
    dprintf(iFd, "%d %.6f %.6f %ld %ld %ld\n", figures.iStatus, figures.dWall, figures.dProcessor,
            figures.lPeak, figures.lProcesses, figures.lPrograms);
    return 0;
}
