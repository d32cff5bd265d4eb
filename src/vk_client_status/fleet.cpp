/* How the fleet is put together: rows of the database, records of the outcome logs,
   semaphores of updates; and how a client is judged.

   The database says how a client stands and when it was last looked at. The logs say
   since when and why, and how updates ended: a row forgets a failed update with the
   client's next report, and knows nothing of updates that were refused or not begun. */
#include "fleet.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <unordered_map>

#include "common/common.h"
#include "common/package/eligibility.h"
#include "common/unix/cm_hal_semaphor.h"
#include "database_rows.h"
#include "log_records.h"
#include "moment.h"
#include "wording.h"

namespace {

/* ---- updates ------------------------------------------------------------------- */

constexpr std::string_view svSEMAPHORE = "update_client_";

/* What can be seen of the locks of updates. */
enum LOCKS { LOCKS_NONE, LOCKS_SOME, LOCKS_HIDDEN };

LOCKS eLOCKS()
{
    const std::string sDirectory = std::string(read_glbv("gv_rw")) + "sema";
    const std::unique_ptr<DIR, FREE_BY<closedir>> pDir{opendir(sDirectory.c_str())};
    LOCKS eSeen = pDir || errno == ENOENT ? LOCKS_NONE : LOCKS_HIDDEN;
    while (const dirent* pEntry = pDir ? readdir(pDir.get()) : nullptr) {
        if (!std::string_view(pEntry->d_name).starts_with(svSEMAPHORE)) continue;
        eSeen = LOCKS_SOME;
        if (faccessat(dirfd(pDir.get()), pEntry->d_name, R_OK, AT_EACCESS) == 0) continue;
        eSeen = errno == ENOENT ? eSeen : LOCKS_HIDDEN;
        if (eSeen == LOCKS_HIDDEN) break;
    }
    if (eSeen == LOCKS_HIDDEN)
        v_STDERR(
            "cannot read the locks in \"%s\": %s; an interrupted update looks like one under way",
            sDirectory.c_str(), std::strerror(errno));
    return eSeen;
}

/* Whether somebody holds the lock of that name (1), and when it was taken; 0: there is none. */
int iHELD(const std::string& sName, long& lTime)
{
    sct_semaphore sema{};
    iTEXT_SET(sema.szSema, sSHORT_NAME(sName, sizeof sema.szSema - 1));
    const int iHeld = i_SEMA('?', &sema);
    lTime = l_SEMA_TIME(&sema);
    return iHeld;
}

/* How the update's end stands in the row. */
UPDATE_STATE eUPDATE_OF_ROW(const CLIENT& client)
{
    const std::string_view svMessage = client.sUpdateMessage;
    if (client.sUpdateColumn == "0") return UPDATE_DONE;
    if (client.sUpdateColumn == "2") return UPDATE_FAILED;
    if (client.sUpdateColumn != "1") return UPDATE_NONE;
    return svMessage.starts_with("WARNING W004") || svMessage.starts_with("WARNING W005")
               ? UPDATE_RESTART
               : UPDATE_WARNED;
}

/* A restart was asked for at lAsked. A run that succeeded after that brought a report:
   with state 1 the client still waits (of other states the row says so itself), and a
   row that the report left as it was waits no longer. */
UPDATE_STATE eRESTART(const CLIENT& client, long lAsked)
{
    const bool bReported = client.lSucceeded > lAsked;
    if (!bReported) return UPDATE_RESTART;
    if (client.sUpdateColumn.empty()) return UPDATE_DONE;
    if (client.sUpdateColumn != "1") return eUPDATE_OF_ROW(client);
    return eUPDATE_OF_ROW(client) == UPDATE_RESTART ? UPDATE_WARNED : UPDATE_RESTART;
}

/* Begun and not ended: the lock tells whether somebody is at it, and its file when
   that began. */
void v_JUDGE_BEGUN(CLIENT& client, const LOG_RECORD* pLog, bool bRuns, long lLocked)
{
    client.eUpdate = bRuns ? UPDATE_RUNNING : UPDATE_INTERRUPTED;
    client.lUpdate = lLocked;
    if (client.lUpdate == 0 && pLog != nullptr) client.lUpdate = pLog->lUpdate;
}

/* A lock file that nobody holds is what a killed run has left, unless a run that ended since
   tells of another. Of a time before the logs nothing is known. */
bool bKILLED(const CLIENT& client, const LOG_RECORD* pLog, const LOGS& logs, long lLocked)
{
    return lLocked > std::max({client.lChecked, client.lUpdateColumn,
                               pLog != nullptr ? std::max(pLog->lLast, pLog->lUpdate) : 0L}) &&
           logs.lOldest != 0 && lLocked >= logs.lOldest;
}

void v_JUDGE_UPDATE(CLIENT& client, const LOG_RECORD* pLog, const LOGS& logs, LOCKS eLocks)
{
    long lLocked = 0;
    bool bHeld = false;
    if (eLocks != LOCKS_NONE || client.sUpdateColumn == "a")
        bHeld = iLOCKED(client.sName, lLocked) == 1;
    const bool bBegun = bHeld || client.sUpdateColumn == "a";
    if (bBegun || bKILLED(client, pLog, logs, lLocked)) {
        v_JUDGE_BEGUN(client, pLog, bHeld || (bBegun && eLocks == LOCKS_HIDDEN), lLocked);
        return;
    }
    client.eUpdate = eUPDATE_OF_ROW(client);
    client.lUpdate = client.lUpdateColumn;
    if (pLog != nullptr && pLog->eUpdate != UPDATE_NONE && pLog->lUpdate >= client.lUpdateColumn) {
        client.eUpdate = pLog->eUpdate;
        client.lUpdate = pLog->lUpdate;
    }
    if (client.eUpdate == UPDATE_RESTART) client.eUpdate = eRESTART(client, client.lUpdate);
}

/* Why the last update failed: its line of the log, or what the row keeps. */
void v_TAKE_UPDATE_WHY(CLIENT& client, const LOG_RECORD* pLog, LOGS& logs)
{
    if (client.eUpdate != UPDATE_FAILED && client.eUpdate != UPDATE_NOT_STARTED &&
        client.eUpdate != UPDATE_WARNED)
        return;
    OUTCOME outcome;
    outcome.sMessage =
        client.sUpdateMessage.substr(client.sUpdateMessage.starts_with("ERROR ")     ? 6
                                     : client.sUpdateMessage.starts_with("WARNING ") ? 8
                                                                                     : 0);
    if (pLog != nullptr && pLog->lUpdate == client.lUpdate)
        iREAD_OUTCOME(logs, pLog->update, outcome);
    client.sUpdateWhy = sWHY_OF(outcome.sCause, outcome.sStage, outcome.asWords, outcome.sMessage);
    client.sUpdateCause =
        outcome.sCause.empty() ? std::string(svMESSAGE_ID(outcome.sMessage)) : outcome.sCause;
}

/* ---- how a client stands --------------------------------------------------------- */

/* A failure that the database tells of and the logs do not has begun by then. */
void v_JUDGE_SINCE(CLIENT& client, const LOG_RECORD* pLog, const LOGS& logs)
{
    client.lSince = client.lChecked;
    client.bSinceExact =
        client.lSucceeded != 0 && logs.lOldest != 0 && client.lSucceeded >= logs.lOldest;
    if (pLog == nullptr || pLog->lSince == 0 || pLog->lSince <= client.lSucceeded) return;
    client.lSince = pLog->lSince;
    const bool bBefore = client.lSucceeded == 0 && pLog->lFirst >= lDAY_BEGIN(logs.lOldest, -1);
    client.bSinceExact = client.bSinceExact || pLog->lWell != 0 || bBefore;
}

CLIENT_STATE eSTATE(const CLIENT& client, const FLEET& fleet)
{
    if (!client.bTakesPart) return STATE_OFF;
    if (client.lChecked == 0) return STATE_NEVER;
    if (client.iAccessState != 0 && !bRESTART_ID(client.sMessageId) &&
        !bSAME_VERSION(client.sMessage))
        return STATE_FAILED;
    if (client.eUpdate == UPDATE_RESTART) return STATE_WARNED;
    return fleet.lNow - client.lChecked > fleet.iStaleDays * lDAY ? STATE_STALE : STATE_WELL;
}

/* A run stores its outcome and then writes its line. When the row tells of a later run
   than the logs, nothing is known of why that one failed. */
void v_TAKE_CAUSE(CLIENT& client, const LOG_RECORD& record, LOGS& logs)
{
    constexpr long lBETWEEN = 120;
    OUTCOME        outcome;
    if (record.lLast + lBETWEEN < client.lChecked || !iREAD_OUTCOME(logs, record.failure, outcome))
        return;
    client.sStage = std::move(outcome.sStage);
    client.sCause = std::move(outcome.sCause);
    client.sCure = std::move(outcome.sCure);
    client.sCommand = std::move(outcome.sCommand);
    client.asWords = std::move(outcome.asWords);
}

/* A run whose outcome could not be stored is known by its line alone. */
void v_TAKE_UNSTORED(CLIENT& client, const LOG_RECORD& record, LOGS& logs)
{
    OUTCOME outcome;
    if (record.bStored || record.lLast <= client.lChecked ||
        !iREAD_OUTCOME(logs, record.last, outcome))
        return;
    client.iAccessState = outcome.iExit;
    client.sMessage = outcome.sMessage;
    client.lChecked = record.lLast;
    client.lSucceeded = std::max(client.lSucceeded, record.lWell);
}

void v_JUDGE(CLIENT& client, LOGS& logs, const FLEET& fleet, LOCKS eLocks)
{
    const auto        known = logs.clients.find(client.sName);
    const LOG_RECORD* pLog = known == logs.clients.end() ? nullptr : &known->second;
    if (pLog != nullptr) {
        client.aeDay = pLog->aeDay;
        client.sHostKey = pLog->sHostKey;
        v_TAKE_UNSTORED(client, *pLog, logs);
    }
    client.sMessageId = svMESSAGE_ID(client.sMessage);
    v_JUDGE_UPDATE(client, pLog, logs, eLocks);
    v_TAKE_UPDATE_WHY(client, pLog, logs);
    client.eState = eSTATE(client, fleet);
    if (client.eState != STATE_FAILED) return;
    v_JUDGE_SINCE(client, pLog, logs);
    if (pLog != nullptr) v_TAKE_CAUSE(client, *pLog, logs);
}

/* Clients behind a data mover show its key, which is no news. */
void v_COMPARE_KEYS(std::vector<CLIENT>& clients)
{
    std::unordered_map<std::string_view, CLIENT*> first;
    for (CLIENT& client : clients) {
        if (client.sHostKey.empty() || !client.sDataMover.empty()) continue;
        const auto [other, bNew] = first.emplace(client.sHostKey, &client);
        if (bNew) continue;
        client.sSameKeyAs = other->second->sName;
        if (other->second->sSameKeyAs.empty()) other->second->sSameKeyAs = client.sName;
    }
}

/* ---- without the database ---------------------------------------------------------- */

/* What the logs tell of the clients that they name. */
void v_CLIENTS_OF_LOGS(LOGS& logs, std::vector<CLIENT>& clients)
{
    for (const auto& [sName, record] : logs.clients) {
        if (record.bRemoved || (!record.bReal && record.lLast != 0)) continue;
        OUTCOME outcome;
        CLIENT  client;
        client.sName = sName;
        client.lChecked = record.lLast;
        client.lSucceeded = record.lWell;
        if (iREAD_OUTCOME(logs, record.last, outcome)) {
            if (outcome.sClientId == "0") continue;  // the server itself, as in the database
            client.sId = outcome.sClientId;
            client.iAccessState = outcome.iExit;
            client.sMessage = outcome.sMessage;
            client.sMode = outcome.sMode;
            client.sVersion =
                outcome.sVersionAfter.empty() ? outcome.sVersionBefore : outcome.sVersionAfter;
            client.lVersion = l_cli_version(client.sVersion.c_str());
        }
        clients.push_back(std::move(client));
    }
}

/* How clients with a later run stood at wish.lSince. One that is removed has no row. */
void v_TAKE_PRIORS(LOGS& logs, PRIORS& priors)
{
    for (const auto& [sName, record] : logs.clients) {
        if (!record.bLater || !record.bReal) continue;
        OUTCOME last;  // of the server itself nothing is told, as of its row
        if (iREAD_OUTCOME(logs, record.last, last) && last.sClientId == "0") continue;
        PRIOR&  prior = priors[sName];
        OUTCOME failure;
        prior.bKnown = !record.bNew;
        prior.sVersion = record.sVersionThen;
        prior.bFailing = iREAD_OUTCOME(logs, record.failureThen, failure) == 1;
        prior.sCause = failure.sCause.empty() ? failure.sId : failure.sCause;
    }
}

/* The parent of an update of many lives as long as it holds the lock of its name. */
void v_TAKE_ROLLOUT(LOGS& logs, ROLLOUT_RUN& rollout)
{
    v_READ_ROLLOUT(logs, rollout);
    long lTime = 0;
    rollout.bParent = iHELD("rollout_" + rollout.sRun, lTime) == 1;
}

bool bBY_NAME(const CLIENT& a, const CLIENT& b)
{
    return a.sName < b.sName;
}

void v_READ_RUNS(LOGS& logs, size_t uRuns, std::vector<OUTCOME>& runs)
{
    for (auto place = logs.runs.rbegin(); place != logs.runs.rend() && runs.size() < uRuns; ++place)
        if (OUTCOME outcome; iREAD_OUTCOME(logs, *place, outcome))
            runs.push_back(std::move(outcome));
}

constexpr std::string_view asvState[] = {"failed", "warned", "stale", "never", "well", "off"};
static_assert(std::size(asvState) == STATE_COUNT);

constexpr std::string_view asvUpdate[] = {"",       "done",        "warned",      "restart",
                                          "failed", "not started", "interrupted", "running"};
static_assert(std::size(asvUpdate) == UPDATE_COUNT);

}  // namespace

int iLOCKED(const std::string& sName, long& lTime)
{
    return iHELD(std::string(svSEMAPHORE) + sName, lTime);
}

const std::string& sREASON(const CLIENT& client)
{
    return client.sCause.empty() ? client.sMessageId : client.sCause;
}

int iREAD_FLEET(const READ_WISH& wish, FLEET& fleet, std::vector<OUTCOME>& runs)
{
    fleet.lNow = wish.lNow;
    fleet.iStaleDays = wish.iStaleDays;
    for (int i = 0; i <= iSTRIP_DAYS; i++)
        fleet.alDay[static_cast<size_t>(i)] = lDAY_BEGIN(wish.lNow, iSTRIP_DAYS - 1 - i);
    fleet.bDatabase = iREAD_ROWS(wish.bServer, fleet.clients, fleet.sDatabaseError) == 1;
    if (fleet.bDatabase && !wish.bLogs) return 1;
    LOGS logs;
    v_READ_LOGS(wish, fleet.alDay, logs);
    fleet.lBadLines = logs.lBad;
    fleet.sLogError = logs.sError;
    if (!fleet.bDatabase) v_CLIENTS_OF_LOGS(logs, fleet.clients);
    if (!std::is_sorted(fleet.clients.begin(), fleet.clients.end(), bBY_NAME))
        std::sort(fleet.clients.begin(), fleet.clients.end(), bBY_NAME);
    const LOCKS eLocks = eLOCKS();
    for (CLIENT& client : fleet.clients) v_JUDGE(client, logs, fleet, eLocks);
    v_COMPARE_KEYS(fleet.clients);
    v_READ_RUNS(logs, static_cast<size_t>(wish.iRuns), runs);
    if (wish.lSince != 0) v_TAKE_PRIORS(logs, fleet.priors);
    if (wish.bRollout) v_TAKE_ROLLOUT(logs, fleet.rollout);
    return fleet.bDatabase || !fleet.clients.empty();
}

COUNTS sctCOUNT(const std::vector<const CLIENT*>& chosen)
{
    COUNTS counts;
    for (const CLIENT* pClient : chosen) {
        counts.aiState[pClient->eState]++;
        counts.aiUpdate[pClient->eUpdate]++;
        counts.iTakePart += pClient->bTakesPart ? 1 : 0;
    }
    return counts;
}

int iFAILED_UPDATES(const COUNTS& counts)
{
    return counts.aiUpdate[UPDATE_FAILED] + counts.aiUpdate[UPDATE_NOT_STARTED] +
           counts.aiUpdate[UPDATE_INTERRUPTED];
}

std::string_view svSTATE(CLIENT_STATE eState)
{
    return asvState[eState];
}

std::string_view svUPDATE(UPDATE_STATE eState)
{
    return asvUpdate[eState];
}
