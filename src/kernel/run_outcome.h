/* What a run leaves in the outcome log, and shows on a terminal. */
#pragma once

#include <string>
#include <vector>

#include "vk_config_client.h"

/* Why the run is about to fail, where no operation on a client has shown it: an identifier
   of the table of causes. */
void v_CAUSE(const char* cpCause);

/* Keeps why the run failed, before the next statement makes it forget the last one's failure. */
void v_RUN_FAILED(const char* cpTxt, const SCT_ARGS* pArg);

/* Completes the run's record, says in the trace and on a terminal why the run failed,
   and appends the record to the outcome log.
   cpTxt    run message
   iStored  1 the outcome stands in the client's row */
void v_RUN_OUTCOME(const char* cpTxt, int iExit, const SCT_ARGS* pArg, int iStored);

/* The lines of clients that a run over many did not start, or whose runs ended without
   an outcome: "exit" is null.
   sWhy  for "msg" */
void v_OUTCOME_NONE(const SCT_ARGS* pArg, const std::vector<std::string>& asClient,
                    const std::string& sWhy);
