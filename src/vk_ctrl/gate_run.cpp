/* Programs of the backup client, and the listing of the root directory. */
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "common/base/descriptor.h"
#include "common/base/holder.h"
#include "common/base/program.h"
#include "common/config/variables.h"
#include "common/lines/standard_error.h"
#include "common/remote/wrapper.h"
#include "common/text/text.h"
#include "common/unix/cm_hal_pipe.h"
#include "gate.h"

namespace {

constexpr int    iEND_GRACE_MS = 3000;
constexpr long   lLISTENER_MS = 60'000;  // a server that takes no output for that long is gone
constexpr int    iNOT_RUN = 127;         // as a shell says of what it cannot run
constexpr size_t uPIECE = 4096;          // what a descriptor that is ready takes at once

/* Waits for the end of the child; the end of standard input ends it. What else
   comes in is no request. */
void LIFELINE(CHILD& child)
{
    char acBuf[uPIECE];
    while (!iCHILD_ENDED(child)) {
        std::vector<WAIT_FD> fds{{child.fdExit.iGet()}, {STDIN_FILENO}};
        iWAIT(fds, 0);
        if (!fds[1].bReady || fds[0].bReady) continue;
        const ssize_t iGot = lREAD(STDIN_FILENO, acBuf, sizeof acBuf);
        if (iGot == 0 || (iGot < 0 && errno != EAGAIN)) return v_CHILD_END(child, iEND_GRACE_MS);
    }
}

/* Hands a piece of output on. Result 0: nobody listens any more. */
int iHAND_ON(std::string_view svPiece)
{
    std::vector<WAIT_FD> fds{{STDOUT_FILENO, true}};
    return iWAIT(fds, lNOW_MS() + lLISTENER_MS) == WAIT_READY && iSAY(svPiece);
}

/* Output of a child that is left to finish goes on as long as somebody listens and
   is thrown away from then on, so that no broken pipe ends it. */
void HAND_ON_UNTIL_END(CHILD& child)
{
    bool bListening = true;
    bool bEnded = false;
    while (child.fdOut.bOpen() || !bEnded) {
        bEnded = iCHILD_ENDED(child) != 0;
        std::string sPiece;
        const bool  bMore = uREAD_NOW(child.fdOut, sPiece, uPIECE) > 0;
        if (bMore && bListening) bListening = iHAND_ON(sPiece) != 0;
        if (bMore) continue;
        if (bEnded) return;  // what it left behind may hold its output open
        std::vector<WAIT_FD> fds{{child.fdExit.iGet()}, {child.fdOut.iGet()}};
        iWAIT(fds, 0);
    }
}

/* What the script has started, such as a service, may go on writing: its output is
   read, and thrown away, for as long as it does. */
void SWALLOW(CHILD& child)
{
    const FD fdNull(open("/dev/null", O_RDWR | O_CLOEXEC));
    for (const int iFd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(fdNull.iGet(), iFd);
    while (child.fdOut.bOpen()) {
        std::vector<WAIT_FD> fds{{child.fdOut.iGet()}};
        iWAIT(fds, 0);
        std::string sThrownAway;
        uREAD_NOW(child.fdOut, sThrownAway, uPIECE);
    }
}

int iRUN_TO_FINISH(const REQUEST& request, CHILD_SPEC& sctSpec, CHILD& child, std::string& sReason)
{
    for (const int iSignal : {SIGHUP, SIGINT, SIGTERM}) signal(iSignal, SIG_IGN);
    sctSpec.bOutlives = true;
    if (!iCHILD_START(child, sctSpec, sReason)) return -1;
    HAND_ON_UNTIL_END(child);
    const int iExit = iANSWER_END(request, child.iStatus);
    SWALLOW(child);
    return iExit;
}

int iRUN_ON_LIFELINE(const REQUEST& request, CHILD_SPEC& sctSpec, CHILD& child,
                     std::string& sReason)
{
    sctSpec.bPipeOut = false;  // it writes to the server itself
    if (!iCHILD_START(child, sctSpec, sReason)) return -1;
    LIFELINE(child);
    return iANSWER_END(request, child.iStatus);
}

/* Nobody but root, or the account itself, can put something else into its place. */
int iONES_OWN(const std::string& sPath, std::string& sReason)
{
    struct stat sctStat {};
    if (lstat(sPath.c_str(), &sctStat) != 0) return iCANNOT("read", sPath, sReason);
    if ((sctStat.st_uid == 0 || sctStat.st_uid == geteuid()) &&
        (sctStat.st_mode & (S_IWGRP | S_IWOTH)) == 0 && !S_ISLNK(sctStat.st_mode))
        return 1;
    return iREASON(
        sReason,
        "\"" + sPath + "\" is a link, or others than root may change it, so it is not trusted");
}

/* The keys that sign packages, and the places that stand between check and use. */
int iSIGNING_KEYS(const std::string& sFolder, std::string& sReason)
{
    std::string sWork;
    std::string sIni;
    iCONFIG_VARIABLE("gv_rw_work", sWork);
    iCONFIG_VARIABLE("gv_rw_ini", sIni);
    const std::unique_ptr<DIR, FREE_BY<closedir>> pFolder{opendir(sFolder.c_str())};
    int                                           iKeys = 0;
    while (const dirent* pEntry = pFolder ? readdir(pFolder.get()) : nullptr) {
        if (pEntry->d_name[0] == '.') continue;
        if (!iONES_OWN(sFolder + pEntry->d_name, sReason)) return 0;
        ++iKeys;
    }
    if (iKeys == 0)
        return iREASON(
            sReason,
            "this client takes signed packages only, and no key that signs them is in " + sFolder);
    for (std::string sPlace : {sWork, sIni, sFolder}) {
        while (sPlace.size() > 1 && sPlace.back() == '/') sPlace.pop_back();
        if (!iONES_OWN(sPlace, sReason)) return 0;
    }
    return 1;
}

/* What the update script is told; with PACKAGES_ANY it is the server's and knows it all. */
int iUPDATE_SETTINGS(CHILD_SPEC& sctSpec, std::string& sReason)
{
    std::string sPrograms;
    std::string sWork;
    std::string sKeys;
    iCONFIG_VARIABLE("gv_ro_bin", sPrograms);
    iCONFIG_VARIABLE("gv_rw_work", sWork);
    iCONFIG_VARIABLE("gv_rw_ini", sKeys);
    sKeys += cpPACKAGE_KEYS;
    if (sctCALLER().ePackages == PACKAGES_ANY) return 1;
    if (sctCALLER().ePackages == PACKAGES_NONE)
        return iREASON(sReason, "this client takes no packages from the backup server");
    sctSpec.asArgument[0] = sBESIDE("vk_execute_update");
    for (const auto& setting : std::initializer_list<std::pair<std::string, std::string>>{
             {"VELKA_WORK", sWork},
             {"VELKA_CONF", sPrograms + "vk_execute_update.conf"},
             {"VELKA_INCOMING", sFROM_SERVER()},
             {"VELKA_SIGNATURE", "required"},
             {"VELKA_KEYS", sKeys}})
        sctSpec.asEnvironment.push_back(setting);
    return iSIGNING_KEYS(sKeys, sReason);
}

int iGATE_UPDATE(const REQUEST& request, CHILD_SPEC& sctSpec)
{
    CHILD       child;
    std::string sReason;
    v_ANSWER_BEGIN(request);
    if (!iUPDATE_SETTINGS(sctSpec, sReason)) {
        iSAY("STATUS=ERROR MSG=\"" + sONE_LINE(sReason) + "\"\n");
        return iANSWER_END(request, 2);
    }
    const int iExit = iRUN_TO_FINISH(request, sctSpec, child, sReason);
    if (iExit >= 0) return iExit;
    iSAY(sReason + "\n");
    return iANSWER_END(request, iNOT_RUN);
}

}  // namespace

int iGATE_RUN(const REQUEST& request)
{
    CHILD_SPEC  sctSpec;
    CHILD       child;
    std::string sReason;
    std::string sPath;
    const WORK  eWork = eWORK(request.asWord, sPath);
    if (eWork == WORK_NONE) return iREFUSE("a command that is not allowed");
    syslog(LOG_INFO, "%s runs %s", sctCALLER().sServer.c_str(), request.asWord[0].c_str());
    if (eWork == WORK_REMOVE) return iGATE_REMOVE(request, sPath);
    sctSpec.asArgument = request.asWord;
    iCONFIG_VARIABLE("gv_ro_bin", sctSpec.asArgument[0]);
    sctSpec.asArgument[0] += request.asWord[0];
    if (eWork == WORK_UPDATE) return iGATE_UPDATE(request, sctSpec);
    v_ANSWER_BEGIN(request);
    const int iExit = iRUN_ON_LIFELINE(request, sctSpec, child, sReason);
    if (iExit >= 0) return iExit;
    iSAY(sReason + "\n");
    return iANSWER_END(request, iNOT_RUN);
}

int iGATE_LIST(const REQUEST& request)
{
    v_ANSWER_BEGIN(request);
    const std::unique_ptr<DIR, FREE_BY<closedir>> pRoot{opendir("/")};
    if (!pRoot) {
        iSAY(std::string("cannot list \"/\": ") + std::strerror(errno) + "\n");
        return iANSWER_END(request, 1);
    }
    std::vector<std::string> asName;
    while (const dirent* pEntry = readdir(pRoot.get())) asName.emplace_back(pEntry->d_name);
    std::sort(asName.begin(), asName.end());
    for (const std::string& sName : asName) iSAY(sName + "\n");
    return iANSWER_END(request, 0);
}
