/* What a server may send to a client's gate, and the command lines that become
   requests. Whatever comes: a line that is taken means the same when it is formed
   again, and holds nothing that a shell would read as more than words. What the gate runs
   has no option, file or folder that the server did not have to name. */
#include "common/remote/request.h"
#include "common/text/command_line.h"
#include "must.h"
#include "vk_ctrl/gate.h"

namespace {

bool bSAME(const REQUEST& left, const REQUEST& right)
{
    return left.eVerb == right.eVerb && left.sMark == right.sMark && left.asWord == right.asWord &&
           left.sPath == right.sPath && left.lSize == right.lSize && left.uMode == right.uMode;
}

void WORDS(const std::vector<std::string>& asWord)
{
    std::string sPath;
    const WORK  eWork = eWORK(asWord, sPath);
    if (eWork == WORK_NONE) return;
    MUST((eWork == WORK_RUN) == sPath.empty());
    // What is removed is named by a variable in front, a package by its file alone.
    if (eWork == WORK_REMOVE) sPath.erase(0, sPath.find(':') + 1);
    MUST(("/" + sPath + "/").find("/../") == std::string::npos);
    for (const std::string& sWord : asWord) {
        MUST(sWord.find_first_of("\t\r\n") == std::string::npos);
        MUST(!sWord.starts_with('/') || eWork == WORK_UPDATE || sWord == "/etc/velka2000.ini");
        MUST(!sWord.starts_with('-') || sWord.size() == 2);
    }
}

void LINE(const std::string& sLine)
{
    REQUEST     request;
    REQUEST     again;
    std::string sFormed;
    std::string sReason;
    if (!iREQUEST_READ(sLine, request, sReason)) return MUST(!sReason.empty());
    MUST(sLine.find_first_of("|&;<>()$`\\\"'*?[]#~!{}\t\r\n") == std::string::npos);
    MUST(request.lSize >= 0 && request.uMode <= 0777U);
    WORDS(request.asWord);
    for (const std::string& sWord : request.asWord) MUST(sWord.find('\0') == std::string::npos);
    if (!iREQUEST_FORM(request, sFormed)) return;  // what was plain may grow too long
    MUST(iREQUEST_READ(sFormed, again, sReason) && bSAME(request, again));
}

void COMMAND(const std::string& sLine)
{
    std::vector<std::string> asWord;
    std::string              sReason;
    if (!iPOSIX_WORDS(sLine, asWord, sReason)) return MUST(!sReason.empty());
    std::string sQuoted;
    for (const std::string& sWord : asWord)
        sQuoted += (sQuoted.empty() ? "" : " ") + sSHELL_WORD(SHELL_POSIX, sWord);
    std::vector<std::string> asAgain;
    MUST(sQuoted.find('\0') != std::string::npos || sLine.find('\0') != std::string::npos ||
         (iPOSIX_WORDS(sQuoted, asAgain, sReason) && asAgain == asWord));
    REQUEST     request;
    REQUEST     again;
    std::string sFormed;
    request.eVerb = REQUEST_RUN;
    request.sMark = "m";
    request.asWord = asWord;
    WORDS(asWord);
    if (asWord.empty() || !iREQUEST_FORM(request, sFormed)) return;
    MUST(iREQUEST_READ(sFormed, again, sReason) && bSAME(request, again));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t uSize)
{
    const std::string s(reinterpret_cast<const char*>(pData), uSize);
    LINE(s);
    LINE("run m " + s);
    LINE("put m " + s);
    COMMAND(s);
    return 0;
}
