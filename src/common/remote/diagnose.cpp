#include "diagnose.h"

#include <filesystem>

#include "../base/immortal.h"
#include "../config/variables.h"
#include "../text/command_line.h"
#include "../text/text.h"
#include "cm_remote.h"
#include "wrapper.h"

namespace {

constexpr long lNOT_EXECUTABLE = 126;  // as a POSIX shell says it
constexpr long lNOT_FOUND = 127;
constexpr long lSIGNAL = 128;
constexpr long lSIGNAL_LAST = 128 + 64;
constexpr int  iASK_S = 5;

std::string sPROGRAM(std::string_view svCommand)
{
    return std::string(svCommand.substr(0, svCommand.find(' ')));
}

PLACES sctPLACES(const HOST& host)
{
    PLACES      places{{"host", host.sName},
                  {"name", host.sName},
                  {"address", host.sName},
                  {"user", host.sUser.empty() ? "the user" : host.sUser},
                  {"mode", host.sAccessMode},
                  {"program", "the program"},
                  {"permit", cpPERMIT_COMMAND(host.sAccessMode)}};
    std::string sDirectory;
    if (iCONFIG_CLIENT_DIRECTORY(host.sPlatform.c_str(), "gv_ro_bin", sDirectory))
        places["dir"] = sDirectory;
    return places;
}

const char* cpLATE(const ATTEMPT& attempt)
{
    if (attempt.bBegan) return attempt.bTotal ? "program-endless" : "program-hangs";
    if (attempt.way.eReached >= STAGE_SHELL) return "shell-hangs";
    if (attempt.way.eReached >= STAGE_HOST_KEY) return "login-hangs";
    return attempt.way.eReached == STAGE_GREETING ? "sshd-silent" : "connection-timeout";
}

/* The connection stood, and the login shell ended without the first mark. */
const char* cpSHELL(const ATTEMPT& attempt, bool bWords)
{
    const CAUSE* pShown = pCAUSE_SHOWN(SHELL_SAYS, attempt.sBefore);
    if (pShown != nullptr) return pShown->cpId;
    if (bWords) return "forced-command";
    return attempt.iChild == 0 ? "start-up-exits" : "shell-ends";
}

/* What the host answers about a program that it could not run. Each answer is a cause. */
std::string sASK(const HOST& host, const std::string& sProgram, const std::string& sDirectory,
                 const str_log& sctLog)
{
    if (eSHELL_OF(host) != SHELL_POSIX || sProgram.find('/') != sProgram.npos) return "";
    const std::string sDir = sSHELL_WORD(SHELL_POSIX, sDirectory);
    const std::string sName = sSHELL_WORD(SHELL_POSIX, sProgram);
    const std::string sScript =
        "d=" + sDir + "; p=" + sName +
        "; f=$d$p; [ -e \"$f\" ] || f=$(command -v \"$p\"); "
        "if [ ! -d \"$d\" ]; then echo directory-missing; "
        "elif [ ! -e \"$f\" ]; then echo program-missing; "
        "elif [ ! -x \"$f\" ]; then echo program-not-executable; "
        "else IFS= read -r l <\"$f\"; case $l in \"#!\"*) i=${l#\"#!\"}; i=${i# }; i=${i%% *}; "
        "[ -x \"$i\" ] || echo interpreter-missing;; esac; fi";
    OUTPUT            output;
    const COMMAND_END outcome =
        sctRUN_COMMAND(host, "", sScript.c_str(), {iASK_S, iASK_S, iASK_S, 0}, output, sctLog);
    for (const char* cpAnswer :
         {"directory-missing", "program-missing", "program-not-executable", "interpreter-missing"})
        if (outcome.bRan() && output.sLastLine == cpAnswer) return cpAnswer;
    return "";
}

/* Nobody may write into a folder that is there, not even root. */
bool bREAD_ONLY(const HOST& host, const std::string& sFolder, const str_log& sctLog)
{
    if (eSHELL_OF(host) != SHELL_POSIX || sFolder.empty()) return false;
    const std::string sScript = "d=" + sSHELL_WORD(SHELL_POSIX, sFolder) +
                                "; if [ -d \"$d\" ] && [ ! -w \"$d\" ]; then echo read-only; fi";
    OUTPUT            output;
    const COMMAND_END outcome =
        sctRUN_COMMAND(host, "", sScript.c_str(), {iASK_S, iASK_S, iASK_S, 0}, output, sctLog);
    return outcome.bRan() && output.sLastLine == "read-only";
}

/* The line that tells an error, else the last one; none of a silent program. */
std::vector<std::string> asERROR_LINE(const OUTPUT& output)
{
    char szLine[2048];
    if (output.LL_Lines != nullptr && iERROR_LINE(output.LL_Lines, szLine, sizeof szLine))
        return {szLine};
    if (output.sLastLine.empty()) return {};
    return {output.sLastLine};
}

/* The file that the last copy brought to a client. */
std::string& sCOPIED()
{
    static IMMORTAL<std::string> sFile;
    return sFile.Get();
}

std::string sSCRIPT_CAUSE(const std::vector<std::string>& asWords)
{
    std::error_code error;
    if (std::filesystem::file_size(sCOPIED(), error) == 0) return "package-empty";
    if (asWords.empty()) return "script-failed-silently";
    const CAUSE* pShown = pCAUSE_SHOWN(SCRIPT_SAYS, asWords[0]);
    return pShown != nullptr ? pShown->cpId : "script-failed";
}

std::string sSTATUS_CAUSE(const HOST& host, const std::string& sProgram, long lStatus,
                          const std::vector<std::string>& asWords, const PLACES& places,
                          const str_log& sctLog)
{
    const bool bScript = iLEFT_TO_FINISH(sProgram) != 0;
    if (lStatus == lNOT_FOUND || lStatus == lNOT_EXECUTABLE) {
        std::string sAnswer = sASK(host, sProgram, places.at("dir"), sctLog);
        if (bScript && !sAnswer.empty()) return "update-script-missing";
        if (!sAnswer.empty()) return sAnswer;
    }
    if (bScript) return sSCRIPT_CAUSE(asWords);
    if (asWords.empty() && lStatus > lSIGNAL && lStatus <= lSIGNAL_LAST) return "program-killed";
    return asWords.empty() ? "program-failed-silently" : "program-failed";
}

}  // namespace

DIAGNOSIS sctATTEMPT_DIAGNOSIS(const ATTEMPT& attempt)
{
    if (!attempt.way.diagnosis.sCause.empty()) return attempt.way.diagnosis;
    PLACES places = attempt.way.places;
    places["status"] = std::to_string(attempt.iChild);
    std::vector<std::string> asWords;
    const char*              cpId = "connection-lost";
    if (!attempt.sLastWords.empty()) asWords = {attempt.sLastWords};
    if (attempt.bLate)
        cpId = cpLATE(attempt);
    else if (!attempt.bBegan && attempt.way.eReached >= STAGE_SHELL && attempt.iChild != 255)
        cpId = cpSHELL(attempt, !asWords.empty());
    DIAGNOSIS diagnosis = sctDIAGNOSIS(sctCAUSE(cpId), places);
    diagnosis.asWords = asWords;
    return diagnosis;
}

DIAGNOSIS sctREASON_DIAGNOSIS(const HOST& host, const std::string& sReason)
{
    PLACES      places = sctPLACES(host);
    std::string sConfig;
    iCONFIG_ACCESS(host.sAccessMode.c_str(), sConfig);
    places["config"] = sConfig;
    const bool   bUnread = !host.sUnread.empty();  // and then the words are the database's
    const CAUSE* pCause = pCAUSE_SHOWN(bUnread ? DATABASE_SAYS : WE_SAY, sReason);
    if (pCause == nullptr)
        pCause = bUnread ? &sctCAUSE("database-failed") : pCAUSE_SHOWN(SSH_SAYS, sReason);
    if (pCause == nullptr) return {};
    DIAGNOSIS diagnosis = sctDIAGNOSIS(*pCause, places);
    diagnosis.asWords = {sReason};
    return diagnosis;
}

DIAGNOSIS sctSTATUS_DIAGNOSIS(const HOST& host, const char* cpCommand, long lStatus,
                              const OUTPUT& output, const str_log& sctLog)
{
    PLACES                         places = sctPLACES(host);
    const std::vector<std::string> asWords = asERROR_LINE(output);
    const std::string              sProgram = sPROGRAM(cpCommand);
    places["program"] = sProgram;
    places["status"] = std::to_string(lStatus);
    places["signal"] = std::to_string(lStatus - lSIGNAL);
    places["file"] = sCOPIED();
    DIAGNOSIS diagnosis = sctDIAGNOSIS(
        sctCAUSE(sSTATUS_CAUSE(host, sProgram, lStatus, asWords, places, sctLog)), places);
    diagnosis.asWords = asWords;
    return diagnosis;
}

void v_COPIED(const std::string& sSource)
{
    sCOPIED() = sSource;
}

DIAGNOSIS sctCOPY_DIAGNOSIS(const HOST& host, const std::string& sSource,
                            const std::string& sTarget, const std::string& sReason,
                            const str_log& sctLog)
{
    if (!host.sUnread.empty()) return sctREASON_DIAGNOSIS(host, sReason);
    PLACES places = sctPLACES(host);
    places["file"] = sSource;
    places["folder"] = sTarget.substr(0, sTarget.find_last_of("/\\") + 1);
    const CAUSE* pCause = pCAUSE_SHOWN(WE_SAY, sReason);
    if (pCause == nullptr && sReason.find("remote ") == sReason.npos)
        pCause = pCAUSE_SHOWN(SSH_SAYS, sReason);
    if (pCause == nullptr) pCause = pCAUSE_SHOWN(SFTP_SAYS, sReason);
    if (pCause == nullptr) pCause = &sctCAUSE("copy-failed");
    if (std::string_view(pCause->cpId) == "package-missing" && sReason.ends_with("denied"))
        pCause = &sctCAUSE("package-unreadable");
    if (std::string_view(pCause->cpId) == "copy-refused" &&
        bREAD_ONLY(host, places["folder"], sctLog))
        pCause = &sctCAUSE("disk-read-only");
    DIAGNOSIS diagnosis = sctDIAGNOSIS(*pCause, places);
    diagnosis.asWords = {sReason};
    return diagnosis;
}
