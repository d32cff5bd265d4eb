#include "programs.h"

#include "common/common.h"
#include "common/unix/cm_hal_pipe.h"

PROGRAM_RUN sctRUN_PROGRAM(const std::vector<std::string>& asArgument, int iLimitS)
{
    PROGRAM_RUN run;
    const long  lDeadline = lNOW_MS() + iLimitS * 1000L;
    run.sOut = sSAID_BY(asArgument, iLimitS * 1000, &run.iStatus);
    if (lNOW_MS() >= lDeadline)
        run.sOut += "\ntimed out after " + std::to_string(iLimitS) + " seconds";
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
