/* Argument vectors of ssh and sftp. */
#include "ssh_call.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <vector>

#include "../../base/immortal.h"
#include "../../config/config.h"
#include "../../config/variables.h"
#include "../../lines/secret.h"
#include "../../lines/standard_error.h"
#include "../../log/outcome_log.h"
#include "../../text/likeness.h"
#include "../../text/text.h"
#include "connection.h"
#include "known_key.h"
#include "ssh_configuration.h"
#include "ssh_words.h"

namespace {

constexpr const char* cpQUIET = "LogLevel=INFO";
constexpr const char* cpSTEPS = "LogLevel=DEBUG1";

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
    return iREASON(sReason, "Host is unknown: \"" + sONE_LINE(sName) + "\" is not a host name");
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
int iMODE_CONFIG(const HOST& host, std::string& sConfig, std::string& sReason)
{
    const std::string sMode = host.sAccessMode == "PROXY" ? "VKSSH" : host.sAccessMode;
    if (iCONFIG_ACCESS(sMode.c_str(), sConfig)) return 1;
    const std::string sNamed = "access mode \"" + sONE_LINE(sMode) + "\" ";
    if (sMode == "VIRTUAL")
        return iREASON(sReason, sNamed + "means that there is no remote access");
    const std::string_view svMeant = svNEAREST(sMode, {"VKSSH", "SSH", "CTRL", "PROXY", "VIRTUAL"});
    if (!svMeant.empty())
        return iREASON(sReason,
                       (sNamed + "is not configured; did you mean ").append(svMeant) + "?");
    return iREASON(sReason, sNamed + "is not configured; add a section [access " +
                                sONE_LINE(sMode) + "] to vk.ini");
}

/* The command by which ssh reaches a proxied client through its data mover. */
int iJUMP_COMMAND(const HOST& host, const std::vector<std::string>& asConfig, int iConnectTimeout,
                  const char* cpLogLevel, std::string& sCommand, std::string& sReason)
{
    const std::string& sMover = host.sDataMover;
    if (sMover.empty() || sMover == "NULL") return 1;
    const HOST& mover = sctHOST(sMover.c_str(), "", str_log{});
    if (mover.bLocal) return 1;
    if (!bHOST_NAME(sMover)) return iBAD_NAME(sMover, sReason);
    std::vector<std::string> asWord{
        "ssh", "-T",       "-o", "BatchMode=yes",
        "-o",  cpLogLevel, "-o", "ConnectTimeout=" + std::to_string(iConnectTimeout)};
    asWord.insert(asWord.end(), asConfig.begin(), asConfig.end());
    if (!mover.sUser.empty()) asWord.insert(asWord.end(), {"-l", mover.sUser});
    for (const std::string& s : asWord)
        sCommand += sPERCENT_DOUBLED(sSHELL_WORD(SHELL_POSIX, s)) + " ";
    sCommand += "-W '[%h]:%p' -- " + sPERCENT_DOUBLED(sSHELL_WORD(SHELL_POSIX, sMover));
    return 1;
}

int iOPTIONS(const HOST& host, const std::string& sPort, int iConnectTimeout, SSH_OPTIONS& options,
             std::string& sReason, const char* cpJumpLogLevel = cpQUIET)
{
    std::string       sConfig;
    std::string       sJump;
    const CONNECTION& connection = sctCONNECTION(host);
    if (!bHOST_NAME(host.sName)) return iBAD_NAME(host.sName, sReason);
    if (!iMODE_CONFIG(host, sConfig, sReason) ||
        !iSSH_CONFIGURATION(sConfig, options.asWord, sReason))
        return 0;
    if (host.sAccessMode == "PROXY" &&
        !iJUMP_COMMAND(host, options.asWord, iConnectTimeout, cpJumpLogLevel, sJump, sReason))
        return 0;
    options.Add("BatchMode=yes");
    options.Add("ConnectTimeout=" + std::to_string(iConnectTimeout));
    options.Add("ServerAliveInterval=5");
    options.Add("ServerAliveCountMax=3");
    options.Add(cpQUIET);
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

/* What ssh says when it goes the same way without sharing, which throws much of that
   away. asFirst: further options. */
std::string sUNSHARED(const HOST& host, const std::vector<std::string>& asFirst,
                      const std::string& sRemote, const char* cpJumpLogLevel = cpQUIET)
{
    SSH_OPTIONS options;
    std::string sReason;
    if (!iOPTIONS(host, "", iCONFIG_CONNECT_TIMEOUT(), options, sReason, cpJumpLogLevel)) return "";
    std::vector<std::string> asWord{
        "ssh", "-T", "-o", "ControlPath=none", "-o", "ControlMaster=no"};
    ADD(asWord, asFirst);
    ADD(asWord, options.asWord);
    if (!host.sUser.empty()) ADD(asWord, {"-l", host.sUser});
    ADD(asWord, {"--", host.sName, sRemote});
    return sSAID_BY(asWord, 1000 * iCONFIG_CONNECT_TIMEOUT());
}

/* What the ssh to a host in between says, with the steps that tell what of it may be the
   words of that host. */
std::string sJUMP_WORDS(const HOST& host)
{
    return sUNSHARED(host, {"-v", "-E", "/dev/null"}, "exit", cpSTEPS);
}

/* Whether the host lets another user in with the same key. "": whom the configuration names. */
bool bADMITS(HOST host, const char* cpUser)
{
    host.sUser = cpUser;
    const std::string sSaid = sUNSHARED(host, {"-o", cpSTEPS}, "exit");
    return sctSSH_STORY(sSaid).eReached == STAGE_SHELL;
}

/* A key that is not accepted for one user may be the right one for another: the words are
   the same. Another is tried only where somebody has named this one. */
void v_OTHER_USER(const HOST& host, WAY& way)
{
    if (way.diagnosis.sCause != "key-not-accepted") return;
    const char*        cpCause = "";
    const std::string& sUser = way.places["user"];
    if (!host.sUser.empty() && bADMITS(host, ""))
        cpCause = "os-user-not-accepted";
    else if (host.sUser.empty() && sUser != "root" &&
             bSSH_CONFIGURED_USER(way.places["config"], sUser) && bADMITS(host, "root"))
        cpCause = "user-not-accepted";
    if (*cpCause == '\0') return;
    DIAGNOSIS diagnosis = sctDIAGNOSIS(sctCAUSE(cpCause), way.places);
    diagnosis.asWords = way.diagnosis.asWords;
    way.diagnosis = diagnosis;
}

/* What is known of a connection from the command that made it. */
struct KNOWN_WAY {
    SSH_STORY   story;
    std::string sLog;   // by which the jump's words were asked for
    std::string sJump;  // those words
};
KNOWN_WAY& sctKNOWN(const HOST& host)
{
    static IMMORTAL<std::map<std::string, KNOWN_WAY>> ways;
    return ways.Get()[host.sAccessMode + "\n" + host.sName];
}

/* A command over a connection that stands already says nothing of the way. */
SSH_STORY sctWHOLE_STORY(const std::string& sLog, KNOWN_WAY& known)
{
    SSH_STORY story = sctSSH_STORY(sLog);
    if (story.bShared) {
        story.sUser = known.story.sUser;
        story.sKey = known.story.sKey;
        story.sName = known.story.sName;
        story.sAddress = known.story.sAddress;
        story.iPort = known.story.iPort;
        story.sHostKey = known.story.sHostKey;
        story.eReached = STAGE_SHELL;
    } else {
        known.story = story;
    }
    return story;
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
    std::string sReason;
    if (!iOPTIONS(host, "", iCONFIG_CONNECT_TIMEOUT(), options, sReason)) return "";
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

/* What the log tells of the way; whom it reached goes into the run's record. */
SSH_STORY sctNOTED(const HOST& host, const std::string& sLog, KNOWN_WAY& known)
{
    SSH_STORY story = sctWHOLE_STORY(sLog, known);
    if (!story.bShared) v_TELL_SAME_KEY(host, story);
    if (story.sName.empty()) return story;
    RUN_RECORD& record = sctRUN_RECORD();
    record.sHost = story.sName;
    record.iPort = story.iPort;
    if (!story.sHostKey.empty()) record.sHostKey = "SHA256:" + story.sHostKey;
    return story;
}

}  // namespace

int iSSH_CALL(const HOST& host, const std::string& sPort, const std::string& sRemote,
              int iConnectTimeout, CHILD_SPEC& sctSpec, std::string& sReason)
{
    SSH_OPTIONS options;
    if (!iOPTIONS(host, sPort, iConnectTimeout, options, sReason)) return 0;
    CONNECTION& connection = sctCONNECTION(host);
    connection.bShared |= !connection.bAlone;
    connection.bAlone = false;  // another command makes two
    // Its steps tell how far it came; they go to a pipe that nobody else writes into.
    const std::string sWords = connection.words.sPath();
    if (sWords.empty()) return iCANNOT("listen to", "ssh", sReason);
    connection.words.Forget();
    sctSpec.asArgument = {"ssh", "-T", "-E", sWords, "-o", cpSTEPS};
    ADD(sctSpec.asArgument, options.asWord);
    if (!host.sUser.empty()) ADD(sctSpec.asArgument, {"-l", host.sUser});
    ADD(sctSpec.asArgument, {"--", host.sName, sRemote});
    sctSpec.asEnvironment = {{"LC_ALL", "C"}};
    return 1;
}

int iSFTP_CALL(const HOST& host, CHILD_SPEC& sctSpec, std::string& sReason)
{
    SSH_OPTIONS options;
    CONNECTION& connection = sctCONNECTION(host);
    connection.bAlone = false;
    connection.bShared = true;
    if (!iOPTIONS(host, "", iCONFIG_CONNECT_TIMEOUT(), options, sReason)) return 0;
    // Quiet, ssh would not even say why there is no sftp.
    sctSpec.asArgument = {"sftp"};
    ADD(sctSpec.asArgument, options.asWord);
    if (!host.sUser.empty()) ADD(sctSpec.asArgument, {"-o", "User=" + host.sUser});
    // sftp takes what follows a colon for a path.
    const bool bColon = host.sName.find(':') != std::string::npos;
    ADD(sctSpec.asArgument, {"-b", "-", "--", bColon ? "[" + host.sName + "]" : host.sName});
    sctSpec.asEnvironment = {{"LC_ALL", "C"}};
    return 1;
}

void OVER_SSH::NOTE_WAY(const HOST& host)
{
    sctNOTED(host, sLOG(host), sctKNOWN(host));
}

WAY OVER_SSH::sctWAY(const HOST& host)
{
    KNOWN_WAY&        known = sctKNOWN(host);
    const std::string sOwn = sLOG(host);
    const SSH_STORY   story = sctNOTED(host, sOwn, known);
    std::string       sJump;
    if (story.bProxy && story.eReached < STAGE_HOST_KEY) {
        if (known.sLog != sOwn) known.sJump = sJUMP_WORDS(host);
        known.sLog = sOwn;
        sJump = known.sJump;
    }
    std::string sConfig;
    std::string sUnused;
    WAY         way;
    iMODE_CONFIG(host, sConfig, sUnused);
    way.places = {{"host", host.sName},
                  {"name", host.sName},
                  {"address", host.sName},
                  {"port", "22"},
                  {"user", host.sUser.empty() ? "the user" : host.sUser},
                  {"key", "of this server"},
                  {"config", sConfig.empty() ? "~/.ssh/config" : sConfig},
                  {"mode", host.sAccessMode},
                  {"permit", cpPERMIT_COMMAND(host.sAccessMode)}};
    way.sReason = sWHY(story, sJump, way.places, way.diagnosis);
    v_OTHER_USER(host, way);
    way.bRefused = bREFUSED(way.sReason);
    way.eReached = story.eReached;
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
    std::string sUnused;
    std::string sDirectory;
    if (!iMODE_CONFIG(host, sConfig, sUnused)) return "";
    std::string sLine = "ssh";
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
    const std::string sSaid = sUNSHARED(host, {"-s"}, "sftp");
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
