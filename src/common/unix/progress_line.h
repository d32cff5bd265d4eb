/* The progress line of a run over many clients: one line on standard error,
   rewritten in place, only where a person sees it. */
#pragma once

#include <cstddef>
#include <string>

struct PROGRESS {
    bool        bTerminal = false;  // standard error is a terminal
    std::string sShown;             // the line that stands there now
    long        lStart = 0;         // lNOW_MS at the start
    size_t      uTotal = 0;
    size_t      uDone = 0;  // when the end was estimated last
    long        lEnd = 0;   // lNOW_MS at the end, as estimated
    std::string sPhase;     // stands in front, where the caller names one
};

/* Starts the progress of uTotal clients. */
void v_PROGRESS_START(PROGRESS* pProgress, size_t uTotal);

/* Shows how many clients are done and how many of them failed, the names in
   sAtWork, and the time that the rest will take if it goes on like this. */
void v_PROGRESS_SHOW(PROGRESS* pProgress, size_t uDone, size_t uFailed, const std::string& sAtWork);

/* Removes the line, so that another can be written. */
void v_PROGRESS_CLEAR(PROGRESS* pProgress);
