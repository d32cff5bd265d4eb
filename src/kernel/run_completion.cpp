/* The end of every client run: the outcome goes to the client's row, the day
   protocol, the info output, standard output and the exit code, in one place. */
#include <cstdio>
#include <string_view>

#include "../common/log/outcome_log.h"
#include "run_outcome.h"
#include "vk_config_client.h"

namespace {

constexpr size_t uDATE_TIME = 19;  // bytes of "YYYY-MM-DD HH:MM:SS"

/* Stores the outcome in the client's row. A failure is told, and does not change
   the run's outcome. Result 1 it stands there, 0 not, -1 there is no row that it could. */
int iSTORE_OUTCOME(const char* cpTxt, int iExit, const SCT_ARGS* pArg)
{
    char szTime[256] = "";
    time_get(szTime);
    szTime[uDATE_TIME] = '\0';
    char szSql[2048];
    if (iExit != VK_SUCCESS)
        iSQL(szSql,
             "update clients set msg='%s',comment='%s',access_state='%d',access_time='%s' where "
             "name='%s'",
             FREE_TEXT{cpTxt}, FREE_TEXT{cpTxt}, iExit, szTime, pArg->szNodeName);
    else
        iSQL(szSql,
             "update clients set msg='%s',comment='%s',access_state='%d',access_time='%s',"
             "access_success='%s' where name='%s'",
             FREE_TEXT{cpTxt}, FREE_TEXT{cpTxt}, 0, szTime, szTime, pArg->szNodeName);
    const int iRows = iDB_EXECUTE(sNOT_STORED("outcome", pArg), szSql, strLog);
    // Where an insert failed (E004), the identifier is of a row that never was.
    const bool bWasThere =
        (pArg->szNodeId[0] != '\0' && !std::string_view(cpTxt).starts_with("E004")) ||
        !sctRUN_RECORD().sClientId.empty();
    if (pArg->iRemoved != 0) return pArg->iRemoved == 1 ? -1 : 0;
    if (iRows == 0 && bWasThere && pArg->szCheck[0] != 'd')
        v_TELL_NO_ROW(sNOT_STORED("outcome", pArg), pArg);
    return iRows > 0;
}

/* A package update asked for with -e is followed by the service pack: after a success, a
   warning, and where the client has the version already. A run that has not come to an
   update, since another is at it or something failed before, starts none. */
template<size_t N>
void v_CHAIN_SERVICEPACK(int iExit, const SCT_ARGS* pArg, char (&szCommand)[N])
{
    if (pArg->eUpdate != update || pArg->iServicePack == 0) return;
    const bool bFailed = iExit != VK_SUCCESS && iExit != VK_WARNING;
    if (bFailed) TRACE("Do not execute service pack update, because update has failed");
    if (bFailed || pArg->iUpdateEnded == 0) {
        if (pArg->iUpdateEnded != 0 || !bFailed)
            TELL("service pack update of %s not started: %s",
                 pArg->iOverMany != 0 ? "the clients" : pArg->szNodeName,
                 bFailed               ? "the update failed"
                 : iExit == VK_SUCCESS ? "another run is updating the client"
                                       : "the run ended before an update");
        return;
    }
    iCMD(szCommand, SHELL_POSIX, "vk_update_client sp_update -c %s", pArg->szNodeName);
    TRACE("Execute '%s' to check for servicepack after update", szCommand);
    if (const int iStatus = i_cm_exec(szCommand); iStatus != 0)
        TELL("service pack update of %s failed: \"%s\" ended with status %d", pArg->szNodeName,
             szCommand, iStatus);
}

}  // namespace

std::string sNOT_STORED(const char* cpWhat, const SCT_ARGS* pArg)
{
    const char* cpOf = pArg->szNodeName[0] != '\0' ? pArg->szNodeName : "the run";
    return std::string(cpWhat) + " of " + cpOf + " not stored";
}

void ZFINISH(const char* cpTxt, int iExit, char cDelFlg, SCT_ARGS* pArg)
{
    TRACE("+++ ZFINISH  Exit: %d Msg: %s", iExit, cpTxt);
    if (iExit != VK_SUCCESS) v_RUN_FAILED(cpTxt, pArg);
    FPROT(0, cpTxt);
    if (bIS(pArg->szPlatform, "WNT")) iTEXT_SET(pArg->szPlatform, "Windows");
    if (iExit != VK_SUCCESS && strLog.iLogLevel > 2)
        WRITE_TRACE(&strLog, "Delete flag: %c'", cDelFlg);

    char szSummary[24576];
    MESSAGE(szSummary, iExit != VK_SUCCESS ? MSG_E001 : MSG_I003, pArg->szPlatform,
            pArg->szNodeName);
    TRACE("ZFINISH %d %s", iExit, szSummary);
    FPROT(0, szSummary);
    info('S', 0, szSummary);
    info('M', 0, cpTxt);
    v_REMOTE_DONE();  // connections end while the outcome is stored
    v_RUN_OUTCOME(cpTxt, iExit, pArg,
                  pArg->iRowStays != 0 ? -1 : iSTORE_OUTCOME(cpTxt, iExit, pArg));
    TRACE("--- ZFINISH exit %d, %s", iExit, cpTxt);
    v_CHAIN_SERVICEPACK(iExit, pArg, szSummary);

    std::printf("STATUS=%s MSG=\"%s\"\n", iExit == VK_SUCCESS ? "SUCCESS" : "ERROR",
                sSAFE_LINE(cpTxt).c_str());
    v_END_PROCESS(iExit);
}

void v_REFUSE_RUN(SCT_ARGS* pArg)
{
    pArg->iRowStays = 1;
    v_END_RUN(pArg, VK_ERROR, MSG_E006);
}

void v_END_RUN(SCT_ARGS* pArg, int iExit, MESSAGE_ID eId, std::string_view svDetail, size_t uSize,
               const char* cpTrace)
{
    const std::string sMsg = sMESSAGE_FITTED(uSize, eId, svDetail);
    if (cpTrace != nullptr) TRACE("--- %s %s ", cpTrace, sMsg.c_str());
    ZFINISH(sMsg.c_str(), iExit, 'n', pArg);
}
