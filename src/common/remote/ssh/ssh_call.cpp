/* Argument vectors of ssh and sftp. */
#include "ssh_call.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <vector>

#include "../../config/config.h"
#include "../../config/variables.h"
#include "../../text/text.h"
#include "connection.h"
#include "ssh_configuration.h"
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

/* The command by which ssh reaches a proxied client through its data mover. */
int iJUMP_COMMAND(const HOST& host, const std::vector<std::string>& asConfig, int iConnectTimeout,
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
    asWord.insert(asWord.end(), asConfig.begin(), asConfig.end());
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
    if (!iMODE_CONFIG(host, sConfig, sReason) ||
        !iSSH_CONFIGURATION(sConfig, options.asWord, sReason))
        return 0;
    if (host.sAccessMode == "PROXY" &&
        !iJUMP_COMMAND(host, options.asWord, iConnectTimeout, connection.sLog, sJump, sReason))
        return 0;
    options.Add("BatchMode=yes");
    options.Add("ConnectTimeout=" + std::to_string(iConnectTimeout));
    options.Add("ServerAliveInterval=5");
    options.Add("ServerAliveCountMax=3");
    options.Add("LogLevel=INFO");
    options.Add("ClearAllForwardings=yes");
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

void ADD(std::vector<std::string>& asAll, const std::vector<std::string>& asMore)
{
    asAll.insert(asAll.end(), asMore.begin(), asMore.end());
}

}  // namespace

int iSSH_CALL(const HOST& host, const std::string& sPort, const std::string& sRemote,
              int iConnectTimeout, CHILD_SPEC& sctSpec, std::string& sReason)
{
    SSH_OPTIONS options;
    if (!iOPTIONS(host, sPort, iConnectTimeout, options, sReason)) return 0;
    CONNECTION& connection = sctCONNECTION(host);
    v_LOG_MARK(connection);
    sctSpec.asArgument = {"ssh", "-T"};
    if (!connection.sLog.empty()) ADD(sctSpec.asArgument, {"-E", connection.sLog});
    ADD(sctSpec.asArgument, options.asWord);
    if (!host.sUser.empty()) ADD(sctSpec.asArgument, {"-l", host.sUser});
    ADD(sctSpec.asArgument, {"--", host.sName, sRemote});
    sctSpec.asEnvironment = {{"LC_ALL", "C"}};
    return 1;
}

int iSFTP_CALL(const HOST& host, CHILD_SPEC& sctSpec, std::string& sReason)
{
    SSH_OPTIONS options;
    if (!iOPTIONS(host, "", iCONFIG_CONNECT_TIMEOUT(), options, sReason)) return 0;
    sctSpec.asArgument = {"sftp", "-q"};
    ADD(sctSpec.asArgument, options.asWord);
    if (!host.sUser.empty()) ADD(sctSpec.asArgument, {"-o", "User=" + host.sUser});
    // sftp takes what follows a colon for a path.
    const bool bColon = host.sName.find(':') != std::string::npos;
    ADD(sctSpec.asArgument, {"-b", "-", "--", bColon ? "[" + host.sName + "]" : host.sName});
    sctSpec.asEnvironment = {{"LC_ALL", "C"}};
    return 1;
}

std::string sSSH_REASON(const HOST& host, FAILURE& eFailure)
{
    bool        bRefused = false;
    std::string sReason = sREASON_OF(sLOG_SINCE(sctCONNECTION(host)), &bRefused);
    if (bRefused) eFailure = FAILURE_REFUSED;
    return sReason;
}

bool bSSH_ESTABLISHED(const HOST& host)
{
    std::error_code error;
    return std::filesystem::exists(sctCONNECTION(host).sSocket, error);
}
