/* Day protocol and info output. */
#include "protocol.h"

#include <unistd.h>

#include <cstdarg>
#include <string>

#include "../config/variables.h"
#include "../text/appending.h"
#include "../text/immortal.h"
#include "../text/standard_error.h"
#include "../text/text.h"
#include "../text/time_text.h"

namespace {

/* The run's answer file, empty until it has a name. */
std::string& sANSWER_FILE()
{
    static IMMORTAL<std::string> sFile;
    return sFile.Get();
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
