/* Hosts reached through OpenSSH with a shell at the other end. The reasons are made from
   ssh's own words (-E), which are kept apart from what the client's programs wrote. */
#include <algorithm>
#include <map>

#include "../../base/immortal.h"
#include "../../config/variables.h"
#include "../../lines/secret.h"
#include "../command.h"
#include "../transport.h"
#include "../wrapper.h"
#include "sftp.h"
#include "ssh_call.h"
#include "unfinished_copy.h"

namespace {

bool bPLAIN_WORDS(std::string_view svCommand)
{
    for (size_t u = 0; u <= svCommand.size();) {
        const size_t uEnd = std::min(svCommand.find(' ', u), svCommand.size());
        const auto   svWord = svCommand.substr(u, uEnd - u);
        if (sSHELL_WORD(SHELL_POSIX, svWord) != svWord) return false;
        u = uEnd + 1;
    }
    return true;
}

struct SSH : OVER_SSH {
    int iFORM(const HOST& host, const std::string& sPort, std::string_view svCommand,
              int iConnectTimeout, CHILD_SPEC& sctSpec, REFUSAL& refusal) override
    {
        m_bSameInBoth = bPLAIN_WORDS(svCommand);
        const std::string sRemote = sFOR_SHELL(host, svCommand, sctSpec);
        return iSSH_CALL(host, sPort, sRemote, iConnectTimeout, sctSpec, refusal);
    }

    std::string sBY_HAND(const HOST& host, std::string_view svCommand) override
    {
        return sSSH_BY_HAND(host, svCommand, true);
    }

    void TIDY(const HOST& host) override
    {
        CHILD_SPEC sctSpec;
        REFUSAL    refusal;
        if (bCOPY_NOTED(host.sName) && iSFTP_CALL(host, sctSpec, refusal))
            v_SFTP_TIDY(sctSpec, host.sName);
    }

    int iPLACE(const HOST& host, const char* cpPath, std::string& sPath,
               std::string& sReason) override
    {
        return iCLIENT_PATH(host, cpPath, sPath, sReason);
    }

    COPY_END sctPUT(const HOST& host, const std::string& sSource, const std::string& sTarget,
                    const char* cpMode) override
    {
        CHILD_SPEC sctSpec;
        REFUSAL    refusal;
        if (!iSFTP_CALL(host, sctSpec, refusal))
            return {false, refusal.sReason, {refusal.sCause, STAGE_SERVER, {refusal.sReason}}, {}};
        COPY_END end = sctSFTP_PUT(sctSpec, host, sSource, sTarget, cpMode);
        if (end.bDone || end.sReason != "Connection closed") return end;
        const std::string sWords = sSSH_NO_SFTP(host);
        if (sWords.empty()) return end;
        return {false, sWords, {"no-sftp", STAGE_COPY, {sWords}}, {}};
    }

    void REMOVE_FOLDERS(const HOST& host, const std::vector<std::string>& asFolder) override
    {
        CHILD_SPEC sctSpec;
        REFUSAL    refusal;
        if (iSFTP_CALL(host, sctSpec, refusal)) v_SFTP_REMOVE_FOLDERS(sctSpec, asFolder);
    }

    /* A client whose shell ended without the first mark may have the other kind of
       shell than its row says. The other form is tried once, for a line that both read
       alike; where it fails, too, the row is believed again. */
    bool bLEARNT(const HOST& host, int iExit) override
    {
        if (!m_bSameInBoth || iExit <= 0 || iExit >= 128) return false;
        const auto [entry, bFirst] = m_stored.try_emplace(host.sName, host.sPlatform);
        const std::string sOther = eSHELL_OF(host) == SHELL_WINDOWS ? "LINUX" : "WNT";
        v_HOST_PLATFORM(host, (bFirst ? sOther : entry->second).c_str());
        return bFirst;
    }

private:
    /* Puts the command line where the host's shell reads it. The Windows interpreter
       takes as a line of its standard input what no argument vector may show. */
    static std::string sFOR_SHELL(const HOST& host, std::string_view svCommand, CHILD_SPEC& sctSpec)
    {
        std::string sDirectory;
        iCONFIG_CLIENT_DIRECTORY(host.sPlatform.c_str(), "gv_ro_bin", sDirectory);
        sctSpec.bPipeIn = true;
        if (eSHELL_OF(host) == SHELL_WINDOWS) {
            std::string sLine = sWINDOWS_LINE(svCommand, sDirectory);
            if (sFOREIGN(svCommand) == svCommand) return sLine;
            sctSpec.sFirstInput = sLine + "& exit\r\n";
            return sWINDOWS_READER(sLine);
        }
        sctSpec.sFirstInput = sPOSIX_SCRIPT(svCommand, sDirectory);
        return std::string("exec /bin/sh -c '") + cpPOSIX_READER + "'";
    }

    bool                               m_bSameInBoth = false;  // the command formed last
    std::map<std::string, std::string> m_stored;  // platform class of hosts tried otherwise
};

}  // namespace

TRANSPORT& SSH_TRANSPORT()
{
    static IMMORTAL<SSH> transport;
    return transport.Get();
}
