/* One update run: what its steps share. */
#pragma once

#include "../common/unix/cm_hal_semaphor.h"
#include "vk_config_client.h"

struct UPDATE_RUN {
    SCT_ARGS*     pArg;
    sct_semaphore sctSema;          // "update_client_" and the client's name
    char          szClientId[256];  // columns of the client's row, as they were
    char          szOs[33];
    char          szVersionNumber[256];
    char          szServicepackNumber[256];
    const char*   cpExtension;      // of the update script: ".cmd" or empty
    bool          bWindows;         // the client runs Windows
    char          szVersion[256];   // version of the package, as its name says it
    long          lVersion;         // its number
    long          lServicepack;     // service-pack number of the package, 0 with -U
    const char*   acpSignature[2];  // suffixes of the signatures that were copied, or null
    char          szCommand[2048];  // the update script's command line
    int           iStatus;          // of the update script, as judged
    char          szMsg[32768];     // run message
};

/* ---- the end (update_end) ----------------------------------------------- */

/* Gives the semaphore up and ends the run with szMsg. */
[[noreturn]] void v_UPDATE_END(UPDATE_RUN* pRun, int iExit);

/* ---- package and eligibility (update_package) -------------------------- */

/* Decides whether the client may receive the package: the client's kind, the
   package's version, the operating system, the installed version. Returns only
   when it may; each refusal ends the run. */
void v_CHECK_PACKAGE(UPDATE_RUN* pRun);

/* ---- the client's row (update_state) ----------------------------------- */

/* Reads szClientId, szOs, szVersionNumber and szServicepackNumber.
   Result  1 the row was read, 0 it is not there or lacks a column */
int iREAD_CLIENT(UPDATE_RUN* pRun);

/* Record how the update goes in update_state. A failure is told, and changes nothing
   for the run. Warning and error store szMsg. */
void v_STATE_IN_PROGRESS(const UPDATE_RUN* pRun);
void v_STATE_WARNING(const UPDATE_RUN* pRun);
void v_STATE_ERROR(const UPDATE_RUN* pRun);
void v_STATE_SUCCESS(const UPDATE_RUN* pRun);
