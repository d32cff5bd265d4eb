/* Which version a package carries, and whether a client may receive it. */
#include <cstdlib>
#include <cstring>

#include "run_outcome.h"
#include "update_run.h"

namespace {

/* Last version that the refused systems may receive. */
constexpr const char* cpTHRESHOLD = "4.2.2.99";

constexpr const char* acpRefused[] = {
    "Windows Server 2008", "Windows Server 2008 R2",
    "Windows 7",           "Windows NT",
    "Windows XP",          "Windows 2000",
    "Windows Server 2003", "Windows Server 2003 R2",
    "Storage Server 2003", "Home Server",
    "Windows Vista",
};

/* Patterns of package names; the second capture is the version. The first is the
   number of a service pack. */
constexpr const char* cpPackage = R"((.*[-_])?(.*?\..*\..*-.*?)\..*)";
constexpr const char* cpServicepack = R"(.*[-](.*)_.*_(.*?\..*\..*-.*?)\..*)";
constexpr const char* cpServicepackWin = R"(.*[-](.*)_.*_(.*?\..*\..*\..*?)_.*)";

void v_TELL_CLIENT_KIND(UPDATE_RUN* pRun)
{
    const bool bProper = std::strstr(pRun->szOs, "Windows") != nullptr;
    pRun->cpExtension = bProper ? ".cmd" : "";
    pRun->bWindows = bProper || std::strstr(pRun->szOs, "windows") != nullptr;
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

const char* cpPATTERN(const UPDATE_RUN* pRun)
{
    if (pRun->pArg->eUpdate != sp_update) return cpPackage;
    return pRun->bWindows ? cpServicepackWin : cpServicepack;
}

/* szVersion is the version text, lVersion and lServicepack its numbers. */
void v_READ_VERSION(UPDATE_RUN* pRun)
{
    char* cpFirst = nullptr;
    char* cpVersion = nullptr;
    pscanf(pRun->pArg->szPackage, cpPATTERN(pRun), &cpFirst, &cpVersion);
    const char* cpLeading = cpFirst != nullptr ? cpFirst : "";
    const char* cpText = cpVersion != nullptr ? cpVersion : "";
    if (pRun->pArg->eUpdate == sp_update) pRun->lServicepack = std::strtol(cpLeading, nullptr, 10);
    TRACE("Found version: %s,%s", cpText, cpLeading);
    iTEXT_SET(pRun->szVersion, cpText);
    pRun->lVersion = l_cli_version(cpVersion);
    if (pRun->lVersion != 0) return;
    x_Snprintf(pRun->szMsg, sizeof pRun->szMsg,
               "Could not determine Velka version from package name: %s", pRun->pArg->szPackage);
    v_UPDATE_END(pRun, VK_ERROR);
}

/* The version as four numbers; reading stops at the first part that is none. */
void v_DOTTED(const char* cpVersion, char (&szDotted)[256])
{
    int aiPart[4] = {};
    for (int& iPart : aiPart) {
        char* cpEnd = nullptr;
        iPart = static_cast<int>(std::strtol(cpVersion, &cpEnd, 10));
        if (cpEnd == cpVersion || *cpEnd != '.') break;
        cpVersion = cpEnd + 1;
    }
    x_Snprintf(szDotted, sizeof szDotted, "%d.%d.%d.%d", aiPart[0], aiPart[1], aiPart[2],
               aiPart[3]);
}

void v_REQUIRE_SUPPORTED_SYSTEM(UPDATE_RUN* pRun)
{
    if (pRun->lVersion <= l_cli_version(cpTHRESHOLD)) return;
    for (const char* cpRefused : acpRefused) {
        if (!bIS(pRun->szOs, cpRefused)) continue;
        char szDotted[256];
        v_DOTTED(pRun->szVersion, szDotted);
        x_Snprintf(pRun->szMsg, sizeof pRun->szMsg,
                   "Update of %s with QIR velka version %s is not supported", pRun->szOs, szDotted);
        v_UPDATE_END(pRun, VK_ERROR);
    }
}

/* A package of the installed version is refused; a service pack needs it, and may
   be applied again. Another version, lower or higher, is taken. */
void v_COMPARE_INSTALLED(UPDATE_RUN* pRun)
{
    const long lInstalled = std::strtol(pRun->szVersionNumber, nullptr, 10);
    TRACE("Compare old/new Velka version: %ld = %ld", lInstalled, pRun->lVersion);
    if (lInstalled != pRun->lVersion) return;
    if (pRun->pArg->eUpdate == sp_update) {
        TRACE("Velka versions are identical, which is mandatory for servicepack update");
        TRACE("Compare SP versions: %ld <= %ld", pRun->lServicepack,
              std::strtol(pRun->szServicepackNumber, nullptr, 10));
    } else if (pRun->pArg->iForceUpdate != 0) {
        TRACE("Old and new Velka versions are identical, but '-F' switch is set");
    } else {
        x_Snprintf(pRun->szMsg, sizeof pRun->szMsg, "%s%s. Do not run update.",
                   sSAME_VERSION(pRun->pArg->szNodeName).c_str(), pRun->szVersionNumber);
        v_UPDATE_END(pRun, VK_WARNING);
    }
}

}  // namespace

std::string sSAME_VERSION(const std::string& sName)
{
    return "Old and new Velka versions on client " + sName + " are identical: ";
}

void v_CHECK_PACKAGE(UPDATE_RUN* pRun)
{
    v_TELL_CLIENT_KIND(pRun);
    v_REQUIRE_PACKAGE(pRun);
    v_READ_VERSION(pRun);
    v_REQUIRE_SUPPORTED_SYSTEM(pRun);
    v_COMPARE_INSTALLED(pRun);
}
