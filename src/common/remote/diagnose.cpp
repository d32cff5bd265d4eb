#include "diagnose.h"

#include <algorithm>
#include <filesystem>

#include "../cm_db_access.h"
#include "../config/variables.h"
#include "../lines/secret.h"
#include "../text/command_line.h"
#include "../text/text.h"
#include "cm_remote.h"
#include "wrapper.h"

namespace {

constexpr long lNOT_EXECUTABLE = 126;  // as a POSIX shell says it
constexpr long lNOT_FOUND = 127;
constexpr long lNO_SCRIPT = 2;  // of a shell that has read a program as a script
constexpr long lSIGNAL = 128;
constexpr long lSIGNAL_LAST = 128 + 64;
constexpr long lWINDOWS_NOT_FOUND = 9009;
constexpr long lMSI_BUSY = 1618;
constexpr long lMSI_NO_PACKAGE = 1620;
constexpr int  iASK_S = 5;

/* Sentences of our own update script, and of installers: how one begins, and what stands in
   it behind that. */
constexpr struct {
    std::string_view svBegin, svWithin;
    const char*      cpCause;
} asctInstaller[] = {
    {"has no signature, and this client", "", "package-unsigned"},
    {"with a key that is not among", "", "package-key-unknown"},
    {"no key that signs them", "", "package-key-unknown"},
    {"no key file in", "", "package-key-unknown"},
    {"dpkg: error: dpkg ", " locked by another process", "installer-locked"},
    {"E: Could not get lock ", " It is held by process ", "installer-locked"},
    {"E: Could not get lock ", " (11: Resource temporarily unavailable)", "installer-locked"},
    {"E: Unable to ", ", is another process using it?", "installer-locked"},
    {"can't create transaction lock on ", " (Resource temporarily unavailable)",
     "installer-locked"},
    {"dpkg-deb", ": unexpected end of file ", "package-cut"},
    {"' is not a Debian format archive", "", "package-cut"},
    {": not an rpm package (or package manifest)", "", "package-cut"},
    {": cpio: read failed - ", "", "package-cut"},
    {": cpio: Bad magic", "", "package-cut"},
};

// Asks why a program cannot be run: the cause, and what is missing. f is the program's file.
constexpr const char* cpWHY_NOT_RUN =
    "f=$d$p; [ -e \"$f\" ] || f=$(command -v \"$p\") || f=; "
    "b() { od -An -tx1 -j$2 -N$3 \"$1\" | tr -d ' \\n'; }; "
    "if [ -z \"$f\" ]; then echo program-missing; "
    "elif [ -d \"$f\" ]; then echo program-is-folder; "
    "elif [ ! -x \"$f\" ]; then echo program-not-executable; "
    "else case $(b \"$f\" 0 4) in "
    "2321*) IFS= read -r l <\"$f\"; set -f; set -- ${l#\"#!\"}; i=$1; "
    "if [ ! -x \"$1\" ] || [ -d \"$1\" ]; then echo \"interpreter-missing $1\"; "
    "elif [ \"${1##*/}\" = env ] && [ \"${2#-}\" = \"$2\" ] && ! command -v \"$2\" >/dev/null; "
    "then echo \"interpreter-missing $2\"; fi;; "
    "7f454c46) m=$(b \"$f\" 18 2)$(b /bin/sh 18 2); "
    "i=$(head -c 4096 \"$f\" | tr -c '[:print:]' '\\n' | grep -m 1 '^/'); "
    "if [ \"${m#????}\" != \"${m%????}\" ] && [ \"$m\" != 03003e00 ]; then echo wrong-format; "
    "elif [ -n \"$i\" ] && [ ! -x \"$i\" ]; then echo \"interpreter-missing $i\"; "
    "else LC_ALL=C ldd \"$f\" 2>/dev/null | sed -n 's/^[[:space:]]*\\(.*\\) => not found.*/"
    "library-missing \\1/p' | tail -n 1; fi;; "
    "4d5a*) echo wrong-format;; esac; fi";

// Whether the file system of the folder $d was made read-only.
constexpr const char* cpREAD_ONLY =
    "LC_ALL=C touch -a \"$d.\" 2>&1 | grep -q 'Read-only file system' && echo read-only";

std::string sPROGRAM(std::string_view svCommand)
{
    return std::string(svCommand.substr(0, svCommand.find(' ')));
}

PLACES sctPLACES(const HOST& host, const PLACES& found)
{
    PLACES places = found;
    places.insert({{"host", host.sName},
                   {"name", host.sName},
                   {"address", host.sName},
                   {"user", host.sUser.empty() ? "the user" : host.sUser},
                   {"mode", host.sAccessMode},
                   {"program", "the program"},
                   {"database", sDB_MACHINE()},
                   {"permit", host.sAccessMode == "CTRL" ? "vk_setup permit --mode CTRL"
                                                         : "vk_setup permit"}});
    std::string sDirectory;
    if (iCONFIG_CLIENT_DIRECTORY(host.sPlatform.c_str(), "gv_ro_bin", sDirectory))
        places["dir"] = sDirectory;
    return places;
}

/* The last line that a host answers to a question, "" none. Only a POSIX shell is asked. */
std::string sASK(const HOST& host, const std::string& sScript, const str_log& sctLog)
{
    if (eSHELL_OF(host) != SHELL_POSIX) return "";
    OUTPUT            output;
    const COMMAND_END end =
        sctRUN_COMMAND(host, "", sScript.c_str(), {iASK_S, iASK_S, iASK_S, 0}, output, sctLog);
    return end.bRan() ? output.sLastLine : "";
}

/* Why a program could not be run; "" where the host does not know. */
std::string sWHY_NOT_RUN(const HOST& host, const std::string& sProgram, PLACES& places,
                         const str_log& sctLog)
{
    if (sProgram.find('/') != sProgram.npos) return "";
    const std::string sAnswer = sASK(host,
                                     "d=" + sSHELL_WORD(SHELL_POSIX, places["dir"]) + "; p=" +
                                         sSHELL_WORD(SHELL_POSIX, sProgram) + "; " + cpWHY_NOT_RUN,
                                     sctLog);
    std::string       sWord = sAnswer.substr(0, sAnswer.find(' '));
    const CAUSE*      pCause = pCAUSE(sWord);
    if (pCause == nullptr || pCause->eStage != STAGE_PROGRAM) return "";
    if (sWord != sAnswer) places["answer"] = sAnswer.substr(sWord.size() + 1);
    return sWord;
}

/* The line that tells an error, else the last one; none of a silent program. Of a status
   line, its message. */
std::vector<std::string> asERROR_LINE(const OUTPUT& output)
{
    constexpr std::string_view svMessage = " MSG=\"";
    char                       szLine[2048];
    if (output.LL_Lines == nullptr || !iERROR_LINE(output.LL_Lines, szLine, sizeof szLine))
        iTEXT_SET(szLine, output.sLastLine);
    std::string_view svLine = szLine;
    if (const size_t u = svLine.find(svMessage); u != svLine.npos && svLine.starts_with("STATUS="))
        svLine = svLine.substr(u + svMessage.size(), svLine.rfind('"') - u - svMessage.size());
    if (svLine.empty()) return {};
    return {std::string(svLine)};
}

std::string sSCRIPT_CAUSE(long lStatus, const std::vector<std::string>& asWords,
                          const std::string& sCopied)
{
    std::error_code error;
    if (std::filesystem::file_size(sCopied, error) == 0) return "package-empty";
    if (lStatus == lMSI_BUSY) return "installer-locked";
    if (lStatus == lMSI_NO_PACKAGE) return "package-cut";
    for (const auto& row : asctInstaller)
        for (const std::string& sWords : asWords)
            if (sWords.find(row.svWithin, sWords.find(row.svBegin)) != sWords.npos)
                return row.cpCause;
    return asWords.empty() ? "script-failed-silently" : "script-failed";
}

/* A command that ended by itself. */
std::string sSTATUS_CAUSE(const HOST& host, const std::string& sProgram, long lStatus,
                          const std::vector<std::string>& asWords, const std::string& sCopied,
                          PLACES& places, const str_log& sctLog)
{
    const bool  bScript = iLEFT_TO_FINISH(sProgram) != 0;
    std::string sAnswer;
    if (lStatus == lNOT_FOUND || lStatus == lNOT_EXECUTABLE || lStatus == lNO_SCRIPT)
        sAnswer = sWHY_NOT_RUN(host, sProgram, places, sctLog);
    if (lStatus == lWINDOWS_NOT_FOUND && eSHELL_OF(host) == SHELL_WINDOWS)
        sAnswer = "program-missing";
    if (bScript && sAnswer == "program-missing") return "update-script-missing";
    if (!sAnswer.empty()) return sAnswer;
    if (lStatus > lSIGNAL && lStatus <= lSIGNAL_LAST) return "program-killed";
    if (bScript) return sSCRIPT_CAUSE(lStatus, asWords, sCopied);
    return asWords.empty() ? "program-failed-silently" : "program-failed";
}

/* The login worked, and what was started by it is not the command. */
std::string sSHELL_CAUSE(const COMMAND_END& end)
{
    for (const std::string& sLine : end.asBefore) {
        if (sLine == "This account is currently not available.") return "account-closed";
        if (sLine == "Password change required but no TTY available.") return "password-expired";
    }
    if (end.way.bForced) return "forced-command";
    if (!end.way.finding.sCause.empty()) return end.way.finding.sCause;
    return end.iChild >= 0 && end.iChild < 255 ? "command-not-begun" : cpNOT_RECOGNISED;
}

/* A command that did not end by itself. */
FINDING sctNOT_RUN(const COMMAND_END& end)
{
    FINDING finding = end.way.finding;
    finding.eReached = std::max(finding.eReached, end.way.eReached);
    if (end.iSignal != 0) {
        finding.sCause = "ssh-killed";
    } else if (end.bBegan && end.eFailure == FAILURE_TIME_LIMIT) {
        finding.sCause = "program-hangs";
        finding.asWords.clear();
    } else if (end.bBegan) {
        finding.sCause = "connection-lost";
    } else if (end.way.eReached == STAGE_SHELL) {
        finding.sCause = sSHELL_CAUSE(end);
        finding.asWords.insert(finding.asWords.begin(), end.asBefore.begin(), end.asBefore.end());
    } else if (finding.sCause.empty()) {
        finding.sCause = cpNOT_RECOGNISED;
    }
    if (finding.asWords.empty() && finding.sCause == cpNOT_RECOGNISED && !end.way.sLast.empty())
        finding.asWords = {end.way.sLast};
    if (finding.asWords.empty() && !end.sReason.empty()) finding.asWords = {end.sReason};
    return finding;
}

}  // namespace

DIAGNOSIS sctCOMMAND_DIAGNOSIS(const HOST& host, const char* cpCommand, const COMMAND_END& end,
                               const OUTPUT& output, const std::string& sCopied,
                               const str_log& sctLog)
{
    PLACES            places = sctPLACES(host, end.way.places);
    const std::string sProgram = sPROGRAM(cpCommand);
    const long        lStatus = end.bRan() ? end.lStatus : end.iChild;
    places.insert_or_assign("status", std::to_string(lStatus));
    places["signal"] = std::to_string(end.iSignal != 0 ? end.iSignal : lStatus - lSIGNAL);
    places["file"] = places.contains("file") ? places["file"] : sCopied;
    if (end.way.eReached != STAGE_SERVER)
        places["program"] = end.iSignal != 0 ? end.sProgram : sProgram;
    FINDING finding;
    if (end.bRan()) {
        finding.eReached = STAGE_PROGRAM;
        finding.asWords = asERROR_LINE(output);
        finding.sCause =
            sSTATUS_CAUSE(host, sProgram, lStatus, finding.asWords, sCopied, places, sctLog);
    } else {
        finding = sctNOT_RUN(end);
    }
    DIAGNOSIS diagnosis = sctDIAGNOSIS(finding, places);
    // What this run could not begin, another may: it would show nothing of the kind.
    if (*cpCommand != '\0' && finding.sCause != "server-cannot-run")
        diagnosis.sTry = TRANSPORT_OF(host).sBY_HAND(host, sFOREIGN(cpCommand).c_str());
    return diagnosis;
}

DIAGNOSIS sctCOPY_DIAGNOSIS(const HOST& host, const std::string& sSource,
                            const std::string& sTarget, const COPY_END& end, const str_log& sctLog)
{
    PLACES  places = sctPLACES(host, end.places);
    FINDING finding = end.finding;
    places["file"] = places.contains("file") ? places["file"] : sSource;
    places["folder"] = sTarget.substr(0, sTarget.find_last_of("/\\") + 1);
    if (finding.sCause.empty()) finding = {cpNOT_RECOGNISED, STAGE_COPY, {}};
    if (finding.asWords.empty()) finding.asWords = {end.sReason};
    if (finding.sCause == "copy-refused" &&
        sASK(host, "d=" + sSHELL_WORD(SHELL_POSIX, places["folder"]) + "; " + cpREAD_ONLY,
             sctLog) == "read-only")
        finding.sCause = "disk-read-only";
    return sctDIAGNOSIS(finding, places);
}
