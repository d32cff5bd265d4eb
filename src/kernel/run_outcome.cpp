/* What a run leaves in the outcome log: its record, filled by the stages of the run,
   completed by what the run was asked for and how it ended. A failed run shows the same
   on a terminal. */
#include "run_outcome.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "../common/base/immortal.h"
#include "../common/base/program.h"
#include "../common/log/outcome_log.h"
#include "../common/log/protocol.h"
#include "../common/remote/cause.h"
#include "../common/remote/command.h"
#include "../common/text/command_line.h"
#include "../common/unix/cm_hal_pipe.h"

namespace {

const char* cpTASK(const SCT_ARGS* pArg)
{
    if (pArg->eUpdate == update) return "update";
    if (pArg->eUpdate == sp_update) return "servicepack";
    switch (pArg->szCheck[0]) {
        case 'r':
            return "check";
        case 's':
            return "test";
        case 'd':
            return "remove";
        default:
            return "register";
    }
}

/* A child of a run over many checks where both were asked for. */
const char* cpCHILD_TASK(const SCT_ARGS* pArg)
{
    SCT_ARGS sctChild = *pArg;
    if (pArg->iCheck) sctChild.eUpdate = notdefined;
    return cpTASK(&sctChild);
}

/* The environment carries it to the runs of a rollout. */
constexpr const char* cpROLLOUT = "VK_ROLLOUT";

/* Of this run, while it has no line. */
const SCT_ARGS*& pUNTOLD()
{
    static const SCT_ARGS* pArg = nullptr;
    return pArg;
}

/* What an end by a signal means for an update. */
std::string sUPDATE_LEFT(const SCT_ARGS* pArg, STAGE eReached)
{
    if (pArg->eUpdate == notdefined) return "";
    if (pArg->iUpdated != 0) return " after the update script";
    if (eReached != STAGE_SCRIPT) return " before the update script began";
    return std::string("; the update script keeps running on ") + pArg->szNodeName;
}

DIAGNOSIS sctINTERRUPTED(STAGE eReached)
{
    return sctDIAGNOSIS({"interrupted", eReached, {}}, {});
}

std::string sBY_SIGNAL(int iSignal)
{
    return "ended by signal " + std::to_string(iSignal);
}

/* The signal ends the run: nothing is waited for here. */
void v_TELL_INTERRUPTED()
{
    const SCT_ARGS* pArg = pUNTOLD();
    if (pArg == nullptr || pArg->szNodeName[0] == '\0') return;
    const STAGE       eReached = pArg->iUpdated != 0 ? STAGE_END : eSTAGE_NOW();
    const std::string sMessage = sBY_SIGNAL(iSIGNALLED()) + sUPDATE_LEFT(pArg, eReached);
    sctRUN_RECORD().diagnosis = sctINTERRUPTED(eReached);
    v_RUN_OUTCOME(sMessage.c_str(), 128 + iSIGNALLED(), pArg, 0);
}

/* A line that the parent writes for a client. */
RUN_RECORD sctOF_PARENT(const SCT_ARGS* pArg)
{
    RUN_RECORD record;
    record.sRun = pArg->szTimeStamp;
    record.sRollout = sENVIRONMENT(cpROLLOUT);
    record.sSender = pArg->szSender;
    record.sTask = cpCHILD_TASK(pArg);
    record.bStarted = false;
    return record;
}

/* Messages whose cause no operation on a client has shown. */
struct MESSAGE_CAUSE {
    const char* cpBegin;  // of the run message
    const char* cpCause;
    bool        bAlways;  // whatever an operation met before
};
constexpr MESSAGE_CAUSE asctMessageCause[] = {
    {"E020", "session-broken", true},      {"E013", "backup-cannot-return", true},
    {"W004", "restart-needed", true},      {"W005", "restart-needed", true},
    {"E005", "hosts-file", true},          {"W003", "not-registered", true},
    {"E006", "parameters-missing", false}, {"E012", "backup-failed", false},
};

/* What the run itself has found out about its failure. */
FINDING& sctOWN()
{
    static IMMORTAL<FINDING> finding;
    return finding.Get();
}

/* The database's library takes no password out of such a file. */
bool bTOO_OPEN(const std::string& sFile)
{
    struct stat sctStat {};
    return stat(sFile.c_str(), &sctStat) == 0 && (sctStat.st_mode & 077U) != 0;
}

/* The database's own, where a statement failed; no cause where that is not why. */
FINDING sctDATABASE(const std::string& sMessage)
{
    const DB_ERROR& error = sctDB_ERROR();
    const bool      bMessage = sMessage.starts_with("E004") || sMessage.starts_with("E006") ||
                          sMessage == "Error in DB access";
    if (!bMessage || (error.sText.empty() && !sMessage.starts_with("E004"))) return {};
    if (error.sText.empty()) return {"server-row-missing", STAGE_NONE, {}};
    const bool bTooOpen = std::string_view(error.cpCause) == "database-password-missing" &&
                          bTOO_OPEN(sDB_PASSWORD_FILE());
    return {bTooOpen ? "database-password-file" : error.cpCause, STAGE_NONE, {error.sText}};
}

/* What follows from the message; no cause where nothing does. */
FINDING sctFROM_MESSAGE(const std::string& sMessage, bool bAlways)
{
    for (const MESSAGE_CAUSE& row : asctMessageCause)
        if (row.bAlways == bAlways && sMessage.starts_with(row.cpBegin))
            return {row.cpCause, STAGE_NONE, {}};
    return {};
}

/* Package and script are gone from the client when an update has ended: what shows the
   same is the update itself. */
std::string sUPDATE_AGAIN(const SCT_ARGS* pArg)
{
    std::string s = pArg->eUpdate == update ? "vk_config_client -U" : "vk_config_client -S";
    if (pArg->iForceUpdate != 0) s += " -F";
    if (pArg->szUpdateOptions[0] != '\0')
        s += " -O " + sSHELL_WORD(SHELL_POSIX, pArg->szUpdateOptions);
    return s + " -c " + sSHELL_WORD(SHELL_POSIX, pArg->szNodeName) + " -P " +
           sSHELL_WORD(SHELL_POSIX, pArg->szPackage);
}

/* Why the run failed: what the run or the operation that decided has shown, else what
   follows from the message. */
DIAGNOSIS sctWHY_FAILED(const std::string& sMessage, const SCT_ARGS* pArg)
{
    const DIAGNOSIS& remote = sctREMOTE_END().diagnosis;
    FINDING          finding = sctDATABASE(sMessage);
    if (finding.sCause.empty()) finding = sctFROM_MESSAGE(sMessage, true);
    if (finding.sCause.empty()) finding = sctOWN();
    if (finding.sCause.empty() && !remote.sCause.empty()) return remote;
    if (finding.sCause.empty()) finding = sctFROM_MESSAGE(sMessage, false);
    if (finding.sCause.empty()) finding = {cpNOT_RECOGNISED, STAGE_NONE, {sMessage}};
    return sctDIAGNOSIS(finding, {{"host", pArg->szNodeName},
                                  {"server", pArg->szVelkaNode},
                                  {"program", "qtc"},
                                  {"database", sDB_MACHINE()},
                                  {"file", sDB_PASSWORD_FILE()}});
}

/* The fixed words in front of the lines, in the languages of the catalogue. */
struct LINE_WORDS {
    const char* cpWords;
    const char* cpCure;
    const char* cpTry;
    const char* cpProtocol;
};
LINE_WORDS sctWORDS()
{
    switch (eLang) {
        case LANG_DE:
        case LANG_BY:
            return {"Wortlaut: ", "Abhilfe: ", "selbst sehen: ", "Protokoll: "};
        case LANG_FR:
            return {"dit: ", "remède: ", "essayer: ", "protocole: "};
        default:
            return {"words: ", "cure: ", "try: ", "protocol: "};
    }
}

/* What failed and where, the words, the cure, how to see it, where the protocol stands:
   at most five lines. */
std::vector<std::string> asFAILURE_LINES(const RUN_RECORD& record)
{
    const DIAGNOSIS&         diagnosis = record.diagnosis;
    const LINE_WORDS         words = sctWORDS();
    std::vector<std::string> asLine{
        (record.sClient.empty() ? "" : record.sClient + ": ") + diagnosis.sSentence + " [" +
        (diagnosis.sStage.empty() ? "" : diagnosis.sStage + ", ") + diagnosis.sCause + "]"};
    const std::string sWords = sJOINED(diagnosis.asWords, "; ");
    if (!sWords.empty()) asLine.push_back(words.cpWords + sFOREIGN(sWords));
    const std::string sBetween = diagnosis.sCure.empty() || diagnosis.sCommand.empty() ? "" : "; ";
    const std::string sCure = diagnosis.sCure + sBetween + diagnosis.sCommand;
    if (!sCure.empty()) asLine.push_back(words.cpCure + sCure);
    if (!diagnosis.sTry.empty()) asLine.push_back(words.cpTry + diagnosis.sTry);
    if (bPROTOCOL_WRITTEN()) asLine.push_back(words.cpProtocol + sDAY_FILE(".prt"));
    return asLine;
}

void v_SHOW_FAILURE(const RUN_RECORD& record)
{
    if (record.diagnosis.sCause.empty()) return;
    const bool bTerminal = isatty(STDERR_FILENO) != 0;
    for (const std::string& sLine : asFAILURE_LINES(record)) {
        TRACE("%s", sLine.c_str());
        if (bTerminal) v_STDERR("%s", sLine.c_str());
    }
}

}  // namespace

void v_CAUSE(const char* cpCause, const std::string& sWords)
{
    sctOWN() = {cpCause, STAGE_NONE, {}};
    if (!sWords.empty()) sctOWN().asWords = {sWords};
}

void v_RUN_FAILED(const char* cpTxt, const SCT_ARGS* pArg)
{
    DIAGNOSIS& diagnosis = sctRUN_RECORD().diagnosis;
    diagnosis = sctWHY_FAILED(cpTxt, pArg);
    const bool bUpdate = diagnosis.sStage == "copy" || diagnosis.sStage == "script";
    if (pArg->eUpdate != notdefined && (bUpdate || diagnosis.sTry.empty()))
        diagnosis.sTry = sUPDATE_AGAIN(pArg);
}

void v_VERSION_SEEN(const char* cpVersion, const char* cpInstalled)
{
    RUN_RECORD& record = sctRUN_RECORD();
    if (*cpVersion == '\0') return;
    record.sVersionAfter = *cpInstalled != '\0' ? cpInstalled : cpVersion;
    if (record.sVersionBefore.empty()) record.sVersionBefore = record.sVersionAfter;
}

void v_RUN_OUTCOME(const char* cpTxt, int iExit, const SCT_ARGS* pArg, int iStored)
{
    RUN_RECORD& record = sctRUN_RECORD();
    pUNTOLD() = nullptr;
    record.sRun = pArg->szTimeStamp;
    record.sRollout = sENVIRONMENT(cpROLLOUT);
    record.sSender = pArg->szSender;
    if (pArg->iOverMany == 0) record.sClient = pArg->szNodeName;
    if (record.sClientId.empty()) record.sClientId = pArg->szNodeId;
    record.sTask = cpTASK(pArg);
    record.iExit = iExit;
    record.sMessage = cpTxt;
    record.iStored = iStored;
    record.sMode = sctREMOTE_END().sMode;
    record.reached = sctREMOTE_END().reached;
    if (record.sMode.empty()) record.sMode = pArg->szAccessMode;
    if (iExit == VK_SUCCESS) record.diagnosis = {};
    v_SHOW_FAILURE(record);
    v_OUTCOME_LOG(record);
}

void v_OUTCOME_AT_SIGNAL(const SCT_ARGS* pArg)
{
    pUNTOLD() = pArg;
    v_AT_SIGNAL(v_TELL_INTERRUPTED);
}

void v_ROLLOUT_BEGINS(const SCT_ARGS* pArg, const std::vector<std::string>& asClient,
                      const std::vector<std::string>& asTask, int iPilot, int iStopAfter)
{
    setenv(cpROLLOUT, pArg->szTimeStamp, 1);
    v_ROLLOUT_LOG({pArg->szTimeStamp, pArg->szSender, cpCHILD_TASK(pArg), pArg->szPackage, asTask,
                   asClient, iPilot, iStopAfter});
}

void v_OUTCOME_KILLED(const SCT_ARGS* pArg, const std::string& sClient, long lPid, int iSignal)
{
    if (iOUTCOME_STANDS(lPid, sClient)) return;
    RUN_RECORD record = sctOF_PARENT(pArg);
    record.sClient = sClient;
    record.iExit = 128 + iSignal;
    record.sMessage = sBY_SIGNAL(iSignal);
    record.diagnosis = sctINTERRUPTED(STAGE_NONE);
    v_OUTCOME_LOG(record);
}

void v_OUTCOME_NONE(const SCT_ARGS* pArg, const std::vector<std::string>& asClient,
                    const std::string& sWhy)
{
    RUN_RECORD record = sctOF_PARENT(pArg);
    record.sMessage = sWhy;
    for (const std::string& sClient : asClient) {
        record.sClient = sClient;
        v_OUTCOME_LOG(record);
    }
}
