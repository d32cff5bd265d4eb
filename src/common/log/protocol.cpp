/* Day protocol and info output. */
#include "protocol.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <string>

#include "../config/variables.h"
#include "../text/appending.h"
#include "../text/descriptor.h"
#include "../text/immortal.h"
#include "../text/secret.h"
#include "../text/standard_error.h"
#include "../text/text.h"
#include "../text/time_text.h"

namespace {

constexpr size_t uNAME_MOST = 255;  // bytes of a file name

/* The beginning and the end of a name that is longer than a file name may be, and a
   number between them that tells it from others with the same ones. */
std::string sFITTED_NAME(const std::string& sName, std::string_view svEnding)
{
    if (sName.size() + svEnding.size() <= uNAME_MOST) return sName + std::string(svEnding);
    uint32_t uHash = 2166136261U;  // FNV-1a
    for (const char c : sName) uHash = (uHash ^ static_cast<unsigned char>(c)) * 16777619U;
    char szMiddle[16];
    x_Snprintf(szMiddle, sizeof szMiddle, "~%08x~", uHash);
    const size_t     uHalf = (uNAME_MOST - svEnding.size() - std::string_view(szMiddle).size()) / 2;
    std::string_view svEnd = std::string_view(sName).substr(sName.size() - uHalf);
    while (!svEnd.empty() && (static_cast<unsigned char>(svEnd[0]) & 0xC0U) == 0x80U)
        svEnd.remove_prefix(1);  // begins inside a character
    return std::string(svTEXT_CUT(sName, uHalf)).append(szMiddle).append(svEnd).append(svEnding);
}

/* The run's answer file, empty until it has a name. */
std::string& sANSWER_FILE()
{
    static IMMORTAL<std::string> sFile;
    return sFile.Get();
}

void PROTOCOL_LINE(const std::string& sText)
{
    APPEND_LINE("day protocol", sDAY_FILE(".prt"),
                sLOCAL_TIME(false) + " " + std::to_string(getpid()) + " " + sONE_LINE(sText));
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
    sFile += "answ/" + sFITTED_NAME(szFILE_NAME(cpTimeStamp) + "_" + szFILE_NAME(cpSender), ".inf");
    iTEXT_COPY(szFile, uSize, sFile);
}
