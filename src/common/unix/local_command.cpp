/* Command lines of this server: the chained service-pack update, and whatever
   else a caller runs through /bin/sh. */
#include "local_command.h"

#include <algorithm>
#include <cstdlib>

#include "../base/program.h"
#include "../config/config.h"
#include "../lines/standard_error.h"
#include "cm_hal_pipe.h"

std::string sSEARCH_PATH_OF_PROGRAM()
{
    const std::string sFolder = sBESIDE("");
    const char*       cpPath = std::getenv("PATH");
    const std::string sPath = cpPath != nullptr ? cpPath : "/usr/sbin:/usr/bin:/sbin:/bin";
    return sFolder.empty() ? sPath : sFolder.substr(0, sFolder.size() - 1) + ":" + sPath;
}

int iRUN_LOCALLY(const char* cpCommand, long lLimitMs)
{
    CHILD_SPEC sctSpec;
    sctSpec.asArgument = {"/bin/sh", "-c", cpCommand};
    sctSpec.asEnvironment = {{"PATH", sSEARCH_PATH_OF_PROGRAM()}};
    sctSpec.bPipeOut = false;
    sctSpec.bErrToOut = false;

    CHILD       child;
    std::string sReason;
    std::fflush(stdout);
    if (!iCHILD_START(child, sctSpec, sReason)) {
        v_STDERR("%s", sReason.c_str());
        return -1;
    }
    const long lDeadline = lNOW_MS() + lLimitMs;
    while (!iCHILD_ENDED(child)) {
        std::vector<WAIT_FD> fds{{child.fdExit.iGet()}};
        const WAIT_RESULT    eWaited = iWAIT(fds, lDeadline);
        if (eWaited == WAIT_TIMEOUT || eWaited == WAIT_FAILED) v_CHILD_END(child, 2000);
    }
    return child.iStatus;
}

int start_system(const char* cpCommand)
{
    const int iLimit = std::max(iCONFIG_TOTAL_TIMEOUT() + iCONFIG_IDLE_TIMEOUT(), 120);
    return iRUN_LOCALLY(cpCommand, 1000L * iLimit);
}

int i_cm_exec(const char* cpCommand)
{
    return start_system(cpCommand);
}
