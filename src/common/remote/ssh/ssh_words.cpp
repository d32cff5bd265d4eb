#include "ssh_words.h"

#include <algorithm>
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
    {STAGE_ROUTE, "bind ", ": Cannot assign requested address", "bind-address"},
    {STAGE_GREETING, "Connection timed out during banner exchange", "", "sshd-silent"},
    {STAGE_GREETING, "kex_exchange_identification: banner line contains invalid characters", "", "other-service"},
    {STAGE_GREETING, "Bad remote protocol version identification: ", "", "other-service"},
    {STAGE_GREETING, "kex_exchange_identification: Connection closed by remote host", "", "closed-at-once"},
    {STAGE_GREETING, "kex_exchange_identification: read: Connection reset by peer", "", "closed-at-once"},
    {STAGE_HOST_KEY, "@", " REVOKED HOST KEY DETECTED! ", "host-key-revoked"},
    {STAGE_HOST_KEY, "Host key ", " revoked by file ", "host-key-revoked"},
    {STAGE_HOST_KEY, "Host key for ", " has changed and you have requested strict checking.", "host-key-changed"},
    {STAGE_HOST_KEY, "No ", " and you have requested strict checking.", "host-key-unknown"},
    {STAGE_HOST_KEY, "Unable to negotiate with ", ": no matching ", "no-common-algorithm"},
    {STAGE_SHELL, "channel ", ": open failed: ", "session-refused"},
    {STAGE_SHELL, "exec request failed on channel ", "", "session-refused"},
};
// Ends that a stage has no sentence for, once the host has greeted.
constexpr SENTENCE asctClosed[] = {
    {STAGES, "Connection closed by ", "", "connection-closed"},
    {STAGES, "Connection reset by ", "", "connection-closed"},
    {STAGES, "Received disconnect from ", "", "connection-closed"},
    {STAGES, "Connection to ", " closed by remote host.", "connection-closed"},
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
// What came in place of ssh's greeting.
constexpr std::pair<std::string_view, const char*> asctGreeting[] = {
    {"Exceeded MaxStartups", "sshd-busy"}, {"Not allowed at this time", "sshd-busy"},
    {"HTTP/", "other-service"}, {"220 ", "other-service"}, {"220-", "other-service"},
    {"+OK", "other-service"}, {"* OK", "other-service"}, {"RFB 00", "other-service"},
};

// The good steps of a connection, and the stage that begins with each.
constexpr std::pair<std::string_view, STAGE> asctStep[] = {
    {"Connecting to ", STAGE_ROUTE}, {"Executing proxy command", STAGE_PORT},
    {"Connection established", STAGE_GREETING}, {"Remote protocol version", STAGE_HOST_KEY},
    {"SSH2_MSG_SERVICE_ACCEPT received", STAGE_LOGIN}, {"Entering interactive session", STAGE_SHELL},
};
// What a line that begins so names: the text between two others.
constexpr struct {
    std::string_view svBegin, svBefore, svBehind;
    std::string SSH_STORY::*pMember;
} asctNamed[] = {
    {"Connecting to ", "to ", " [", &SSH_STORY::sName},
    {"Connecting to ", "[", "]", &SSH_STORY::sAddress},
    {"Connecting to ", "port ", ".", &SSH_STORY::sPort},
    {"Executing proxy command", " -W '[", "]:", &SSH_STORY::sAddress},
    {"Executing proxy command", "]:", "'", &SSH_STORY::sPort},
    {"Authenticating to ", " as '", "'", &SSH_STORY::sUser},
    {"Found key in ", "in ", "", &SSH_STORY::sKept},
    {"Server host key: ", " SHA256:", "", &SSH_STORY::sHostKey},
    {"Authentications that can continue: ", ": ", "", &SSH_STORY::sMethods},
    {"Offering public key: ", ": ", " ", &SSH_STORY::sKey},
    {"Trying private key: ", ": ", " ", &SSH_STORY::sKey},
};

// Lines of these say nothing of a failure, or only that some other line did.
constexpr std::string_view asvNoise[] = {
    "Warning: ", "WARNING: ", "Killed by signal", "mux_client", "muxclient", "Control socket",
    "ControlSocket", cpNO_MASTER, "Shared connection", "Connection closed by UNKNOWN",
    "Connection to UNKNOWN", "Disconnected from", "Connected to ", "Authenticated to", "Transferred: ",
    "Bytes per second", "IT IS POSSIBLE THAT", "Someone could be", "It is also possible",
    "The fingerprint for", "SHA256:", "Please contact your", "Add correct host key", "OpenSSH_",
    "Offending ", "remove with:", "ssh-keygen -f", "Permissions 0", "It is required that",
    "This private key will", "stdio forwarding failed", "** ",
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

/* "Executing proxy command: exec ssh ... -W '[ADDRESS]:PORT' [--] JUMP", or another one */
void v_PROXY(std::string_view svLine, SSH_STORY& story)
{
    story.bProxy = true;
    story.sPort.erase(std::min(story.sPort.find_first_not_of("0123456789"), story.sPort.size()));
    if (svLine.find(" -W ") == svLine.npos)
        story.sPort.clear();
    else
        story.sJump = svLine.substr(svLine.find_last_of(' ') + 1);
}

void v_KEY_TRIED(std::string_view svLine, SSH_STORY& story)
{
    if (svLine.starts_with("Offering")) story.uOffered++;
    if (svLine.find("-CERT ") != svLine.npos) story.bCertificate = true;
    story.bAccepted = story.bRefused = false;
}

/* What a line of debugging tells. */
void v_STEP(std::string_view svLine, SSH_STORY& story)
{
    const auto bIs = [&](std::string_view sv) { return svLine.starts_with(sv); };
    if (bIs("mux_client")) story.bShared = story.eReached == STAGE_NAME;
    for (const auto& row : asctNamed)
        if (bIs(row.svBegin)) story.*row.pMember = sBETWEEN(svLine, row.svBefore, row.svBehind);
    for (const auto& [svBegin, eStage] : asctStep) {
        if (!bIs(svBegin)) continue;
        story.eReached = eStage;
        story.asSince.clear();
    }
    if (bIs("Executing proxy command")) v_PROXY(svLine, story);
    if (bIs("connect to address ")) story.asTried.emplace_back(svLine.substr(19));
    if (bIs("kex_exchange_identification: banner line "))
        story.asBanner.push_back(sBETWEEN(svLine, "banner line ", ""));
    if (bIs("Will attempt key: ")) story.uKeys++;
    if (bIs("Offering public key: ") || bIs("Trying private key: ")) v_KEY_TRIED(svLine, story);
    if (bIs("Server accepts key: ")) story.bAccepted = true;
    if (bIs("Authentications that can continue: ")) story.bRefused = story.bAccepted;
    if (bIs("Remote: ") && svLine.find(" key options: ") != svLine.npos)
        story.bForced =
            (sBETWEEN(svLine, " key options:", "") + " ").find(" command ") != std::string::npos;
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

/* A text without the quotes at its ends. */
std::string sUNQUOTED(const std::string& s)
{
    return s.size() < 2 ? s : s.substr(1, s.size() - 2);
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
        } else if (sText.starts_with("ssh-keygen -f ")) {
            const std::string sFile = sUNQUOTED(sBETWEEN(sText, " -f ", " -R "));
            const std::string sHost = sUNQUOTED(sBETWEEN(sText, " -R ", ""));
            places["remove"] = "ssh-keygen -f " + sSHELL_WORD(SHELL_POSIX, sFile) + " -R " +
                               sSHELL_WORD(SHELL_POSIX, sHost);
        } else if (sText.starts_with("Bad owner or permissions on ")) {
            places["file"] = sBETWEEN(sText, "permissions on ", "");
        } else if (sText.starts_with("Unable to negotiate with ")) {
            places["what"] = sBETWEEN(sText, ": no matching ", " found");
            places["offer"] = sBETWEEN(sText, "Their offer: ", "");
        } else if (sText.starts_with('/')) {
            // "FILE: line N: ..." or "FILE line N: ..." of ssh's configuration
            const std::string sNumber = sBETWEEN(sText, " line ", ":");
            if (sNumber.empty() || sNumber.find_first_not_of("0123456789") != sNumber.npos)
                continue;
            const size_t uLine = sText.find(" line ");
            places["file"] = sText.substr(0, uLine - (sText[uLine - 1] == ':' ? 1 : 0));
            places["line"] = sNumber;
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
    for (const std::string& sLine : story.asBanner)
        for (const auto& [svBegin, cpCause] : asctGreeting)
            if (sBETWEEN(sLine, ": ", "").starts_with(svBegin)) return cpCause;
    const std::string_view svSaid = cpSAID(asctSentence, story.asSince, STAGE_GREETING);
    return svSaid == "closed-at-once" && !story.asBanner.empty() ? "" : svSaid.data();
}

const char* cpHOST_KEY_CAUSE(const SSH_STORY& story, PLACES& places)
{
    const char* cpCause = cpSAID(asctSentence, story.asOwn, STAGE_HOST_KEY);
    if (std::string_view(cpCause) != "host-key-changed") return cpCause;
    const KNOWN_KEY known = sctKNOWN_KEY(places["file"], places["line"], places["offered"]);
    places["kept"] = known.sKept.empty() ? "another key" : known.sKept;
    if (known.sOther.empty() || known.sOther == places["host"]) return cpCause;
    places["other"] = known.sOther;
    return "host-key-of-another";
}

/* What is wrong with the file of the key, by what ssh says of it; "" nothing. */
const char* cpKEY_CAUSE(const SSH_STORY& story)
{
    const std::string sNone = "no such identity: " + story.sKey + ": No such file";
    const std::string sLoad = "Load key \"" + story.sKey + "\": ";
    std::error_code   error;
    for (const std::string& sLine : story.asOwn) {
        if (sLine.starts_with(sNone)) return "key-missing";
        if (!sLine.starts_with(sLoad)) continue;
        if (story.sKey.ends_with(".pub")) return "key-not-in-agent";
        const bool bOpen = sLine == sLoad + "bad permissions" &&  // said of a folder, too
                           !std::filesystem::is_directory(story.sKey, error);
        return bOpen ? "key-too-open" : "key-unreadable";
    }
    return "";
}

/* The key was accepted, and ssh did not sign with it. */
const char* cpUNSIGNED_CAUSE(const SSH_STORY& story)
{
    if (story.sKey.ends_with(".pub")) return "key-not-in-agent";
    const std::string_view svCause = cpKEY_CAUSE(story);
    return svCause.empty() && iKEY_ENCRYPTED(story.sKey) ? "key-encrypted-no-agent"
                                                         : svCause.data();
}

/* The last of all is that whoever comes so is refused. */
bool bDENIED(const SSH_STORY& story)
{
    const std::string sLast = story.asSince.empty() ? "" : story.asSince.back();
    if (sLast.starts_with("Received disconnect from "))
        return sLast.ends_with(":2: Too many authentication failures");
    return sLast.find(": Permission denied (") != sLast.npos;
}

/* Of a login that was refused the words are the same for many causes; the way that it
   took tells more. What is wrong with one of several keys need not be why. */
const char* cpLOGIN_CAUSE(const SSH_STORY& story, PLACES& places)
{
    if (!bDENIED(story)) return "";
    if (story.asSince.back().starts_with("Received "))
        return story.uOffered > 1 ? "too-many-keys" : "";
    if (story.bPartial) return "second-factor";
    if (("," + story.sMethods + ",").find(",publickey,") == std::string::npos)
        return "no-key-login";
    // Why an agent that holds an accepted key refuses to sign, only the agent knows.
    for (const std::string& sLine : story.asSince)
        if (sLine.starts_with("sign_and_send_pubkey: ")) return "";
    if (story.bAccepted) return story.bRefused ? "login-forbidden" : cpUNSIGNED_CAUSE(story);
    const std::string_view svKey = story.uKeys <= 1 ? cpKEY_CAUSE(story) : "";
    if (!svKey.empty()) return svKey.data();
    if (story.uOffered == 0) return "no-key-offered";
    const bool bExpired = story.bCertificate && iCERTIFICATE_INVALID(story.sKey, places["valid"]);
    return bExpired ? "certificate-expired" : "key-not-accepted";
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
    const std::string_view svSaid = cpSAID(asctSentence, story.asSince, story.eReached);
    switch (story.eReached) {
        case STAGE_NAME:
            return svSaid.empty() && places.contains("line") ? "config-bad-option" : svSaid.data();
        case STAGE_ROUTE:
            return svSaid.empty() ? cpCONNECT_CAUSE(story, places) : svSaid.data();
        case STAGE_GREETING:
            return cpGREETING_CAUSE(story);
        case STAGE_HOST_KEY:
            return cpHOST_KEY_CAUSE(story, places);
        case STAGE_LOGIN:
            return cpLOGIN_CAUSE(story, places);
        default:
            return svSaid.data();
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
    SET("port", story.sPort);
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
    for (const std::string_view svLine : asvPIECES(svLog)) {
        const std::string sLine = sONE_LINE(svLine.substr(0, svLine.find('\r')));
        if (sLine.empty()) continue;
        story.sLast = sLine;
        if (sLine.starts_with(svDebug))
            v_STEP(std::string_view(sLine).substr(svDebug.size()), story);
        else if (!sLine.starts_with("debug"))
            v_OWN_LINE(sLine, story);
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
    if (verdict.sCause.empty() && story.eReached >= STAGE_HOST_KEY)
        verdict.sCause = cpSAID(asctClosed, story.asSince, STAGES);
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
