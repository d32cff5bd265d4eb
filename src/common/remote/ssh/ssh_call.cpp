/* Argument vectors of ssh and sftp. */
#include "ssh_call.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <map>
#include <vector>

#include "../../base/immortal.h"
#include "../../config/config.h"
#include "../../config/variables.h"
#include "../../lines/secret.h"
#include "../../lines/standard_error.h"
#include "../../text/likeness.h"
#include "../../text/text.h"
#include "known_key.h"
#include "ssh_configuration.h"
#include "ssh_connection.h"
#include "ssh_words.h"

namespace {

// An ssh that nobody listens to says only what it must.
constexpr const char* cpNO_STEPS = "LogLevel=INFO";

/* What ssh would read as something else than a host name. */
bool bHOST_NAME(const std::string& sName)
{
    return !sName.empty() && sName[0] != '-' &&
           sName.find_first_of("@/ '\"`$\\;&<>|(){}*?!") == std::string::npos &&
           std::none_of(sName.begin(), sName.end(),
                        [](unsigned char c) { return std::iscntrl(c) != 0; });
}

int iBAD_NAME(const std::string& sName, REFUSAL& refusal)
{
    refusal.places = {{"name", sName}};
    return iREFUSE(refusal, "host-unknown",
                   "Host is unknown: \"" + sONE_LINE(sName) + "\" is not a host name");
}

/* Options of ssh and sftp alike, as -o words. */
struct SSH_OPTIONS {
    std::vector<std::string> asWord;
    void Add(const std::string& sOption) { asWord.insert(asWord.end(), {"-o", sOption}); }
};

/* A "%" begins a token in ssh's own options. */
std::string sPERCENT_DOUBLED(const std::string& sText)
{
    return sMARKED(sText, "%", '%');
}

/* The configuration of the host's access mode; PROXY goes by VKSSH's. */
int iMODE_CONFIG(const HOST& host, std::string& sConfig, REFUSAL& refusal)
{
    const std::string sMode = host.sAccessMode == "PROXY" ? "VKSSH" : host.sAccessMode;
    if (iCONFIG_ACCESS(sMode.c_str(), sConfig)) return 1;
    const std::string sNamed = "access mode \"" + sONE_LINE(sMode) + "\" ";
    if (sMode == "VIRTUAL")
        return iREFUSE(refusal, "no-remote-access",
                       sNamed + "means that there is no remote access");
    const std::string_view svMeant = svNEAREST(sMode, {"VKSSH", "SSH", "CTRL", "PROXY", "VIRTUAL"});
    if (svMeant == sMode)  // it has a section, whose path is none
        return iREFUSE(refusal, "mode-not-configured",
                       sNamed + "is not configured; correct config in its section of vk.ini");
    if (!svMeant.empty())
        return iREFUSE(refusal, "mode-not-configured",
                       (sNamed + "is not configured; did you mean ").append(svMeant) + "?");
    return iREFUSE(
        refusal, "mode-not-configured",
        sNamed + "is not configured; add a section [access " + sONE_LINE(sMode) + "] to vk.ini");
}

/* The command by which ssh reaches a proxied client through its data mover. Its steps tell
   why where it does not. */
int iJUMP_COMMAND(const HOST& host, const std::vector<std::string>& asConfig, int iConnectTimeout,
                  std::string& sCommand, REFUSAL& refusal)
{
    const std::string& sMover = host.sDataMover;
    if (sMover.empty() || sMover == "NULL") return 1;
    const HOST& mover = sctHOST(sMover.c_str(), "", str_log{});
    if (mover.bLocal) return 1;
    if (!bHOST_NAME(sMover)) return iBAD_NAME(sMover, refusal);
    std::vector<std::string> asWord{"ssh",
                                    "-v",
                                    "-T",
                                    "-o",
                                    "BatchMode=yes",
                                    "-o",
                                    "ConnectTimeout=" + std::to_string(iConnectTimeout)};
    asWord.insert(asWord.end(), asConfig.begin(), asConfig.end());
    if (!mover.sUser.empty()) asWord.insert(asWord.end(), {"-l", mover.sUser});
    for (const std::string& s : asWord)
        sCommand += sPERCENT_DOUBLED(sSHELL_WORD(SHELL_POSIX, s)) + " ";
    sCommand += "-W '[%h]:%p' -- " + sPERCENT_DOUBLED(sSHELL_WORD(SHELL_POSIX, sMover));
    return 1;
}

int iOPTIONS(const HOST& host, const std::string& sPort, int iConnectTimeout, SSH_OPTIONS& options,
             REFUSAL& refusal)
{
    std::string           sConfig;
    std::string           sJump;
    const SSH_CONNECTION& connection = sctCONNECTION(host);
    if (!bHOST_NAME(host.sName)) return iBAD_NAME(host.sName, refusal);
    if (!iMODE_CONFIG(host, sConfig, refusal)) return 0;
    if (!iSSH_CONFIGURATION(sConfig, options.asWord, refusal.sReason)) {
        const bool bOurs = refusal.sReason.starts_with("cannot write ");
        refusal.sCause = bOurs ? "work-file" : "config-unreadable";
        refusal.places = {{"config", sConfig},
                          {"file", "of ssh's configuration"},
                          {"why", refusal.sReason.substr(refusal.sReason.rfind(": ") + 2)}};
        return 0;
    }
    if (host.sAccessMode == "PROXY" &&
        !iJUMP_COMMAND(host, options.asWord, iConnectTimeout, sJump, refusal))
        return 0;
    options.Add("BatchMode=yes");
    options.Add("ConnectTimeout=" + std::to_string(iConnectTimeout));
    options.Add("ServerAliveInterval=5");
    options.Add("ServerAliveCountMax=3");
    options.Add("ClearAllForwardings=yes");
    if (connection.sSocket.empty() || connection.bAlone) {
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

/* What is known of a connection from the command that made it. */
SSH_STORY& sctKNOWN(const HOST& host)
{
    static IMMORTAL<std::map<std::string, SSH_STORY>> ways;
    return ways.Get()[host.sAccessMode + "\n" + host.sName];
}

/* A command over a connection that stands already says nothing of the way. */
SSH_STORY sctWHOLE_STORY(const std::string& sLog, SSH_STORY& known)
{
    SSH_STORY story = sctSSH_STORY(sLog);
    if (!story.bShared) return known = story;
    SSH_STORY whole = known;
    whole.eReached = STAGE_SHELL;
    whole.bShared = true;
    whole.asOwn = story.asOwn;
    whole.asSince = story.asSince;
    whole.sLast = story.sLast;
    return whole;
}

/* The host in between of a proxied client, "" for none, with its user in front. */
std::string sJUMP_BY_HAND(const HOST& host)
{
    const std::string& sMover = host.sDataMover;
    if (host.sAccessMode != "PROXY" || sMover.empty() || sMover == "NULL") return "";
    const HOST& mover = sctHOST(sMover.c_str(), "", str_log{});
    if (mover.bLocal) return "";
    return (mover.sUser.empty() ? "" : mover.sUser + "@") + sMover;
}

/* The file into which ssh writes a new host key. */
std::string sKNOWN_HOSTS(const HOST& host)
{
    SSH_OPTIONS options;
    REFUSAL     refusal;
    if (!iOPTIONS(host, "", iCONFIG_CONNECT_TIMEOUT(), options, refusal)) return "";
    std::vector<std::string> asWord{"ssh", "-G"};
    ADD(asWord, options.asWord);
    ADD(asWord, {"--", host.sName});
    constexpr std::string_view svKey = "\nuserknownhostsfile ";
    const std::string          sSaid = sSAID_BY(asWord, 1000 * iCONFIG_CONNECT_TIMEOUT());
    const size_t               u = sSaid.find(svKey);
    if (u == sSaid.npos) return "";
    const size_t uFile = u + svKey.size();
    return sSaid.substr(uFile, sSaid.find_first_of(" \n", uFile) - uFile);
}

/* Another client that shows the same host key: one machine under two names, or a clone. */
void v_TELL_SAME_KEY(const HOST& host, const SSH_STORY& story)
{
    std::string sWhere = story.sKept;
    for (const std::string& sLine : story.asOwn) {
        if (!sLine.starts_with("Warning: Permanently added '")) continue;
        sWhere = sKEPT_AT(sKNOWN_HOSTS(host), sLine.substr(28, sLine.find('\'', 28) - 28));
    }
    if (sWhere.empty()) return;
    for (const std::string& sOther : asSAME_KEY(sWhere)) {
        if (sOther == host.sName || !sctHOST(sOther.c_str(), "", str_log{}).bClient) continue;
        v_STDERR_ONCE(("same key " + host.sName).c_str(),
                      "%s shows the host key of %s; one machine under two names, or a clone",
                      host.sName.c_str(), sOther.c_str());
        return;
    }
}

/* What the log tells of the way, and of its keys to whom it may concern. */
SSH_STORY sctNOTED(const HOST& host, const std::string& sLog)
{
    SSH_STORY story = sctWHOLE_STORY(sLog, sctKNOWN(host));
    if (story.bShared) return story;
    v_TELL_SAME_KEY(host, story);
    if (!story.sUnwritten.empty())
        v_STDERR_ONCE("known hosts",
                      "cannot write the host key of %s into \"%s\"; another key would be accepted "
                      "too",
                      host.sName.c_str(), story.sUnwritten.c_str());
    return story;
}

REACHED sctREACHED_BY(const SSH_STORY& story)
{
    if (story.sName.empty()) return {};
    return {story.sName, static_cast<int>(std::strtol(story.sPort.c_str(), nullptr, 10)),
            story.sHostKey.empty() ? std::string() : "SHA256:" + story.sHostKey};
}

/* Who named the user that came to a host. */
std::string sNAMED(const HOST& host, const std::string& sUser)
{
    if (!host.sUser.empty()) return ", from os_user of its row";
    const passwd* pOwn = getpwuid(geteuid());
    if (pOwn != nullptr && sUser == pOwn->pw_name) return "";
    return ", from ssh's configuration";
}

}  // namespace

int iSSH_CALL(const HOST& host, const std::string& sPort, const std::string& sRemote,
              int iConnectTimeout, CHILD_SPEC& sctSpec, REFUSAL& refusal)
{
    SSH_OPTIONS options;
    if (!iOPTIONS(host, sPort, iConnectTimeout, options, refusal)) return 0;
    SSH_CONNECTION& connection = sctCONNECTION(host);
    connection.bShared |= !connection.bAlone;
    connection.bAlone = false;  // another command makes two
    // Its steps tell how far it came; they go to a pipe that nobody else writes into. Who
    // makes the way for it writes beside them.
    const std::string sWords = connection.words.sPath();
    sctSpec.sErrFile = connection.beside.sPath();
    if (sWords.empty() || sctSpec.sErrFile.empty()) {
        refusal.places = {{"program", "ssh"}, {"why", std::strerror(errno)}};
        iCANNOT("listen to", "ssh", refusal.sReason);
        return iREFUSE(refusal, "server-cannot-run", refusal.sReason);
    }
    connection.words.Forget();
    connection.beside.Forget();
    sctSpec.asArgument = {"ssh", "-v", "-T", "-E", sWords};
    ADD(sctSpec.asArgument, options.asWord);
    if (!host.sUser.empty()) ADD(sctSpec.asArgument, {"-l", host.sUser});
    ADD(sctSpec.asArgument, {"--", host.sName, sRemote});
    sctSpec.asEnvironment = {{"LC_ALL", "C"}};
    return 1;
}

int iSFTP_CALL(const HOST& host, CHILD_SPEC& sctSpec, REFUSAL& refusal)
{
    SSH_OPTIONS     options;
    SSH_CONNECTION& connection = sctCONNECTION(host);
    connection.bAlone = false;
    connection.bShared = true;
    if (!iOPTIONS(host, "", iCONFIG_CONNECT_TIMEOUT(), options, refusal)) return 0;
    // Quiet, ssh would not even say why there is no sftp.
    sctSpec.asArgument = {"sftp"};
    ADD(sctSpec.asArgument, options.asWord);
    ADD(sctSpec.asArgument, {"-o", cpNO_STEPS});
    if (!host.sUser.empty()) ADD(sctSpec.asArgument, {"-o", "User=" + host.sUser});
    // sftp takes what follows a colon for a path.
    const bool bColon = host.sName.find(':') != std::string::npos;
    ADD(sctSpec.asArgument, {"-b", "-", "--", bColon ? "[" + host.sName + "]" : host.sName});
    sctSpec.asEnvironment = {{"LC_ALL", "C"}};
    return 1;
}

REACHED OVER_SSH::sctREACHED(const HOST& host)
{
    return sctREACHED_BY(sctNOTED(host, sLOG(host)));
}

WAY OVER_SSH::sctWAY(const HOST& host, bool bLate)
{
    const SSH_STORY story = sctNOTED(host, sLOG(host));
    std::string     sConfig;
    REFUSAL         unused;
    WAY             way;
    iMODE_CONFIG(host, sConfig, unused);
    way.places = {{"host", host.sName},
                  {"address", host.sName},
                  {"port", "22"},
                  {"key", "of this server"},
                  {"config", sConfig.empty() ? "~/.ssh/config" : sConfig},
                  {"offered", "the key that is shown"},
                  {"remove", "ssh-keygen -R " + sSHELL_WORD(SHELL_POSIX, host.sName)},
                  {"root", story.sUser == "root" ? "" : "; root would need the key in its own"},
                  {"named", sNAMED(host, story.sUser)}};
    way.sBeside = sctCONNECTION(host).beside.sText();
    const SSH_VERDICT verdict = sctWHY(story, way.sBeside, bLate, way.places);
    way.finding = verdict;
    way.sReason = verdict.sReason;
    way.sLast = story.sLast;
    way.bRefused = verdict.bDenied;
    way.bForced = story.bForced;
    way.eReached = story.eReached;
    way.reached = sctREACHED_BY(story);
    if (story.bProxy) way.sBeside.clear();  // another program's
    return way;
}

STAGE OVER_SSH::eREACHED(const HOST& host)
{
    return sctSSH_STORY(sLOG(host)).eReached;
}

std::string OVER_SSH::sLOG(const HOST& host)
{
    return sctCONNECTION(host).words.sText();
}

std::string sSSH_BY_HAND(const HOST& host, std::string_view svCommand, bool bPath)
{
    std::string sConfig;
    REFUSAL     unused;
    std::string sDirectory;
    if (!iMODE_CONFIG(host, sConfig, unused)) return "";
    std::string sLine =
        "ssh -o BatchMode=yes -o ConnectTimeout=" + std::to_string(iCONFIG_CONNECT_TIMEOUT());
    if (!sConfig.empty()) sLine += " -F " + sSHELL_WORD(SHELL_POSIX, sConfig);
    const std::string sJump = sJUMP_BY_HAND(host);
    if (!sJump.empty()) sLine += " -J " + sSHELL_WORD(SHELL_POSIX, sJump);
    if (!host.sUser.empty()) sLine += " -l " + sSHELL_WORD(SHELL_POSIX, host.sUser);
    std::string sCommand(svCommand);
    if (bPath && eSHELL_OF(host) == SHELL_POSIX &&
        iCONFIG_CLIENT_DIRECTORY(host.sPlatform.c_str(), "gv_ro_bin", sDirectory))
        sCommand = "PATH=" + sSHELL_WORD(SHELL_POSIX, sDirectory) + ":$PATH; " + sCommand;
    // A name that ssh would take for an option was refused, and is none here either.
    return sLine + (host.sName.starts_with('-') ? " -- " : " ") +
           sSHELL_WORD(SHELL_POSIX, host.sName) + " " + sSHELL_WORD(SHELL_POSIX, sMASKED(sCommand));
}

std::string sSSH_NO_SFTP(const HOST& host)
{
    SSH_OPTIONS options;
    REFUSAL     refusal;
    if (!iOPTIONS(host, "", iCONFIG_CONNECT_TIMEOUT(), options, refusal)) return "";
    // Of a shared connection this would not be said.
    std::vector<std::string> asWord{
        "ssh", "-T", "-s", "-o", "ControlPath=none", "-o", "ControlMaster=no"};
    ADD(asWord, options.asWord);
    if (!host.sUser.empty()) ADD(asWord, {"-l", host.sUser});
    ADD(asWord, {"--", host.sName, "sftp"});
    const std::string sSaid = sSAID_BY(asWord, 1000 * iCONFIG_CONNECT_TIMEOUT());
    const size_t      u = sSaid.find("subsystem request failed");
    return u == sSaid.npos ? "" : sSaid.substr(u, sSaid.find_first_of("\r\n", u) - u);
}

bool OVER_SSH::bSHARING_FAILED(const HOST& host)
{
    const std::string sLog = sLOG(host);
    const bool        bNoSocket = std::any_of(std::begin(acpNO_SOCKET), std::end(acpNO_SOCKET),
                                              [&](const char* cp) { return sLog.find(cp) != sLog.npos; });
    if (bNoSocket) sctCONNECTION(host).sSocket.clear();
    return bNoSocket || sLog.find(cpNO_MASTER) != sLog.npos;
}

bool OVER_SSH::bESTABLISHED(const HOST& host)
{
    std::error_code error;
    return std::filesystem::exists(sctCONNECTION(host).sSocket, error);
}
