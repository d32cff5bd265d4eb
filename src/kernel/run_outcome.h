/* What a run leaves in the outcome log, and shows on a terminal. */
#pragma once

#include "vk_config_client.h"

/* Keeps why the run failed, before the next statement makes it forget the last one's
   failure. */
void v_RUN_FAILED(const char* cpTxt, const SCT_ARGS* pArg);

/* Completes the run's record, says in the trace and on a terminal why the run failed,
   and appends the record to the outcome log.
   cpTxt    run message
   iStored  1 the outcome stands in the client's row */
void v_RUN_OUTCOME(const char* cpTxt, int iExit, const SCT_ARGS* pArg, int iStored);

/* The line of a client that a run over many did not start.
   cpClient  its name
   cpWhy     why not, for "msg" */
void v_OUTCOME_NOT_STARTED(const SCT_ARGS* pArg, const char* cpClient, const char* cpWhy);
