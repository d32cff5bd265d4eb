/* Names of files, and appending lines to files. */
#include "appending.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "../base/descriptor.h"
#include "../base/holder.h"
#include "../text/text.h"
#include "standard_error.h"

namespace {

// Leaves room for what stands around a name in the names of files.
constexpr size_t uFILE_NAME_MAX = 200;
// Half a second: a file system without locks, or a stopped process that holds it, is not
// waited for long.
constexpr int iLOCK_TRIES = 250;

std::string sHASH(std::string_view svText)  // FNV-1a, 16 digits
{
    uint64_t uHash = 0xcbf29ce484222325U;
    for (const char c : svText) uHash = (uHash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
    std::string sHex;
    for (int iShift = 60; iShift >= 0; iShift -= 4)
        sHex += "0123456789abcdef"[uHash >> static_cast<unsigned>(iShift) & 15U];
    return sHex;
}

long lSIZE(int iFd)
{
    struct stat sctStat {};
    return fstat(iFd, &sctStat) == 0 ? sctStat.st_size : 0;
}

/* Result  0: errno says why it is not there */
int iAPPEND(int iFd, const std::string& sLine)
{
    const bool bLocked = bLOCKED(iFd, iLOCK_TRIES);
    const long lBefore = lSIZE(iFd);
    char       cLast = '\n';
    const bool bCut = lBefore > 0 && pread(iFd, &cLast, 1, lBefore - 1) == 1 && cLast != '\n';
    const std::string sAll = (bCut ? "\n" : "") + sLine + "\n";
    if (iWRITE_ALL(iFd, sAll)) return 1;
    const int iErrno = errno;
    // Whole lines of others behind our part are worth more than a clean file.
    const long lPart = lSIZE(iFd) - lBefore;
    if (bLocked && lPart > 0 && lPart < static_cast<long>(sAll.size()) &&
        ftruncate(iFd, lBefore) != 0)
        errno = iErrno;
    errno = iErrno;
    return 0;
}

}  // namespace

std::string sSHORT_NAME(std::string_view svName, size_t uMax)
{
    if (svName.size() <= uMax) return std::string(svName);
    const std::string      sMiddle = "~" + sHASH(svName) + "~";
    const size_t           uSide = (uMax - sMiddle.size()) / 2;
    const std::string_view svBegin = svTEXT_CUT(svName, uSide);
    size_t                 uEnd = svName.size() - uSide;
    while (uEnd < svName.size() && (static_cast<unsigned char>(svName[uEnd]) & 0xC0U) == 0x80U)
        uEnd++;
    return std::string(svBegin).append(sMiddle).append(svName.substr(uEnd));
}

std::string szFILE_NAME(std::string_view svName)
{
    std::string s = sSHORT_NAME(svName, uFILE_NAME_MAX);
    for (char& c : s)
        if (c == '/' || static_cast<unsigned char>(c) < 0x20U || c == 0x7F) c = '_';
    if (!s.empty() && s[0] == '.') s[0] = '_';
    return s;
}

int iOPEN_APPEND(const std::string& sFile)
{
    // Read, too, to see how the file ends.
    constexpr int iFlags = O_RDWR | O_APPEND | O_CREAT;
    FD            fd = fdOPEN_FILE(sFile, iFlags, 0640);
    if (!fd.bOpen() && errno == EACCES)
        fd = fdOPEN_FILE(sFile, (iFlags & ~O_RDWR) | O_WRONLY, 0640);
    if (fd.bOpen() || errno != ENOENT) return fd.iRelease();
    if (!iMAKE_DIRECTORY(sFile.substr(0, sFile.rfind('/') + 1))) return -1;
    return fdOPEN_FILE(sFile, iFlags, 0640).iRelease();
}

int APPEND_LINE(const char* cpWhat, const std::string& sFile, const std::string& sLine,
                const char* cpKey)
{
    const FD fdFile(iOPEN_APPEND(sFile));
    if (fdFile.bOpen() && iAPPEND(fdFile.iGet(), sLine)) return 1;
    const int iErrno = errno;
    v_STDERR_ONCE(cpKey != nullptr ? cpKey : cpWhat, "cannot write the %s \"%s\": %s", cpWhat,
                  sFile.c_str(), cpERRNO(iErrno));
    return 0;
}
