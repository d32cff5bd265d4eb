/* What a run leaves in the outcome log: its record, filled by the stages of the run,
   completed by what the run was asked for and how it ended. */
#include "run_outcome.h"

#include "../common/log/outcome_log.h"

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

/* As the info output names a run that was given no identifier. */
std::string sRUN_IDENTIFIER(const SCT_ARGS* pArg)
{
    if (pArg->szTimeStamp[0] != '\0') return pArg->szTimeStamp;
    char szTime[256] = "I";
    return std::string("config_client_") + time_get(szTime);
}

}  // namespace

void v_RUN_OUTCOME(const char* cpTxt, int iExit, const SCT_ARGS* pArg, int iStored)
{
    RUN_RECORD& record = sctRUN_RECORD();
    record.sRun = sRUN_IDENTIFIER(pArg);
    record.sSender = pArg->szSender;
    record.sClient = pArg->szNodeName;
    if (record.sClientId.empty()) record.sClientId = pArg->szNodeId;
    record.sTask = cpTASK(pArg);
    record.iExit = iExit;
    record.sMessage = cpTxt;
    record.iStored = iStored;
    if (record.sMode.empty()) record.sMode = pArg->szAccessMode;
    if (iExit == VK_SUCCESS) record.diagnosis = {};
    v_OUTCOME_LOG(record);
}

void v_OUTCOME_NOT_STARTED(const SCT_ARGS* pArg, const char* cpClient, const char* cpWhy)
{
    RUN_RECORD record;
    record.sRun = sRUN_IDENTIFIER(pArg);
    record.sSender = pArg->szSender;
    record.sClient = cpClient;
    record.sTask = cpCHILD_TASK(pArg);
    record.bStarted = false;
    record.sMessage = cpWhy;
    v_OUTCOME_LOG(record);
}
