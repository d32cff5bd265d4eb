/* The rules of an update. */
#include "eligibility.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

#include "../text/format.h"
#include "../text/pattern.h"
#include "../text/text.h"
#include "../text/text_operations.h"

namespace {

/* Last version that the refused systems may receive. */
constexpr const char* cpTHRESHOLD = "4.2.2.99";

constexpr std::string_view asvRefused[] = {
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

constexpr std::string_view svSAME_BEGIN = "Old and new Velka versions on client ";
constexpr std::string_view svSAME_END = " are identical: ";

/* The version as four numbers; reading stops at the first part that is none. */
std::string sDOTTED(const char* cpVersion)
{
    int aiPart[4] = {};
    for (int& iPart : aiPart) {
        char* cpEnd = nullptr;
        iPart = static_cast<int>(std::strtol(cpVersion, &cpEnd, 10));
        if (cpEnd == cpVersion || *cpEnd != '.') break;
        cpVersion = cpEnd + 1;
    }
    char szDotted[256];
    x_Snprintf(szDotted, sizeof szDotted, "%d.%d.%d.%d", aiPart[0], aiPart[1], aiPart[2],
               aiPart[3]);
    return szDotted;
}

}  // namespace

CLIENT_KIND sctCLIENT_KIND(std::string_view svOs)
{
    const bool bProper = svOs.find("Windows") != svOs.npos;
    return {bProper || svOs.find("windows") != svOs.npos, bProper ? ".cmd" : ""};
}

std::string sVERSION_TEXT(long lNumber)
{
    constexpr long lPART = 100'000;
    char           szVersion[128];
    x_Snprintf(szVersion, sizeof szVersion, "%ld.%ld.%ld-%ld", lNumber / lPART / lPART / lPART,
               lNumber / lPART / lPART % lPART, lNumber / lPART % lPART, lNumber % lPART);
    return szVersion;
}

std::string sPACKAGE_SOURCE(const std::string& sPackage)
{
    return sPackage.starts_with('/') ? sPackage : "gv_rw_work:packages/" + sPackage;
}

PACKAGE_VERSION sctPACKAGE_VERSION(const char* cpName, bool bServicepack, bool bWindows)
{
    const char* cpPattern = !bServicepack ? cpPackage : bWindows ? cpServicepackWin : cpServicepack;
    char*       cpLeading = nullptr;
    char*       cpVersion = nullptr;
    pscanf(cpName, cpPattern, &cpLeading, &cpVersion);
    PACKAGE_VERSION version;
    if (cpLeading != nullptr) version.sLeading = cpLeading;
    if (cpVersion != nullptr) version.sText = cpVersion;
    version.lNumber = l_cli_version(cpVersion);
    if (bServicepack) version.lServicepack = std::strtol(version.sLeading.c_str(), nullptr, 10);
    return version;
}

std::string sPACKAGE_REFUSED(const char* cpName, const PACKAGE_VERSION& version,
                             std::string_view svOs)
{
    if (version.lNumber == 0)
        return std::string("Could not determine Velka version from package name: ") + cpName;
    if (version.lNumber <= l_cli_version(cpTHRESHOLD) ||
        std::find(std::begin(asvRefused), std::end(asvRefused), svOs) == std::end(asvRefused))
        return "";
    return "Update of " + std::string(svOs) + " with QIR velka version " +
           sDOTTED(version.sText.c_str()) + " is not supported";
}

bool bREFUSED_AS_SAME(const PACKAGE_VERSION& version, long lInstalled, bool bServicepack,
                      bool bForce)
{
    return lInstalled == version.lNumber && !bServicepack && !bForce;
}

std::string sSAME_VERSION(const std::string& sName)
{
    return std::string(svSAME_BEGIN).append(sName).append(svSAME_END);
}

bool bSAME_VERSION(std::string_view svMessage)
{
    return svMessage.starts_with(svSAME_BEGIN) && svMessage.find(svSAME_END) != svMessage.npos;
}
