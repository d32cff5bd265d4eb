/* A check or an update of many clients. The parent selects them (client_selection.h),
   starts the tool once for each as a child with the same task, up to "parallel" of them
   at a time, counts how they end, and reads back what a check stored. An update is
   rolled out as rollout.h says. It works on no client itself; the children write day
   protocol, info output and rows. What a child could not write, since it was not started
   or was killed, this run writes into the outcome log. */
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <string>
#include <string_view>
#include <vector>

#include "../common/config/config.h"
#include "../common/database/handed.h"
#include "../common/package/eligibility.h"
#include "../common/unix/observed_child.h"
#include "../common/unix/progress_line.h"
#include "child_lines.h"
#include "client_selection.h"
#include "rollout.h"
#include "run_outcome.h"
#include "vk_config_client.h"

namespace {

constexpr long        lREFRESH_MS = 1000;  // progress line
constexpr int         iGRACE_MS = 4200;    // for children of an interrupted run
constexpr int         iBY_SIGNAL = 128;    // and the signal: status of a child that was killed
constexpr const char* cpSEPARATOR = "=========================================";

/* The whole run. */
struct MULTI_RUN {
    SCT_ARGS*                pArg;
    char                     szSql[6144];  // report line, summary
    SELECTION                selection;
    SELECTED                 selected;
    int                      iRows;  // selected clients
    int                      iOk;
    int                      iFailed;
    std::vector<std::string> asName;   // of the selected clients
    std::vector<std::string> asOpen;   // of them, those that the task has still to be done for
    size_t                   uNext;    // of asName, to be started
    size_t                   uAtOnce;  // most children at a time
    std::list<CLIENT_CHILD>  running;
    PROGRESS                 progress;
    ROLLOUT                  rollout;
    CHILD_LINES              lines;  // that the clients' runs said
};

/* The task of this run, as words of a command line: it checks, or without a check it
   updates with this run's package, options and service pack. */
std::vector<std::string> asTASK(const SCT_ARGS* pArg)
{
    if (pArg->iCheck) return {"-C", pArg->szCheck};
    const bool               bPackage = pArg->eUpdate == update;
    const char*              cpOptions = bPackage ? pArg->szUpdateOptions : pArg->szOptions;
    std::vector<std::string> asWord{bPackage ? "-U" : "-S"};
    const auto               v_ADD = [&asWord](const char* cpOption, std::string sValue) {
        asWord.insert(asWord.end(), {cpOption, std::move(sValue)});
    };
    if (pArg->szPackage[0] != '\0') v_ADD("-P", pArg->szPackage);
    if (pArg->iForceUpdate) asWord.emplace_back("-F");
    if (cpOptions[0] != '\0') v_ADD("-O", cpOptions);
    if (pArg->iServicePack != 0) v_ADD("-e", std::to_string(pArg->iServicePack));
    return asWord;
}

/* The words of a child's command line, empty ones included. */
std::vector<std::string> asCHILD_COMMAND(const SCT_ARGS* pArg, const std::string& sName)
{
    std::vector<std::string>       asWord{"vk_config_client", "-c", sName};
    const std::vector<std::string> asTask = asTASK(pArg);
    asWord.insert(asWord.end(), asTask.begin(), asTask.end());
    return asWord;
}

/* The command that does this run's task for those that it was not done for. Of an update
   the view of the rollout knows the names, which may be too many to type. */
std::string sGO_ON(const MULTI_RUN* pRun)
{
    constexpr size_t         uFEW = 8;
    std::vector<std::string> asWord = asTASK(pRun->pArg);
    asWord.insert(asWord.begin(), "vk_config_client");
    asWord.emplace_back("--");
    if (!pRun->pArg->iCheck && pRun->asOpen.size() > uFEW)
        return "vk_client_status --rollout --names -0 | xargs -0r " + sTYPED(asWord);
    asWord.insert(asWord.end(), pRun->asOpen.begin(), pRun->asOpen.end());
    return sTYPED(asWord);
}

/* Keeps the names and lets the rows go, which may be many and stay for hours otherwise. */
void v_KEEP_NAMES(MULTI_RUN* pRun)
{
    for (const SELECTED::ROW& row : pRun->selected.rows) {
        char szReply[256];
        char szName[256] = "";
        iDB_SEL_GET(row.pList, row.iRow, szReply, &strLog, "name", szName, "d");
        if (bCLIENT_NAME(szName)) pRun->asName.emplace_back(szName);
    }
    pRun->iRows = static_cast<int>(pRun->asName.size());
    v_LET_GO(&pRun->selected);
}

/* Standard output of a client's run, which is its status line. */
void v_FORWARD(MULTI_RUN* pRun, const std::string& sText)
{
    if (sText.empty()) return;
    v_PROGRESS_CLEAR(&pRun->progress);
    std::fwrite(sText.data(), 1, sText.size(), stdout);
    std::fflush(stdout);
}

/* The clients that were not started are not started any more. Those of an update count
   as failed; a check counts those that it checked. */
void v_LEAVE_REST(MULTI_RUN* pRun, const std::string& sWhy)
{
    const std::vector<std::string> asRest(
        pRun->asName.begin() + static_cast<std::ptrdiff_t>(pRun->uNext), pRun->asName.end());
    pRun->uNext = pRun->asName.size();
    if (asRest.empty()) return;
    pRun->asOpen.insert(pRun->asOpen.end(), asRest.begin(), asRest.end());
    v_OUTCOME_NONE(pRun->pArg, asRest, "not started, since " + sWhy);
    if (pRun->pArg->iCheck) return;
    pRun->iFailed += static_cast<int>(asRest.size());
    v_PROGRESS_CLEAR(&pRun->progress);
    TELL("%s not started, since %s: %s", sCLIENTS(asRest.size()).c_str(), sWhy.c_str(),
         sTYPED(asRest).c_str());
}

/* The end of a client's run goes into the counts, and decides whether others follow. */
void v_COUNT(MULTI_RUN* pRun, const std::string& sName, CLIENT_END eEnd)
{
    (eEnd == CLIENT_UPDATED || eEnd == CLIENT_UPDATING ? pRun->iOk : pRun->iFailed)++;
    if (eEnd == CLIENT_FAILED && !pRun->pArg->iCheck) pRun->asOpen.push_back(sName);
    v_ROLLOUT_TAKE(&pRun->rollout, sName, eEnd);
    if (!pRun->rollout.sStopped.empty()) v_LEAVE_REST(pRun, pRun->rollout.sStopped);
}

/* What the status line says of an end that its exit status does not. */
CLIENT_END eEND(const CLIENT_CHILD& child)
{
    const size_t     uLine = child.sOut.rfind("\nSTATUS=");
    std::string_view svLine = child.sOut;
    svLine.remove_prefix(uLine == child.sOut.npos ? 0 : uLine + 1);
    if (child.child.iStatus == VK_SUCCESS)
        return svLine.starts_with(std::string("STATUS=SUCCESS MSG=\"") + cpALREADY_RUNNING)
                   ? CLIENT_UPDATING
                   : CLIENT_UPDATED;
    const bool bSame =
        svLine.starts_with("STATUS=ERROR MSG=\"" + sSAFE_LINE(sSAME_VERSION(child.sName)));
    const bool bRestart = svLine.starts_with("STATUS=ERROR MSG=\"W004") ||
                          svLine.starts_with("STATUS=ERROR MSG=\"W005");
    return bSame ? CLIENT_HAS_VERSION : bRestart ? CLIENT_TO_RESTART : CLIENT_FAILED;
}

/* Starts the run of the next client. Where this process has as many children as it can
   have, the client waits for one of them to end, and no more run at a time from then. */
void v_START_NEXT(MULTI_RUN* pRun)
{
    const std::string&             sName = pRun->asName[pRun->uNext];
    const std::vector<std::string> asWord = asCHILD_COMMAND(pRun->pArg, sName);
    TRACE("%s", cpSEPARATOR);
    TRACE("Call: %s", sTYPED(asWord).c_str());
    pRun->running.emplace_back();
    CLIENT_CHILD* pChild = &pRun->running.back();
    pChild->sName = sName;
    std::string sReason;
    v_PROGRESS_CLEAR(&pRun->progress);
    pRun->uNext++;
    const auto v_READY = [pChild](CHILD_SPEC& sctSpec) {
        const int iDatabase = pChild->iDatabase = iDB_HAND_OUT();
        sctSpec.iKept = iDB_HANDED_FD(iDatabase);
        sctSpec.pFirst = [iDatabase] { v_DB_TAKE_HANDED(iDatabase); };
    };
    if (iCLIENT_START(pChild, asWord, v_READY, sReason)) return;
    v_DB_HAND_BACK(pChild->iDatabase, true);
    pRun->running.pop_back();
    TRACE("%s", cpSEPARATOR);
    if (pRun->running.empty()) {
        TELL("%s: %s", sName.c_str(), sReason.c_str());
        v_OUTCOME_NONE(pRun->pArg, {sName}, "not started: " + sReason);
        v_COUNT(pRun, sName, CLIENT_FAILED);
        return;
    }
    pRun->uNext--;
    pRun->uAtOnce = pRun->running.size();
    TELL("%s; continuing with %zu clients at a time", sReason.c_str(), pRun->uAtOnce);
}

/* Writes what the child has left, its status line last. */
void v_WRITE_REST(MULTI_RUN* pRun, CLIENT_CHILD* pChild)
{
    std::string sForward;
    v_CLIENT_DRAIN(pChild, sForward);
    v_TAKE_CHILD_LINES(&pRun->lines, pChild->sName, sForward);
    if (!pChild->sOut.empty() && pChild->sOut.back() != '\n') pChild->sOut += '\n';
    v_FORWARD(pRun, pChild->sOut);
}

/* A child has ended. What one that was killed could not write is written for it. */
void v_TAKE_END(MULTI_RUN* pRun, const CLIENT_CHILD& child, bool bCount)
{
    const int iStatus = child.child.iStatus;
    if (iStatus > iBY_SIGNAL) {
        const int iSignal = iStatus - iBY_SIGNAL;
        v_OUTCOME_KILLED(pRun->pArg, child.sName, child.lPid, iSignal);
        if (bCount) TELL("%s: its run was ended by signal %d", child.sName.c_str(), iSignal);
    }
    v_DB_HAND_BACK(child.iDatabase, pRun->uNext < pRun->asName.size());
    if (bCount)
        v_COUNT(pRun, child.sName, eEND(child));
    else
        pRun->asOpen.push_back(child.sName);
}

/* Reads from every child, and takes leave of those that have ended. They count
   unless the run is a check that was interrupted. */
void v_ATTEND_CHILDREN(MULTI_RUN* pRun, bool bCount)
{
    for (auto it = pRun->running.begin(); it != pRun->running.end();) {
        std::string sForward;
        v_CLIENT_READ(&*it, sForward);
        v_TAKE_CHILD_LINES(&pRun->lines, it->sName, sForward);
        if (!iCHILD_ENDED(it->child)) {
            ++it;
            continue;
        }
        v_WRITE_REST(pRun, &*it);
        v_TAKE_END(pRun, *it, bCount);
        TRACE("%s", cpSEPARATOR);
        it = pRun->running.erase(it);
    }
}

/* Waits until a child has written or ended, or lUntil has come (0: never). The children
   bound their own waits. */
WAIT_RESULT eWAIT_FOR_CHILDREN(const MULTI_RUN* pRun, long lUntil)
{
    std::vector<WAIT_FD> fds;
    for (const CLIENT_CHILD& child : pRun->running) v_CLIENT_WAIT_FOR(&child, fds);
    return iWAIT(fds, lUntil);
}

void v_SHOW_PROGRESS(MULTI_RUN* pRun)
{
    std::string sAtWork;
    for (const CLIENT_CHILD& child : pRun->running) sAtWork += child.sName + " ";
    pRun->progress.sPhase = sROLLOUT_PHASE(&pRun->rollout);
    v_PROGRESS_SHOW(&pRun->progress,
                    static_cast<size_t>(pRun->iOk) + static_cast<size_t>(pRun->iFailed),
                    static_cast<size_t>(pRun->iFailed), sAtWork);
}

/* After an interrupt or a stop: how far the run came, and the command that goes on. */
void v_TELL_OPEN(MULTI_RUN* pRun, bool bComplete)
{
    if ((bComplete && pRun->rollout.sStopped.empty()) || pRun->asOpen.empty()) return;
    std::sort(pRun->asOpen.begin(), pRun->asOpen.end());
    TELL("%zu of %s done; to go on with the rest, type: %s",
         pRun->asName.size() - pRun->asOpen.size(), sCLIENTS(pRun->asName.size()).c_str(),
         sGO_ON(pRun).c_str());
}

/* Forms and prints the summary. Result: nothing failed. */
bool bSUMMARY(MULTI_RUN* pRun, int iCount, bool bComplete)
{
    x_Snprintf(pRun->szSql, sizeof pRun->szSql, "Checked %d clients: %d OK and %d failed.", iCount,
               pRun->iOk, pRun->iFailed);
    TRACE("%s", pRun->szSql);
    const bool bGood = bComplete && pRun->iFailed == 0;
    v_PROGRESS_CLEAR(&pRun->progress);
    v_TELL_CHILD_LINES(&pRun->lines);
    if (!pRun->pArg->iCheck) v_ROLLOUT_CLOSE(&pRun->rollout);
    v_TELL_OPEN(pRun, bComplete);
    std::printf("STATUS=%s MSG=%s\n", bGood ? "SUCCESS" : "ERROR", pRun->szSql);
    return bGood;
}

/* INT, TERM or HUP came: the children are told, and given a moment to give back
   what they hold. What those of a check were at counts neither as checked nor as failed;
   an update has failed unless it came to its end. */
[[noreturn]] void v_INTERRUPTED(MULTI_RUN* pRun)
{
    const bool bCount = pRun->pArg->iCheck == 0;
    for (const CLIENT_CHILD& child : pRun->running) v_CHILD_SIGNAL(child.child, SIGTERM);
    v_LEAVE_REST(pRun, "the run was interrupted");
    const long lUntil = lNOW_MS() + iGRACE_MS;
    while (!pRun->running.empty() && lNOW_MS() < lUntil) {
        eWAIT_FOR_CHILDREN(pRun, lUntil);
        v_ATTEND_CHILDREN(pRun, bCount);
    }
    for (CLIENT_CHILD& child : pRun->running) {
        v_CHILD_END(child.child, 0);
        v_TAKE_END(pRun, child, bCount);
    }
    pRun->running.clear();
    bSUMMARY(pRun, pRun->iOk + pRun->iFailed, false);
    std::fflush(stdout);
    v_END_BY_SIGNAL(iSIGNALLED());
}

/* Reads the rows of the selected clients. */
void v_SELECT(MULTI_RUN* pRun)
{
    char szReply[256] = "";
    if (!iSELECT(pRun->selection, &pRun->selected, szReply)) {
        if (iSIGNALLED() != 0) v_INTERRUPTED(pRun);
        v_END_RUN(pRun->pArg, VK_WARNING, MSG_E004, szReply);
    }
    pRun->iRows = static_cast<int>(pRun->selected.rows.size());
}

/* First pass: a child for every client, in order of name. */
void v_RUN_CHILDREN(MULTI_RUN* pRun)
{
    pRun->uAtOnce = static_cast<size_t>(iCONFIG_PARALLEL());
    v_ROLLOUT_BEGIN(pRun->pArg, &pRun->rollout, pRun->asName, asTASK(pRun->pArg));
    v_PROGRESS_START(&pRun->progress, pRun->asName.size());
    while (pRun->uNext < pRun->asName.size() || !pRun->running.empty()) {
        if (iSIGNALLED() != 0) v_INTERRUPTED(pRun);
        const size_t uAtOnce = bPILOT(&pRun->rollout) ? 1 : pRun->uAtOnce;
        if (pRun->uNext < pRun->asName.size() && pRun->running.size() < uAtOnce) {
            v_START_NEXT(pRun);
            continue;
        }
        v_SHOW_PROGRESS(pRun);
        const long lNext = pRun->progress.bTerminal ? lNOW_MS() + lREFRESH_MS : 0;
        if (eWAIT_FOR_CHILDREN(pRun, lNext) == WAIT_SIGNAL) v_INTERRUPTED(pRun);
        v_ATTEND_CHILDREN(pRun, true);
    }
    v_PROGRESS_CLEAR(&pRun->progress);
    v_TELL_CHILD_LINES(&pRun->lines);
}

/* Second pass: what the children of a check left in the rows. */
void v_REPORT(MULTI_RUN* pRun)
{
    int iClients = 0;
    for (const SELECTED::ROW& row : pRun->selected.rows) {
        char       szReply[256];
        char       szName[256] = "";
        char       szComment[512] = "";
        char       szOs[512] = "";
        char       szHw[512] = "";
        char       szPassword[256] = "";
        char       szOsPassword[256] = "";
        const char szVersion[] = "";
        iDB_SEL_GET(row.pList, row.iRow, szReply, &strLog, "name", szName, "comment", szComment,
                    "os", szOs, "hw_platform", szHw, "password", szPassword, "os_password",
                    szOsPassword, "d");
        if (!bCLIENT_NAME(szName)) continue;
        iClients++;
        const SECRETS_HERE secrets{szPassword, szOsPassword};  // the child's message may hold one
        x_Snprintf(pRun->szSql, sizeof pRun->szSql, "Client: %-64s %s %s %s Message: %s", szName,
                   szOs, szHw, szVersion, sMASKED(szComment).c_str());
        TRACE(": %s", pRun->szSql);
        std::printf("%s\n", sONE_LINE(pRun->szSql).c_str());
    }
    pRun->iRows = iClients;
}

/* What would fail for every client alike, or go on without the limits that were asked
   for, is refused before anybody is selected. */
void v_REQUIRE_UPDATE(MULTI_RUN* pRun)
{
    SCT_ARGS* pArg = pRun->pArg;
    if (!pArg->iCheck && pArg->szPackage[0] == '\0') {
        TELL("no package is given; name one with -P");
        v_CAUSE("package-not-given");
        v_REFUSE_RUN(pArg);
    }
    if (!iROLLOUT(pArg, &pRun->rollout)) v_REFUSE_RUN(pArg);
}

}  // namespace

void MULTI_CLIENT_RUN(SCT_ARGS* pArg, t_LL LL_ClientList)
{
    v_SIGNALS_TO_CALLER();
    v_OUTCOME_AT_SIGNAL(nullptr);  // its clients have lines of their own
    MULTI_RUN run = {};
    run.pArg = pArg;
    pArg->iRowStays = pArg->iOverMany = 1;  // whomever -c names
    v_REQUIRE_UPDATE(&run);
    run.selection = sctSELECTION(pArg, LL_ClientList);
    v_SELECT(&run);
    TRACE("Check %d clients", run.iRows);
    v_KEEP_NAMES(&run);
    if (run.selection.bByName)
        v_TELL_LEFT_OUT(run.asName, LL_ClientList);
    else if (run.asName.empty())
        TELL("no client matches location, system and exec");
    v_RUN_CHILDREN(&run);
    if (pArg->iCheck) {
        const int iSelected = run.iRows;
        v_SELECT(&run);
        v_REPORT(&run);
        if (pArg->szCheck[0] == 'd') run.iRows = iSelected;  // those removed have no row any more
    }
    v_END_PROCESS(bSUMMARY(&run, run.iRows, true) ? VK_SUCCESS : VK_ERROR);
}
