/* Order of an update of many clients: first the pilot, one client at a time, then the
   others, until too many have failed. Decides only whether another
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
    std::vector<std::string> asPilot;         // who has been in the pilot, updated or failed
    std::vector<std::string> asHaveVersion;   // clients that needed no update
    std::vector<std::string> asUpdating;      // clients that another run was updating
    std::string              sStopped;        // why no further client is started, or empty
};

/* How the update of a client ended. */
enum CLIENT_END {
    CLIENT_UPDATED,
    CLIENT_FAILED,
    CLIENT_TO_RESTART,   // a failure for the brakes; updated, so that nothing is to be done again
    CLIENT_HAS_VERSION,  // a failure by its exit code, of which nothing follows
    CLIENT_UPDATING,     // another run is at it: a success by its exit code
};

/* The rollout of this run as the configuration wants it. A check has none.
   Result 0: a limit cannot be read, which has been told; nobody may be updated */
int iROLLOUT(const SCT_ARGS* pArg, ROLLOUT* pRollout);

/* Begins it: the line of the outcome log, and a semaphore for as long as this process
   lives, "rollout_" and the run's identifier, that tells others whether it goes on.
   asTask  the words of the command line that say what is done, without names */
void v_ROLLOUT_BEGIN(const SCT_ARGS* pArg, const ROLLOUT* pRollout,
                     const std::vector<std::string>& asClient,
                     const std::vector<std::string>& asTask);

/* Whether clients are still updated one at a time. */
bool bPILOT(const ROLLOUT* pRollout);

/* A client's update has ended. One that has the version, or is being updated by another
   run, neither stops the rollout nor proves anything: the next client takes its place in
   the pilot. */
void v_ROLLOUT_TAKE(ROLLOUT* pRollout, const std::string& sClient, CLIENT_END eEnd);

/* Tells who was the pilot, and whom this run did not update and why. */
void v_ROLLOUT_CLOSE(const ROLLOUT* pRollout);

/* "2 clients" */
std::string sCLIENTS(size_t uClients);

/* Where the rollout stands, for people; empty without pilot and before a stop. */
std::string sROLLOUT_PHASE(const ROLLOUT* pRollout);
