/* How an update of many clients goes on: first the pilot, one client at a time, then the
   others, until too many have failed. What is decided here is only whether a further
   client may be started, and how many at a time. */
#pragma once

#include <string>
#include <vector>

#include "vk_config_client.h"

struct ROLLOUT {
    int                      iPilot = 0;      // clients of the pilot; 0: none
    int                      iPiloted = 0;    // of them, those that succeeded
    int                      iStopAfter = 0;  // failures; 0: no limit
    int                      iCounted = 0;    // failures that count towards it
    std::vector<std::string> asHaveVersion;   // clients that needed no update
    std::string              sStopped;        // why no further client is started, or empty
};

/* The rollout of this run as the configuration wants it. A check has none. */
ROLLOUT sctROLLOUT(const SCT_ARGS* pArg);

/* Begins it: the line of the outcome log, and a semaphore for as long as this process
   lives, "rollout_" and the run's identifier, that tells others whether it goes on. */
void v_ROLLOUT_BEGIN(const SCT_ARGS* pArg, const ROLLOUT* pRollout,
                     const std::vector<std::string>& asClient);

/* Whether clients are still updated one at a time. */
bool bPILOT(const ROLLOUT* pRollout);

/* A client's update has ended.
   iStatus       exit status of its run; anything but 0 is a failure
   bHasVersion   it failed because the client has the version already: that neither
                 stops the rollout, nor is it a success of the pilot, in which the next
                 client takes its place */
void v_ROLLOUT_TAKE(ROLLOUT* pRollout, const std::string& sClient, int iStatus, bool bHasVersion);

/* Where the rollout stands, for people; empty without pilot and before a stop. */
std::string sROLLOUT_PHASE(const ROLLOUT* pRollout);
