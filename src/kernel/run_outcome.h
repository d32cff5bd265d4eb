/* What a run leaves in the outcome log, and shows on a terminal. */
#pragma once

#include <string>
#include <vector>

#include "vk_config_client.h"

/* Why the run is about to fail, where no operation on a client has shown it: an identifier
   of the table of causes, and what shows it. */
void v_CAUSE(const char* cpCause, const std::string& sWords = {});

/* What a report of the client tells of its versions: of the backup client, and of the
   installed product ("" as below). Nothing where it names none. */
void v_VERSION_SEEN(const char* cpVersion, const char* cpInstalled);

/* Keeps why the run failed, before the next statement makes it forget the last one's failure. */
void v_RUN_FAILED(const char* cpTxt, const SCT_ARGS* pArg);

/* Completes the run's record, says in the trace and on a terminal why the run failed,
   and appends the record to the outcome log.
   cpTxt    run message
   iStored  1 the outcome stands in the client's row */
void v_RUN_OUTCOME(const char* cpTxt, int iExit, const SCT_ARGS* pArg, int iStored);

/* From now on a run that a signal ends leaves its line, too, unless it has left one. Null:
   no more. */
void v_OUTCOME_AT_SIGNAL(const SCT_ARGS* pArg);

/* Before the first run of an update of many clients: the line with what it is about to do,
   and its identifier into the lines of those that follow. */
void v_ROLLOUT_BEGINS(const SCT_ARGS* pArg, const std::vector<std::string>& asClient,
                      const std::vector<std::string>& asTask, int iPilot, int iStopAfter);

/* The run of a client, process lPid, was ended by a signal: its line, where it could not
   write that itself. */
void v_OUTCOME_KILLED(const SCT_ARGS* pArg, const std::string& sClient, long lPid, int iSignal);

/* The lines of clients that a run over many did not start: "exit" is null.
   sWhy  for "msg" */
void v_OUTCOME_NONE(const SCT_ARGS* pArg, const std::vector<std::string>& asClient,
                    const std::string& sWhy);
