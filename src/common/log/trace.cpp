/* Trace. The record is passed by value, so the open file is kept here and
   found by its name. */

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <string>

#include "../base/descriptor.h"
#include "../base/holder.h"
#include "../base/immortal.h"
#include "../base/program.h"
#include "../cm_lang.h"
#include "../cm_trace.h"
#include "../config/config.h"
#include "../config/keys.h"
#include "../config/variables.h"
#include "../lines/appending.h"
#include "../lines/standard_error.h"
#include "../text/text.h"
#include "../text/time_text.h"

LANGUAGES eLang = LANG_EN;

namespace {

static_assert(std::size(asvLANGUAGE) == LANG_PT + 1);

struct TRACE_FILE {
    std::string sName;  // as in the record that opened it
    FD          fd;
};

TRACE_FILE& OPEN_FILE()
{
    static IMMORTAL<TRACE_FILE> file;
    return file.Get();
}

/* An unknown one was told when the file was read. */
LANGUAGES eCONFIGURED_LANGUAGE()
{
    const std::string sLanguage = sCONFIG_TEXT("general", "language", "en");
    for (size_t u = 0; u < std::size(asvLANGUAGE); u++)
        if (sLanguage == asvLANGUAGE[u]) return static_cast<LANGUAGES>(u);
    return LANG_EN;
}

std::string sTRACE_PATH(const char* cpName)
{
    std::string sDirectory;
    iCONFIG_VARIABLE("gv_rw_lgc", sDirectory);
    return sDirectory + cpName;
}

/* The open trace file of the record, -1 when it cannot be opened. */
int iTRACE_FD(const str_log& sctLog)
{
    TRACE_FILE& file = OPEN_FILE();
    if (!file.fd.bOpen() || file.sName != sctLog.szLogFile) {
        file.sName = sctLog.szLogFile;
        file.fd = FD(iOPEN_APPEND(sTRACE_PATH(sctLog.szLogFile)));
    }
    return file.fd.iGet();
}

const str_log*& MAIN_LOG()
{
    static const str_log* pLog = nullptr;
    return pLog;
}

/* 1 for an option of the program that takes a value. */
bool bTAKES_VALUE(char c)
{
    const char* cp = std::strchr(sctPROGRAM.cpOptions, c);
    return c != ':' && cp != nullptr && cp[1] == ':';
}

/* The secret value inside one word of options, "***" in its place. bNext is set
   when the value is the next word; bValue when another option takes that. */
std::string sOPTION_WORD(const std::string& sWord, bool& bPasswordNext, bool& bValueNext)
{
    for (size_t u = 1; u < sWord.size(); u++) {
        if (!bTAKES_VALUE(sWord[u])) continue;
        const bool bLast = u + 1 == sWord.size();
        const bool bSecret = sWord[u] == sctPROGRAM.cSecret;
        if (bSecret && !bLast) return sWord.substr(0, u + 1) + "***";
        bPasswordNext = bLast && bSecret;
        bValueNext = bLast && !bSecret;
        return sWord;
    }
    return sWord;
}

}  // namespace

void v_set_log_main(const char* cpFilePattern, const char* cpTraceId, str_log* pLog)
{
    constexpr std::string_view svPid = "<PID>";
    *pLog = {};
    MAIN_LOG() = pLog;
    pLog->iPid = getpid();
    pLog->iProcessId = pLog->iPid;
    std::string  sFile = cpFilePattern;
    const size_t uPid = sFile.find(svPid);
    if (uPid != std::string::npos) {
        sFile.replace(uPid, svPid.size(), std::to_string(pLog->iPid));
        pLog->bIsPidUsedInName = 1;
    }
    iTEXT_SET(pLog->szLogFile, szFILE_NAME(sFile));
    iTEXT_SET(pLog->szIns, cpTraceId);
    iTEXT_SET(pLog->szExeName, program_invocation_short_name);
    eLang = eCONFIGURED_LANGUAGE();
    pLog->iLogLevel = iCONFIG_TRACE_LEVEL();
}

const str_log* pMAIN_LOG()
{
    return MAIN_LOG();
}

void v_set_log(int iLevel, int /*iOne*/, str_log* pLog)
{
    pLog->iLogLevel = std::max(iLevel, 0);
}

void v_set_log_mover(str_log* pLog, const char* cpFileName)
{
    iTEXT_SET(pLog->szLogFile, szFILE_NAME(cpFileName));
    pLog->bIsPidUsedInName = 0;
}

void WRITE_TRACE(const str_log* pLog, const char* cpFormat, ...)
{
    if (pLog->iLogLevel <= 0) return;
    va_list args;
    va_start(args, cpFormat);
    const std::string sText = sFORMATTED_MASKED(cpFormat, args);
    va_end(args);
    std::string sLine = sLOCAL_TIME(true) + " " + std::to_string(pLog->iProcessId) + " ";
    if (pLog->iNoIdent == 0) sLine += std::to_string(pLog->iLogLevel) + "-" + pLog->szIns + " ";
    sLine += sONE_LINE(sText) + "\n";
    const int iFd = iTRACE_FD(*pLog);
    if (iFd >= 0 && iWRITE_ALL(iFd, sLine)) return;
    const int iErrno = errno;
    v_STDERR_ONCE("trace", "cannot write the trace \"%s\": %s",
                  sTRACE_PATH(pLog->szLogFile).c_str(), std::strerror(iErrno));
}

const char* GET_CALL_PARAM(int argc, char** argv)
{
    static IMMORTAL<std::string> text;
    std::string&                 sText = text.Get();
    bool                         bPasswordNext = false;
    bool                         bValueNext = false;
    bool                         bOptionsEnded = false;
    sText = argc > 0 ? argv[0] : "";
    for (int i = 1; i < argc; i++) {
        std::string sWord = argv[i];
        if (bPasswordNext || bValueNext) {
            if (bPasswordNext) sWord = "***";
            bPasswordNext = bValueNext = false;
        } else if (sWord == "--") {
            bOptionsEnded = true;
        } else if (!bOptionsEnded && sWord.size() > 1 && sWord[0] == '-') {
            sWord = sOPTION_WORD(sWord, bPasswordNext, bValueNext);
        }
        sText += " " + sWord;
    }
    return sText.c_str();
}
