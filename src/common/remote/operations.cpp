/* The operations of the remote-command service, by the names the tool calls. */
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "../base/immortal.h"
#include "../common.h"
#include "../log/outcome_log.h"
#include "cm_remote.h"
#include "command.h"
#include "diagnose.h"
#include "transport.h"

namespace {

// For questions that a client answers at once, or not at all.
constexpr int iQUESTION_TIMEOUT_S = 15;

/* The configured limits, but no longer than a connection test takes. */
LIMITS sctQUESTION_LIMITS()
{
    const LIMITS configured = sctLIMITS(0, 0);
    const LIMITS question = sctLIMITS(iQUESTION_TIMEOUT_S, 0);
    return {std::min(configured.iConnect, question.iConnect),
            std::min(configured.iIdle, question.iIdle),
            std::min(configured.iTotal, question.iTotal), 0};
}

/* A command's status where the sign tells whether it ran. */
int iPOSITIVE(long lStatus)
{
    return lStatus == 0 ? 0 : lStatus < 0 || lStatus > INT32_MAX ? 255 : static_cast<int>(lStatus);
}

REMOTE_END& LAST_END()
{
    static IMMORTAL<REMOTE_END> end;
    return end.Get();
}

/* The file that was copied to a host last. */
std::string& sCOPIED()
{
    static IMMORTAL<std::string> sFile;
    return sFile.Get();
}

/* Whom an operation reached, and how. */
void NOTE_REACHED(const HOST& host, const REACHED& reached)
{
    LAST_END().sMode = host.bLocal ? "local" : host.sAccessMode;
    if (!reached.sHost.empty()) LAST_END().reached = reached;
}

/* Runs a command that the run's verdict may rest on, or (bCounts false) not. */
COMMAND_END sctRUN(const HOST& host, const std::string& sPort, const char* cpCommand,
                   const LIMITS& limits, OUTPUT& output, const str_log& sctLog, bool bCounts)
{
    COMMAND_END end = sctRUN_COMMAND(host, sPort, cpCommand, limits, output, sctLog);
    NOTE_REACHED(host, end.reached);
    if (!bCounts) return end;
    LAST_END().diagnosis = {};
    if (!end.bRan() || end.lStatus != 0)
        LAST_END().diagnosis =
            sctCOMMAND_DIAGNOSIS(host, cpCommand, end, output, sCOPIED(), sctLog);
    return end;
}

/* Runs a command with the result of i_RCMD_LL; sReason is empty when it ran. */
int iRUN(const char* cpHost, const char* cpMode, const char* cpCommand, const LIMITS& limits,
         OUTPUT& output, std::string& sReason, const str_log& sctLog, bool bCounts = false)
{
    const HOST&       host = sctHOST(cpHost, cpMode, sctLog);
    const COMMAND_END end = sctRUN(host, "", cpCommand, limits, output, sctLog, bCounts);
    sReason = end.sReason;
    return end.bRan() ? iPOSITIVE(end.lStatus) : -1;
}

std::string_view svWITHOUT_QUOTES(std::string_view sv)
{
    if (!sv.starts_with('"')) return sv.substr(0, sv.find_last_not_of(' ') + 1);
    sv.remove_prefix(1);
    return sv.substr(0, sv.rfind('"'));
}

/* Takes STATUS=word MSG="text" apart. Result 0: the line has no MSG. */
int iSTATUS_LINE(std::string_view svLine, RCMD* pCmd)
{
    svLine.remove_prefix(svLine.find("STATUS=") + 7);
    const std::string_view svWord = svLine.substr(0, svLine.find(' '));
    iTEXT_SET(pCmd->szSts, svWITHOUT_QUOTES(svWord));
    svLine.remove_prefix(svWord.size());
    const size_t uMsg = svLine.find("MSG=");
    if (uMsg == std::string_view::npos) return 0;
    iTEXT_SET(pCmd->szMsg, svWITHOUT_QUOTES(svLine.substr(uMsg + 4)));
    return 1;
}

void STATUS_AND_MESSAGE(RCMD* pCmd, const OUTPUT& output, const COMMAND_END& outcome)
{
    pCmd->szSts[0] = pCmd->szMsg[0] = '\0';
    // What the command has said of itself holds even when its connection broke then.
    if (!output.sStatusLine.empty() && iSTATUS_LINE(output.sStatusLine, pCmd)) return;
    iTEXT_SET(pCmd->szMsg, outcome.bRan() ? output.sLastLine : outcome.sReason);
}

void TELL_UNWRITTEN(const RCMD& cmd, int iErrno, const str_log& sctLog)
{
    const char* cpCause = cpERRNO(iErrno);
    v_STDERR("cannot write \"%s\": %s", cmd.szOutFile, cpCause);
    TRACE_BY(sctLog, "cannot write \"%s\": %s", cmd.szOutFile, cpCause);
}

/* The output file of a command. Where it cannot be opened the command still runs:
   whoever reads the file finds nothing in it. */
FD fdOUTPUT_FILE(const RCMD& cmd, const str_log& sctLog)
{
    if (cmd.szOutFile[0] == '\0') return FD();
    std::error_code ignored;
    const auto      folder = std::filesystem::path(cmd.szOutFile).parent_path();
    iMAKE_DIRECTORY(folder.string());
    FD fd = fdOPEN_FILE(cmd.szOutFile, O_WRONLY | O_CREAT | (cmd.bAppendMode ? O_APPEND : O_TRUNC),
                        0640);
    const int iErrno = errno;
    if (!fd.bOpen()) TELL_UNWRITTEN(cmd, iErrno, sctLog);
    errno = iErrno;
    return fd;
}

/* Where a symbolic path lies on a host. */
int iPATH_ON_HOST(const HOST& host, const char* cpPath, std::string& sPath, std::string& sReason)
{
    std::string sText = cpPath;
    if (eSHELL_OF(host) == SHELL_WINDOWS) std::replace(sText.begin(), sText.end(), '\\', '/');
    if (("/" + sText + "/").find("/../") != std::string::npos ||
        (sText + "/").find(":../") != std::string::npos)
        return iREASON(sReason, "\"" + sONE_LINE(cpPath) + "\" is outside its folder");
    return TRANSPORT_OF(host).iPLACE(host, cpPath, sPath, sReason);
}

/* What is to be copied must be readable here. A file that is there, and whose mode alone
   forbids that, is told apart. */
int iREADABLE(const std::string& sSource, COPY_END& end)
{
    struct stat sctStat {};
    const bool  bThere = stat(sSource.c_str(), &sctStat) == 0;
    if (bThere && S_ISREG(sctStat.st_mode) && access(sSource.c_str(), R_OK) == 0) return 1;
    if (bThere && !S_ISREG(sctStat.st_mode)) errno = S_ISDIR(sctStat.st_mode) ? EISDIR : EINVAL;
    const bool bMode = bThere && errno == EACCES;
    end.places = {{"file", sSource}, {"why", std::strerror(errno)}};
    iCANNOT("read", sSource, end.sReason);
    end.finding = {bMode ? "package-unreadable" : "package-missing", STAGE_SERVER, {end.sReason}};
    return 0;
}

/* "KEY=" of the key that a query of a configuration file asks for ("KEY=^"), or "". */
std::string sASKED_FOR(std::string_view svCommand)
{
    const size_t uEnd = svCommand.find("=^");
    if (uEnd == std::string_view::npos) return {};
    const size_t uBegin = svCommand.find_last_of(" \"'", uEnd) + 1;
    return std::string(svCommand.substr(uBegin, uEnd + 1 - uBegin));
}

}  // namespace

const REMOTE_END& sctREMOTE_END()
{
    return LAST_END();
}

int i_RCMD(RCMD* pCmd, str_log sctLog)
{
    const HOST& host = sctHOST(pCmd->szClient, pCmd->szAccessMode, sctLog);
    const FD    fdFile = fdOUTPUT_FILE(*pCmd, sctLog);
    int         iOpenErrno = pCmd->szOutFile[0] != '\0' && !fdFile.bOpen() ? errno : 0;
    OUTPUT      output;
    output.LL_Lines = pCmd->LL_Stdout;
    output.iFile = fdFile.iGet();
    const COMMAND_END outcome =
        sctRUN(host, pCmd->szPort, pCmd->szCmd, sctLIMITS(pCmd->iTimeout, pCmd->iRetries), output,
               sctLog, true);
    STATUS_AND_MESSAGE(pCmd, output, outcome);
    if (output.iFileErrno != 0) TELL_UNWRITTEN(*pCmd, output.iFileErrno, sctLog);
    if (iOpenErrno == 0) iOpenErrno = output.iFileErrno;
    if (iOpenErrno != 0)
        LAST_END().diagnosis =
            sctDIAGNOSIS({"work-file", STAGE_SERVER, {}},
                         {{"file", pCmd->szOutFile}, {"why", std::strerror(iOpenErrno)}});
    return outcome.bRan() ? static_cast<int>(outcome.lStatus) : 255;
}

int i_RCMD_LL(const char* cpHost, const char* cpAccessMode, const char* cpCommand, int iTimeout,
              int iRetries, t_LL LL_Output, char* cpMsg, size_t uMsg, str_log sctLog)
{
    OUTPUT      output;
    std::string sReason;
    output.LL_Lines = LL_Output;
    const int iRet = iRUN(cpHost, cpAccessMode, cpCommand, sctLIMITS(iTimeout, iRetries), output,
                          sReason, sctLog, true);
    iTEXT_COPY(cpMsg, uMsg, sReason);
    return iRet;
}

int iClientDir(const char* cpHost, char*, int, const char*, const char*, const char*,
               t_LL LL_Output, str_log sctLog)
{
    const HOST& host = sctHOST(cpHost, "", sctLog);
    OUTPUT      output;
    std::string sReason;
    output.LL_Lines = LL_Output;
    return iRUN(cpHost, "", eSHELL_OF(host) == SHELL_WINDOWS ? "dir \\" : "ls -a /",
                sctQUESTION_LIMITS(), output, sReason, sctLog, true);
}

int i_RCMD_EXEC(const char* cpHost, const char* cpCommand, char* cpAnswer, size_t uAnswer,
                str_log sctLog)
{
    OUTPUT      output;
    std::string sReason;
    output.sWantedStart = sASKED_FOR(cpCommand);
    const int iRet = iRUN(cpHost, "", cpCommand, sctQUESTION_LIMITS(), output, sReason, sctLog);
    // A status line says how it went; it is no answer.
    const bool bStatusOnly = output.sLastLine == output.sStatusLine;
    iTEXT_COPY(cpAnswer, uAnswer,
               !output.sWantedLine.empty() ? output.sWantedLine
               : bStatusOnly               ? ""
                                           : output.sLastLine);
    return iRet;
}

int i_RCMD_EXEC_LOG(const char* cpHost, const char* cpCommand, int, char* cpMsg, size_t uMsg,
                    str_log sctLog)
{
    OUTPUT      output;
    std::string sReason;
    const int   iRet = iRUN(cpHost, "", cpCommand, sctLIMITS(0, 0), output, sReason, sctLog);
    iTEXT_COPY(cpMsg, uMsg, iRet < 0 ? sReason : output.sLastLine);
    TRACE_BY(sctLog, "%s: %s returned %d, %s", cpHost, sFOREIGN(cpCommand).c_str(), iRet,
             sFOREIGN(cpMsg).c_str());
    return iRet;
}

int REMOTE_COPY_CLIENT(char cMode, const char* cpHost, const char* cpSource, const char* cpTarget,
                       const char* cpMode, char* cpMsg, size_t uMsg, int, int, str_log sctLog)
{
    const HOST& host = sctHOST(cpHost, "", sctLog);
    std::string sSource;
    std::string sTarget;
    COPY_END    end;
    if (cMode != 'p') {
        end.sReason = "only copies from the server to a client are made";
    } else if (!host.sUnread.empty()) {
        end.sReason = "cannot read what the database knows of " + host.sName + ": " + host.sUnread;
        end.finding = {host.sUnreadCause, STAGE_NONE, {host.sUnread}};
    } else if (iCONFIG_SERVER_PATH(cpSource, sSource, end.sReason) &&
               iPATH_ON_HOST(host, cpTarget, sTarget, end.sReason) && iREADABLE(sSource, end)) {
        const STAGE_TIMER timer(TIME_COPY);
        end = TRANSPORT_OF(host).sctPUT(host, sSource, sTarget, cpMode);
    }
    NOTE_REACHED(host, {});
    LAST_END().diagnosis =
        end.bDone ? DIAGNOSIS{} : sctCOPY_DIAGNOSIS(host, sSource, sTarget, end, sctLog);
    if (end.bDone) sCOPIED() = sSource;
    iTEXT_COPY(cpMsg, uMsg, end.bDone ? "" : end.sReason);
    TRACE_BY(sctLog, "copy \"%s\" to %s as \"%s\": %s", sSource.c_str(), cpHost, sTarget.c_str(),
             end.bDone ? "done" : end.sReason.c_str());
    return end.bDone;
}

void v_REMOVE_EMPTY_FOLDERS(const char* cpHost, const char* cpFile, const char* cpTop,
                            str_log sctLog)
{
    const HOST&              host = sctHOST(cpHost, "", sctLog);
    const char*              cpEnds = eSHELL_OF(host) == SHELL_WINDOWS ? "/\\" : "/";
    std::string              sFile;
    std::string              sTop;
    std::string              sReason;
    std::vector<std::string> asFolder;
    if (!iPATH_ON_HOST(host, cpFile, sFile, sReason) || !iPATH_ON_HOST(host, cpTop, sTop, sReason))
        return;
    for (size_t u = sFile.find_last_of(cpEnds); u != sFile.npos && u >= sTop.size();
         u = sFile.find_last_of(cpEnds, u - 1))
        asFolder.push_back(sFile.substr(0, u));
    if (!asFolder.empty()) TRANSPORT_OF(host).REMOVE_FOLDERS(host, asFolder);
}

int alive_test_qtc(const char* cpHost, char* cpMsg, char* cpVersion, const char*, char* cpInstalled,
                   const char*, str_log sctLog)
{
    constexpr size_t uMsg = 2048;
    const t_LL       LL_Output = ConsLL();
    const int        iRet =
        i_RCMD_LL(cpHost, "", "qtc -h", iQUESTION_TIMEOUT_S, 0, LL_Output, cpMsg, uMsg, sctLog);
    *cpVersion = '\0';
    if (cpInstalled != nullptr) *cpInstalled = '\0';
    if (iRet < 0) return 0;
    if (iRet > 0) {
        if (iERROR_LINE(LL_Output, cpMsg, uMsg)) return 0;
        constexpr const char* cpSilent = "%s: \"qtc -h\" ended with status %d without output";
        v_STDERR(cpSilent, cpHost, iRet);
        TRACE_BY(sctLog, cpSilent, cpHost, iRet);
        return 0;
    }
    char szInstalled[256];
    if (!iREPORT_VERSIONS(LL_Output, cpVersion,
                          cpInstalled != nullptr ? cpInstalled : szInstalled)) {
        iTEXT_COPY(cpMsg, uMsg, "No version in the report of qtc -h");
        const void* pLast = LastElmLL(LL_Output);
        FINDING     finding{"no-version", STAGE_ANSWER, {}};
        if (pLast != nullptr) finding.asWords = {static_cast<const char*>(pLast)};
        LAST_END().diagnosis = sctDIAGNOSIS(finding, {{"host", cpHost}, {"program", "qtc"}});
        return 0;
    }
    x_Snprintf(cpMsg, uMsg, "QTC_VERSION=%s", cpVersion);
    return 1;
}
