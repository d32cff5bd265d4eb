/* Hosts reached through OpenSSH: argument vectors for ssh and sftp, and the
   reasons made from ssh's own words (-E), which are kept apart from what the
   client's programs wrote. */
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <vector>

#include "../../config/config.h"
#include "../../config/variables.h"
#include "../../text/text.h"
#include "../transport.h"
#include "../wrapper.h"
#include "connection.h"
#include "sftp.h"
#include "ssh_words.h"

namespace {

/* What ssh would read as something else than a host name. */
bool bHOST_NAME(const std::string& sName)
{
    return !sName.empty() && sName[0] != '-' &&
           sName.find_first_of("@/ '\"`$\\;&<>|(){}*?!") == std::string::npos &&
           std::none_of(sName.begin(), sName.end(),
                        [](unsigned char c) { return std::iscntrl(c) != 0; });
}

int iBAD_NAME(const std::string& sName, std::string& sReason)
{
    sReason = "Host is unknown: \"" + sONE_LINE(sName) + "\" is not a host name";
    return 0;
}

/* Options of ssh and sftp alike, as -o words. */
struct SSH_OPTIONS {
    std::vector<std::string> asWord;
    void Add(const std::string& sOption) { asWord.insert(asWord.end(), {"-o", sOption}); }
};

/* A "%" begins a token in ssh's own options. */
std::string sPERCENT_DOUBLED(const std::string& sText)
{
    std::string sDoubled;
    for (char c : sText) sDoubled.append(c == '%' ? 2 : 1, c);
    return sDoubled;
}

/* The configuration of the host's access mode; PROXY goes by VKSSH's. */
int iMODE_CONFIG(const HOST& host, std::string& sConfig, std::string& sReason)
{
    const std::string sMode = host.sAccessMode == "PROXY" ? "VKSSH" : host.sAccessMode;
    if (iCONFIG_ACCESS(sMode.c_str(), sConfig)) return 1;
    sReason = "access mode \"" + sONE_LINE(sMode) + "\" is not configured; add a section [access " +
              sONE_LINE(sMode) + "] to vk.ini";
    return 0;
}

std::vector<std::string> asCONFIG_WORDS(const std::string& sConfig)
{
    if (sConfig.empty()) return {};
    // The product's own configuration: a new host key is kept, a changed one refused.
    return {"-F", sConfig, "-o", "StrictHostKeyChecking=accept-new"};
}

/* The command by which ssh reaches a proxied client through its data mover. */
int iJUMP_COMMAND(const HOST& host, const std::string& sConfig, int iConnectTimeout,
                  const std::string& sLog, std::string& sCommand, std::string& sReason)
{
    const std::string& sMover = host.sDataMover;
    if (sMover.empty() || sMover == "NULL") return 1;
    const HOST& mover = sctHOST(sMover.c_str(), "", str_log{});
    if (mover.bLocal) return 1;
    if (!bHOST_NAME(sMover)) return iBAD_NAME(sMover, sReason);
    std::vector<std::string> asWord{"ssh", "-T",
                                    "-o",  "BatchMode=yes",
                                    "-o",  "LogLevel=INFO",
                                    "-o",  "ConnectTimeout=" + std::to_string(iConnectTimeout)};
    if (!sLog.empty()) asWord.insert(asWord.end(), {"-E", sLog});
    for (std::string& s : asCONFIG_WORDS(sConfig)) asWord.push_back(std::move(s));
    if (!mover.sUser.empty()) asWord.insert(asWord.end(), {"-l", mover.sUser});
    for (const std::string& s : asWord) {
        sCommand += sPERCENT_DOUBLED(sSHELL_WORD(SHELL_POSIX, s)) + " ";
    }
    sCommand += "-W '[%h]:%p' -- " + sMover;
    return 1;
}

int iOPTIONS(const HOST& host, const std::string& sPort, int iConnectTimeout, SSH_OPTIONS& options,
             std::string& sReason)
{
    std::string sConfig;
    std::string sJump;
    CONNECTION& connection = sctCONNECTION(host);
    if (!bHOST_NAME(host.sName)) return iBAD_NAME(host.sName, sReason);
    if (!iMODE_CONFIG(host, sConfig, sReason)) return 0;
    if (host.sAccessMode == "PROXY" &&
        !iJUMP_COMMAND(host, sConfig, iConnectTimeout, connection.sLog, sJump, sReason)) {
        return 0;
    }
    options.asWord = asCONFIG_WORDS(sConfig);
    options.Add("BatchMode=yes");
    options.Add("ConnectTimeout=" + std::to_string(iConnectTimeout));
    options.Add("ServerAliveInterval=5");
    options.Add("ServerAliveCountMax=3");
    options.Add("LogLevel=INFO");
    options.Add("ClearAllForwardings=yes");
    options.Add("PermitLocalCommand=no");
    if (connection.sSocket.empty()) {
        options.Add("ControlMaster=no");
        options.Add("ControlPath=none");
    } else {
        options.Add("ControlMaster=auto");
        options.Add("ControlPath=" + sPERCENT_DOUBLED(connection.sSocket));
        options.Add("ControlPersist=" + std::to_string(iCONNECTION_IDLE_S));
    }
    if (!sPort.empty()) options.Add("Port=" + sPort);
    if (!sJump.empty()) options.Add("ProxyCommand=" + sJump);
    return 1;
}

struct SSH : TRANSPORT {
    int iFORM(const HOST& host, const std::string& sPort, std::string_view svCommand,
              int iConnectTimeout, CHILD_SPEC& sctSpec, std::string& sReason) override
    {
        SSH_OPTIONS options;
        if (!iOPTIONS(host, sPort, iConnectTimeout, options, sReason)) return 0;
        CONNECTION& connection = sctCONNECTION(host);
        v_LOG_MARK(connection);
        sctSpec.asArgument = {"ssh", "-T"};
        if (!connection.sLog.empty()) {
            sctSpec.asArgument.insert(sctSpec.asArgument.end(), {"-E", connection.sLog});
        }
        sctSpec.asArgument.insert(sctSpec.asArgument.end(), options.asWord.begin(),
                                  options.asWord.end());
        if (!host.sUser.empty()) {
            sctSpec.asArgument.insert(sctSpec.asArgument.end(), {"-l", host.sUser});
        }
        sctSpec.asArgument.insert(sctSpec.asArgument.end(),
                                  {"--", host.sName, sFOR_SHELL(host, svCommand)});
        sctSpec.asEnvironment = {{"LC_ALL", "C"}};
        sctSpec.bPipeIn = true;
        return 1;
    }

    std::string sREASON(const HOST& host, FAILURE& eFailure) override
    {
        bool        bRefused = false;
        std::string sReason = sREASON_OF(sLOG_SINCE(sctCONNECTION(host)), &bRefused);
        if (bRefused) eFailure = FAILURE_REFUSED;
        return sReason;
    }

    bool bESTABLISHED(const HOST& host) override
    {
        std::error_code error;
        return std::filesystem::exists(sctCONNECTION(host).sSocket, error);
    }

    int iPUT(const HOST& host, const std::string& sSource, const std::string& sTarget,
             const char* cpMode, std::string& sReason) override
    {
        SSH_OPTIONS options;
        if (!iOPTIONS(host, "", iCONFIG_CONNECT_TIMEOUT(), options, sReason)) return 0;
        CHILD_SPEC sctSpec;
        sctSpec.asArgument = {"sftp", "-q"};
        sctSpec.asArgument.insert(sctSpec.asArgument.end(), options.asWord.begin(),
                                  options.asWord.end());
        if (!host.sUser.empty()) {
            sctSpec.asArgument.insert(sctSpec.asArgument.end(), {"-o", "User=" + host.sUser});
        }
        // sftp takes what follows a colon for a path.
        const bool bColon = host.sName.find(':') != std::string::npos;
        sctSpec.asArgument.insert(sctSpec.asArgument.end(),
                                  {"-b", "-", "--", bColon ? "[" + host.sName + "]" : host.sName});
        sctSpec.asEnvironment = {{"LC_ALL", "C"}};
        return iSFTP_PUT(sctSpec, host.sName, sSource, sTarget, cpMode, sReason);
    }

private:
    static std::string sFOR_SHELL(const HOST& host, std::string_view svCommand)
    {
        std::string sDirectory;
        iCONFIG_CLIENT_DIRECTORY(host.sPlatform.c_str(), "gv_ro_bin", sDirectory);
        if (eSHELL_OF(host) == SHELL_WINDOWS) return sWINDOWS_LINE(svCommand, sDirectory);
        return "exec /bin/sh -c " + sSHELL_WORD(SHELL_POSIX, sPOSIX_SCRIPT(svCommand, sDirectory));
    }
};

}  // namespace

TRANSPORT& SSH_TRANSPORT()
{
    static SSH& transport = *new SSH;
    return transport;
}
