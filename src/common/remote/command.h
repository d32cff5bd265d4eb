/* One command on one host, from the start of the child to the verdict.

   States: connecting (until the first mark), running (until the second), ended. The
   limits: iConnect seconds for connecting, iIdle seconds without output, iTotal
   seconds in all; a command past a limit is ended with its process group. At most
   uOUTPUT_MAX bytes are kept, the first part and always the last line. */
#pragma once

#include <string>

#include "../cm_trace.h"
#include "../common/LL.h"
#include "host.h"

constexpr size_t uOUTPUT_MAX = size_t{16} * 1024 * 1024;

struct LIMITS {
    int iConnect = 0;  // seconds
    int iIdle = 0;
    int iTotal = 0;
    int iRetries = 0;
};

/* Limits of a caller that gives a time-out: iTimeout for connecting and silence,
   three times that in all; 0: as configured. */
LIMITS sctLIMITS(int iTimeout, int iRetries);

/* Where the output goes. */
struct OUTPUT {
    t_LL        LL_Lines = nullptr;  // receives each line, or null
    int         iFile = -1;          // receives the bytes as they came, or -1
    std::string sLastLine;           // last line that is not empty
    std::string sStatusLine;         // last line of the form STATUS=...
};

struct OUTCOME {
    bool        bRan = false;   // the command ran to its end
    long        lStatus = 255;  // its exit status
    std::string sReason;        // why it did not
};

OUTCOME sctRUN_COMMAND(const HOST& host, const std::string& sPort, const char* cpCommand,
                       const LIMITS& limits, OUTPUT& output, const str_log& sctLog);
