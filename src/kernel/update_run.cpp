/* Update of one client's software package (-U) or service pack (-S). Under the
   client's semaphore: the client must answer and may receive the package; script,
   keys, signature and package are copied there; the script runs; what it left is
   cleaned up; the client must answer again. update_state follows in the client's
   row: a (in progress) while the script runs, then 0 (success), 1 (warning) or
   2 (error). Every end gives the semaphore up first. */
#include "update_run.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "../common/base/immortal.h"
#include "../common/config/config.h"
#include "../common/log/outcome_log.h"
#include "../common/package/eligibility.h"
#include "restart_status.h"
#include "run_outcome.h"

namespace {

struct COPY {
    const char* cpTrace;
    const char* cpSource;  // %s: the script's extension
    const char* cpTarget;
    bool        bKey;  // of package signatures; an installation may have none
};
constexpr COPY asctCopy[] = {
    {"Copy 'vk_execute_update' to client", "gv_ro:skel/vk_execute_update%s",
     "gv_ro_bin:vk_execute_update%s", false},
    {"Copy 'qir-gpg.key' to client", "gv_ro:skel/qir-gpg.key", "gv_rw_work:qir-gpg.key", true},
    {"Copy 'qir-gpg-2026.key' to client", "gv_ro:skel/qir-gpg-2026.key",
     "gv_rw_work:qir-gpg-2026.key", true},
};

bool bPACKAGE_UPDATE(const UPDATE_RUN* pRun)
{
    return pRun->pArg->eUpdate == update;
}

/* The message of a package update, or of a service-pack update. */
void v_MESSAGE(UPDATE_RUN* pRun, MESSAGE_ID ePackage, MESSAGE_ID eServicepack, const char* cpDetail)
{
    MESSAGE(pRun->szMsg, bPACKAGE_UPDATE(pRun) ? ePackage : eServicepack, pRun->pArg->szNodeName,
            cpDetail);
}

[[noreturn]] void v_ALREADY_RUNNING(UPDATE_RUN* pRun)
{
    const char* cpSema = pRun->sctSema.szSema;
    x_Snprintf(pRun->szMsg, sizeof pRun->szMsg,
               "Update already running. Semaphore %s already exists. Nothing to be done.", cpSema);
    TRACE("--- UPDATE_CLIENT, semaphore %s already exists. Nothing to be done.", cpSema);
    ZFINISH(pRun->szMsg, VK_SUCCESS, 'n', pRun->pArg);
}

void v_NAME_SEMAPHORE(const SCT_ARGS* pArg, sct_semaphore* pSema)
{
    iTEXT_SET(pSema->szSema, sSHORT_NAME(std::string("update_client_") + pArg->szNodeName,
                                         sizeof pSema->szSema - 1));
    iTEXT_SET(pSema->szCaller, "vk_config_client");
}

/* Of two runs that both found the semaphore free, the later one ends here too. */
void v_TAKE_SEMAPHORE(UPDATE_RUN* pRun)
{
    sct_semaphore* pSema = &pRun->sctSema;
    v_NAME_SEMAPHORE(pRun->pArg, pSema);
    if (i_SEMA('?', pSema) == 1) v_ALREADY_RUNNING(pRun);
    const int iTaken = i_SEMA('+', pSema);
    if (iTaken == 0) v_ALREADY_RUNNING(pRun);
    if (iTaken < 0) {
        x_Snprintf(pRun->szMsg, sizeof pRun->szMsg, "Semaphore %s cannot be created: %s",
                   pSema->szSema, pSema->szMsg);
        v_CAUSE("lock-file", pSema->szMsg);
        ZFINISH(pRun->szMsg, VK_ERROR, 'n', pRun->pArg);
    }
    TRACE("got semaphore %s", pSema->szSema);
}

/* szInstalled is the version that the client answers with, empty for none. */
int iALIVE(const UPDATE_RUN* pRun, char (&szReply)[2048], char (&szInstalled)[256])
{
    char szVersion[256] = "";
    szReply[0] = '\0';
    const int iRet = alive_test_qtc(pRun->pArg->szNodeName, szReply, szVersion, "n", szInstalled,
                                    nullptr, strLog);
    v_VERSION_SEEN(szVersion, szInstalled);
    return iRet;
}

/* The backup server itself is not asked whether it answers. */
void v_REQUIRE_ALIVE(UPDATE_RUN* pRun)
{
    TRACE("Try to update client: %s...", pRun->pArg->szNodeName);
    if (std::strtol(pRun->szClientId, nullptr, 10) == 0) return;
    char szReply[2048];
    char szInstalled[256];
    if (iALIVE(pRun, szReply, szInstalled) != 0) return;
    TRACE("Return from alive test: %s", szReply);
    x_Snprintf(pRun->szMsg, sizeof pRun->szMsg, "Error from alive test: %s", szReply);
    v_UPDATE_END(pRun, VK_ERROR);
}

int iCOPY(const UPDATE_RUN* pRun, const char* cpSource, const char* cpTarget, const char* cpMode,
          char (&szReply)[256])
{
    szReply[0] = '\0';
    return REMOTE_COPY_CLIENT('p', pRun->pArg->szNodeName, cpSource, cpTarget, cpMode, szReply,
                              sizeof szReply, 0, 0, strLog);
}

/* Where a symbolic path lies on this server; empty when its key is unknown. */
std::string sON_SERVER(const char* cpSource)
{
    std::string sPath;
    std::string sReason;
    return iCONFIG_SERVER_PATH(cpSource, sPath, sReason) ? sPath : "";
}

/* A file of this server that can be copied; else errno says why not. */
bool bREADABLE(const std::string& sPath)
{
    std::error_code error;
    errno = EINVAL;  // for what is no file
    return access(sPath.c_str(), R_OK) == 0 && std::filesystem::is_regular_file(sPath, error);
}

/* What the update can do without is copied; where that fails, cpInstead says what
   becomes of the update. Result 1 copied. */
int iCOPY_OR_TELL(const UPDATE_RUN* pRun, const char* cpSource, const char* cpTarget,
                  const char* cpMode, const char* cpInstead)
{
    const std::string sPath = sON_SERVER(cpSource);
    char              szReply[256];
    if (!bREADABLE(sPath))
        TELL("cannot read \"%s\"; %s: %s", sPath.c_str(), cpInstead, std::strerror(errno));
    else if (!iCOPY(pRun, cpSource, cpTarget, cpMode, szReply))
        TELL("cannot copy \"%s\" to %s; %s: %s", sPath.c_str(), pRun->pArg->szNodeName, cpInstead,
             szReply);
    else
        return 1;
    return 0;
}

/* Removes a file from the work directory of the client. A name too long for the
   command is left there, which is told. */
void v_REMOVE(const UPDATE_RUN* pRun, const std::string& sName)
{
    const char* cpNode = pRun->pArg->szNodeName;
    char        szReply[2048];
    char        szCommand[256];
    if (iCMD(szCommand, eHOST_SHELL(cpNode), "vk_client -r -f usefile -n \"gv_rw_work:%s\" -m d",
             sName))
        i_RCMD_EXEC_LOG(cpNode, szCommand, 1, szReply, sizeof szReply, strLog);
    else
        TELL("cannot remove \"%s\" from %s: its name does not fit the command line", sName.c_str(),
             cpNode);
}

void v_REMOVE_SIGNATURES(const UPDATE_RUN* pRun)
{
    for (const char* cpSuffix : pRun->acpSignature)
        if (cpSuffix != nullptr) v_REMOVE(pRun, std::string(pRun->pArg->szPackage) + cpSuffix);
}

/* The copy has made the folders that the package's name has. */
void v_REMOVE_FOLDERS(const UPDATE_RUN* pRun)
{
    v_REMOVE_EMPTY_FOLDERS(pRun->pArg->szNodeName,
                           (std::string("gv_rw_work:") + pRun->pArg->szPackage).c_str(),
                           "gv_rw_work:", strLog);
}

/* A detached signature beside the package goes before it: a client that requires
   one must never see the package without. */
void v_COPY_SIGNATURES(UPDATE_RUN* pRun, const char* cpSource, const char* cpTarget)
{
    const char** pcpCopied = pRun->acpSignature;
    for (const char* cpSuffix : acpSIGNATURE_SUFFIX) {
        const std::string sSource = std::string(cpSource) + cpSuffix;
        const std::string sTarget = std::string(cpTarget) + cpSuffix;
        if (!file_exist(sON_SERVER(sSource.c_str()).c_str())) continue;
        TRACE("Copy signature '%s%s' to client", pRun->pArg->szPackage, cpSuffix);
        if (iCOPY_OR_TELL(pRun, sSource.c_str(), sTarget.c_str(), nullptr,
                          "the package is sent without it"))
            *pcpCopied++ = cpSuffix;
    }
}

[[noreturn]] void v_COPY_FAILED(UPDATE_RUN* pRun, const char* cpReason)
{
    char szDetail[256];
    x_Snprintf(szDetail, sizeof szDetail, "Copy of package file failed: %s", cpReason);
    MESSAGE(pRun->szMsg, MSG_E021, pRun->pArg->szNodeName, szDetail);
    v_UPDATE_END(pRun, VK_ERROR);
}

/* Where the package lies and where it goes. A cut name would arrive as another file than
   the one that the script is asked for. */
struct PACKAGE_PATHS {
    char szSource[512];
    char szTarget[512];
};
PACKAGE_PATHS sctPACKAGE_PATHS(UPDATE_RUN* pRun)
{
    PACKAGE_PATHS     paths{};
    const std::string sPackage = pRun->pArg->szPackage;
    if (!iTEXT_SET(paths.szSource, sPACKAGE_SOURCE(sPackage)) ||
        !iTEXT_SET(paths.szTarget, "gv_rw_work:" + sPackage))
        v_COPY_FAILED(pRun, "the package's path on the client is too long");
    return paths;
}

void v_COPY_PACKAGE(UPDATE_RUN* pRun, const PACKAGE_PATHS& paths)
{
    char szReply[256];
    v_COPY_SIGNATURES(pRun, paths.szSource, paths.szTarget);
    TRACE("Copy Velka package '%s' to client", pRun->pArg->szPackage);
    if (iCOPY(pRun, paths.szSource, paths.szTarget, nullptr, szReply) != 0) return;
    v_REMOVE_SIGNATURES(pRun);
    v_REMOVE_FOLDERS(pRun);
    v_COPY_FAILED(pRun, szReply);
}

/* The client looks at its keys only where the package has a signature. */
bool bSIGNED(const PACKAGE_PATHS& paths)
{
    return std::any_of(
        std::begin(acpSIGNATURE_SUFFIX), std::end(acpSIGNATURE_SUFFIX), [&](const char* cp) {
            return file_exist(sON_SERVER((std::string(paths.szSource) + cp).c_str()).c_str());
        });
}

/* Script and keys may be there already, so only the package must arrive. */
void v_COPY_TO_CLIENT(UPDATE_RUN* pRun)
{
    const PACKAGE_PATHS paths = sctPACKAGE_PATHS(pRun);
    const bool          bSigned = bSIGNED(paths);
    for (const COPY& copy : asctCopy) {
        TRACE("%s", copy.cpTrace);
        char szSource[512];
        char szTarget[512];
        x_Snprintf(szSource, sizeof szSource, copy.cpSource, pRun->cpExtension);
        x_Snprintf(szTarget, sizeof szTarget, copy.cpTarget, pRun->cpExtension);
        if (copy.bKey && !bSigned && !bREADABLE(sON_SERVER(szSource)))
            TRACE("cannot read \"%s\": %s", szSource, std::strerror(errno));
        else
            iCOPY_OR_TELL(pRun, szSource, szTarget, "755",
                          copy.bKey ? "the client checks signatures with the keys that it has"
                                    : "the client's older one is used");
    }
    v_COPY_PACKAGE(pRun, paths);
}

void v_FORM_COMMAND(UPDATE_RUN* pRun)
{
    const SCT_ARGS* pArg = pRun->pArg;
    const SHELL     eShell = eHOST_SHELL(pArg->szNodeName);
    const RAW_TEXT  extension{pRun->cpExtension};
    const RAW_TEXT  force{pArg->iForceUpdate == 1 ? " -f" : ""};
    const RAW_TEXT  kind{pArg->eUpdate == sp_update ? " -s" : ""};
    if (!pRun->bWindows && pArg->szUpdateOptions[0] != '\0')
        TELL("option -O is not used: not a Windows client");
    if (!pRun->bWindows)
        iCMD(pRun->szCommand, eShell, "vk_execute_update%s %s%s", extension, pArg->szPackage,
             force);
    else if (bPACKAGE_UPDATE(pRun) && pArg->szUpdateOptions[0] != '\0')
        iCMD(pRun->szCommand, eShell, "vk_execute_update%s %s%s%s -v 1 -o \"%s\"", extension,
             pArg->szPackage, force, kind, pArg->szUpdateOptions);
    else
        iCMD(pRun->szCommand, eShell, "vk_execute_update%s %s%s%s -v 1", extension, pArg->szPackage,
             force, kind);
}

/* The client whose update script runs; empty while none does. */
std::string& sSCRIPT_RUNS_ON()
{
    static IMMORTAL<std::string> sName;
    return sName.Get();
}

/* A run that a signal ends leaves the script to finish. */
void v_TELL_SCRIPT_LEFT()
{
    const std::string& sName = sSCRIPT_RUNS_ON();
    if (iSIGNALLED() == 0 || sName.empty()) return;
    TELL("%s: the update script keeps running; check the client later", sName.c_str());
}

/* Runs the update script; a script that reports success has succeeded, whatever
   its status. */
void v_RUN_SCRIPT(UPDATE_RUN* pRun, RCMD* pRcmd)
{
    iTEXT_SET(pRcmd->szClient, pRun->pArg->szNodeName);
    iTEXT_SET(pRcmd->szCmd, pRun->szCommand);
    iSLEEP_MS(iCONFIG_UPDATE_WAIT() * 1000L);
    TRACE("Execute update script: %s", pRun->szCommand);
    v_STATE_IN_PROGRESS(pRun);
    v_AT_END(v_TELL_SCRIPT_LEFT);
    sSCRIPT_RUNS_ON() = pRun->pArg->szNodeName;
    sctRUN_RECORD().sVersionAfter.clear();  // only the client knows, when it answers again
    pRun->iStatus = i_RCMD(pRcmd, strLog);
    sSCRIPT_RUNS_ON().clear();
    pRun->pArg->iUpdated = 1;
    if (pRun->iStatus != 0 && std::string_view(pRcmd->szSts) == "SUCCESS") {
        TRACE("Set exit status for %d to 0, because 'STATUS=SUCCESS' found", pRun->iStatus);
        pRun->iStatus = 0;
    }
}

void v_JUDGE_SCRIPT(UPDATE_RUN* pRun, const RCMD* pRcmd)
{
    if (pRun->iStatus == 0) return;
    if (bRESTART_STATUS(pRun->iStatus)) {
        TRACE("Update script ended with warning: %d", pRun->iStatus);
        v_MESSAGE(pRun, MSG_W004, MSG_W005, pRcmd->szMsg);
        TRACE("Executed update script: %s", pRun->szCommand);
        v_STATE_WARNING(pRun);
    } else {
        TRACE("Update script failed: %d", pRun->iStatus);
        v_MESSAGE(pRun, MSG_E021, MSG_E022, pRcmd->szMsg);
        TRACE("Executed update script: %s", pRun->szCommand);
        v_STATE_ERROR(pRun);
    }
}

/* Removes what the update left on the client. */
void v_CLEAN_UP(const UPDATE_RUN* pRun)
{
    if (pRun->bWindows) {
        char szReply[2048];
        for (const char* cpCommand :
             {"vk_client -r -f usefile -n \"gv_ro_bin:velka_update\" -m D",
              "vk_client -r -f usefile -n \"gv_rw_work:velka_update\" -m D"})
            i_RCMD_EXEC_LOG(pRun->pArg->szNodeName, cpCommand, 1, szReply, sizeof szReply, strLog);
    }
    v_REMOVE(pRun, pRun->pArg->szPackage);
    v_REMOVE_SIGNATURES(pRun);
    v_REMOVE_FOLDERS(pRun);
}

/* A script may say success and leave the old version, or another one. */
void v_COMPARE_ANSWER(const UPDATE_RUN* pRun, const char* cpInstalled)
{
    if (cpInstalled[0] == '\0' || l_cli_version(cpInstalled) == pRun->lVersion) return;
    TELL("%s reports %s, not %s", pRun->pArg->szNodeName, cpInstalled, pRun->szVersion);
}

/* After a script that succeeded the client must answer once more. */
void v_CHECK_RESULT(UPDATE_RUN* pRun)
{
    if (pRun->iStatus != 0) return;
    char szReply[2048];
    char szInstalled[256];
    if (iALIVE(pRun, szReply, szInstalled) == 0) {
        TRACE("Error from alive test: %s", szReply);
        v_MESSAGE(pRun, MSG_W006, MSG_W007, szReply);
        pRun->iStatus = 1;
        v_STATE_WARNING(pRun);
    } else {
        TRACE("Return from alive test successfully: %s", szReply);
        v_COMPARE_ANSWER(pRun, szInstalled);
        v_MESSAGE(pRun, MSG_I013, MSG_I016, pRun->pArg->szPackage);
        v_STATE_SUCCESS(pRun);
    }
}

}  // namespace

int iUPDATE_RUNS(const SCT_ARGS* pArg)
{
    sct_semaphore sctSema = {};
    v_NAME_SEMAPHORE(pArg, &sctSema);
    return i_SEMA('?', &sctSema);
}

void UPDATE_CLIENT(SCT_ARGS* pArg)
{
    TRACE("+++ UPDATE_CLIENT");
    UPDATE_RUN run = {};
    run.pArg = pArg;
    const auto pRcmd = std::make_unique<RCMD>();
    v_TAKE_SEMAPHORE(&run);
    if (!iREAD_CLIENT(&run)) {
        iTEXT_SET(run.szMsg, "Error in DB access");
        v_UPDATE_END(&run, VK_ERROR);
    }
    v_REQUIRE_ALIVE(&run);
    v_CHECK_PACKAGE(&run);
    v_COPY_TO_CLIENT(&run);
    v_FORM_COMMAND(&run);
    v_RUN_SCRIPT(&run, pRcmd.get());
    v_JUDGE_SCRIPT(&run, pRcmd.get());
    v_CLEAN_UP(&run);
    v_CHECK_RESULT(&run);
    v_UPDATE_END(&run, run.iStatus >= 0 && run.iStatus <= 9 ? run.iStatus : VK_WARNING);
}
