#include "sshd_settings.h"

#include <fnmatch.h>
#include <grp.h>
#include <netdb.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <string_view>

#include "common/base/holder.h"
#include "common/text/command_line.h"
#include "common/text/text.h"
#include "programs.h"
#include "server_name.h"

namespace {

using VALUES = std::multimap<std::string, std::string>;  // keyword in lower case

/* Variables by which a session's environment would run something before the gate. */
constexpr const char* acpRuns[] = {"BASH_ENV",  "ENV",          "LD_PRELOAD", "LD_AUDIT",
                                   "SHELLOPTS", "BASHOPTS",     "PS4",        "LD_LIBRARY_PATH",
                                   "ZDOTDIR",   "BASH_FUNC_x%%"};

struct SESSION {
    std::string sServer;
    std::string sAddress;  // "" not known
    bool        bGate = false;
};

std::string sADDRESS(const std::string& sServer, const std::string& sFrom)
{
    if (bPLAIN_WORD(sFrom, ".:")) return sFrom;
    addrinfo* pFound = nullptr;
    char      szAddress[256] = "";
    if (getaddrinfo(sServer.c_str(), nullptr, nullptr, &pFound) != 0) return "";
    const std::unique_ptr<addrinfo, FREE_BY<freeaddrinfo>> pHeld{pFound};
    getnameinfo(pFound->ai_addr, pFound->ai_addrlen, szAddress, sizeof szAddress, nullptr, 0,
                NI_NUMERICHOST);
    return szAddress;
}

VALUES READ_VALUES(const std::string& sText)
{
    VALUES values;
    for (const std::string_view svLine : asvPIECES(sText)) {
        const size_t uBlank = svLine.find(' ');
        if (uBlank != svLine.npos)
            values.emplace(svLine.substr(0, uBlank), svTRIMMED(svLine.substr(uBlank)));
    }
    return values;
}

std::string sVALUE(const VALUES& values, const char* cpKeyword)
{
    const auto found = values.find(cpKeyword);
    return found == values.end() ? "" : found->second;
}

/* All words of all lines of a keyword. */
std::vector<std::string> asWORDS(const VALUES& values, const char* cpKeyword)
{
    std::vector<std::string> asWord;
    const auto [begin, end] = values.equal_range(cpKeyword);
    for (auto line = begin; line != end; ++line)
        for (const std::string_view svWord : asvPIECES(line->second, ' '))
            if (!svWord.empty()) asWord.emplace_back(svWord);
    return asWord;
}

bool bFITS(const std::string& sPattern, const std::string& sText)
{
    return fnmatch(sPattern.c_str(), sText.c_str(), FNM_NOESCAPE) == 0;
}

/* USER or USER@HOST; where a network or an unknown address would have to be compared,
   bElse holds. */
bool bUSER_FITS(const std::string& sPattern, const SESSION& session, bool bElse)
{
    const size_t uAt = sPattern.rfind('@');
    if (!bFITS(sPattern.substr(0, uAt), "root")) return false;
    if (uAt == std::string::npos) return true;
    const std::string sHost = sPattern.substr(uAt + 1);
    if (bFITS(sHost, session.sServer) || bFITS(sHost, session.sAddress)) return true;
    return (session.sAddress.empty() || sHost.find('/') != sHost.npos) && bElse;
}

std::vector<std::string> asGROUPS_OF_ROOT()
{
    std::vector<std::string> asName;
    gid_t                    auGroup[256];
    int                      iGroups = 256;
    getgrouplist("root", 0, auGroup, &iGroups);
    for (int i = 0; i < std::min(iGroups, 256); ++i)
        if (const group* pGroup = getgrgid(auGroup[i])) asName.emplace_back(pGroup->gr_name);
    return asName;
}

bool bGROUP_LISTED(const std::vector<std::string>& asPattern)
{
    const std::vector<std::string> asGroup = asGROUPS_OF_ROOT();
    return std::any_of(asPattern.begin(), asPattern.end(), [&](const std::string& sPattern) {
        return std::any_of(asGroup.begin(), asGroup.end(),
                           [&](const std::string& s) { return bFITS(sPattern, s); });
    });
}

bool bUSER_LISTED(const std::vector<std::string>& asPattern, const SESSION& session, bool bElse)
{
    bool bListed = false;
    for (const std::string& sPattern : asPattern) {
        if (sPattern.starts_with('!') && bUSER_FITS(sPattern.substr(1), session, false))
            return false;
        bListed = bListed || bUSER_FITS(sPattern, session, bElse);
    }
    return bListed;
}

std::string sROOT_HOME()
{
    const passwd* pRoot = getpwuid(0);
    return pRoot != nullptr ? pRoot->pw_dir : "/root";
}

/* Absolute names of the files that are read for root. */
std::vector<std::string> asKEY_FILES(const VALUES& values)
{
    std::vector<std::string> asFile;
    const std::string        sHome = sROOT_HOME();
    for (const std::string& sWord : asWORDS(values, "authorizedkeysfile")) {
        std::string sFile;
        if (sWord == "none") continue;
        for (size_t u = 0; u < sWord.size(); ++u) {
            const char cNext = sWord[u] == '%' && u + 1 < sWord.size() ? sWord[u + 1] : '\0';
            const bool bToken = cNext == 'h' || cNext == 'u' || cNext == 'U' || cNext == '%';
            if (!bToken) {
                sFile += sWord[u];
                continue;
            }
            sFile += cNext == 'h' ? sHome : cNext == 'u' ? "root" : cNext == 'U' ? "0" : "%";
            ++u;
        }
        if (!sFile.starts_with('/')) sFile.insert(0, "/").insert(0, sHome);
        asFile.push_back(std::move(sFile));
    }
    return asFile;
}

std::string sRUNS_BEFORE(const VALUES& values)
{
    for (const std::string& sPattern : asWORDS(values, "acceptenv"))
        for (const char* cp : acpRuns)
            if (bFITS(sPattern, cp)) return sPattern;
    return "";
}

bool bKEY_ALONE(const VALUES& values)
{
    const std::vector<std::string> asMethod = asWORDS(values, "authenticationmethods");
    return asMethod.empty() || std::any_of(asMethod.begin(), asMethod.end(), [](const auto& s) {
               return s == "any" || s == "publickey";
           });
}

void FIND_FAULTS(const VALUES& values, const SESSION& session, SSHD_SETTINGS& settings)
{
    const auto TELL = [&](bool bFault, const std::string& sSetting, const char* cpMend) {
        if (bFault) settings.asFault.push_back(sSetting + " blocks the server; " + cpMend);
    };
    const std::string sLogin = sVALUE(values, "permitrootlogin");
    const std::string sForced = sVALUE(values, "forcecommand");
    const std::string sEnvironment = session.bGate ? sRUNS_BEFORE(values) : "";
    const auto        asAllow = asWORDS(values, "allowusers");
    const auto        asAllowGroup = asWORDS(values, "allowgroups");
    TELL(sLogin == "no" || (sLogin == "forced-commands-only" && !session.bGate),
         "PermitRootLogin " + sLogin, "prohibit-password admits root's keys");
    TELL(sVALUE(values, "pubkeyauthentication") == "no", "PubkeyAuthentication no",
         "yes admits keys");
    TELL(!bKEY_ALONE(values), "AuthenticationMethods " + sVALUE(values, "authenticationmethods"),
         "publickey alone must suffice");
    TELL(settings.asKeyFile.empty(), "AuthorizedKeysFile none", ".ssh/authorized_keys is usual");
    TELL(!asAllow.empty() && !bUSER_LISTED(asAllow, session, true), "AllowUsers", "add root to it");
    TELL(bUSER_LISTED(asWORDS(values, "denyusers"), session, false), "DenyUsers",
         "take root out of it");
    TELL(!asAllowGroup.empty() && !bGROUP_LISTED(asAllowGroup), "AllowGroups",
         "add a group of root to it");
    TELL(bGROUP_LISTED(asWORDS(values, "denygroups")), "DenyGroups",
         "take root's groups out of it");
    TELL(!sForced.empty() && sForced != "none", "ForceCommand " + sForced,
         "it runs in place of what the server asks for");
    if (!sEnvironment.empty())
        settings.asFault.push_back("AcceptEnv " + sEnvironment +
                                   " lets whoever has the key bypass the gate; name "
                                   "single variables instead");
}

}  // namespace

SSHD_SETTINGS sctSSHD_SETTINGS(const std::string& sServer, const std::string& sFrom, bool bGate)
{
    SSHD_SETTINGS     settings;
    const SESSION     session{sServer, sADDRESS(sServer, sFrom), bGate};
    const std::string sSshd = sPROGRAM_PATH("sshd");
    if (sSshd.empty()) {
        settings.sUnknown = "sshd is not installed";
        return settings;
    }
    const PROGRAM_RUN run =
        sctRUN_PROGRAM({sSshd, "-T", "-C",
                        "user=root,host=" + sServer +
                            ",addr=" + (session.sAddress.empty() ? "0.0.0.0" : session.sAddress)});
    if (!run.bGood()) {
        settings.sUnknown = sLAST_LINE(run.sOut);
        return settings;
    }
    const VALUES values = READ_VALUES(run.sOut);
    settings.asKeyFile = asKEY_FILES(values);
    settings.bStrict = sVALUE(values, "strictmodes") != "no";
    FIND_FAULTS(values, session, settings);
    return settings;
}

/* As sshd looks: from the file's folder upward to root's home, or to "/" where the file does
   not lie below it. */
std::string sSTRICT_FAULT(const std::string& sFile)
{
    std::error_code   error;
    const std::string sHome = std::filesystem::weakly_canonical(sROOT_HOME(), error).string();
    std::string       sFolder = std::filesystem::weakly_canonical(sFile, error).string();
    while (sFolder != sHome && sFolder.rfind('/') != 0 && sFolder.rfind('/') != sFolder.npos) {
        sFolder.erase(sFolder.rfind('/'));
        struct stat sctStat {};
        if (stat(sFolder.c_str(), &sctStat) != 0) continue;
        if (sctStat.st_uid == 0 && (sctStat.st_mode & (S_IWGRP | S_IWOTH)) == 0) continue;
        std::string sFault = "StrictModes: others than root may change \"";
        sFault.append(sFolder).append("\"; ");
        // A folder that everybody shares, as /tmp, is meant to be so.
        if ((sctStat.st_mode & S_ISVTX) != 0)
            return sFault.append("let AuthorizedKeysFile name a file in a folder of root's own");
        const std::string sWord = sSHELL_WORD(SHELL_POSIX, sFolder);
        return sFault.append("type: chown root ")
            .append(sWord)
            .append(" && chmod go-w ")
            .append(sWord);
    }
    return "";
}
