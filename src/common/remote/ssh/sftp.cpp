/* The talk with sftp: commands go to its standard input one step at a time,
   because the size must be known before the file gets its name. In batch mode sftp
   ends at the first command that fails (a leading "-" forgives), with the cause on
   standard error. */
#include "sftp.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>
#include <vector>

#include "../../base/descriptor.h"
#include "../../config/config.h"
#include "../../lines/standard_error.h"
#include "../../text/text.h"
#include "copy_progress.h"
#include "ssh_words.h"
#include "unfinished_copy.h"

namespace {

constexpr int    iSTEP_MS = 250;  // how often progress is looked at
constexpr size_t uTEXT_MAX = 65536;
constexpr int    iEND_GRACE_MS = 500;
constexpr int    iREMOVE_MS = 5000;  // for taking an unfinished file away
constexpr int    iAT_END_MS = 1500;  // the same, where the run is to end

/* A path as sftp's own command line reads it back; inside quotes it takes no
   character for a wildcard. */
std::string sQUOTED(const std::string& sPath)
{
    return "\"" + sMARKED(sPath, "\"\\") + "\"";
}

/* C:\a\b is /C:/a/b for an sftp server. */
std::string sREMOTE_PATH(std::string sPath)
{
    const bool bDrive = sPath.size() > 2 && std::isalpha(static_cast<unsigned char>(sPath[0])) &&
                        sPath[1] == ':' && (sPath[2] == '\\' || sPath[2] == '/');
    if (!bDrive) return sPath;
    std::replace(sPath.begin(), sPath.end(), '\\', '/');
    return "/" + sPath;
}

struct TALK {
    CHILD       child;
    std::string sOut;
    std::string sErr;
    long        lTotal = 0;  // deadline of the whole copy
    long        lIdle = 0;   // deadline of the next sign of life
    bool        bLate = false;
};

/* An sftp server's words are few; who sends more is not listened to. */
void READ_BOUNDED(FD& fd, std::string& sText)
{
    uREAD_NOW(fd, sText, uTEXT_MAX);
    if (sText.size() > uTEXT_MAX) sText.resize(uTEXT_MAX);
}

void STILL_ALIVE(TALK& talk)
{
    talk.lIdle = lNOW_MS() + 1000L * iCONFIG_IDLE_TIMEOUT();
}

/* Reads what sftp writes until bDone says so, it has ended, or a limit passed.
   Result  1 bDone, 0 the talk is over */
template<class DONE>
int iLISTEN(TALK& talk, COPY_PROGRESS* pProgress, DONE bDone)
{
    STILL_ALIVE(talk);
    while (!bDone(talk.sOut)) {
        if (pProgress != nullptr && iPROGRESS_SHOW(*pProgress, talk.child.iPid)) STILL_ALIVE(talk);
        const long lDeadline = std::min(talk.lIdle, talk.lTotal);
        if (lNOW_MS() >= lDeadline) {
            talk.bLate = true;
            return 0;
        }
        std::vector<WAIT_FD> fds{{talk.child.fdExit.iGet()}};
        for (FD* pFd : {&talk.child.fdOut, &talk.child.fdErr})
            if (pFd->bOpen()) fds.push_back({pFd->iGet()});
        iWAIT(fds, std::min(lDeadline, lNOW_MS() + iSTEP_MS));
        const bool bEnded = fds[0].bReady;
        READ_BOUNDED(talk.child.fdOut, talk.sOut);
        READ_BOUNDED(talk.child.fdErr, talk.sErr);
        // Without its output no answer comes any more.
        const bool bMute = talk.child.fdIn.bOpen() && !talk.child.fdOut.bOpen();
        if (bEnded || bMute) return bDone(talk.sOut);
    }
    return 1;
}

int iSTART(TALK& talk, CHILD_SPEC& sctSpec, std::string& sReason)
{
    sctSpec.bPipeIn = sctSpec.bPipeErr = true;
    sctSpec.bErrToOut = false;
    talk.lTotal = lNOW_MS() + 1000L * iCONFIG_TOTAL_TIMEOUT();
    return iCHILD_START(talk.child, sctSpec, sReason);
}

/* Sends the last commands of a talk and waits for its end. Result 1 all succeeded. */
int iLAST_WORDS(TALK& talk, const std::string& sCommands)
{
    iWRITE_ALL(talk.child.fdIn.iGet(), sCommands);
    talk.child.fdIn.Close();
    iLISTEN(talk, nullptr, [](const std::string&) { return false; });
    v_CHILD_LET_GO(talk.child, iEND_GRACE_MS);
    return !talk.bLate && talk.child.iStatus == 0;
}

/* Runs commands to the end. Result 1 all succeeded. */
int iBATCH(CHILD_SPEC& sctSpec, const std::string& sCommands, std::string& sOut)
{
    TALK        talk;
    std::string sReason;
    if (!iSTART(talk, sctSpec, sReason)) return 0;
    const int iDone = iLAST_WORDS(talk, sCommands);
    sOut = talk.sOut;
    return iDone;
}

/* The size in the last line of "ls -ln" (fifth word), or -1. */
long lLISTED_SIZE(const std::string& sOut)
{
    const size_t uLine = sOut.rfind("\n-");
    if (uLine == std::string::npos || sOut.find('\n', uLine + 1) == std::string::npos) return -1;
    const char* cpAt = sOut.c_str() + uLine + 1;
    for (int iWord = 0; iWord < 4; ++iWord) {
        cpAt += std::strcspn(cpAt, " \n");
        cpAt += std::strspn(cpAt, " ");
    }
    char*      cpEnd = nullptr;
    const long lSize = std::strtol(cpAt, &cpEnd, 10);
    return cpEnd == cpAt ? -1 : lSize;
}

std::string sFOLDERS(const std::string& sPath)
{
    std::string sCommands;
    for (size_t u = sPath.find('/', 1); u != std::string::npos; u = sPath.find('/', u + 1))
        sCommands += "-mkdir " + sQUOTED(sPath.substr(0, u)) + "\n";
    return sCommands;
}

/* Bytes free where sPath lies, or -1: sftp only says "Failure" for a full disk. */
long lFREE_BYTES(CHILD_SPEC& sctSpec, const std::string& sPath)
{
    std::string sOut;
    if (!iBATCH(sctSpec, "df " + sQUOTED(sPath.substr(0, sPath.rfind('/') + 1)) + "\n", sOut))
        return -1;
    const size_t uHead = sOut.find("Avail");
    const size_t uLine = uHead == std::string::npos ? uHead : sOut.find('\n', uHead);
    if (uLine == std::string::npos) return -1;
    long lSize = 0;
    long lUsed = 0;
    long lFree = 0;
    // Kilobytes; the columns are Size, Used and Avail.
    const char* cpAt = sOut.c_str() + uLine;
    for (long* plColumn : {&lSize, &lUsed, &lFree}) {
        char* cpEnd = nullptr;
        *plColumn = std::strtol(cpAt, &cpEnd, 10);
        if (cpEnd == cpAt) return -1;
        cpAt = cpEnd;
    }
    return lFree * 1024;
}

/* What sftp says of a copy. It knows a file by what it calls local and dest; what the
   server answers is one of a few words. */
COPY_END sctSFTP_WORDS(const std::string& sErr)
{
    constexpr std::pair<std::string_view, const char*> asctBegin[] = {
        {"subsystem request failed", "no-sftp"}, {"Received message too long ", "start-up-prints"}};
    constexpr std::pair<std::string_view, const char*> asctEnd[] = {
        {": Permission denied", "copy-not-permitted"}, {": Failure", "copy-refused"}};
    const std::vector<std::string> asWords = sctSSH_STORY(sErr).asSince;
    COPY_END                       end;
    bool                           bDenied = false;
    for (const std::string& sLine : asWords) {
        bDenied |= sLine.find(": Permission denied (") != sLine.npos;
        for (const auto& [svEnd, cpCause] : asctEnd)
            if (sLine.ends_with(svEnd)) end.finding.sCause = cpCause;
        for (const auto& [svBegin, cpCause] : asctBegin)
            if (sLine.starts_with(svBegin)) end.finding.sCause = cpCause;
    }
    if (!end.finding.sCause.empty()) end.finding.asWords = asWords;
    end.sReason = (bDenied ? "Error: Authentication failed: " : "") + sJOINED(asWords, "; ");
    if (asWords.empty()) end.sReason = "sftp ended without output";
    return end;
}

/* One file on its way. */
struct TRANSFER {
    CHILD_SPEC  sctSpec;
    std::string sHost;
    std::string sSource;
    std::string sPath;  // in the form of an sftp server
    std::string sPart;  // its name until it is whole
    std::string sMode;  // octal permissions, empty: as they come
    long        lSize = 0;
    bool        bLeft = false;  // the unfinished file may still be there
    COPY_NOTE   note = {};
};

/* The copy under way, for a run that ends by a signal. */
TRANSFER*& CURRENT()
{
    static TRANSFER* pTransfer = nullptr;
    return pTransfer;
}

/* Takes an unfinished file away. Result 1 it is gone, as far as the client says. */
int iREMOVE_PART(CHILD_SPEC& sctSpec, const std::string& sPart, int iLimitMs = iREMOVE_MS)
{
    TALK        talk;
    std::string sReason;
    if (!iSTART(talk, sctSpec, sReason)) return 0;
    talk.lTotal = lNOW_MS() + iLimitMs;
    return iLAST_WORDS(talk, "-rm " + sQUOTED(sPart) + "\n");
}

void REMOVE_AT_END()
{
    TRANSFER* pTransfer = std::exchange(CURRENT(), nullptr);
    if (pTransfer != nullptr && iREMOVE_PART(pTransfer->sctSpec, pTransfer->sPart, iAT_END_MS))
        v_COPY_ENDED(pTransfer->note);
}

/* A copy stands where a run that ends finds it. */
struct UNDER_WAY {
    explicit UNDER_WAY(TRANSFER& transfer)
    {
        v_AT_END(REMOVE_AT_END);
        CURRENT() = &transfer;
    }
    UNDER_WAY(const UNDER_WAY&) = delete;
    UNDER_WAY& operator=(const UNDER_WAY&) = delete;
    ~UNDER_WAY() { CURRENT() = nullptr; }
};

std::string sTIMEOUT(const TRANSFER& transfer, const TALK& talk)
{
    const bool bTotal = lNOW_MS() >= talk.lTotal;
    return "Timeout: no answer from " + transfer.sHost + " within " +
           std::to_string(bTotal ? iCONFIG_TOTAL_TIMEOUT() : iCONFIG_IDLE_TIMEOUT()) + " seconds";
}

/* What a failed copy tells; takes the unfinished file away. */
COPY_END sctWHY_FAILED(TRANSFER& transfer, TALK& talk)
{
    if (talk.bLate) {
        v_CHILD_END(talk.child, iEND_GRACE_MS);
        transfer.bLeft = true;
        return {false, sTIMEOUT(transfer, talk), {"copy-hangs", STAGE_COPY, {}}, {}};
    }
    // Before its first command sftp had no connection, and nothing was written.
    const bool bConnected = talk.sOut.find("sftp>") != std::string::npos;
    if (!bConnected) return sctSFTP_WORDS(talk.sErr);
    const long lFree = talk.sErr.find("Failure") != std::string::npos
                           ? lFREE_BYTES(transfer.sctSpec, transfer.sPart)
                           : -1;
    transfer.bLeft = !iREMOVE_PART(transfer.sctSpec, transfer.sPart);
    if (lFree < 0 || lFree >= transfer.lSize) return sctSFTP_WORDS(talk.sErr);
    const std::string sReason = "no space left on " + transfer.sHost + ": " +
                                std::to_string(transfer.lSize) + " bytes needed, " +
                                std::to_string(lFree) + " free";
    return {false, sReason, {"disk-full", STAGE_COPY, {sReason}}, {}};
}

std::string sWRITE_COMMANDS(const TRANSFER& transfer)
{
    const std::string sPart = sQUOTED(transfer.sPart);
    std::string       sCommands = "put " + sQUOTED(transfer.sSource) + " " + sPart + "\n";
    if (!transfer.sMode.empty()) sCommands += "chmod " + transfer.sMode + " " + sPart + "\n";
    return sCommands + "ls -ln " + sPart + "\n";
}

/* The file has arrived: gives it its name, or takes it away when bytes are missing. */
COPY_END sctGIVE_NAME(TRANSFER& transfer, TALK& talk)
{
    const std::string sPart = sQUOTED(transfer.sPart);
    const long        lArrived = lLISTED_SIZE(talk.sOut);
    if (lArrived == transfer.lSize) {
        const bool bNamed =
            iLAST_WORDS(talk, "rename " + sPart + " " + sQUOTED(transfer.sPath) + "\n") != 0;
        return bNamed ? COPY_END{true, "", {}, {}} : sctWHY_FAILED(transfer, talk);
    }
    iLAST_WORDS(talk, "-rm " + sPart + "\n");
    const std::string sReason = "\"" + transfer.sPath + "\" arrived with " +
                                std::to_string(lArrived) + " of " + std::to_string(transfer.lSize) +
                                " bytes";
    return {false, sReason, {"copy-short", STAGE_COPY, {sReason}}, {}};
}

/* bNoFolder is set where nothing but its folder is missing. */
COPY_END sctTRY(TRANSFER& transfer, const std::string& sBefore, bool& bNoFolder)
{
    TALK          talk;
    COPY_PROGRESS progress(transfer.sSource, transfer.lSize);
    const auto    bListed = [](const std::string& s) { return lLISTED_SIZE(s) >= 0; };
    COPY_END      end;
    bNoFolder = false;
    if (!iSTART(talk, transfer.sctSpec, end.sReason)) {
        end.places = {{"program", transfer.sctSpec.asArgument[0]}, {"why", std::strerror(errno)}};
        end.finding = {"server-cannot-run", STAGE_SERVER, {end.sReason}};
        return end;
    }
    if (iWRITE_ALL(talk.child.fdIn.iGet(), sBefore + sWRITE_COMMANDS(transfer)) &&
        iLISTEN(talk, &progress, bListed))
        return sctGIVE_NAME(transfer, talk);
    bNoFolder = !talk.bLate && sBefore.empty() &&
                talk.sErr.find("No such file or directory") != std::string::npos;
    return bNoFolder ? end : sctWHY_FAILED(transfer, talk);
}

}  // namespace

COPY_END sctSFTP_PUT(CHILD_SPEC sctSpec, const HOST& host, const std::string& sSource,
                     const std::string& sTarget, const char* cpMode)
{
    const std::string sPath = sREMOTE_PATH(sTarget);
    std::error_code   error;
    const auto        uSize = std::filesystem::file_size(sSource, error);
    if (error) return {false, "cannot read \"" + sSource + "\": " + error.message(), {}, {}};
    if ((sSource + sPath).find_first_of("\r\n") != std::string::npos)
        return {false,
                "cannot copy \"" + sONE_LINE(sSource) + "\": its name contains a line end",
                {"command-not-formed", STAGE_SERVER, {}},
                {}};
    TRANSFER        transfer{std::move(sctSpec),
                      host.sName,
                      sSource,
                      sPath,
                      sPath + ".part",
                      cpMode != nullptr ? cpMode : "",
                      static_cast<long>(uSize)};
    const UNDER_WAY underWay(transfer);
    transfer.note = sctNOTE_COPY(host.sName, transfer.sPart);
    bool     bNoFolder = false;
    COPY_END end = sctTRY(transfer, "", bNoFolder);
    if (bNoFolder) end = sctTRY(transfer, sFOLDERS(sPath), bNoFolder);
    if (end.bDone || !transfer.bLeft) v_COPY_ENDED(transfer.note);
    return end;
}

void v_SFTP_REMOVE_FOLDERS(CHILD_SPEC sctSpec, const std::vector<std::string>& asFolder)
{
    std::string sCommands;
    std::string sOut;
    for (const std::string& sFolder : asFolder)
        sCommands += "-rmdir " + sQUOTED(sREMOTE_PATH(sFolder)) + "\n";
    iBATCH(sctSpec, sCommands, sOut);
}

void v_SFTP_TIDY(CHILD_SPEC sctSpec, const std::string& sHost)
{
    COPY_NOTE         note;
    const std::string sPart = sUNFINISHED(sHost, note);
    if (!sPart.empty() && iREMOVE_PART(sctSpec, sPart)) v_COPY_ENDED(note);
}
