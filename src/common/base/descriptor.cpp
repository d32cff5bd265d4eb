/* Reading and writing of descriptors. */
#include "descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "holder.h"

ssize_t lREAD(int iFd, char* cpTo, size_t uSize)
{
    ssize_t lGot = 0;
    do {
        lGot = read(iFd, cpTo, uSize);
    } while (lGot < 0 && errno == EINTR);
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
    const FD fd(open(sFile.c_str(), O_RDONLY | O_CLOEXEC));
    sText.clear();
    return fd.bOpen() && iREAD_ALL(fd.iGet(), sText, uMax);
}

int iWRITE_ALL(int iFd, std::string_view svText)
{
    while (!svText.empty()) {
        const ssize_t lWritten = write(iFd, svText.data(), svText.size());
        if (lWritten < 0 && errno == EINTR) continue;
        if (lWritten == 0) errno = ENOSPC;
        if (lWritten <= 0) return 0;
        svText.remove_prefix(static_cast<size_t>(lWritten));
    }
    return 1;
}
