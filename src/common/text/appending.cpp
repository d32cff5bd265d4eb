/* Directories, names of files, and appending lines to files. */
#include "appending.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "holder.h"
#include "standard_error.h"

std::string szFILE_NAME(std::string_view svName)
{
    std::string s(svName);
    for (char& c : s)
        if (c == '/' || static_cast<unsigned char>(c) < 0x20U || c == 0x7F) c = '_';
    if (!s.empty() && s[0] == '.') s[0] = '_';
    return s;
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

int iOPEN_APPEND(const std::string& sFile)
{
    constexpr int iFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY;
    const int     iFd = open(sFile.c_str(), iFlags, 0640);
    if (iFd >= 0 || errno != ENOENT) return iFd;
    if (!iMAKE_DIRECTORY(sFile.substr(0, sFile.rfind('/') + 1))) return -1;
    return open(sFile.c_str(), iFlags, 0640);
}

void APPEND_LINE(const char* cpKey, const std::string& sFile, const std::string& sLine)
{
    const FD fdFile(iOPEN_APPEND(sFile));
    if (fdFile.bOpen() && iWRITE_WHOLE(fdFile.iGet(), sLine + "\n")) return;
    const int iErrno = errno;
    v_STDERR_ONCE(cpKey, "cannot write the %s \"%s\": %s", cpKey, sFile.c_str(),
                  std::strerror(iErrno));
}
