/* Configuration variables, directories and symbolic paths. */
#include "variables.h"

#include <strings.h>

#include <algorithm>
#include <set>
#include <string_view>

#include "../base/immortal.h"
#include "../base/program.h"
#include "../lines/standard_error.h"
#include "../text/text.h"
#include "../text/time_text.h"
#include "config.h"
#include "keys.h"

namespace {

constexpr std::string_view svWINDOWS_ROOT = "C:\\Program Files\\velka\\";

struct ACCESS {
    const char* cpMode;
    const char* cpSshConfig;
};

constexpr ACCESS asctAccess[] = {
    {"VKSSH", "gv_rw_ini:ssh/config"},
    {"CTRL", "gv_rw_ini:ctrl/config"},
    {"SSH", ""},
};

/* Where a directory lies on Windows clients without a section of their own. */
std::string sWINDOWS_DEFAULT(std::string_view svKey)
{
    if (svKey == "gv_ro") return std::string(svWINDOWS_ROOT);
    if (svKey == "gv_rw") return std::string(svWINDOWS_ROOT) + "var\\";
    return std::string(svWINDOWS_ROOT).append(svKey.substr(6)) + "\\";
}

/* Keys of directories, those that only a configuration knows included. */
bool bDIRECTORY_KEY(std::string_view svKey)
{
    for (const std::string_view svTree : {"gv_ro", "gv_rw"})
        if (svKey == svTree || (svKey.starts_with(svTree) && svKey[svTree.size()] == '_'))
            return true;
    return false;
}

std::string sENDED(std::string sDirectory, bool bWindows)
{
    const char cLast = sDirectory.empty() ? '/' : sDirectory.back();
    if (cLast != '/' && !(bWindows && cLast == '\\')) sDirectory += bWindows ? '\\' : '/';
    return sDirectory;
}

std::string sVARIABLE_DEFAULT(const char* cpName)
{
    if (std::string_view(cpName) == "gv_daylbl") return sLOCAL_TIME_AS("%Y%m%d", time(nullptr));
    const CONFIG_KEY* pKey = pCONFIG_KEY("variables", cpName);
    return pKey != nullptr ? std::string(pKey->svDefault) : "";
}

/* Length of the key of a symbolic path, 0 when it has none: "gv_" and letters,
   digits or "_", then a colon. */
size_t uKEY_LENGTH(std::string_view svPath)
{
    const size_t uEnd =
        svPath.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_");
    return svPath.starts_with("gv_") && uEnd != svPath.npos && svPath[uEnd] == ':' ? uEnd : 0;
}

}  // namespace

int iCONFIG_VARIABLE(const char* cpName, std::string& sValue)
{
    const std::string_view svName = cpName;
    /* An empty environment variable counts as one that is not set. */
    sValue = svName.starts_with("gv_") ? sENVIRONMENT(cpName) : "";
    if (sValue.empty()) sValue = sCONFIG_TEXT("variables", cpName, "");
    if (sValue.empty()) sValue = sVARIABLE_DEFAULT(cpName);
    if (!sValue.empty() && bDIRECTORY_KEY(svName)) sValue = sENDED(sValue, false);
    return !sValue.empty();
}

int iCONFIG_ACCESS(const char* cpMode, std::string& sSshConfig)
{
    const std::string sSection = std::string("access ") + cpMode;
    const char*       cpConfig = iCONFIG_SECTION(sSection) ? "" : nullptr;
    for (const ACCESS& access : asctAccess)
        if (std::string_view(cpMode) == access.cpMode) cpConfig = access.cpSshConfig;
    if (cpConfig == nullptr) return 0;
    const std::string sPath = sCONFIG_TEXT(sSection.c_str(), "config", cpConfig);
    std::string       sReason;
    if (iCONFIG_SERVER_PATH(sPath.c_str(), sSshConfig, sReason)) return 1;
    v_STDERR_ONCE(sSection.c_str(), "[%s] config = \"%s\": %s", sSection.c_str(), sPath.c_str(),
                  sReason.c_str());
    return 0;
}

int iCONFIG_CLIENT_DIRECTORY(const char* cpPlatform, const char* cpKey, std::string& sDirectory)
{
    const bool  bWindows = iWINDOWS_CLASS(cpPlatform);
    std::string sSection = std::string("directories ") + cpPlatform;
    if (!bWindows && !iCONFIG_SECTION(sSection)) sSection = "directories LINUX";
    std::string sValue = sCONFIG_TEXT(sSection.c_str(), cpKey, "");
    if (sValue.empty()) {
        const CONFIG_KEY* pKey = pCONFIG_KEY("directories", cpKey);
        if (pKey == nullptr) return 0;
        sValue = bWindows ? sWINDOWS_DEFAULT(cpKey) : std::string(pKey->svDefault);
    }
    sDirectory = sENDED(sValue, bWindows);
    return 1;
}

int iCONFIG_SERVER_PATH(const char* cpPath, std::string& sPath, std::string& sReason)
{
    const std::string_view svPath = cpPath;
    const size_t           uKey = uKEY_LENGTH(svPath);
    if (uKey == 0) {
        sPath = svPath;
        return 1;
    }
    const std::string sKey(svPath.substr(0, uKey));
    std::string       sDirectory;
    if (!bDIRECTORY_KEY(sKey) || !iCONFIG_VARIABLE(sKey.c_str(), sDirectory))
        return iREASON(sReason, "unknown directory key \"" + sKey + "\"");
    std::string_view svRelative = svPath.substr(uKey + 1);
    svRelative.remove_prefix(std::min(svRelative.find_first_not_of('/'), svRelative.size()));
    sPath = sDirectory.append(svRelative);
    return 1;
}

int iWINDOWS_CLASS(const char* cpPlatform)
{
    return strcasecmp(cpPlatform, "WNT") == 0 || strncasecmp(cpPlatform, "WIN", 3) == 0;
}

const char* read_glbv(const char* cpName)
{
    static IMMORTAL<std::set<std::string>> values;
    std::string                            sValue;
    iCONFIG_VARIABLE(cpName, sValue);
    return values.Get().insert(sValue).first->c_str();
}

char* glbv_N(char /*cRead*/, const char* cpName, char* szBuf, size_t uSize)
{
    std::string sValue;
    iCONFIG_VARIABLE(cpName, sValue);
    iTEXT_COPY(szBuf, uSize, sValue);
    return szBuf;
}

int i_get_default2_N(const char* cpKey, const char* cpVariable, char* szBuf, size_t uSize)
{
    std::string sValue = sCONFIG_TEXT("defaults", cpKey, "");
    if (sValue.empty() && !iCONFIG_VARIABLE(cpVariable, sValue)) return 0;
    iTEXT_COPY(szBuf, uSize, sValue);
    return 1;
}
