/* Connection test: does the backup client program answer on a client, reached the
   way the client is configured? The command runs on the client itself, or on the
   data mover that stands in for it. A failure becomes a message for the user and
   is stored in the client's row; an answer refreshes the inventory. */
#include <cstring>

#include "inventory.h"
#include "run_outcome.h"
#include "vk_config_client.h"

namespace {

constexpr int iLIMIT_SECONDS = 15;

/* What the test command left behind. */
struct ANSWER {
    t_LL        LL_Output;
    char        szMsg[512];  // why the command could not be run
    std::string sCommand;    // what was run, as it may be shown
    bool        bUpdating;   // an update of the client was under way
};

/* A client without a data mover is served by the backup server itself. */
void v_DEFAULT_DATA_MOVER(SCT_ARGS* pArg, const char* cpProgram)
{
    if (pArg->szDataMover[0] == '\0' || bIS(pArg->szDataMover, "NULL"))
        iTEXT_SET(pArg->szDataMover, pArg->szVelkaNode);
    else
        TRACE("%s will be executed on node: %s", cpProgram, pArg->szDataMover);
}

int iRUN(const char* cpHost, const char* cpAccessMode, const char* cpCommand, ANSWER* pAnswer)
{
    if (pAnswer->sCommand.empty()) pAnswer->sCommand = cpCommand;
    return i_RCMD_LL(cpHost, cpAccessMode, cpCommand, iLIMIT_SECONDS, 0, pAnswer->LL_Output,
                     pAnswer->szMsg, sizeof pAnswer->szMsg, strLog);
}

int iRUN_ON_MOVER(const SCT_ARGS* pArg, const char* cpCommand, const char* cpShown, ANSWER* pAnswer)
{
    TRACE("Execute command at data mover: %s", cpShown);
    pAnswer->sCommand = cpShown;
    return iRUN(pArg->szDataMover, "", cpCommand, pAnswer);
}

/* The command carries a password, so the trace shows another text. */
int iRUN_NDMP(const SCT_ARGS* pArg, ANSWER* pAnswer)
{
    constexpr const char* cpFormat = "qtc_ndmp -D -s dir -a auth=md5,server=%s,user=%s,passwd=%s";
    char                  szUser[256] = "";
    char                  szPassword[2048] = "";
    i_GET_TASK_OR_CLIENT_PASSWORD("", pArg->szNodeName, szUser, nullptr, "rdir", szPassword,
                                  strLog);
    const SHELL eShell = eHOST_SHELL(pArg->szDataMover);
    char        szCmd[256];
    char        szShown[256];
    iCMD(szShown, eShell, cpFormat, pArg->szNodeName, szUser,
         RAW_TEXT{szPassword[0] != '\0' ? "***" : ""});
    // Last, so that one that is too long is refused as such.
    iCMD(szCmd, eShell, cpFormat, pArg->szNodeName, szUser, szPassword);
    return iRUN_ON_MOVER(pArg, szCmd, szShown, pAnswer);
}

/* A client behind a proxy: access to the client itself, then the program on its
   data mover. */
int iRUN_OVER_PROXY(SCT_ARGS* pArg, ANSWER* pAnswer)
{
    v_DEFAULT_DATA_MOVER(pArg, "qtc");
    if (bIS(pArg->szPlatform, "NDMP")) return iRUN_NDMP(pArg, pAnswer);
    TRACE("Check access by 'dir' command");
    char szBuf[256] = "";
    pAnswer->sCommand = "dir";
    const int iRet = iClientDir(pArg->szNodeName, szBuf, 0, "", "", "", pAnswer->LL_Output, strLog);
    if (iRet != 0) return iRet;
    pAnswer->LL_Output = ConsLL();  // the names of files are no words of the data mover
    return iRUN_ON_MOVER(pArg, "qtc -h", "qtc -h", pAnswer);
}

int iRUN_TEST_COMMAND(SCT_ARGS* pArg, ANSWER* pAnswer)
{
    if (bIS(pArg->szPlatform, "NETWARE")) {
        v_DEFAULT_DATA_MOVER(pArg, "SMDR");
        return iRUN(pArg->szDataMover, "", "qtc_smdr -h", pAnswer);
    }
    if (bIS(pArg->szAccessMode, "PROXY")) return iRUN_OVER_PROXY(pArg, pAnswer);
    return iRUN(pArg->szNodeName, pArg->szAccessMode, "qtc -h", pAnswer);
}

void v_STORE_MESSAGE(const SCT_ARGS* pArg, const char* cpRet)
{
    iDB_EXECUTE_SQL(sNOT_STORED("message", pArg), strLog,
                    "update clients set msg='%s',comment='%s' where name='%s'", FREE_TEXT{cpRet},
                    FREE_TEXT{cpRet}, pArg->szNodeName);
}

/* The error line: the reason of a command that could not be run; else what the
   command said of it. */
void v_FIND_ERROR_LINE(const SCT_ARGS* pArg, int iResult, const ANSWER* pAnswer, char* cpRet,
                       size_t uSize)
{
    if (iResult < 0)
        iTEXT_COPY(cpRet, uSize, pAnswer->szMsg);
    else if (!iERROR_LINE(pAnswer->LL_Output, cpRet, uSize))
        TELL("%s: \"%s\" ended with status %d without output", pArg->szNodeName,
             pAnswer->sCommand.c_str(), iResult);
}

void v_COMMAND_FAILED(SCT_ARGS* pArg, int iResult, const ANSWER* pAnswer, char* cpRet, size_t uSize)
{
    v_FIND_ERROR_LINE(pArg, iResult, pAnswer, cpRet, uSize);
    TRACE("error message: %s", sFOREIGN(cpRet).c_str());
    PROT_MESSAGE(MSG_E003, {cpRet});
    CREATE_USER_INFO(pArg, cpRet, uSize);
    v_STORE_MESSAGE(pArg, cpRet);
}

std::string sLAST_LINE(t_LL LL_Output)
{
    const void* pLast = LastElmLL(LL_Output);
    return pLast != nullptr ? static_cast<const char*>(pLast) : "";
}

/* The command succeeded without naming a version: nothing is installed, or the
   client's communication layer told an error. */
void v_NO_VERSION(const SCT_ARGS* pArg, const ANSWER* pAnswer, char* cpRet, size_t uSize)
{
    MESSAGE(cpRet, uSize, MSG_E007, pArg->szNodeName);
    v_CAUSE("no-version", sLAST_LINE(pAnswer->LL_Output));
    char szLine[256] = "tkc-11^";
    if (i_LL_search(pAnswer->LL_Output, szLine, sizeof szLine) <= 0) return;
    TRACE("got error: %s", sFOREIGN(szLine).c_str());
    FPROT(0, cpRet);
    const char*       cpTail = std::strstr(szLine, "tkd-1");
    const std::string sText = sMESSAGE(MSG_E020, {pArg->szNodeName, szLine});
    iTEXT_COPY(cpRet, uSize, sText + ": " + (cpTail != nullptr ? cpTail : szLine));
}

/* Reads the report, stores what it holds, and decides. */
int iJUDGE_REPORT(SCT_ARGS* pArg, const ANSWER* pAnswer, char* cpRet, size_t uSize)
{
    CLIENT_REPORT sctReport = {};
    v_READ_REPORT(pAnswer->LL_Output, &sctReport);
    TRACE("QTC-version = %s", sFOREIGN(sctReport.szQtcVersion).c_str());
    const bool bAnswered = sctReport.szQtcVersion[0] != '\0';
    if (bAnswered) {
        INVENTORY inventory = {};
        const int iPrepared = iPREPARE_INVENTORY(pArg, &sctReport, pAnswer->bUpdating, &inventory);
        PROT_MESSAGE(MSG_I002, {sctReport.szQtcVersion});
        MESSAGE(cpRet, uSize, MSG_I005, pArg->szNodeName);
        if (iPrepared) v_STORE_INVENTORY(pArg, &sctReport, &inventory);
    } else {
        v_NO_VERSION(pArg, pAnswer, cpRet, uSize);
        v_STORE_MESSAGE(pArg, cpRet);
    }
    v_INVENTORY_FOLLOW_UP(pArg, &sctReport);
    return bAnswered;
}

}  // namespace

int iTEST_QTC_CONNECTION(SCT_ARGS* pArg, char* cpRet, size_t uSize)
{
    TRACE("+++ iTEST_QTC_CONNECTION using access mode %s", pArg->szAccessMode);
    ANNOUNCE_MESSAGE(MSG_I009, {pArg->szNodeName});
    if (bIS(pArg->szAccessMode, "VIRTUAL")) {
        MESSAGE(cpRet, uSize, MSG_I015, pArg->szNodeName);
        TRACE("%s", cpRet);
        TRACE("--- iTEST_QTC_CONNECTION returns %d - %s", 1, cpRet);
        return 1;
    }
    ANSWER    sctAnswer = {ConsLL(), "", "", iUPDATE_RUNS(pArg) == 1};
    const int iResult = iRUN_TEST_COMMAND(pArg, &sctAnswer);
    int       iRet = 0;
    if (iResult != 0) {
        v_COMMAND_FAILED(pArg, iResult, &sctAnswer, cpRet, uSize);
    } else if (bIS(pArg->szOpersys, "Citrix XenServer") || bIS(pArg->szAccessMode, "PROXY")) {
        MESSAGE(cpRet, uSize, MSG_I014, pArg->szNodeName);
        return 1;  // the report is the data mover's, not the client's
    } else {
        iRet = iJUDGE_REPORT(pArg, &sctAnswer, cpRet, uSize);
    }
    TRACE("--- iTEST_QTC_CONNECTION returns %d - %s", iRet, cpRet);
    return iRet;
}
