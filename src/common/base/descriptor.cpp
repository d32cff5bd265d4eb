/* Reading and writing of descriptors. */
#include "descriptor.h"

#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

namespace {

bool bNOBODY_READS(int iFd)
{
    pollfd sctPoll{iFd, POLLOUT, 0};
    return poll(&sctPoll, 1, 0) == 0;
}

}  // namespace

const char* cpERRNO(int iErrno)
{
    return iErrno == ENOSTR ? "it is a pipe" : std::strerror(iErrno);
}

int iMAKE_DIRECTORY(const std::string& sDirectory)
{
    for (size_t u = sDirectory.find('/', 1); true; u = sDirectory.find('/', u + 1)) {
        const std::string sPart = sDirectory.substr(0, u);
        if (!sPart.empty() && mkdir(sPart.c_str(), 0750) != 0 && errno != EEXIST) return 0;
        if (u == std::string::npos) break;
    }
    struct stat sctStat {};
    if (stat(sDirectory.c_str(), &sctStat) != 0) return 0;
    if (S_ISDIR(sctStat.st_mode)) return 1;
    errno = ENOTDIR;
    return 0;
}

FD fdOPEN_FILE(const std::string& sFile, int iFlags, mode_t uMode)
{
    // Who opens a pipe for writing alone is refused already where nobody reads.
    FD          fd(open(sFile.c_str(), iFlags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, uMode));
    struct stat sctStat {};
    if (!fd.bOpen() && errno == ENXIO) errno = ENOSTR;
    if (fd.bOpen() && fstat(fd.iGet(), &sctStat) == 0 && S_ISFIFO(sctStat.st_mode)) {
        fd.Close();
        errno = ENOSTR;
    }
    return fd;
}

bool bLOCKED(int iFd, int iTries)
{
    constexpr timespec sctPAUSE{0, 2'000'000};
    while (flock(iFd, LOCK_EX | LOCK_NB) != 0) {
        if (errno == EINTR && bINTERRUPTED == 0) continue;
        if (errno != EWOULDBLOCK || --iTries <= 0) return false;
        nanosleep(&sctPAUSE, nullptr);
    }
    return true;
}

bool bSTILL_NAMED(int iFd, const std::string& sFile, int iFolder)
{
    struct stat sctOpen {};
    struct stat sctNamed {};
    return fstat(iFd, &sctOpen) == 0 &&
           fstatat(iFolder, sFile.c_str(), &sctNamed, AT_SYMLINK_NOFOLLOW) == 0 &&
           sctOpen.st_dev == sctNamed.st_dev && sctOpen.st_ino == sctNamed.st_ino;
}

ssize_t lREAD(int iFd, char* cpTo, size_t uSize)
{
    ssize_t lGot = 0;
    do {
        lGot = read(iFd, cpTo, uSize);
    } while (lGot < 0 && errno == EINTR && bINTERRUPTED == 0);
    return lGot;
}

int iREAD_ALL(int iFd, std::string& sText, size_t uMax)
{
    char    acPart[16384];
    ssize_t lGot = 0;
    size_t  uRead = 0;
    while ((lGot = lREAD(iFd, acPart, sizeof acPart)) > 0) {
        sText.append(acPart, static_cast<size_t>(lGot));
        uRead += static_cast<size_t>(lGot);
        errno = EFBIG;
        if (uRead > uMax) return 0;
    }
    return lGot == 0;
}

size_t uREAD_NOW(FD& fd, std::string& sText, size_t uMax)
{
    static char acPiece[65536];
    size_t      uRead = 0;
    while (uRead < uMax && fd.bOpen()) {
        const ssize_t lRead = lREAD(fd.iGet(), acPiece, std::min(sizeof acPiece, uMax - uRead));
        if (lRead == 0 || (lRead < 0 && errno != EAGAIN)) fd.Close();
        if (lRead <= 0) break;
        sText.append(acPiece, static_cast<size_t>(lRead));
        uRead += static_cast<size_t>(lRead);
    }
    return uRead;
}

int iREAD_FILE(const std::string& sFile, std::string& sText, size_t uMax)
{
    const FD fd = fdOPEN_FILE(sFile, O_RDONLY);
    sText.clear();
    return fd.bOpen() && iREAD_ALL(fd.iGet(), sText, uMax);
}

int iWRITE_ALL(int iFd, std::string_view svText)
{
    while (!svText.empty()) {
        errno = EINTR;
        if (bINTERRUPTED != 0 && bNOBODY_READS(iFd)) return 0;
        const ssize_t lWritten = write(iFd, svText.data(), svText.size());
        if (lWritten < 0 && errno == EINTR && bINTERRUPTED == 0) continue;
        if (lWritten == 0) errno = ENOSPC;
        if (lWritten <= 0) return 0;
        svText.remove_prefix(static_cast<size_t>(lWritten));
    }
    return 1;
}
