#include "ssh_connection.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <utility>

#include "../../base/descriptor.h"
#include "../../base/immortal.h"
#include "../../base/program.h"
#include "../../config/variables.h"
#include "../../lines/standard_error.h"
#include "../../text/command_line.h"
#include "../../text/text.h"
#include "../../unix/cm_hal_pipe.h"
#include "../cm_remote.h"

namespace fs = std::filesystem;

namespace {

// ssh adds a blank, a dot and 16 characters of its own to the name of a new socket.
constexpr size_t uSOCKET_MAX = sizeof(sockaddr_un::sun_path) - 20;
constexpr size_t uPARENT_MAX = 50;
constexpr int    iEND_MS = 1000;
constexpr int    iREAP_MS = 100;
constexpr long   lNEW_S = 20;  // between the making of a folder and its lock lie milliseconds
constexpr int    iLOCK_TRIES = 1000;  // of 2 ms

struct PRIVATE_DIRECTORY {
    std::string sPath;
    FD          fdLock;
    size_t      uConnections = 0;
};

PRIVATE_DIRECTORY& DIRECTORY()
{
    static IMMORTAL<PRIVATE_DIRECTORY> directory;
    return directory.Get();
}

std::map<std::string, SSH_CONNECTION>& CONNECTIONS()
{
    static IMMORTAL<std::map<std::string, SSH_CONNECTION>> connections;
    return connections.Get();
}

/* The run has one command for a host. */
bool& ONE_COMMAND()
{
    static IMMORTAL<bool> one;
    return one.Get();
}

std::string sBASE_NAME()
{
    return "vk-" + std::to_string(geteuid()) + "-";
}

/* The folder's path without links, where nobody but us and root can put something else
   in its place, or in the place of what lies there; else "". */
std::string sSAFE_FOLDER(const std::string& sPath)
{
    std::error_code error;
    const fs::path  real = fs::canonical(sPath, error);
    for (fs::path path = real; !error; path = path.parent_path()) {
        struct stat sctStat {};
        if (stat(path.c_str(), &sctStat) != 0 || !S_ISDIR(sctStat.st_mode)) return {};
        const bool bOurs = sctStat.st_uid == 0 || sctStat.st_uid == geteuid();
        if (!bOurs || ((sctStat.st_mode & 022U) != 0 && (sctStat.st_mode & S_ISVTX) == 0))
            return {};
        if (path == path.root_path()) return real.string();
    }
    return {};
}

/* ssh's own options take the path of a socket apart. */
bool bFOR_SSH(const std::string& sPath)
{
    return sSHELL_WORD(SHELL_POSIX, sPath) == sPath && sPath.find('%') == sPath.npos;
}

/* TMPDIR where it is fit, else "". */
std::string sFIT_TMPDIR()
{
    const std::string sGiven = sENVIRONMENT("TMPDIR");
    if (sGiven.empty()) return {};
    std::string sPath = sSAFE_FOLDER(sGiven);
    const char* cpWrong = nullptr;
    if (sGiven[0] != '/' || sGiven.size() >= uPARENT_MAX)
        cpWrong = "it is not an absolute path, or is too long";
    else if (!bFOR_SSH(sGiven))
        cpWrong = "its name contains characters that ssh does not accept";
    else if (sPath.empty())
        cpWrong = "it is not a folder, or others can write there or replace it";
    else if (sPath.size() >= uPARENT_MAX || !bFOR_SSH(sPath))
        cpWrong = "it resolves to a name that ssh does not accept";
    else if (access(sPath.c_str(), W_OK) != 0)
        cpWrong = "it cannot be written";
    if (cpWrong == nullptr) return sPath;
    v_STDERR_ONCE("TMPDIR", "TMPDIR=\"%s\" is not used: %s", sGiven.c_str(), cpWrong);
    return {};
}

/* A folder of the product's own for the folders of its runs, made where it is missing.
   Result  its path, "" where there is none. */
std::string sPLACE_FOR_RUNS(const std::string& sPath)
{
    if (mkdir(sPath.c_str(), 0700) != 0 && errno != EEXIST) return {};
    const std::string sReal = sSAFE_FOLDER(sPath);
    const bool        bFit = sReal.size() < uPARENT_MAX && bFOR_SSH(sReal);
    return bFit && access(sReal.c_str(), W_OK) == 0 ? sReal : std::string();
}

std::string sPARENT_DIRECTORY()
{
    std::string sPlace = sFIT_TMPDIR();
    std::string sRw;
    iCONFIG_VARIABLE("gv_rw", sRw);
    for (const std::string& sPath : {std::string("/run/vk_config_client"), sRw + "run"})
        if (sPlace.empty()) sPlace = sPLACE_FOR_RUNS(sPath);
    return sPlace.empty() ? "/tmp" : sPlace;
}

FD fdLOCKED(const std::string& sPath, int iTries)
{
    FD          fd(open(sPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
    struct stat sctStat {};
    if (!fd.bOpen() || fstat(fd.iGet(), &sctStat) != 0 || sctStat.st_uid != geteuid()) return FD();
    return bLOCKED(fd.iGet(), iTries) ? std::move(fd) : FD();
}

FD fdCONNECTED(const std::string& sSocket)
{
    sockaddr_un sctAddress{};
    sctAddress.sun_family = AF_UNIX;
    if (!iTEXT_SET(sctAddress.sun_path, sSocket)) return FD();
    FD            fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const timeval sctLimit{iEND_MS / 1000, 0};
    setsockopt(fd.iGet(), SOL_SOCKET, SO_RCVTIMEO, &sctLimit, sizeof sctLimit);
    setsockopt(fd.iGet(), SOL_SOCKET, SO_SNDTIMEO, &sctLimit, sizeof sctLimit);
    if (connect(fd.iGet(), reinterpret_cast<sockaddr*>(&sctAddress), sizeof sctAddress) != 0)
        fd.Close();
    return fd;
}

using PACKET = std::array<uint8_t, 12>;

PACKET acPACKET(uint32_t uType, uint32_t uValue)
{
    PACKET         acPacket{};
    const uint32_t auWord[] = {8, uType, uValue};
    for (size_t u = 0; u < acPacket.size(); ++u)
        acPacket[u] = static_cast<uint8_t>(auWord[u / 4] >> (24 - 8 * (u % 4)));
    return acPacket;
}

/* Asks the background process of a connection to end (ssh's own multiplexing
   protocol: a greeting, then the request). A process of its own, ssh -O exit, would do
   the same ten times slower. */
void ASK_TO_END(SSH_CONNECTION& connection)
{
    constexpr uint32_t uHELLO = 1, uVERSION = 4, uTERMINATE = 0x10000005;
    if (!connection.bShared || connection.sSocket.empty() || connection.fdEnding.bOpen()) return;
    FD           fd = fdCONNECTED(connection.sSocket);
    const PACKET acHello = acPACKET(uHELLO, uVERSION);
    const PACKET acEnd = acPACKET(uTERMINATE, 1);
    if (fd.bOpen() && send(fd.iGet(), acHello.data(), acHello.size(), MSG_NOSIGNAL) > 0 &&
        send(fd.iGet(), acEnd.data(), acEnd.size(), MSG_NOSIGNAL) > 0)
        connection.fdEnding = std::move(fd);
}

/* Waits until it is gone. */
void AWAIT_END(SSH_CONNECTION& connection)
{
    if (!connection.fdEnding.bOpen()) return;
    char       acAnswer[256];
    const long lDeadline = lNOW_MS() + iEND_MS;
    ssize_t    lGot = 1;
    while (lGot > 0 && lNOW_MS() < lDeadline)
        lGot = lREAD(connection.fdEnding.iGet(), acAnswer, sizeof acAnswer);
    connection.fdEnding.Close();
}

/* Nothing can be in it any more that somebody uses. An empty folder that is quite new
   may just be on its way to be locked. The connections of a killed run are asked to
   end: a look whether they live would keep them alive. One that does not end at once
   is left to a later run. */
bool bLEFT_OVER(const std::string& sPath)
{
    struct stat sctStat {};
    if (lstat(sPath.c_str(), &sctStat) != 0) return false;
    std::error_code error;
    size_t          uEntries = 0;
    for (fs::directory_iterator it(sPath, error), end; !error && it != end; it.increment(error)) {
        ++uEntries;
        if (!it->is_socket(error)) continue;
        SSH_CONNECTION connection;
        connection.sSocket = it->path().string();
        connection.bShared = true;
        ASK_TO_END(connection);
        if (!connection.fdEnding.bOpen()) continue;
        AWAIT_END(connection);
        if (fdCONNECTED(connection.sSocket).bOpen()) return false;
    }
    return !error && (uEntries > 0 || time(nullptr) - sctStat.st_ctime >= lNEW_S);
}

/* A directory that nobody has locked belonged to a run that was killed. */
void REMOVE_LEFTOVERS(const std::string& sParent)
{
    std::error_code error;
    for (fs::directory_iterator it(sParent, error), end; !error && it != end; it.increment(error)) {
        const std::string sPath = it->path().string();
        if (!it->path().filename().string().starts_with(sBASE_NAME())) continue;
        const FD        fdLock = fdLOCKED(sPath, 1);
        std::error_code ignored;
        if (fdLock.bOpen() && bLEFT_OVER(sPath)) fs::remove_all(sPath, ignored);
    }
}

/* Makes the folder and locks it. Who looks for leftovers at this moment has it locked
   until he has seen that it is new; without the lock, the next one would remove it.
   Result  0: errno says why not */
int iMAKE(PRIVATE_DIRECTORY& directory, const std::string& sParent)
{
    std::string sPath = sParent + "/" + sBASE_NAME() + "XXXXXX";
    if (mkdtemp(sPath.data()) == nullptr) return 0;
    directory.fdLock = fdLOCKED(sPath, iLOCK_TRIES);
    if (!directory.fdLock.bOpen()) {
        const int iErrno = errno;
        rmdir(sPath.c_str());
        errno = iErrno;
        return 0;
    }
    directory.sPath = sPath;
    return 1;
}

/* Takes leave of the background processes, which became children of this process
   when the ssh that made them ended. What else a command left behind goes on. */
void REAP_BACKGROUND()
{
    const long lDeadline = lNOW_MS() + iREAP_MS;
    while (lNOW_MS() < lDeadline) {
        const pid_t iReaped = waitpid(-1, nullptr, WNOHANG);
        if (iReaped < 0) return;
        if (iReaped == 0) iSLEEP_MS(1);
    }
}

void END_CONNECTIONS()
{
    v_REMOTE_DONE();
    bool bShared = false;
    for (auto& [sKey, connection] : CONNECTIONS()) {
        AWAIT_END(connection);
        bShared |= connection.bShared;
    }
    if (bShared) REAP_BACKGROUND();
    CONNECTIONS().clear();
    std::error_code ignored;
    if (!DIRECTORY().sPath.empty()) fs::remove_all(DIRECTORY().sPath, ignored);
    DIRECTORY() = {};
}

/* In a forked process: the folder and the connections are its parent's. */
void LEAVE_TO_PARENT()
{
    CONNECTIONS().clear();
    DIRECTORY() = {};
    ONE_COMMAND() = false;
}

}  // namespace

void v_REMOTE_ONE_COMMAND()
{
    ONE_COMMAND() = true;
}

void v_REMOTE_DONE()
{
    for (auto& [sKey, connection] : CONNECTIONS()) ASK_TO_END(connection);
}

const std::string& sPRIVATE_DIRECTORY()
{
    PRIVATE_DIRECTORY& directory = DIRECTORY();
    if (!directory.sPath.empty()) return directory.sPath;
    const std::string sParent = sPARENT_DIRECTORY();
    REMOVE_LEFTOVERS(sParent);
    if (!iMAKE(directory, sParent)) {
        v_STDERR_ONCE("private directory", "cannot make a folder in \"%s\": %s", sParent.c_str(),
                      std::strerror(errno));
        return directory.sPath;
    }
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    static const int iOnce = (v_AFTER_FORK(LEAVE_TO_PARENT), 1);
    static_cast<void>(iOnce);
    v_AT_END(END_CONNECTIONS);
    return directory.sPath;
}

SSH_CONNECTION& sctCONNECTION(const HOST& host)
{
    const std::string sKey = host.sAccessMode + "\n" + host.sName;
    const auto [entry, bNew] = CONNECTIONS().try_emplace(sKey);
    SSH_CONNECTION& connection = entry->second;
    if (!bNew) return connection;
    connection.bAlone = ONE_COMMAND();
    const std::string& sDirectory = sPRIVATE_DIRECTORY();
    if (sDirectory.empty()) return connection;
    const std::string sBase = sDirectory + "/" + std::to_string(DIRECTORY().uConnections++);
    if (sBase.size() < uSOCKET_MAX) connection.sSocket = sBase;
    return connection;
}
