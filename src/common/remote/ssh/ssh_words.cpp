#include "ssh_words.h"

#include <algorithm>
#include <charconv>

#include "../../text/command_line.h"
#include "../../text/text.h"
#include "known_key.h"

namespace {

// Lines of these say nothing of a failure, or only that some other line did.
constexpr std::string_view asvNoise[] = {
    "Warning: ",
    "WARNING: ",
    "Killed by signal",
    "mux_client",
    "muxclient",
    "Control socket",
    "ControlSocket",
    cpNO_MASTER,
    "Shared connection",
    "Connection closed by UNKNOWN",
    "Connection to UNKNOWN",
    "Disconnected from",
    "Connected to ",
    "Authenticated to",
    "Transferred: ",
    "Bytes per second",
    "IT IS POSSIBLE THAT",
    "Someone could be",
    "It is also possible",
    "The fingerprint for",
    "SHA256:",
    "Please contact your",
    "Add correct host key",
    "OpenSSH_",
    "Offending ",
    "remove with:",
    "ssh-keygen -f",
    "Permissions 0",
    "It is required that",
    "This private key will",
    "stdio forwarding failed",
    "terminating, ",
};

bool bSTARTS(std::string_view svLine, std::string_view svText)
{
    const size_t u = svLine.find_first_not_of(' ');
    return u != svLine.npos && svLine.substr(u).starts_with(svText);
}

bool bNOISE(std::string_view svLine)
{
    for (std::string_view svText : asvNoise)
        if (bSTARTS(svLine, svText)) return true;
    // What another line has said before, with what it was.
    if (bSTARTS(svLine, "Connection to ") && svLine.ends_with(" timed out")) return true;
    return svLine.find_first_not_of(" @") == std::string_view::npos || bSTARTS(svLine, "@");
}

/* "debug1: " and its kin. */
size_t uLEVEL(std::string_view svLine)
{
    return svLine.starts_with("debug") && svLine.size() > 8 && svLine.substr(6, 2) == ": " ? 8 : 0;
}

/* The text between two others, "" when they are not there. */
std::string sBETWEEN(std::string_view svLine, std::string_view svBefore, std::string_view svBehind)
{
    const size_t uFrom = svLine.find(svBefore);
    if (uFrom == svLine.npos) return "";
    svLine.remove_prefix(uFrom + svBefore.size());
    const size_t uTo = svBehind.empty() ? svLine.npos : svLine.find(svBehind);
    return std::string(svLine.substr(0, uTo));
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
}

/* What a line of debugging tells of the way so far. */
void v_STEP(std::string_view svLine, SSH_STORY& story)
{
    if (svLine.starts_with("Connecting to "))
        v_CONNECTING(svLine, story);
    else if (svLine.starts_with("Executing proxy command"))
        v_PROXY(svLine, story);
    else if (svLine.starts_with("mux_client"))
        story.bShared = story.eReached == STAGE_NAME;
    else if (svLine.starts_with("Connection established"))
        story.eReached = STAGE_GREETING;
    else if (svLine.starts_with("Remote protocol version"))
        story.eReached = STAGE_HOST_KEY;
    else if (svLine.starts_with("Authenticating to "))
        story.sUser = sBETWEEN(svLine, " as '", "'");
    else if (svLine.starts_with("Found key in "))
        story.sKept = svLine.substr(std::min(svLine.find('/'), svLine.size()));
    else if (svLine.starts_with("Server host key: "))
        story.sHostKey = sBETWEEN(svLine, " SHA256:", "");
    else if (svLine.starts_with("Authentications that can continue")) {
        story.eReached = STAGE_LOGIN;
        story.bRefused = story.bAccepted;
    } else if (svLine.starts_with("Offering public key: ") ||
               svLine.starts_with("Trying private key: ")) {
        story.sKey = sBETWEEN(svLine, " key: ", " ");
        story.bAccepted = story.bRefused = false;
    } else if (svLine.starts_with("Server accepts key: "))
        story.bAccepted = true;
}

std::vector<std::string> asLINES_OF(std::string_view svText)
{
    std::vector<std::string> asLine;
    for (const std::string_view svLine : asvPIECES(svText)) {
        std::string sLine = sONE_LINE(svLine.substr(0, svLine.find('\r')));
        if (!sLine.empty()) asLine.push_back(std::move(sLine));
    }
    return asLine;
}

/* What ssh itself says in a line that also holds text of the other side, who could write
   there what looks like any cause. */
std::string sOWN_PART(const std::string& sLine, STAGE eReached)
{
    constexpr std::string_view svTooMany = "Too many authentication failures";
    constexpr std::string_view svDenied = "Permission denied (";
    if (bSTARTS(sLine, "Received disconnect from ")) {
        const bool bKeys = eReached >= STAGE_LOGIN && sLine.ends_with(svTooMany);
        return std::string(bKeys ? svTooMany : "Connection closed by");
    }
    const size_t uDenied = sLine.find(svDenied);
    return uDenied == sLine.npos ? sLine : sLine.substr(0, uDenied + svDenied.size());
}

std::vector<std::string> asOWN_PARTS(std::vector<std::string> asLine, STAGE eReached)
{
    for (std::string& sLine : asLine) sLine = sOWN_PART(sLine, eReached);
    return asLine;
}

std::vector<std::string> asTELLING(const std::vector<std::string>& asLine)
{
    std::vector<std::string> asTold;
    for (const std::string& sLine : asLine)
        if (!bNOISE(sLine) && uLEVEL(sLine) == 0) asTold.push_back(sLine);
    return asTold;
}

/* The verdict on a host key first, as ssh says it of every kind; then why. */
std::vector<std::string> asVERDICT_FIRST(std::vector<std::string> asLine)
{
    const auto verdict = std::find(asLine.begin(), asLine.end(), "Host key verification failed.");
    if (verdict != asLine.end()) std::rotate(asLine.begin(), verdict, verdict + 1);
    return asLine;
}

/* The lines from the first that the cause is shown by, those that say nothing left out. */
std::vector<std::string> asBELONGING(const std::vector<std::string>& asTold, const CAUSE& cause)
{
    for (size_t u = 0; u < asTold.size(); u++)
        if (pCAUSE_SHOWN(cause.eSpeaker, sOWN_PART(asTold[u], cause.eStage), cause.eStage) ==
            &cause)
            return asVERDICT_FIRST({asTold.begin() + static_cast<long>(u), asTold.end()});
    return asTold;
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

/* File and line, key and command that the words name. */
void v_PLACES_IN(const std::vector<std::string>& asLine, PLACES& places)
{
    for (const std::string& sLine : asLine) {
        if (bSTARTS(sLine, "Offending ")) {
            const std::string sWhere = sBETWEEN(sLine, " key in ", "");
            places["file"] = sWhere.substr(0, sWhere.rfind(':'));
            places["line"] = sWhere.substr(sWhere.rfind(':') + 1);
        } else if (bSTARTS(sLine, "ssh-keygen -f")) {
            places["remove"] = sREMOVAL(sLine);
        } else if (bSTARTS(sLine, "Bad owner or permissions on ")) {
            places["file"] = sBETWEEN(sLine, "permissions on ", "");
        } else if (const size_t uLine = sLine.find(": line "); uLine != sLine.npos) {
            places["file"] = sLine.substr(0, uLine);
            places["line"] = sBETWEEN(sLine, ": line ", ":");
        } else if (bSTARTS(sLine, "no such identity: ")) {
            places["key"] = sBETWEEN(sLine, "identity: ", ": No such");
        } else if (bSTARTS(sLine, "Load key \"")) {
            places["key"] = sBETWEEN(sLine, "Load key \"", "\"");
        }
    }
}

/* The cause by all lines that were told, in the order of the rows. */
const CAUSE* pCAUSE_OF(SPEAKER eSpeaker, const std::vector<std::string>& asLine, STAGE eFrom)
{
    return pCAUSE_SHOWN(eSpeaker, sJOINED(asLine, "\n"), eFrom);
}

/* Of a login that was refused the words are the same for many causes; the way that it
   took tells more. */
const CAUSE* pLOGIN_CAUSE(const SSH_STORY& story, const CAUSE* pCause, PLACES& places)
{
    // ssh reads the file of a public key as a private one where no agent signs for it.
    const std::string_view svId = pCause->cpId;
    if ((svId == "key-unreadable" || svId == "key-too-open") && places["key"].ends_with(".pub"))
        return &sctCAUSE("key-not-in-agent");
    if (svId != "key-not-accepted") return pCause;
    if (story.bAccepted)
        return &sctCAUSE(story.bRefused ? "login-forbidden" : "key-encrypted-no-agent");
    const bool bExpired = iCERTIFICATE_INVALID(story.sKey, places["valid"]) != 0;
    return bExpired ? &sctCAUSE("certificate-expired") : pCause;
}

const CAUSE* pHOST_KEY_CAUSE(const SSH_STORY& story, const CAUSE* pCause, PLACES& places)
{
    if (std::string_view(pCause->cpId) != "host-key-changed") return pCause;
    const KNOWN_KEY known = sctKNOWN_KEY(places["file"], places["line"], story.sHostKey);
    places["kept"] = known.sKept.empty() ? "another key" : known.sKept;
    if (known.sOther.empty() || known.sOther == places["host"]) return pCause;
    places["other"] = known.sOther;
    return &sctCAUSE("host-key-of-another");
}

const char* cpPREFIX(const CAUSE& cause)
{
    const std::string_view svId = cause.cpId;
    if (svId == "host-unknown" || svId == "name-service-down") return "Host is unknown: ";
    const bool bKeys = cause.eStage == STAGE_LOGIN && svId != "connection-closed";
    return bKeys ? "Error: Authentication failed: " : "";
}

/* The host in between refuses: nothing that is said of the client's own port or login. */
std::string sJUMP_REASON(const std::string& sJump, std::string sWords)
{
    constexpr std::string_view svPort = "Connection refused";
    const bool                 bBehind = sWords.find("open failed: connect failed") != sWords.npos;
    for (size_t u = bBehind ? sWords.npos : sWords.find(svPort); u != sWords.npos;
         u = sWords.find(svPort, u))
        sWords[u] = 'c';
    return "jump host " + sJump + ": " + sWords;
}

/* The lines that are the jump's ssh's own. Once keys are exchanged, the host in between
   may have written any line (its banner): only what it could do as well as say is left. */
std::vector<std::string> asOF_JUMP(const std::vector<std::string>& asLine)
{
    std::vector<std::string> asOwn;
    bool                     bKeyed = false;
    for (const std::string& sLine : asLine) {
        bKeyed = bKeyed || sLine == "debug1: SSH2_MSG_NEWKEYS received";
        const std::string sPart = sOWN_PART(sLine, STAGE_LOGIN);
        const bool        bDone = sPart != sLine || sLine.starts_with("channel ");
        if (uLEVEL(sLine) == 0 && (!bKeyed || bDone)) asOwn.push_back(sPart);
    }
    return asOwn;
}

/* What the ssh to a host in between said counts as long as the other side has not
   greeted: until then only the host in between can have said anything. */
std::string sWHY_JUMP(const SSH_STORY& story, std::string_view svJump, PLACES& places,
                      DIAGNOSIS& diagnosis)
{
    const std::vector<std::string> asLine = asLINES_OF(svJump);
    const std::vector<std::string> asOwn = asOF_JUMP(asLine);
    std::vector<std::string>       asTold = asTELLING(asLine);
    const std::string              sJump = story.sJump.empty() ? "in between" : story.sJump;
    places["jump"] = sJump;
    v_PLACES_IN(asOwn, places);
    const CAUSE* pCause = pCAUSE_OF(JUMP_SAYS, asOwn, STAGE_NONE);
    if (pCause == nullptr) pCause = &sctCAUSE("jump-host-failed");
    if (asTold.empty()) asTold = asTELLING(story.asOwn);
    diagnosis = sctDIAGNOSIS(*pCause, places);
    diagnosis.asWords = asBELONGING(asTold, *pCause);
    return sJUMP_REASON(sJump, sJOINED(diagnosis.asWords, "; "));
}

}  // namespace

SSH_STORY sctSSH_STORY(std::string_view svLog)
{
    SSH_STORY story;
    for (std::string& sLine : asLINES_OF(svLog)) {
        const size_t uLevel = uLEVEL(sLine);
        if (uLevel > 0) {
            sLine.erase(0, uLevel);
            v_STEP(sLine, story);
        } else {
            if (sLine.starts_with("Authenticated to ")) story.eReached = STAGE_SHELL;
            story.asOwn.push_back(sLine);
        }
        story.asAll.push_back(std::move(sLine));
    }
    return story;
}

std::string sWHY(const SSH_STORY& story, std::string_view svJump, PLACES& places,
                 DIAGNOSIS& diagnosis)
{
    if (!story.sName.empty()) places["name"] = story.sName;
    if (!story.sAddress.empty()) places["address"] = story.sAddress;
    if (story.iPort > 0) places["port"] = std::to_string(story.iPort);
    if (!story.sUser.empty()) places["user"] = story.sUser;
    if (!story.sKey.empty()) places["key"] = story.sKey;
    if (!story.sHostKey.empty()) places["offered"] = "SHA256:" + story.sHostKey;
    if (story.bProxy && story.eReached < STAGE_HOST_KEY)
        return sWHY_JUMP(story, svJump, places, diagnosis);

    const std::vector<std::string> asTold = asTELLING(story.asOwn);
    if (asTold.empty()) return "";
    const std::vector<std::string> asOwn = asOWN_PARTS(story.asOwn, story.eReached);
    v_PLACES_IN(asOwn, places);
    const CAUSE* pCause = pCAUSE_OF(SSH_SAYS, asOwn, story.eReached);
    if (const CAUSE* pGreeting = pCAUSE_OF(SSH_SAYS, story.asAll, story.eReached);
        story.eReached == STAGE_GREETING && pGreeting != nullptr)
        pCause = pGreeting;
    if (pCause == nullptr) return asTold.back();
    pCause = pLOGIN_CAUSE(story, pHOST_KEY_CAUSE(story, pCause, places), places);
    diagnosis = sctDIAGNOSIS(*pCause, places);
    diagnosis.asWords = asBELONGING(asTold, *pCause);
    return cpPREFIX(*pCause) + sJOINED(diagnosis.asWords, "; ");
}

std::string sWHY_NO_COPY(std::string_view svWords)
{
    const std::vector<std::string> asTold = asTELLING(asLINES_OF(svWords));
    const CAUSE*                   pCause = pCAUSE_OF(SSH_SAYS, asTold, STAGE_NONE);
    if (pCause == nullptr) pCause = pCAUSE_OF(SFTP_SAYS, asTold, STAGE_NONE);
    if (pCause == nullptr) return sJOINED(asTold, "; ");
    return cpPREFIX(*pCause) + sJOINED(asBELONGING(asTold, *pCause), "; ");
}

bool bREFUSED(std::string_view svReason)
{
    return svReason.starts_with("Error: Authentication failed: ");
}
