#include "ssh_words.h"

#include <algorithm>
#include <charconv>
#include <filesystem>

#include "../../text/command_line.h"
#include "../../text/text.h"
#include "known_key.h"

namespace {

using LINES = std::vector<std::string>;

/* A sentence of ssh: how it begins, and what stands in it behind that. */
struct SENTENCE {
    STAGE            eStage;  // where it is said
    std::string_view svBegin;
    std::string_view svWithin;
    const char*      cpCause;
};
// clang-format off
constexpr SENTENCE asctSentence[] = {
    // the first that any line fits
    {STAGE_NAME, "Can't open user config file ", "", "config-unreadable"},
    {STAGE_NAME, "Bad owner or permissions on ", "", "config-not-ours"},
    {STAGE_NAME, "ssh: Could not resolve hostname ", ": Temporary failure in name resolution", "name-service-down"},
    {STAGE_NAME, "ssh: Could not resolve hostname ", ": Name or service not known", "host-unknown"},
    {STAGE_NAME, "ssh: Could not resolve hostname ", ": No address associated with hostname", "host-unknown"},
    {STAGE_NAME, "hostname contains invalid characters", "", "host-unknown"},
    {STAGE_NAME, "/", " line ", "config-bad-option"},
    {STAGE_ROUTE, "bind ", ": Cannot assign requested address", "bind-address"},
    {STAGE_GREETING, "Connection timed out during banner exchange", "", "sshd-silent"},
    {STAGE_GREETING, "kex_exchange_identification: banner line contains invalid characters", "", "other-service"},
    {STAGE_GREETING, "Bad remote protocol version identification: ", "", "other-service"},
    {STAGE_GREETING, "kex_exchange_identification: Connection closed by remote host", "", "closed-at-once"},
    {STAGE_GREETING, "kex_exchange_identification: read: Connection reset by peer", "", "closed-at-once"},
    {STAGE_HOST_KEY, "@", " REVOKED HOST KEY DETECTED! ", "host-key-revoked"},
    {STAGE_HOST_KEY, "Host key ", " revoked by file ", "host-key-revoked"},
    {STAGE_HOST_KEY, "@", " REMOTE HOST IDENTIFICATION HAS CHANGED! ", "host-key-changed"},
    {STAGE_HOST_KEY, "Host key for ", " has changed and you have requested strict checking.", "host-key-changed"},
    {STAGE_HOST_KEY, "No ", " and you have requested strict checking.", "host-key-unknown"},
    {STAGE_HOST_KEY, "Unable to negotiate with ", ": no matching ", "no-common-algorithm"},
    {STAGE_SHELL, "channel ", ": open failed: ", "session-refused"},
    {STAGE_SHELL, "exec request failed on channel ", "", "session-refused"},
    {STAGE_SHELL, "Connection to ", " closed by remote host.", "connection-closed"},
    {STAGE_SHELL, "client_loop: send disconnect: Broken pipe", "", "connection-closed"},
};
// Over a host in between, once it has let us in.
constexpr SENTENCE asctBehind[] = {
    {STAGE_PORT, "channel ", ": open failed: administratively prohibited", "jump-forbids-forwarding"},
    {STAGE_PORT, "channel ", ": connect failed: Connection refused", "behind-jump-port-closed"},
    {STAGE_NAME, "channel ", ": connect failed: Name or service not known", "behind-jump-name-unknown"},
    {STAGE_NAME, "channel ", ": connect failed: Temporary failure in name resolution", "behind-jump-name-unknown"},
    {STAGE_PORT, "channel ", ": connect failed: Connection timed out", "behind-jump-no-answer"},
    {STAGE_PORT, "channel ", ": connect failed: No route to host", "behind-jump-no-answer"},
};
// What the system says of an address, and what it means; of several the first here counts.
constexpr SENTENCE asctConnect[] = {
    {STAGE_PORT, "", ": Connection refused", "port-closed"},
    {STAGE_PORT, "", ": Connection timed out", "no-answer-from-port"},
    {STAGE_ROUTE, "", ": No route to host", "no-route"},
    {STAGE_ROUTE, "", ": Network is unreachable", "network-unreachable"},
};
// How services greet that are not ssh.
constexpr std::string_view asvGreeting[] = {"HTTP/", "220 ", "220-", "+OK", "* OK", "RFB 00"};

// Lines of these say nothing of a failure, or only that some other line did.
constexpr std::string_view asvNoise[] = {
    "Warning: ", "WARNING: ", "Killed by signal", "mux_client", "muxclient", "Control socket",
    "ControlSocket", cpNO_MASTER, "Shared connection", "Connection closed by UNKNOWN",
    "Connection to UNKNOWN", "Disconnected from", "Connected to ", "Authenticated to", "Transferred: ",
    "Bytes per second", "IT IS POSSIBLE THAT", "Someone could be", "It is also possible",
    "The fingerprint for", "SHA256:", "Please contact your", "Add correct host key", "OpenSSH_",
    "Offending ", "remove with:", "ssh-keygen -f", "Permissions 0", "It is required that",
    "This private key will", "stdio forwarding failed", "** WARNING: connection is not using",
    "** This session may be", "** The server may need",
};
// clang-format on

constexpr const char* cpDENIED = "Error: Authentication failed: ";

std::string_view svINDENTED(std::string_view sv)
{
    return sv.substr(std::min(sv.find_first_not_of(" @"), sv.size()));
}

bool bNOISE(std::string_view svLine)
{
    const std::string_view sv = svINDENTED(svLine);
    return sv.empty() || svLine.find(": terminating, ") != svLine.npos ||
           (sv.starts_with("Connection to ") && sv.ends_with(" timed out")) ||
           std::any_of(std::begin(asvNoise), std::end(asvNoise),
                       [&](std::string_view svText) { return sv.starts_with(svText); });
}

bool bFITS(const std::string& sLine, const SENTENCE& sentence)
{
    return sLine.starts_with(sentence.svBegin) &&
           sLine.find(sentence.svWithin, sentence.svBegin.size()) != sLine.npos;
}

/* The cause by the first row of those at a stage (STAGES: any) that a line fits. */
template<size_t N>
const char* cpSAID(const SENTENCE (&asct)[N], const LINES& asLine, STAGE eStage)
{
    for (const SENTENCE& sentence : asct)
        for (const std::string& sLine : asLine)
            if ((eStage == STAGES || sentence.eStage == eStage) && bFITS(sLine, sentence))
                return sentence.cpCause;
    return "";
}

/* The text between two others, "" when they are not there. */
std::string sBETWEEN(std::string_view svLine, std::string_view svBefore, std::string_view svBehind)
{
    const size_t uFrom = svLine.find(svBefore);
    if (uFrom == svLine.npos) return "";
    svLine.remove_prefix(uFrom + svBefore.size());
    return std::string(svLine.substr(0, svBehind.empty() ? svLine.npos : svLine.find(svBehind)));
}

/* "Connecting to NAME [ADDRESS] port N." */
void v_CONNECTING(std::string_view svLine, SSH_STORY& story)
{
    story.eReached = STAGE_ROUTE;
    story.sName = sBETWEEN(svLine, "Connecting to ", " [");
    story.sAddress = sBETWEEN(svLine, "[", "]");
    const std::string sPort = sBETWEEN(svLine, "port ", ".");
    std::from_chars(sPort.data(), sPort.data() + sPort.size(), story.iPort);
}

/* "Executing proxy command: exec ssh ... -W '[%h]:%p' [--] JUMP" */
void v_PROXY(std::string_view svLine, SSH_STORY& story)
{
    story.bProxy = true;
    story.eReached = STAGE_PORT;
    if (svLine.find(" -W ") == svLine.npos) return;
    story.sJump = svLine.substr(svLine.find_last_of(' ') + 1);
    // "[ADDRESS]:PORT" of the host behind it
    story.sAddress = sBETWEEN(svLine, " -W '[", "]:");
    const std::string sPort = sBETWEEN(svLine, "]:", "'");
    std::from_chars(sPort.data(), sPort.data() + sPort.size(), story.iPort);
}

void v_KEY_TRIED(std::string_view svLine, SSH_STORY& story)
{
    story.sKey = sBETWEEN(svLine, " key: ", " ");
    if (svLine.starts_with("Offering")) story.uOffered++;
    if (svLine.find("-CERT ") != svLine.npos) story.bCertificate = true;
    story.bAccepted = story.bRefused = false;
}

/* What a line of debugging tells of the way so far. Result: it is a good step. */
bool bSTEP(std::string_view svLine, SSH_STORY& story)
{
    const auto bIs = [&](std::string_view sv) { return svLine.starts_with(sv); };
    if (bIs("Connecting to "))
        v_CONNECTING(svLine, story);
    else if (bIs("Executing proxy command"))
        v_PROXY(svLine, story);
    else if (bIs("Connection established"))
        story.eReached = STAGE_GREETING;
    else if (bIs("Remote protocol version"))
        story.eReached = STAGE_HOST_KEY;
    else if (bIs("SSH2_MSG_SERVICE_ACCEPT received"))
        story.eReached = STAGE_LOGIN;
    else if (bIs("Entering interactive session"))
        story.eReached = STAGE_SHELL;
    else
        return false;
    return true;
}

/* What another line of debugging tells. */
void v_DETAIL(std::string_view svLine, SSH_STORY& story)
{
    const auto bIs = [&](std::string_view sv) { return svLine.starts_with(sv); };
    if (bIs("connect to address "))
        story.asTried.emplace_back(svLine.substr(19));
    else if (bIs("mux_client"))
        story.bShared = story.eReached == STAGE_NAME;
    else if (bIs("kex_exchange_identification: banner line "))
        story.asBanner.push_back(sBETWEEN(svLine, "banner line ", ""));
    else if (bIs("Authenticating to "))
        story.sUser = sBETWEEN(svLine, " as '", "'");
    else if (bIs("Found key in "))
        story.sKept = svLine.substr(std::min(svLine.find('/'), svLine.size()));
    else if (bIs("Server host key: "))
        story.sHostKey = sBETWEEN(svLine, " SHA256:", "");
    else if (bIs("Will attempt key: "))
        story.uKeys++;
    else if (bIs("Authentications that can continue: ")) {
        story.bRefused = story.bAccepted;
        story.sMethods = sBETWEEN(svLine, "continue: ", "");
    } else if (bIs("Offering public key: ") || bIs("Trying private key: "))
        v_KEY_TRIED(svLine, story);
    else if (bIs("Server accepts key: "))
        story.bAccepted = true;
    else if (bIs("Remote: ") && svLine.find(" key options: ") != svLine.npos)
        story.bForced = (" " + sBETWEEN(svLine, " key options: ", "") + " ").find(" command ") !=
                        std::string::npos;
}

void v_OWN_LINE(const std::string& sLine, SSH_STORY& story)
{
    story.asOwn.push_back(sLine);
    if (sLine.starts_with("Authenticated to ")) {
        story.eReached = STAGE_SHELL;
        story.asSince.clear();
    } else if (sLine.starts_with("Authenticated using ") && sLine.ends_with(" partial success.")) {
        story.bPartial = true;
    } else if (sLine.starts_with("Failed to add the host to the list of known hosts (")) {
        story.sUnwritten = sBETWEEN(sLine, "known hosts (", ")");
    } else if (sLine == "Host key verification failed.") {
        story.asSince.insert(story.asSince.begin(), sLine);  // the verdict first, then why
    } else if (!bNOISE(sLine)) {
        story.asSince.push_back(sLine);
    }
}

LINES asLINES_OF(std::string_view svText)
{
    LINES asLine;
    for (const std::string_view svLine : asvPIECES(svText)) {
        std::string sLine = sONE_LINE(svLine.substr(0, svLine.find('\r')));
        if (!sLine.empty()) asLine.push_back(std::move(sLine));
    }
    return asLine;
}

/* "ssh-keygen -f "FILE" -R "HOST"", whose values become words of a command line. */
std::string sREMOVAL(std::string_view svLine)
{
    const size_t      uQuote = svLine.find_first_of("\"'");
    const std::string sQuote(uQuote == svLine.npos ? "\"" : svLine.substr(uQuote, 1));
    const std::string sBetween = sQuote + " -R " + sQuote;
    const std::string sFile = sBETWEEN(svLine, sQuote, sBetween);
    std::string       sHost = sBETWEEN(svLine, sBetween, "");
    sHost.erase(std::min(sHost.rfind(sQuote), sHost.size()));
    return "ssh-keygen -f " + sSHELL_WORD(SHELL_POSIX, sFile) + " -R " +
           sSHELL_WORD(SHELL_POSIX, sHost);
}

/* "FILE: line N: ..." or "FILE line N: ..." of ssh's configuration. */
bool bFILE_AND_LINE(const std::string& sLine, PLACES& places)
{
    const size_t      uLine = sLine.find(" line ");
    const std::string sNumber = sBETWEEN(sLine, " line ", ":");
    if (!sLine.starts_with('/') || sNumber.empty() ||
        sNumber.find_first_not_of("0123456789") != sNumber.npos)
        return false;
    places["file"] = sLine.substr(0, uLine - (sLine[uLine - 1] == ':' ? 1 : 0));
    places["line"] = sNumber;
    return true;
}

/* File and line, algorithms and command that the words name. */
void v_PLACES_IN(const LINES& asLine, PLACES& places)
{
    for (const std::string& sLine : asLine) {
        const std::string sText(svINDENTED(sLine));
        if (sText.starts_with("Offending ")) {
            const std::string sWhere = sBETWEEN(sText, " key in ", "");
            places["file"] = sWhere.substr(0, sWhere.rfind(':'));
            places["line"] = sWhere.substr(sWhere.rfind(':') + 1);
        } else if (sText.starts_with("ssh-keygen -f")) {
            places["remove"] = sREMOVAL(sText);
        } else if (sText.starts_with("Bad owner or permissions on ")) {
            places["file"] = sBETWEEN(sText, "permissions on ", "");
        } else if (sText.starts_with("Unable to negotiate with ")) {
            places["what"] = sBETWEEN(sText, ": no matching ", " found");
            places["offer"] = sBETWEEN(sText, "Their offer: ", "");
        } else {
            bFILE_AND_LINE(sText, places);
        }
    }
}

/* Of several addresses the one that came farthest. */
const char* cpCONNECT_CAUSE(const SSH_STORY& story, PLACES& places)
{
    for (const SENTENCE& sentence : asctConnect)
        for (const std::string& sTried : story.asTried) {
            if (!bFITS(sTried, sentence)) continue;
            if (!story.sName.empty()) places["address"] = sTried.substr(0, sTried.find(" port "));
            return sentence.cpCause;
        }
    return "";
}

const char* cpGREETING_CAUSE(const SSH_STORY& story)
{
    for (const std::string& sLine : story.asBanner) {
        const std::string sText = sBETWEEN(sLine, ": ", "");
        if (sText == "Exceeded MaxStartups" || sText == "Not allowed at this time")
            return "sshd-busy";
        for (const std::string_view sv : asvGreeting)
            if (sText.starts_with(sv)) return "other-service";
    }
    const std::string_view svSaid = cpSAID(asctSentence, story.asSince, STAGE_GREETING);
    return svSaid == "closed-at-once" && !story.asBanner.empty() ? "" : svSaid.data();
}

const char* cpHOST_KEY_CAUSE(const SSH_STORY& story, PLACES& places)
{
    const char* cpCause = cpSAID(asctSentence, story.asOwn, STAGE_HOST_KEY);
    if (std::string_view(cpCause) != "host-key-changed") return cpCause;
    const KNOWN_KEY known = sctKNOWN_KEY(places["file"], places["line"], story.sHostKey);
    places["kept"] = known.sKept.empty() ? "another key" : known.sKept;
    if (known.sOther.empty() || known.sOther == places["host"]) return cpCause;
    places["other"] = known.sOther;
    return "host-key-of-another";
}

/* What ssh says of a key file, by the end of the line: "" nothing. */
std::string sSAID_OF_KEY(const SSH_STORY& story)
{
    for (const std::string& sLine : story.asOwn) {
        if (sLine.starts_with("no such identity: " + story.sKey + ": No such file"))
            return "missing";
        if (sLine.starts_with("Load key \"" + story.sKey + "\": "))
            return sLine.substr(sLine.rfind(": ") + 2);
    }
    return "";
}

/* Of a folder ssh says the same. */
const char* cpTOO_OPEN(const std::string& sKey)
{
    std::error_code error;
    return std::filesystem::is_directory(sKey, error) ? "key-unreadable" : "key-too-open";
}

/* The key was accepted, and ssh did not sign with it. */
const char* cpUNSIGNED_CAUSE(const SSH_STORY& story, const std::string& sSaid)
{
    // Why an agent that holds the key does not use it, only the agent knows.
    for (const std::string& sLine : story.asOwn)
        if (sLine.ends_with(" agent: agent refused operation")) return "";
    for (const std::string& sLine : story.asSince)
        if (sLine.starts_with("sign_and_send_pubkey: ")) return "";  // an agent has it
    if (story.sKey.ends_with(".pub")) return "key-not-in-agent";
    if (sSaid == "bad permissions") return cpTOO_OPEN(story.sKey);
    return iKEY_ENCRYPTED(story.sKey) ? "key-encrypted-no-agent" : "";
}

/* Of a login that was refused the words are the same for many causes; the way that it
   took tells more. What is wrong with one of several keys need not be why. */
const char* cpREFUSED_CAUSE(const SSH_STORY& story, PLACES& places)
{
    const std::string sSaid = sSAID_OF_KEY(story);
    if (story.bPartial) return "second-factor";
    if (("," + story.sMethods + ",").find(",publickey,") == std::string::npos)
        return "no-key-login";
    if (story.bAccepted) return story.bRefused ? "login-forbidden" : cpUNSIGNED_CAUSE(story, sSaid);
    if (!sSaid.empty() && story.uKeys <= 1) {
        if (sSaid == "missing") return "key-missing";
        if (story.sKey.ends_with(".pub")) return "key-not-in-agent";
        return sSaid == "bad permissions" ? cpTOO_OPEN(story.sKey) : "key-unreadable";
    }
    if (story.uOffered == 0) return "no-key-offered";
    const bool bExpired = story.bCertificate && iCERTIFICATE_INVALID(story.sKey, places["valid"]);
    return bExpired ? "certificate-expired" : "key-not-accepted";
}

/* The last of all is that whoever comes so is refused. */
bool bDENIED(const SSH_STORY& story)
{
    const std::string sLast = story.asSince.empty() ? "" : story.asSince.back();
    if (sLast.starts_with("Received disconnect from "))
        return sLast.ends_with(":2: Too many authentication failures");
    return sLast.find(": Permission denied (") != sLast.npos;
}

const char* cpLOGIN_CAUSE(const SSH_STORY& story, PLACES& places)
{
    if (!bDENIED(story)) return "";
    if (story.asSince.back().starts_with("Received "))
        return story.uOffered > 1 ? "too-many-keys" : "";
    return cpREFUSED_CAUSE(story, places);
}

/* Another end than the one that a stage has sentences for. */
const char* cpCLOSED(const SSH_STORY& story)
{
    for (const std::string& sLine : story.asSince)
        for (const std::string_view sv :
             {"Connection closed by ", "Connection reset by ", "Received disconnect from "})
            if (story.eReached >= STAGE_HOST_KEY && sLine.starts_with(sv))
                return "connection-closed";
    return "";
}

const char* cpLATE(STAGE eReached)
{
    if (eReached == STAGE_ROUTE) return "no-answer-from-port";
    if (eReached == STAGE_GREETING) return "sshd-silent";
    if (eReached == STAGE_HOST_KEY || eReached == STAGE_LOGIN) return "login-hangs";
    return eReached == STAGE_SHELL ? "shell-hangs" : "";
}

const char* cpCAUSE_AT(const SSH_STORY& story, PLACES& places)
{
    switch (story.eReached) {
        case STAGE_NAME: {
            const std::string_view sv = cpSAID(asctSentence, story.asSince, STAGE_NAME);
            const bool             bLine = sv == "config-bad-option" && !places.contains("line");
            return bLine ? "" : sv.data();
        }
        case STAGE_ROUTE: {
            const char* cpBind = cpSAID(asctSentence, story.asSince, STAGE_ROUTE);
            return *cpBind != '\0' ? cpBind : cpCONNECT_CAUSE(story, places);
        }
        case STAGE_GREETING:
            return cpGREETING_CAUSE(story);
        case STAGE_HOST_KEY:
            return cpHOST_KEY_CAUSE(story, places);
        case STAGE_LOGIN:
            return cpLOGIN_CAUSE(story, places);
        default:
            return cpSAID(asctSentence, story.asSince, story.eReached);
    }
}

/* Of a refused login: what the client shows before it is no word of ssh. */
void DROP_BANNER(LINES& asWords)
{
    const std::string sLast = asWords.back();
    std::erase_if(asWords, [&](const std::string& sLine) {
        for (const std::string_view sv :
             {"Load key \"", "no such identity: ", "sign_and_send_pubkey: ", "Certificate "})
            if (sLine.starts_with(sv)) return false;
        return sLine != sLast;
    });
}

/* Whom the story reached. */
void v_PLACES_OF(const SSH_STORY& story, PLACES& places)
{
    const auto SET = [&](const char* cpPlace, const std::string& sValue) {
        if (!sValue.empty()) places[cpPlace] = sValue;
    };
    SET("name", story.sName);
    SET("address", story.sAddress);
    SET("user", story.sUser);
    SET("key", story.sKey);
    SET("methods", story.sMethods);
    if (story.iPort > 0) places["port"] = std::to_string(story.iPort);
    if (!story.sHostKey.empty()) places["offered"] = "SHA256:" + story.sHostKey;
}

/* The reason of a failed way over another host is ours: what ssh says of that host would
   be read as said of the client. */
SSH_VERDICT sctWHY_PROXY(const SSH_STORY& story, std::string_view svProxy, bool bLate,
                         PLACES& places)
{
    SSH_VERDICT     verdict;
    const SSH_STORY jump = sctSSH_STORY(svProxy);
    for (const std::string& sLine : story.asSince)
        bLate |= sLine == "Connection timed out during banner exchange";
    verdict.sCause = "proxy-command-failed";
    verdict.eReached = STAGE_PORT;
    verdict.asWords = jump.asSince;
    places["jump"] = story.sJump;
    if (!story.sJump.empty() && !jump.bProxy && jump.eReached == STAGE_SHELL) {
        verdict.sCause = cpSAID(asctBehind, jump.asSince, STAGES);
        if (verdict.sCause.empty())
            verdict.sCause = bLate ? "behind-jump-no-answer" : cpNOT_RECOGNISED;
        places["user"] = jump.sUser;
    } else if (!story.sJump.empty() && !jump.bProxy) {
        places["host"] = places["name"] = places["address"] = story.sJump;
        SSH_VERDICT own = sctWHY(jump, "", bLate, places);
        if (own.sCause.empty()) own.sCause = cpNOT_RECOGNISED;
        verdict = own;
        verdict.sCause = cpJUMP + own.sCause;
    }
    if (verdict.asWords.empty()) verdict.asWords = story.asSince;
    verdict.sReason = sctDIAGNOSIS(verdict, places).sSentence;
    return verdict;
}

}  // namespace

SSH_STORY sctSSH_STORY(std::string_view svLog)
{
    constexpr std::string_view svDebug = "debug1: ";
    SSH_STORY                  story;
    for (const std::string& sLine : asLINES_OF(svLog)) {
        story.sLast = sLine;
        const std::string_view svStep =
            std::string_view(sLine).substr(std::min(svDebug.size(), sLine.size()));
        if (!sLine.starts_with(svDebug)) {
            if (!sLine.starts_with("debug")) v_OWN_LINE(sLine, story);
        } else if (bSTEP(svStep, story)) {
            story.asSince.clear();
        } else {
            v_DETAIL(svStep, story);
        }
    }
    return story;
}

SSH_VERDICT sctWHY(const SSH_STORY& story, std::string_view svProxy, bool bLate, PLACES& places)
{
    v_PLACES_OF(story, places);
    if (story.bProxy && story.eReached < STAGE_HOST_KEY)
        return sctWHY_PROXY(story, svProxy, bLate, places);
    SSH_VERDICT verdict;
    v_PLACES_IN(story.asOwn, places);
    verdict.eReached = story.eReached;
    verdict.bDenied = bDENIED(story);
    verdict.asWords = story.asSince;
    if (story.eReached == STAGE_GREETING)
        verdict.asWords.insert(verdict.asWords.end(), story.asBanner.begin(), story.asBanner.end());
    // What ssh's configuration lacks ends it at once.
    if (!bLate || story.eReached != STAGE_NAME) verdict.sCause = cpCAUSE_AT(story, places);
    if (verdict.sCause.empty()) verdict.sCause = cpCLOSED(story);
    if (verdict.sCause.empty() && bLate) verdict.sCause = cpLATE(story.eReached);
    if (verdict.asWords.empty() && !bLate) return verdict;
    if (verdict.sCause.empty() && story.eReached < STAGE_SHELL) verdict.sCause = cpNOT_RECOGNISED;
    if (verdict.asWords.empty() && verdict.sCause == cpNOT_RECOGNISED && !story.sLast.empty())
        verdict.asWords = {story.sLast};
    if (verdict.bDenied && verdict.sCause != cpNOT_RECOGNISED) DROP_BANNER(verdict.asWords);
    const bool bUnknown = verdict.sCause == "host-unknown" || verdict.sCause == "name-service-down";
    verdict.sReason = (bUnknown          ? "Host is unknown: "
                       : verdict.bDenied ? cpDENIED
                                         : "") +
                      sJOINED(verdict.asWords, "; ");
    return verdict;
}

std::vector<std::string> asWHY_NO_COPY(std::string_view svWords)
{
    return sctSSH_STORY(svWords).asSince;
}
