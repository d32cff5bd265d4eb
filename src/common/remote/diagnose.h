/* From what an operation met to its cause. */
#pragma once

#include <string>

#include "../cm_trace.h"
#include "cause.h"
#include "command.h"

/* One command that brought no status. */
struct ATTEMPT {
    WAY         way;
    std::string sBefore;         // what came before the first mark
    std::string sLastWords;      // its last line that is not blank, as a person may see it
    bool        bBegan = false;  // the first mark came
    bool        bLate = false;   // a limit passed
    bool        bTotal = false;  // the one for all of it
    int         iChild = -1;     // status of the transport's process, -1: it still ran
};
DIAGNOSIS sctATTEMPT_DIAGNOSIS(const ATTEMPT& attempt);

/* A host that could not be tried at all. */
DIAGNOSIS sctREASON_DIAGNOSIS(const HOST& host, const std::string& sReason);

/* A command that ended with a status other than 0. Of a program that cannot be found or
   run the host is asked, once and for a few seconds, what is missing. */
DIAGNOSIS sctSTATUS_DIAGNOSIS(const HOST& host, const char* cpCommand, long lStatus,
                              const OUTPUT& output, const str_log& sctLog);

/* A copy that failed with that reason. A host that cannot write is asked, once and for a
   few seconds, whether its disk takes changes. */
DIAGNOSIS sctCOPY_DIAGNOSIS(const HOST& host, const std::string& sSource,
                            const std::string& sTarget, const std::string& sReason,
                            const str_log& sctLog);

/* A copy of sSource that succeeded: what becomes of it on the host is told by that. */
void v_COPIED(const std::string& sSource);
