/* Reading and writing of descriptors. */
#include "descriptor.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

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
