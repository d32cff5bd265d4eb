#include "programs.h"

#include "common/common.h"
#include "common/unix/cm_hal_pipe.h"
#include "common/unix/read_now.h"

namespace {

constexpr size_t uMOST_AT_ONCE = size_t{1} << 20;

}  // namespace

PROGRAM_RUN sctRUN_PROGRAM(const std::vector<std::string>& asArgument, int iLimitS)
{
    PROGRAM_RUN run;
    CHILD       child;
    CHILD_SPEC  sctSpec;
    sctSpec.asArgument = asArgument;
    sctSpec.asEnvironment = {{"LC_ALL", "C"}};
    if (!iCHILD_START(child, sctSpec, run.sOut)) return run;
    const long lDeadline = lNOW_MS() + iLimitS * 1000L;
    while (!iCHILD_ENDED(child)) {
        std::vector<WAIT_FD> fds{{child.fdExit.iGet()}};
        if (child.fdOut.bOpen()) fds.push_back({child.fdOut.iGet()});
        if (iWAIT(fds, lDeadline) != WAIT_READY) {
            v_CHILD_END(child, 1000);
            run.sOut += "\nno end within " + std::to_string(iLimitS) + " seconds";
        }
        uREAD_NOW(child.fdOut, run.sOut, uMOST_AT_ONCE);
    }
    uREAD_NOW(child.fdOut, run.sOut, uMOST_AT_ONCE);
    run.iStatus = child.iStatus;
    return run;
}

std::string sLAST_LINE(const std::string& sText)
{
    const size_t uEnd = sText.find_last_not_of(" \r\n");
    if (uEnd == std::string::npos) return "";
    const size_t uStart = sText.rfind('\n', uEnd);
    return sText.substr(uStart + 1, uEnd - uStart);
}

std::string sPROGRAM_PATH(const std::string& sName)
{
    const std::string sPath =
        sSEARCH_PATH_OF_PROGRAM() + ":/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
    for (const std::string_view svFolder : asvPIECES(sPath, ':')) {
        std::string sFile = std::string(svFolder) + "/" + sName;
        if (!svFolder.empty() && access(sFile.c_str(), X_OK) == 0) return sFile;
    }
    return "";
}
