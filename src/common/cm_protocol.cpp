/* Day protocol, info output, answer file and error lines. */
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <set>

#include "cm_config.h"
#include "cm_immortal.h"
#include "cm_output.h"
#include "common.h"
#include "unix/cm_hal_pipe.h"

namespace {

/* The run's answer file, empty until it has a name. */
std::string& sANSWER_FILE()
{
    static IMMORTAL<std::string> sFile;
    return sFile.Get();
}

void STDERR_LINE(const std::string& sText)
{
    iWRITE_WHOLE(STDERR_FILENO, "vk_config_client: " + sSAFE_LINE(sText) + "\n");
}

void PROTOCOL_LINE(const std::string& sText)
{
    std::string sDirectory;
    std::string sDay;
    iCONFIG_VARIABLE("gv_rw_prot", sDirectory);
    iCONFIG_VARIABLE("gv_daylbl", sDay);
    APPEND_LINE("day protocol", sDirectory + szFILE_NAME(sDay) + ".prt",
                sLOCAL_TIME(false) + " " + std::to_string(getpid()) + " " + sSAFE_LINE(sText));
}

}  // namespace

std::string sFORMATTED(const char* cpFormat, va_list args)
{
    va_list again;
    va_copy(again, args);
    const int   iLength = std::vsnprintf(nullptr, 0, cpFormat, args);
    std::string s(iLength > 0 ? static_cast<size_t>(iLength) : 0, '\0');
    if (iLength > 0) std::vsnprintf(s.data(), s.size() + 1, cpFormat, again);
    va_end(again);
    return s;
}

std::string sSAFE_LINE(const std::string& sText)
{
    return sONE_LINE(sMASKED(sText));
}

int iOPEN_APPEND(const std::string& sFile)
{
    constexpr int iFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY;
    const int     iFd = open(sFile.c_str(), iFlags, 0640);
    if (iFd >= 0 || errno != ENOENT) return iFd;
    if (!iMAKE_DIRECTORY(sFile.substr(0, sFile.rfind('/') + 1))) return -1;
    return open(sFile.c_str(), iFlags, 0640);
}

int iWRITE_WHOLE(int iFd, const std::string& sText)
{
    errno = ENOSPC;  // what a write that stopped halfway means
    const ssize_t iWritten = write(iFd, sText.data(), sText.size());
    return iWritten == static_cast<ssize_t>(sText.size());
}

void APPEND_LINE(const char* cpKey, const std::string& sFile, const std::string& sLine)
{
    const FD fdFile(iOPEN_APPEND(sFile));
    if (fdFile.bOpen() && iWRITE_WHOLE(fdFile.iGet(), sLine + "\n")) return;
    const int iErrno = errno;
    v_STDERR_ONCE(cpKey, "cannot write the %s \"%s\": %s", cpKey, sFile.c_str(),
                  std::strerror(iErrno));
}

void FPROT(int /*iZero*/, const char* cpText)
{
    PROTOCOL_LINE(cpText);
}

void FPROT_FORMAT(int /*iZero*/, const char* cpFormat, ...)
{
    va_list args;
    va_start(args, cpFormat);
    const std::string sText = sFORMATTED(cpFormat, args);
    va_end(args);
    PROTOCOL_LINE(sText);
}

void info(char cKind, int /*iZero*/, const char* cpText)
{
    if (sANSWER_FILE().empty()) {
        char szStamp[64] = "I";
        char szFile[1024];
        make_answ_file_name((std::string("vk_") + time_get(szStamp)).c_str(), "velka", szFile);
    }
    const std::string sLine = sSAFE_LINE(std::string(1, cKind) + " " + cpText);
    APPEND_LINE("info output", sANSWER_FILE(), sLine);
    if (isatty(STDERR_FILENO)) iWRITE_WHOLE(STDERR_FILENO, sLine + "\n");
}

void make_answ_file_name_N(const char* cpTimeStamp, const char* cpSender, char* szFile,
                           size_t uSize)
{
    std::string& sFile = sANSWER_FILE();
    iCONFIG_VARIABLE("gv_rw_work", sFile);
    sFile += "answ/" + szFILE_NAME(cpTimeStamp) + "_" + szFILE_NAME(cpSender) + ".inf";
    iTEXT_COPY(szFile, uSize, sFile);
}

void v_STDERR(const char* cpFormat, ...)
{
    va_list args;
    va_start(args, cpFormat);
    const std::string sText = sFORMATTED(cpFormat, args);
    va_end(args);
    STDERR_LINE(sText);
}

void v_STDERR_ONCE(const char* cpKey, const char* cpFormat, ...)
{
    static IMMORTAL<std::set<std::string>> told;
    if (!told.Get().insert(cpKey).second) return;
    va_list args;
    va_start(args, cpFormat);
    const std::string sText = sFORMATTED(cpFormat, args);
    va_end(args);
    STDERR_LINE(sText);
}
