/* Pilot and limit of failures of an update of many clients. */
#include "rollout.h"

#include "../common/base/immortal.h"
#include "../common/config/config.h"
#include "../common/unix/cm_hal_pipe.h"
#include "../common/unix/cm_hal_semaphor.h"
#include "run_outcome.h"

namespace {

void v_STOP(ROLLOUT* pRollout, const char* cpFormat, ...) __attribute__((format(printf, 2, 3)));

/* The first reason holds. */
void v_STOP(ROLLOUT* pRollout, const char* cpFormat, ...)
{
    if (!pRollout->sStopped.empty()) return;
    va_list args;
    va_start(args, cpFormat);
    pRollout->sStopped = sFORMATTED(cpFormat, args);
    va_end(args);
}

sct_semaphore& sctGOES_ON()
{
    static IMMORTAL<sct_semaphore> sema;
    return sema.Get();
}

}  // namespace

int iROLLOUT(const SCT_ARGS* pArg, ROLLOUT* pRollout)
{
    *pRollout = {};
    return pArg->iCheck || (iCONFIG_BRAKE("gv_update_pilot", pRollout->iPilot) &&
                            iCONFIG_BRAKE("gv_update_stop_after", pRollout->iStopAfter));
}

void v_ROLLOUT_BEGIN(const SCT_ARGS* pArg, const ROLLOUT* pRollout,
                     const std::vector<std::string>& asClient,
                     const std::vector<std::string>& asTask)
{
    if (pArg->iCheck || asClient.empty()) return;
    sct_semaphore& sema = sctGOES_ON();
    iTEXT_SET(sema.szSema,
              sSHORT_NAME(std::string("rollout_") + pArg->szTimeStamp, sizeof sema.szSema - 1));
    iTEXT_SET(sema.szCaller, "vk_config_client");
    if (i_SEMA('+', &sema) < 0) TELL("cannot mark the run as running: %s", sema.szMsg);
    v_AT_END([] { i_SEMA('-', &sctGOES_ON()); });
    v_ROLLOUT_BEGINS(pArg, asClient, asTask, pRollout->iPilot, pRollout->iStopAfter);
}

bool bPILOT(const ROLLOUT* pRollout)
{
    return pRollout->iPiloted < pRollout->iPilot;
}

void v_ROLLOUT_TAKE(ROLLOUT* pRollout, const std::string& sClient, CLIENT_END eEnd)
{
    const bool bOfPilot = bPILOT(pRollout);
    if (eEnd == CLIENT_HAS_VERSION) return pRollout->asHaveVersion.push_back(sClient);
    if (eEnd == CLIENT_UPDATING) return pRollout->asUpdating.push_back(sClient);
    if (bOfPilot) pRollout->asPilot.push_back(sClient);
    if (eEnd == CLIENT_UPDATED) {
        pRollout->iPiloted += bOfPilot ? 1 : 0;
        return;
    }
    pRollout->iCounted++;
    if (bOfPilot)
        v_STOP(pRollout, "the pilot failed on %s (gv_update_pilot = %d)", sClient.c_str(),
               pRollout->iPilot);
    if (pRollout->iStopAfter > 0 && pRollout->iCounted >= pRollout->iStopAfter)
        v_STOP(pRollout, "%d failed (gv_update_stop_after = %d)", pRollout->iCounted,
               pRollout->iStopAfter);
}

void v_ROLLOUT_CLOSE(const ROLLOUT* pRollout)
{
    const auto v_TELL = [](const char* cpWhat, const std::vector<std::string>& asClient) {
        if (asClient.empty()) return;
        TELL("%s %s: %s", sCLIENTS(asClient.size()).c_str(), cpWhat, sTYPED(asClient).c_str());
    };
    v_TELL("in the pilot", pRollout->asPilot);
    if (pRollout->iPilot > 0 && pRollout->asPilot.empty()) TELL("no client was in the pilot");
    v_TELL("with the version already", pRollout->asHaveVersion);
    v_TELL("being updated by another run", pRollout->asUpdating);
}

std::string sCLIENTS(size_t uClients)
{
    return std::to_string(uClients) + (uClients == 1 ? " client" : " clients");
}

std::string sROLLOUT_PHASE(const ROLLOUT* pRollout)
{
    if (!pRollout->sStopped.empty()) return "stopped";
    if (bPILOT(pRollout))
        return "pilot " + std::to_string(pRollout->iPiloted + 1) + "/" +
               std::to_string(pRollout->iPilot);
    return pRollout->iPilot > 0 ? "after the pilot" : "";
}
