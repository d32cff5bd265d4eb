/* Which version a package carries, and whether the client may receive it: the order of the
   decisions, and how each is traced. The rules themselves are the library's. */
#include <cstdlib>

#include "../common/package/eligibility.h"
#include "run_outcome.h"
#include "update_run.h"

namespace {

[[noreturn]] void v_REFUSE(UPDATE_RUN* pRun, const char* cpCause, const std::string& sMessage,
                           int iExit)
{
    v_CAUSE(cpCause, sMessage);
    iTEXT_SET(pRun->szMsg, sMessage);
    v_UPDATE_END(pRun, iExit);
}

void v_REQUIRE_PACKAGE(UPDATE_RUN* pRun)
{
    if (pRun->pArg->szPackage[0] != '\0') {
        TRACE("Velka package from command line: %s", pRun->pArg->szPackage);
        return;
    }
    MESSAGE(pRun->szMsg, MSG_E006);
    TRACE("ERROR: %s %s", pRun->szMsg, "Package name (-P) not set");
    TELL("no package is given; name one with -P");
    v_CAUSE("package-not-given");
    v_UPDATE_END(pRun, VK_ERROR);
}

/* A lower version is taken, and may not be what was meant. */
void v_TELL_DOWNGRADE(const UPDATE_RUN* pRun, const PACKAGE_VERSION& version, long lInstalled)
{
    const char* cpNode = pRun->pArg->szNodeName;
    const long  lServicepack = std::strtol(pRun->szServicepackNumber, nullptr, 10);
    if (pRun->pArg->eUpdate == update && version.lNumber < lInstalled)
        TELL("%s goes back from %s to %s", cpNode, sVERSION_TEXT(lInstalled).c_str(),
             sVERSION_TEXT(version.lNumber).c_str());
    if (pRun->pArg->eUpdate == sp_update && version.lNumber == lInstalled &&
        version.lServicepack < lServicepack)
        TELL("%s goes back from service pack %ld to %ld", cpNode, lServicepack,
             version.lServicepack);
}

void v_COMPARE_INSTALLED(UPDATE_RUN* pRun, const PACKAGE_VERSION& version)
{
    const long lInstalled = std::strtol(pRun->szVersionNumber, nullptr, 10);
    const bool bServicepack = pRun->pArg->eUpdate == sp_update;
    TRACE("Compare old/new Velka version: %ld = %ld", lInstalled, version.lNumber);
    if (bREFUSED_AS_SAME(version, lInstalled, bServicepack, pRun->pArg->iForceUpdate != 0))
        v_REFUSE(
            pRun, "update-not-needed",
            sSAME_VERSION(pRun->pArg->szNodeName) + pRun->szVersionNumber + ". Do not run update.",
            VK_WARNING);
    v_TELL_DOWNGRADE(pRun, version, lInstalled);
    if (lInstalled != version.lNumber) return;
    if (bServicepack) {
        TRACE("Velka versions are identical, which is mandatory for servicepack update");
        TRACE("Compare SP versions: %ld <= %ld", version.lServicepack,
              std::strtol(pRun->szServicepackNumber, nullptr, 10));
    } else {
        TRACE("Old and new Velka versions are identical, but '-F' switch is set");
    }
}

}  // namespace

void v_CHECK_PACKAGE(UPDATE_RUN* pRun)
{
    const CLIENT_KIND kind = sctCLIENT_KIND(pRun->szOs);
    pRun->cpExtension = kind.cpExtension;
    pRun->bWindows = kind.bWindows;
    v_REQUIRE_PACKAGE(pRun);
    const char*           cpPackage = pRun->pArg->szPackage;
    const PACKAGE_VERSION version =
        sctPACKAGE_VERSION(cpPackage, pRun->pArg->eUpdate == sp_update, kind.bWindows);
    TRACE("Found version: %s,%s", version.sText.c_str(), version.sLeading.c_str());
    iTEXT_SET(pRun->szVersion, version.sText);
    pRun->lVersion = version.lNumber;
    pRun->lServicepack = version.lServicepack;
    const std::string sRefused = sPACKAGE_REFUSED(cpPackage, version, pRun->szOs);
    if (!sRefused.empty())
        v_REFUSE(pRun, version.lNumber == 0 ? "package-name" : "update-not-supported", sRefused,
                 VK_ERROR);
    v_COMPARE_INSTALLED(pRun, version);
}
