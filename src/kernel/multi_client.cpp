/* A check or an update of many clients. The parent selects them, starts the tool
   once for each as a child with the same task, up to "parallel" of them at a time,
   counts how they end, and reads back what a check stored. It works on no client
   itself; the children write day protocol, info output and rows. */
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <vector>

#include "../common/config/config.h"
#include "../common/unix/observed_child.h"
#include "../common/unix/progress_line.h"
#include "vk_config_client.h"

namespace {

constexpr size_t      uLIST_LIMIT = 2048;  // selection with a name list, terminator included
constexpr long        lREFRESH_MS = 1000;  // progress line
constexpr int         iGRACE_MS = 10000;   // for children of an interrupted run
constexpr const char* cpSEPARATOR = "=========================================";

struct SELECTION {
    char szWhere[4096];
    bool bTooLong;  // the name list does not fit; nothing may be selected with it
};

/* The whole run. */
struct MULTI_RUN {
    SCT_ARGS*               pArg;
    char                    szSql[6144];  // the selection; later report line and summary
    DB_REC_LIS              sctList;
    int                     iRows;
    int                     iOk;
    int                     iFailed;
    std::string             sNames;  // of the selected clients, each with its terminator
    std::list<CLIENT_CHILD> running;
    PROGRESS                progress;
};

/* "where name in ('a','b') and " */
std::string sNAME_LIST(t_LL LL_ClientList)
{
    std::string sWhere = "where name in (";
    for (void* pName = FirstElmLL(LL_ClientList); IsElmLL(pName); pName = NextElmLL(pName)) {
        char szQuoted[1024];
        iSQL(szQuoted, "'%s',", static_cast<const char*>(pName));
        sWhere += szQuoted;
    }
    sWhere.pop_back();
    return sWhere + ") and ";
}

/* The condition in front of exec='1'. Location and operating system count only for
   all clients, and each replaces what stood before. */
void v_SELECT(const SCT_ARGS* pArg, t_LL LL_ClientList, SELECTION* pSelection)
{
    iTEXT_SET(pSelection->szWhere, "where ");
    if (SizeLL(LL_ClientList) > 0) {
        const std::string sList = sNAME_LIST(LL_ClientList);
        pSelection->bTooLong = sList.size() >= uLIST_LIMIT;
        iTEXT_SET(pSelection->szWhere, sList);
    }
    if (std::strcmp(pArg->szNodeName, "ALL_CLIENTS") != 0) return;
    if (bGIVEN(pArg->szLocationId)) {
        iSQL(pSelection->szWhere, "where location='%s' and ", pArg->szLocationId);
        pSelection->bTooLong = false;
    }
    if (bGIVEN(pArg->szOpersys)) {
        iSQL(pSelection->szWhere, "where os like '%s%%' and ", LIKE_TEXT{pArg->szOpersys});
        pSelection->bTooLong = false;
    }
}

[[noreturn]] void v_ACCESS_FAILED(SCT_ARGS* pArg, const char* cpDetail)
{
    char szMsg[1024];
    MESSAGE_FITTED(szMsg, MSG_E004, cpDetail);
    ZFINISH(szMsg, VK_WARNING, 'n', pArg);
}

/* Keeps the names and lets the rows go, which may be many and stay for hours
   otherwise. */
void v_KEEP_NAMES(MULTI_RUN* pRun)
{
    char szReply[256];
    for (int iRow = 1; iRow <= pRun->iRows; ++iRow) {
        char szName[256] = "";
        iDB_SEL_GET(&pRun->sctList, iRow, szReply, &strLog, "name", szName, "d");
        pRun->sNames.append(szName).push_back('\0');
    }
    pRun->sNames.shrink_to_fit();
    DB_LET_GO(&pRun->sctList);
}

/* The child works as the parent was asked to: it checks, or without a check it
   updates with the parent's package, options and service pack. Empty when a value
   cannot stand in a command. */
template<size_t N>
int iCHILD_COMMAND(const SCT_ARGS* pArg, const char* cpName, char (&szCmd)[N])
{
    if (pArg->iCheck)
        return iCMD(szCmd, SHELL_POSIX, "vk_config_client -c %s -C %s", cpName, pArg->szCheck);
    char        szPackage[N] = "";
    char        szOptions[N] = "";
    char        szService[32] = "";
    const bool  bPackage = pArg->eUpdate == update;
    const char* cpOptions = bPackage ? pArg->szUpdateOptions : pArg->szOptions;
    if (pArg->szPackage[0] != '\0' && !iCMD(szPackage, SHELL_POSIX, " -P %s", pArg->szPackage))
        return 0;
    if (cpOptions[0] != '\0' && !iCMD(szOptions, SHELL_POSIX, " -O %s", cpOptions)) return 0;
    if (pArg->iServicePack != 0) iCMD(szService, SHELL_POSIX, " -e %d", pArg->iServicePack);
    return iCMD(szCmd, SHELL_POSIX, "vk_config_client -c %s %s%s%s%s%s", cpName,
                RAW_TEXT{bPackage ? "-U" : "-S"}, RAW_TEXT{szPackage},
                RAW_TEXT{pArg->iForceUpdate ? " -F" : ""}, RAW_TEXT{szOptions},
                RAW_TEXT{szService});
}

void v_FORWARD(MULTI_RUN* pRun, const std::string& sText, FILE* pTo)
{
    if (sText.empty()) return;
    v_PROGRESS_CLEAR(&pRun->progress);
    std::fwrite(sText.data(), 1, sText.size(), pTo);
    std::fflush(pTo);
}

void v_START_CHILD(MULTI_RUN* pRun, const char* cpName)
{
    char      szCmd[8192];
    const int iFormed = iCHILD_COMMAND(pRun->pArg, cpName, szCmd);
    TRACE("%s", cpSEPARATOR);
    TRACE("Call: %s", szCmd);
    pRun->running.emplace_back();
    CLIENT_CHILD* pChild = &pRun->running.back();
    pChild->sName = cpName;
    v_PROGRESS_CLEAR(&pRun->progress);
    if (!iFormed) v_STDERR("cannot form the command for client \"%s\"", cpName);
    if (!iFormed || !iCLIENT_START(pChild, szCmd)) {
        pRun->iFailed++;
        pRun->running.pop_back();
        TRACE("%s", cpSEPARATOR);
        return;
    }
    pChild->lDeadline = lNOW_MS() + lLOCAL_COMMAND_LIMIT_MS();
}

/* Writes what the child has left, its status line last. */
void v_WRITE_REST(MULTI_RUN* pRun, CLIENT_CHILD* pChild)
{
    std::string sForward;
    v_CLIENT_DRAIN(pChild, sForward);
    v_FORWARD(pRun, sForward, stderr);
    if (!pChild->sOut.empty() && pChild->sOut.back() != '\n') pChild->sOut += '\n';
    v_FORWARD(pRun, pChild->sOut, stdout);
}

/* 1 when the child's process has ended, or was ended past its limit. */
int iCHILD_IS_DONE(CLIENT_CHILD* pChild)
{
    if (iCHILD_ENDED(pChild->child)) return 1;
    if (lNOW_MS() < pChild->lDeadline) return 0;
    v_STDERR("client \"%s\": no end within the time limit, ended", pChild->sName.c_str());
    v_CHILD_END(pChild->child, iGRACE_MS);
    pChild->child.iStatus = -1;
    return 1;
}

/* Reads from every child, and takes leave of those that have ended. They count
   unless the run was interrupted. */
void v_ATTEND_CHILDREN(MULTI_RUN* pRun, bool bCount)
{
    for (auto it = pRun->running.begin(); it != pRun->running.end();) {
        std::string sForward;
        v_CLIENT_READ(&*it, sForward);
        v_FORWARD(pRun, sForward, stderr);
        if (!iCHILD_IS_DONE(&*it)) {
            ++it;
            continue;
        }
        v_WRITE_REST(pRun, &*it);
        if (bCount) (it->child.iStatus == 0 ? pRun->iOk : pRun->iFailed)++;
        TRACE("%s", cpSEPARATOR);
        it = pRun->running.erase(it);
    }
}

/* Waits until a child has written or ended, or lUntil has come. */
WAIT_RESULT eWAIT_FOR_CHILDREN(const MULTI_RUN* pRun, long lUntil)
{
    std::vector<WAIT_FD> fds;
    for (const CLIENT_CHILD& child : pRun->running) {
        v_CLIENT_WAIT_FOR(&child, fds);
        lUntil = lUntil == 0 ? child.lDeadline : std::min(lUntil, child.lDeadline);
    }
    return iWAIT(fds, lUntil);
}

void v_SHOW_PROGRESS(MULTI_RUN* pRun)
{
    std::string sAtWork;
    for (const CLIENT_CHILD& child : pRun->running) sAtWork += child.sName + " ";
    v_PROGRESS_SHOW(&pRun->progress,
                    static_cast<size_t>(pRun->iOk) + static_cast<size_t>(pRun->iFailed),
                    static_cast<size_t>(pRun->iFailed), sAtWork);
}

/* Forms and prints the summary. Result: nothing failed. */
bool bSUMMARY(MULTI_RUN* pRun, int iCount, bool bComplete)
{
    x_Snprintf(pRun->szSql, sizeof pRun->szSql, "Checked %d clients: %d OK and %d failed.", iCount,
               pRun->iOk, pRun->iFailed);
    TRACE("%s", pRun->szSql);
    const bool bGood = bComplete && pRun->iFailed == 0;
    v_PROGRESS_CLEAR(&pRun->progress);
    std::printf("STATUS=%s MSG=%s\n", bGood ? "SUCCESS" : "ERROR", pRun->szSql);
    return bGood;
}

/* INT, TERM or HUP came: the children are told, and given a moment to give back
   what they hold. What they were at counts neither as checked nor as failed. */
[[noreturn]] void v_INTERRUPTED(MULTI_RUN* pRun)
{
    for (const CLIENT_CHILD& child : pRun->running) v_CHILD_SIGNAL(child.child, SIGTERM);
    const long lUntil = lNOW_MS() + iGRACE_MS;
    while (!pRun->running.empty() && lNOW_MS() < lUntil) {
        eWAIT_FOR_CHILDREN(pRun, lUntil);
        v_ATTEND_CHILDREN(pRun, false);
    }
    for (CLIENT_CHILD& child : pRun->running) v_CHILD_END(child.child, 0);
    pRun->running.clear();
    bSUMMARY(pRun, pRun->iOk + pRun->iFailed, false);
    std::fflush(stdout);
    v_END_BY_SIGNAL(iSIGNALLED());
}

/* Fills the list with the selected clients; the reply is their number. */
void v_FILL_LIST(MULTI_RUN* pRun, const char* cpSelection)
{
    char szReply[256] = "";
    if (!iDB_ACCESS(cpSelection, szReply, &pRun->sctList, strLog)) {
        if (iSIGNALLED() != 0) v_INTERRUPTED(pRun);
        v_ACCESS_FAILED(pRun->pArg, szReply);
    }
    pRun->iRows = static_cast<int>(std::strtol(szReply, nullptr, 10));
}

/* First pass: a child for every client, in order of name. */
void v_RUN_CHILDREN(MULTI_RUN* pRun)
{
    const size_t uAtOnce = static_cast<size_t>(iCONFIG_PARALLEL());
    const char*  cpName = pRun->sNames.c_str();
    const char*  cpEnd = cpName + pRun->sNames.size();
    v_PROGRESS_START(&pRun->progress, static_cast<size_t>(pRun->iRows));
    while (cpName < cpEnd || !pRun->running.empty()) {
        if (iSIGNALLED() != 0) v_INTERRUPTED(pRun);
        if (cpName < cpEnd && pRun->running.size() < uAtOnce) {
            v_START_CHILD(pRun, cpName);
            cpName += std::strlen(cpName) + 1;
            continue;
        }
        v_SHOW_PROGRESS(pRun);
        const long lNext = pRun->progress.bTerminal ? lNOW_MS() + lREFRESH_MS : 0;
        if (eWAIT_FOR_CHILDREN(pRun, lNext) == WAIT_SIGNAL) v_INTERRUPTED(pRun);
        v_ATTEND_CHILDREN(pRun, true);
    }
    v_PROGRESS_CLEAR(&pRun->progress);
}

/* Second pass: what the children of a check left in the rows. */
void v_REPORT(MULTI_RUN* pRun)
{
    for (int iRow = 1; iRow <= pRun->iRows; ++iRow) {
        char       szReply[256];
        char       szName[256] = "";
        char       szComment[512] = "";
        char       szOs[512] = "";
        char       szHw[512] = "";
        const char szVersion[] = "";
        iDB_SEL_GET(&pRun->sctList, iRow, szReply, &strLog, "name", szName, "comment", szComment,
                    "os", szOs, "hw_platform", szHw, "d");
        x_Snprintf(pRun->szSql, sizeof pRun->szSql, "Client: %-64s %s %s %s Message: %s", szName,
                   szOs, szHw, szVersion, szComment);
        TRACE(": %s", pRun->szSql);
        std::printf("%s\n", sONE_LINE(pRun->szSql).c_str());
    }
}

}  // namespace

void MULTI_CLIENT_RUN(SCT_ARGS* pArg, t_LL LL_ClientList)
{
    v_SIGNALS_TO_CALLER();
    MULTI_RUN run = {};
    run.pArg = pArg;
    run.sctList = {"CONFIG_CLIENT", 0, 0, nullptr, nullptr};
    SELECTION sctSelection = {};
    v_SELECT(pArg, LL_ClientList, &sctSelection);
    if (sctSelection.bTooLong) v_ACCESS_FAILED(pArg, "list of clients longer than 2047 characters");
    char szSelection[6144];
    iSQL(szSelection, "select * from clients %s(exec='1') order by name",
         RAW_TEXT{sctSelection.szWhere});

    v_FILL_LIST(&run, szSelection);
    TRACE("Check %d clients", run.iRows);
    v_KEEP_NAMES(&run);
    v_RUN_CHILDREN(&run);
    if (pArg->iCheck) {
        v_FILL_LIST(&run, szSelection);
        v_REPORT(&run);
    }
    v_END_PROCESS(bSUMMARY(&run, run.iRows, true) ? VK_SUCCESS : VK_ERROR);
}
