/* Hosts reached through OpenSSH with a shell at the other end. The reasons are made
   from ssh's own words (-E), which are kept apart from what the client's programs
   wrote. */
#include "../../config/variables.h"
#include "../transport.h"
#include "../wrapper.h"
#include "sftp.h"
#include "ssh_call.h"

namespace {

struct SSH : TRANSPORT {
    int iFORM(const HOST& host, const std::string& sPort, std::string_view svCommand,
              int iConnectTimeout, CHILD_SPEC& sctSpec, std::string& sReason) override
    {
        const std::string sRemote = sFOR_SHELL(host, svCommand, sctSpec);
        return iSSH_CALL(host, sPort, sRemote, iConnectTimeout, sctSpec, sReason);
    }

    std::string sREASON(const HOST& host, FAILURE& eFailure) override
    {
        return sSSH_REASON(host, eFailure);
    }
    bool bESTABLISHED(const HOST& host) override { return bSSH_ESTABLISHED(host); }

    int iPUT(const HOST& host, const std::string& sSource, const std::string& sTarget,
             const char* cpMode, std::string& sReason) override
    {
        CHILD_SPEC sctSpec;
        if (!iSFTP_CALL(host, sctSpec, sReason)) return 0;
        return iSFTP_PUT(sctSpec, host.sName, sSource, sTarget, cpMode, sReason);
    }

private:
    /* Puts the command line where the host's shell reads it. The Windows interpreter
       has no way to take it from its standard input. */
    static std::string sFOR_SHELL(const HOST& host, std::string_view svCommand, CHILD_SPEC& sctSpec)
    {
        std::string sDirectory;
        iCONFIG_CLIENT_DIRECTORY(host.sPlatform.c_str(), "gv_ro_bin", sDirectory);
        sctSpec.bPipeIn = true;
        if (eSHELL_OF(host) == SHELL_WINDOWS) return sWINDOWS_LINE(svCommand, sDirectory);
        sctSpec.sFirstInput = sPOSIX_SCRIPT(svCommand, sDirectory);
        return std::string("exec /bin/sh -c '") + cpPOSIX_READER + "'";
    }
};

}  // namespace

TRANSPORT& SSH_TRANSPORT()
{
    static SSH& transport = *new SSH;
    return transport;
}
