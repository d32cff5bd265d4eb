/* The outcome logs: which files, the walk over their lines, what it keeps.

   Lines stand in the order of the runs' ends, since each is appended when its run
   ends; the files come in the order of their days. */
#include "log_records.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>

#include "common/common.h"
#include "common/package/eligibility.h"
#include "line_keys.h"
#include "moment.h"

namespace {

constexpr size_t uBLOCK = 1U << 18U;     // stays in the processor's cache
constexpr size_t uLINE_MAX = 1U << 24U;  // a longer line is none of ours

using JSON = nlohmann::ordered_json;

/* ---- files ------------------------------------------------------------------ */

struct LOG_FILE {
    long        lDay = 0;  // when its day begins, or about when it was written
    std::string sPath;
    bool        operator<(const LOG_FILE& other) const
    {
        return std::tie(lDay, sPath) < std::tie(other.lDay, other.sPath);
    }
};

/* A day label tells the file's day; of another label the time of the last writing. */
long lDAY_OF(const std::string& sName, const std::string& sPath)
{
    if (sName.size() == std::strlen("YYYYMMDD.jsonl")) {
        const std::string sDay =
            sName.substr(0, 4) + "-" + sName.substr(4, 2) + "-" + sName.substr(6, 2) + " 00:00:00";
        if (const long lDay = lSECONDS_OF(sDay); lDay != 0) return lDay;
    }
    struct stat sctStat {};
    return stat(sPath.c_str(), &sctStat) == 0 ? sctStat.st_mtime : 0;
}

/* sError: why the folder cannot be read; one that is not there yet holds no runs. */
std::vector<std::string> asLOG_FILES(long lFrom, std::string& sError)
{
    const std::string                             sDirectory = read_glbv("gv_rw_prot");
    const std::unique_ptr<DIR, FREE_BY<closedir>> pDir{opendir(sDirectory.c_str())};
    std::vector<LOG_FILE>                         files;
    if (!pDir && errno != ENOENT)
        sError = "cannot read the outcome logs in \"" + sDirectory + "\": " + std::strerror(errno);
    while (const dirent* pEntry = pDir ? readdir(pDir.get()) : nullptr) {
        const std::string sName = pEntry->d_name;
        if (!sName.ends_with(".jsonl")) continue;
        LOG_FILE file{0, sDirectory + sName};
        file.lDay = lDAY_OF(sName, file.sPath);
        if (file.lDay >= lFrom) files.push_back(std::move(file));
    }
    std::sort(files.begin(), files.end());
    std::vector<std::string> asFile;
    asFile.reserve(files.size());
    for (LOG_FILE& file : files) asFile.push_back(std::move(file.sPath));
    return asFile;
}

/* A pipe or a device would never come to an end. */
FD fdOPEN_LOG(const std::string& sPath)
{
    FD          fd(open(sPath.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    struct stat sctStat {};
    if (!fd.bOpen() || (fstat(fd.iGet(), &sctStat) == 0 && S_ISREG(sctStat.st_mode))) return fd;
    errno = S_ISDIR(sctStat.st_mode) ? EISDIR : EINVAL;
    return FD();
}

/* Hands every whole line of a file to pLine, with its place. sBuffer is for all files;
   it grows with the longest line. */
template<class F>
void v_LINES(const std::string& sPath, int iFile, std::string& sBuffer, F pLine)
{
    const FD fd = fdOPEN_LOG(sPath);
    if (!fd.bOpen()) {
        v_STDERR("cannot open \"%s\": %s", sPath.c_str(), std::strerror(errno));
        return;
    }
    size_t uHeld = 0;
    long   lOffset = 0;  // of the buffer's beginning
    while (true) {
        if (uHeld == sBuffer.size()) {
            if (sBuffer.size() >= uLINE_MAX) {
                lOffset += static_cast<long>(uHeld);  // skipped, in pieces
                uHeld = 0;
            } else {
                sBuffer.resize(2 * sBuffer.size());
            }
        }
        const ssize_t iRead = lREAD(fd.iGet(), sBuffer.data() + uHeld, sBuffer.size() - uHeld);
        if (iRead < 0) v_STDERR("cannot read \"%s\": %s", sPath.c_str(), std::strerror(errno));
        if (iRead <= 0) return;  // a last line without its end is still being written
        uHeld += static_cast<size_t>(iRead);
        const std::string_view svHeld(sBuffer.data(), uHeld);
        size_t                 uBegin = 0;
        for (size_t uEnd = 0; (uEnd = svHeld.find('\n', uBegin)) != svHeld.npos; uBegin = uEnd + 1)
            pLine(svHeld.substr(uBegin, uEnd - uBegin),
                  LINE_PLACE{iFile, lOffset + static_cast<long>(uBegin), uEnd - uBegin});
        std::memmove(sBuffer.data(), sBuffer.data() + uBegin, uHeld - uBegin);
        uHeld -= uBegin;
        lOffset += static_cast<long>(uBegin);
    }
}

/* ---- a line of the walk ----------------------------------------------------- */

/* Slices of what the walk looks at. */
struct SLICES {
    std::string_view svEnd, svClient, svTask, svExit, svId, svMessage, svHostKey, svStored;
    std::string_view svRollout, svVersionBefore;
};

struct SLICE_KEY {
    std::string_view svKey;
    std::string_view SLICES::*pSlice;
};
constexpr SLICE_KEY asctKey[] = {
    {"end", &SLICES::svEnd},
    {"client", &SLICES::svClient},
    {"task", &SLICES::svTask},
    {"exit", &SLICES::svExit},
    {"id", &SLICES::svId},
    {"msg", &SLICES::svMessage},
    {"host_key", &SLICES::svHostKey},
    {"stored", &SLICES::svStored},
    {"rollout", &SLICES::svRollout},
    {"version_before", &SLICES::svVersionBefore},
};

bool bSLICES(std::string_view svLine, SLICES& slices)
{
    LINE_KEYS        keys(svLine);
    std::string_view svKey;
    std::string_view svValue;
    while (keys.bNext(svKey, svValue))
        for (const SLICE_KEY& key : asctKey)
            if (svKey == key.svKey) {
                slices.*key.pSlice = svValue;
                break;
            }
    const bool bNobody = slices.svClient.empty() && !slices.svEnd.empty();
    return keys.bWhole() && (bNobody || !svINSIDE_QUOTES(slices.svClient).empty());
}

/* How a run counts. */
enum VERDICT { VERDICT_NONE, VERDICT_WELL, VERDICT_WARNED, VERDICT_FAILED, VERDICT_NOT_STARTED };

VERDICT eVERDICT(const SLICES& slices)
{
    if (slices.svExit == "null") return VERDICT_NOT_STARTED;
    int        iExit = 0;
    const auto end = slices.svExit.data() + slices.svExit.size();
    if (slices.svExit.empty() || std::from_chars(slices.svExit.data(), end, iExit).ptr != end)
        return VERDICT_NONE;
    if (iExit == 0) return VERDICT_WELL;
    // The version that a client has already is a failure by its exit code, and no trouble.
    return bRESTART_ID(svINSIDE_QUOTES(slices.svId)) ||
                   bSAME_VERSION(svINSIDE_QUOTES(slices.svMessage))
               ? VERDICT_WARNED
               : VERDICT_FAILED;
}

/* What an update's line says of the update; UPDATE_NONE: nothing. */
UPDATE_STATE eUPDATE_OF(const SLICES& slices, VERDICT eVerdict)
{
    const std::string_view svId = svINSIDE_QUOTES(slices.svId);
    if (eVerdict == VERDICT_NOT_STARTED) return UPDATE_NOT_STARTED;
    if (eVerdict == VERDICT_FAILED)
        return svId.starts_with("W006") || svId.starts_with("W007") ? UPDATE_WARNED : UPDATE_FAILED;
    if (bRESTART_ID(svId)) return UPDATE_RESTART;
    /* A second run that found the first one at work. */
    if (svINSIDE_QUOTES(slices.svMessage).starts_with("Update already running."))
        return UPDATE_NONE;
    return UPDATE_DONE;
}

void v_MARK_DAY(LOG_RECORD& record, const std::array<long, iSTRIP_DAYS + 1>& alDay, long lEnd,
                bool bFailed)
{
    if (lEnd < alDay.front() || lEnd >= alDay.back()) return;
    const auto      next = std::upper_bound(alDay.begin(), alDay.end(), lEnd);
    DAY_STATE&      eDay = record.aeDay[static_cast<size_t>(next - alDay.begin()) - 1];
    const DAY_STATE eRun = bFailed ? DAY_FAILED : DAY_WELL;
    eDay = eDay == DAY_NONE || eDay == eRun ? eRun : DAY_MIXED;
}

/* Takes a run into its client's record. */
void v_TAKE_RUN(LOG_RECORD& record, const SLICES& slices, VERDICT eVerdict, long lEnd,
                const LINE_PLACE& place)
{
    const std::string_view svTask = svINSIDE_QUOTES(slices.svTask);
    if (svTask == "update" || svTask == "servicepack")
        if (const UPDATE_STATE eUpdate = eUPDATE_OF(slices, eVerdict); eUpdate != UPDATE_NONE) {
            record.eUpdate = eUpdate;
            record.lUpdate = lEnd;
            record.update = place;
        }
    if (eVerdict == VERDICT_NOT_STARTED) return;
    if (record.lFirst == 0) record.lFirst = lEnd;
    record.last = place;
    record.lLast = lEnd;
    record.bStored = slices.svStored != "false";
    record.bRemoved = svTask == "remove" && eVerdict == VERDICT_WELL;
    record.bReal = record.bReal || !svINSIDE_QUOTES(slices.svId).starts_with("E006");
    if (const std::string_view svKey = svINSIDE_QUOTES(slices.svHostKey);
        !svKey.empty() && svKey != record.sHostKey)
        record.sHostKey = svKey;
    if (eVerdict == VERDICT_FAILED) {
        if (record.lSince == 0) record.lSince = lEnd;
        record.failure = place;
    } else {
        record.lSince = 0;
        record.failure = {};
        record.lWell = lEnd;
    }
}

/* The first run after a time: how the client stood then. */
void v_KEEP_PRIOR(LOG_RECORD& record, const SLICES& slices)
{
    record.bLater = true;
    record.bNew = record.lFirst == 0 && svINSIDE_QUOTES(slices.svTask) == "register";
    record.failureThen = record.failure;
    record.sVersionThen = svINSIDE_QUOTES(slices.svVersionBefore);
}

/* An update of many clients begins, or a client of it has ended. */
void v_TAKE_ROLLOUT(LOGS& logs, const SLICES& slices, const LINE_PLACE& place)
{
    const std::string_view svRollout = svINSIDE_QUOTES(slices.svRollout);
    if (slices.svClient.empty()) {
        logs.rollout = place;
        logs.sRollout = svRollout;
        logs.ended.clear();
    } else if (svRollout == logs.sRollout) {
        logs.ended.push_back(place);
    }
}

/* A text as it stands in a line, without its escapes. */
std::string sNAME(std::string_view svQuoted)
{
    const JSON name = JSON::parse(svQuoted, nullptr, false);
    return name.is_string() ? name.get<std::string>() : "";
}

LOG_RECORD& RECORD_OF(LOGS& logs, std::string_view svName)
{
    const auto known = logs.clients.find(svName);
    return known != logs.clients.end() ? known->second
                                       : logs.clients.emplace(svName, LOG_RECORD{}).first->second;
}

/* ---- a line in full ----------------------------------------------------------- */

std::string sTEXT(const JSON& line, const char* cpKey)
{
    const auto value = line.find(cpKey);
    if (value == line.end()) return "";
    if (value->is_string()) return value->get<std::string>();
    return value->is_number_integer() ? std::to_string(value->get<long>()) : "";
}

void v_FILL(const JSON& line, OUTCOME& outcome)
{
    struct TEXT_KEY {
        const char* cpKey;
        std::string OUTCOME::*pText;
    };
    constexpr TEXT_KEY asctText[] = {
        {"task", &OUTCOME::sTask},
        {"client_id", &OUTCOME::sClientId},
        {"id", &OUTCOME::sId},
        {"msg", &OUTCOME::sMessage},
        {"stage", &OUTCOME::sStage},
        {"cause", &OUTCOME::sCause},
        {"cure", &OUTCOME::sCure},
        {"command", &OUTCOME::sCommand},
        {"mode", &OUTCOME::sMode},
        {"host", &OUTCOME::sHost},
        {"port", &OUTCOME::sPort},
        {"host_key", &OUTCOME::sHostKey},
        {"sender", &OUTCOME::sSender},
        {"version_before", &OUTCOME::sVersionBefore},
        {"version_after", &OUTCOME::sVersionAfter},
    };
    for (const TEXT_KEY& key : asctText) outcome.*key.pText = sTEXT(line, key.cpKey);
    outcome.lBegin = lSECONDS_OF(sTEXT(line, "begin"));
    outcome.lEnd = lSECONDS_OF(sTEXT(line, "end"));
    if (const auto exit = line.find("exit"); exit != line.end() && exit->is_number_integer())
        outcome.iExit = exit->get<int>();
    else
        outcome.bStarted = false;
    if (const auto stored = line.find("stored"); stored != line.end() && stored->is_boolean())
        outcome.bStored = stored->get<bool>();
    if (const auto words = line.find("words"); words != line.end() && words->is_array())
        for (const JSON& word : *words)
            if (word.is_string()) outcome.asWords.push_back(word.get<std::string>());
    if (const auto ms = line.find("ms"); ms != line.end() && ms->is_object())
        if (const auto total = ms->find("total"); total != ms->end() && total->is_number())
            outcome.lMilliseconds = total->get<long>();
}

}  // namespace

std::string_view svMESSAGE_ID(std::string_view svMessage)
{
    constexpr std::string_view svTail = "-HOSTS";
    const size_t               uTail = 4;  // behind a letter and three digits
    if (svMessage.size() < uTail + svTail.size() ||
        svMessage.substr(uTail, svTail.size()) != svTail)
        return {};
    return svMessage.substr(0, uTail + svTail.size());
}

bool bRESTART_ID(std::string_view svId)
{
    return svId.starts_with("W004") || svId.starts_with("W005");
}

void v_READ_LOGS(const READ_WISH& wish, const std::array<long, iSTRIP_DAYS + 1>& alDay, LOGS& logs)
{
    const long lFrom = lDAY_BEGIN(wish.lNow, wish.iDays - 1);
    logs.asFile = asLOG_FILES(lFrom, logs.sError);
    const auto take = [&](std::string_view svLine, const LINE_PLACE& place) {
        SLICES slices;
        if (!bSLICES(svLine, slices)) {
            logs.lBad += !svLine.empty();
            return;
        }
        if (wish.bRollout && !slices.svRollout.empty()) v_TAKE_ROLLOUT(logs, slices, place);
        if (slices.svClient.empty()) return;  // a run that named no client
        const VERDICT eVerdict = eVERDICT(slices);
        const long    lEnd = lSECONDS_OF(svINSIDE_QUOTES(slices.svEnd));
        if (eVerdict == VERDICT_NONE || lEnd < lFrom) return;
        if (logs.lOldest == 0) logs.lOldest = lEnd;
        std::string      sDecoded;
        std::string_view svName = svINSIDE_QUOTES(slices.svClient);
        if (svName.find('\\') != svName.npos) svName = sDecoded = sNAME(slices.svClient);
        LOG_RECORD& record = RECORD_OF(logs, svName);
        if (wish.lSince != 0 && lEnd > wish.lSince && !record.bLater) v_KEEP_PRIOR(record, slices);
        if (eVerdict != VERDICT_NOT_STARTED)
            v_MARK_DAY(record, alDay, lEnd, eVerdict == VERDICT_FAILED);
        v_TAKE_RUN(record, slices, eVerdict, lEnd, place);
        if (svName == wish.sRunsOf) logs.runs.push_back(place);
    };
    std::string sBuffer(uBLOCK, '\0');
    for (size_t u = 0; u < logs.asFile.size(); u++)
        v_LINES(logs.asFile[u], static_cast<int>(u), sBuffer, take);
}

namespace {

/* The object of a line; none when it cannot be read any more. */
JSON LINE_AT(LOGS& logs, const LINE_PLACE& place)
{
    if (place.iFile < 0) return {};
    /* Lines of one file are asked for one after the other. */
    if (logs.iOpen != place.iFile)
        logs.fdOpen = fdOPEN_LOG(logs.asFile[static_cast<size_t>(place.iFile)]);
    logs.iOpen = place.iFile;
    std::string   sLine(place.uLength, '\0');
    const ssize_t iRead = logs.fdOpen.bOpen()
                              ? pread(logs.fdOpen.iGet(), sLine.data(), sLine.size(), place.lOffset)
                              : -1;
    return iRead == static_cast<ssize_t>(sLine.size()) ? JSON::parse(sLine, nullptr, false)
                                                       : JSON();
}

}  // namespace

int iREAD_OUTCOME(LOGS& logs, const LINE_PLACE& place, OUTCOME& outcome)
{
    const JSON line = LINE_AT(logs, place);
    if (!line.is_object()) return 0;
    v_FILL(line, outcome);
    return 1;
}

void v_READ_ROLLOUT(LOGS& logs, ROLLOUT_RUN& rollout)
{
    const JSON line = LINE_AT(logs, logs.rollout);
    if (!line.is_object()) return;
    const auto iNumber = [&](const char* cpKey) {
        const auto value = line.find(cpKey);
        return value != line.end() && value->is_number_integer() ? value->get<int>() : 0;
    };
    rollout.sRun = sTEXT(line, "rollout");
    rollout.sPackage = sTEXT(line, "package");
    rollout.lBegin = lSECONDS_OF(sTEXT(line, "begin"));
    rollout.iPilot = iNumber("pilot");
    rollout.iStopAfter = iNumber("stop_after");
    const auto v_TEXTS = [&](const char* cpKey, std::vector<std::string>& asText) {
        const auto texts = line.find(cpKey);
        if (texts == line.end() || !texts->is_array()) return;
        for (const JSON& text : *texts)
            if (text.is_string()) asText.push_back(text.get<std::string>());
    };
    v_TEXTS("arguments", rollout.asArgument);
    v_TEXTS("clients", rollout.asClient);
    for (const LINE_PLACE& place : logs.ended)
        if (const JSON end = LINE_AT(logs, place); end.is_object())
            v_FILL(end, rollout.ended[sTEXT(end, "client")] = OUTCOME());
}
