/* One command on one host, from the start of the child to the verdict.

   States: connecting (until the first mark), running (until the second), ended. The
   limits: iConnect seconds for connecting, iIdle seconds without output, iTotal
   seconds in all; a command past a limit is ended with its process group. At most
   uOUTPUT_MAX bytes are kept, the first part and always the last line. */
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

#include "../cm_trace.h"
#include "host.h"
#include "output.h"
#include "transport.h"

struct LIMITS {
    int iConnect = 0;  // seconds
    int iIdle = 0;
    int iTotal = 0;
    int iRetries = 0;
};

/* Limits of a caller that gives a time-out: iTimeout for connecting and silence,
   three times that in all; 0: as configured. */
LIMITS sctLIMITS(int iTimeout, int iRetries);

struct COMMAND_END {
    FAILURE     eFailure = FAILURE_OTHER;
    long        lStatus = 255;   // exit status of a command that ran to its end
    std::string sReason;         // why it did not
    bool        bBegan = false;  // its first mark came
    int         iChild = -1;     // exit status of the transport's own process
    int         iSignal = 0;     // that ended that process before its time
    std::string sProgram;        // the transport's own program
    WAY         way;             // of a command that has not run
    REACHED     reached;

    std::vector<std::string> asBefore;  // of one that did not begin: the last lines of all

    bool bRan() const { return eFailure == FAILURE_NONE; }
};

/* Runs one child that a transport has formed, once.
   eTime   whose time it is once the command runs
   bMOVES  asked several times a second about the child's process, where given: true is a
           sign of life, as output is */
COMMAND_END sctRUN_CHILD(const HOST& host, TRANSPORT& transport, const CHILD_SPEC& sctSpec,
                         const LIMITS& limits, OUTPUT& output, RUN_TIME eTime,
                         const std::function<bool(pid_t)>& bMOVES = {});

/* How far this run has come: the stage of what is under way on a host, or was at last. */
STAGE eSTAGE_NOW();

/* Runs a command line on a host within the limits, and again where that can help.
   sPort   empty: as configured
   output  receives what the command wrote */
COMMAND_END sctRUN_COMMAND(const HOST& host, const std::string& sPort, const char* cpCommand,
                           const LIMITS& limits, OUTPUT& output, const str_log& sctLog);
