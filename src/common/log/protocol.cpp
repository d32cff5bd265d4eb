/* Day protocol and info output. */
#include "protocol.h"

#include <unistd.h>

#include <cstdarg>
#include <string>

#include "../base/descriptor.h"
#include "../base/immortal.h"
#include "../config/variables.h"
#include "../lines/appending.h"
#include "../lines/secret.h"
#include "../lines/standard_error.h"
#include "../text/text.h"
#include "../text/time_text.h"

namespace {

constexpr std::string_view svANSWER = ".inf";
constexpr size_t           uNAME_MOST = 255 - svANSWER.size();  // bytes of a file name

/* The run's answer file, empty until it has a name. */
std::string& sANSWER_FILE()
{
    static IMMORTAL<std::string> sFile;
    return sFile.Get();
}

bool& WRITTEN()
{
    static bool bWritten = false;
    return bWritten;
}

void PROTOCOL_LINE(const std::string& sText)
{
    if (APPEND_LINE("day protocol", sDAY_FILE(".prt"),
                    sLOCAL_TIME(false) + " " + std::to_string(getpid()) + " " + sONE_LINE(sText)))
        WRITTEN() = true;
}

}  // namespace

std::string sDAY_FILE(const char* cpExtension)
{
    std::string sDirectory;
    std::string sDay;
    iCONFIG_VARIABLE("gv_rw_prot", sDirectory);
    iCONFIG_VARIABLE("gv_daylbl", sDay);
    return sDirectory + szFILE_NAME(sDay) + cpExtension;
}

bool bPROTOCOL_WRITTEN()
{
    return WRITTEN();
}

void FPROT(int /*iZero*/, const char* cpText)
{
    PROTOCOL_LINE(sMASKED(cpText));
}

void FPROT_FORMAT(int /*iZero*/, const char* cpFormat, ...)
{
    va_list args;
    va_start(args, cpFormat);
    const std::string sText = sFORMATTED_MASKED(cpFormat, args);
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
    const std::string sLine = std::string(1, cKind) + " " + sSAFE_LINE(cpText);
    APPEND_LINE("info output", sANSWER_FILE(), sLine);
    if (isatty(STDERR_FILENO)) iWRITE_ALL(STDERR_FILENO, sLine + "\n");
}

void make_answ_file_name_N(const char* cpTimeStamp, const char* cpSender, char* szFile,
                           size_t uSize)
{
    std::string& sFile = sANSWER_FILE();
    iCONFIG_VARIABLE("gv_rw_work", sFile);
    const std::string sName = szFILE_NAME(cpTimeStamp) + "_" + szFILE_NAME(cpSender);
    sFile.append("answ/").append(sSHORT_NAME(sName, uNAME_MOST)).append(svANSWER);
    iTEXT_COPY(szFile, uSize, sFile);
}
