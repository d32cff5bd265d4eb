/* set_client and unset_client. What a server was admitted with is kept below gv_rw_ini
   (permits/SERVER.MODE, with what the gate takes), so that a client whose authorized_keys was lost is opened
   again by the command alone. */
#include "set_client.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "common/base/descriptor.h"
#include "common/base/program.h"
#include "common/config/config.h"
#include "common/config/variables.h"
#include "common/remote/reach.h"
#include "common/text/text.h"
#include "common/unix/cm_hal_pipe.h"
#include "key_file.h"
#include "permit.h"
#include "server_name.h"
#include "sshd_settings.h"

namespace {

constexpr size_t uLINE_MAX = size_t{64} * 1024;
constexpr int    iUSAGE = 2;

constexpr const char* acpGate[] = {"/usr/libexec/velka/vk_ctrl", "/usr/sbin/vk_ctrl",
                                   "/usr/bin/vk_ctrl"};

struct CALL {
    PERMIT                   permit;  // sMode and sPackages are empty until they are given
    std::string              sFile;   // authorized_keys; empty: the one that sshd reads for root
    std::string              sConfig;
    std::vector<std::string> asKey;
};

int iTELL(const std::string& sText, int iResult = 0)
{
    std::fprintf(stderr, "vk_setup: %s\n", sONE_LINE(sText).c_str());
    return iResult;
}

struct OPTION {
    const char*  cpName;
    std::string* pValue;
};

int iTAKE_OPTION(const std::vector<std::string>& asArgument, size_t& u, CALL& call)
{
    const OPTION asctOption[] = {{"--mode", &call.permit.sMode},
                                 {"--packages", &call.permit.sPackages},
                                 {"--from", &call.permit.sFrom},
                                 {"--file", &call.sFile},
                                 {"--config", &call.sConfig}};
    for (const OPTION& option : asctOption) {
        if (asArgument[u] != option.cpName) continue;
        if (u + 1 == asArgument.size() || asArgument[u + 1].empty())
            return iTELL(std::string(option.cpName) + " needs a value");
        *option.pValue = asArgument[++u];
        return 1;
    }
    return iTELL("unknown option \"" + asArgument[u] + "\"; see vk_setup -h");
}

int iCHECK(const CALL& call)
{
    const PERMIT& permit = call.permit;
    PACKAGES      ePackages{};
    if (!bSERVER_NAME(permit.sServer))
        return iTELL("\"" + permit.sServer + "\" is not a server name");
    if (!permit.sMode.empty() && permit.sMode != svMODE_CTRL && permit.sMode != svMODE_VKSSH)
        return iTELL("--mode: \"" + permit.sMode + "\" is not CTRL or VKSSH");
    if (!permit.sPackages.empty() && !iPACKAGES(permit.sPackages, ePackages))
        return iTELL("--packages: \"" + permit.sPackages + "\" is not signed, none or any");
    if (!permit.sPackages.empty() && permit.sMode == svMODE_VKSSH)
        return iTELL("--packages goes with mode CTRL; with VKSSH the server is root here");
    if (!permit.sFrom.empty() && !bPLAIN_WORD(permit.sFrom, "._-:/,*?![]%"))
        return iTELL("--from: \"" + permit.sFrom + "\" is not a list of addresses");
    if (!call.sConfig.empty() && (!bPLAIN_WORD(call.sConfig, "._-/+,=@") || call.sConfig[0] != '/'))
        return iTELL("--config: \"" + call.sConfig +
                     "\" is not an absolute path of plain characters");
    return 1;
}

/* Reads SERVER, unless it is known, options and key in any order. */
int iREAD_ARGUMENTS(const std::vector<std::string>& asArgument, CALL& call)
{
    for (size_t u = 0; u < asArgument.size(); ++u) {
        if (asArgument[u].starts_with("--")) {
            if (!iTAKE_OPTION(asArgument, u, call)) return 0;
        } else if (call.permit.sServer.empty()) {
            call.permit.sServer = asArgument[u];
        } else {
            call.asKey.push_back(asArgument[u]);
        }
    }
    return iCHECK(call);
}

std::string sROOTS_FILE()
{
    const passwd* pRoot = getpwuid(0);
    return std::string(pRoot != nullptr ? pRoot->pw_dir : "/root") + "/.ssh/authorized_keys";
}

int iROOT()
{
    return geteuid() == 0 || iTELL("only root may change root's authorized_keys; use sudo");
}

/* The command of the gate: beside this program, or where packages put it. */
int iGATE(CALL& call)
{
    std::vector<std::string> asPlace{sBESIDE("vk_ctrl")};
    asPlace.insert(asPlace.end(), std::begin(acpGate), std::end(acpGate));
    const auto found = std::find_if(asPlace.begin(), asPlace.end(), [](const std::string& s) {
        return access(s.c_str(), X_OK) == 0;
    });
    if (found == asPlace.end())
        return iTELL("the gate vk_ctrl is not installed; install the package velka-client-access");
    if (!bPLAIN_WORD(*found, "._-/+,=@"))
        return iTELL("\"" + *found + "\" is not allowed in authorized_keys; install it elsewhere");
    call.permit.sGate = *found + (call.sConfig.empty() ? "" : " --config " + call.sConfig) +
                        " --packages " + call.permit.sPackages;
    return 1;
}

std::string sINI_FOLDER()
{
    std::string sPath;
    iCONFIG_VARIABLE("gv_rw_ini", sPath);
    return sPath;
}

/* Permits that are remembered, one file for each mode and what its gate takes. */
struct REMEMBERED {
    std::string_view svMode;
    std::string_view svPackages;
    const char*      cpSuffix;
};
constexpr REMEMBERED asctRemembered[] = {{svMODE_CTRL, "signed", ".CTRL"},
                                         {svMODE_CTRL, "none", ".CTRL-none"},
                                         {svMODE_CTRL, "any", ".CTRL-any"},
                                         {svMODE_VKSSH, "", ".VKSSH"}};

std::string sREMEMBERED_FILE(const std::string& sServer, const REMEMBERED& remembered)
{
    return sINI_FOLDER() + "permits/" + sServer + remembered.cpSuffix;
}

/* Keys, and the addresses that they are taken from: no more than a pasted line brings. */
std::string sREMEMBERED_TEXT(const PERMIT& permit)
{
    std::string sText = permit.sFrom.empty() ? "" : "--from " + permit.sFrom;
    for (const PUBLIC_KEY& key : permit.keys)
        sText += (sText.empty() ? "" : " ") + key.sType + " " + key.sBlob +
                 (key.sComment.empty() ? "" : " ") + key.sComment;
    return sText + "\n";
}

void FORGET(const std::string& sServer, std::string_view svMode, std::string_view svPackages)
{
    for (const REMEMBERED& remembered : asctRemembered) {
        if (!svMode.empty() && remembered.svMode != svMode) continue;
        if (!svMode.empty() && remembered.svPackages == svPackages) continue;
        const std::string sPath = sREMEMBERED_FILE(sServer, remembered);
        if (unlink(sPath.c_str()) != 0 && errno != ENOENT)
            iTELL("cannot remove \"" + sPath + "\": " + std::strerror(errno));
    }
}

/* A client that forgets has lost a convenience, no more. */
void REMEMBER(const PERMIT& permit)
{
    const auto* const pRemembered = std::find_if(
        std::begin(asctRemembered), std::end(asctRemembered), [&](const REMEMBERED& remembered) {
            return remembered.svMode == permit.sMode && remembered.svPackages == permit.sPackages;
        });
    const std::string sPath = sREMEMBERED_FILE(permit.sServer, *pRemembered);
    const std::string sText = sREMEMBERED_TEXT(permit);
    std::string       sReason;
    KEY_FILE          file;
    FORGET(permit.sServer, permit.sMode, permit.sPackages);
    iMAKE_DIRECTORY(sPath.substr(0, sPath.rfind('/')));
    if (iKEY_FILE_OPEN(sPath, false, file, sReason) &&
        (file.sText == sText || iKEY_FILE_REPLACE(file, sText, sReason)))
        return;
    iTELL("ignoring: " + sReason);
}

/* Brings the file to what sctChange made of it. Result: exit status. */
int iSTORE(const KEY_FILE& file, const PERMIT_CHANGE& change, bool bWanted)
{
    std::string sReason;
    const bool  bMend = file.bThere && !file.bRight;
    if ((file.sText != change.sText || bMend) && !iKEY_FILE_REPLACE(file, change.sText, sReason))
        return iTELL(sReason, 1);
    for (const std::string& s : change.asDone)
        std::printf("%s: %s\n", file.sPath.c_str(), sONE_LINE(s).c_str());
    if (bMend) std::printf("%s: owner and mode corrected\n", file.sPath.c_str());
    if (!file.sMended.empty())
        std::printf("%s: owner and mode corrected\n", sONE_LINE(file.sMended).c_str());
    if (change.asDone.empty() && !bMend && file.sMended.empty())
        std::printf("%s: %s, nothing to do\n", file.sPath.c_str(),
                    bWanted ? "the server is admitted" : "nothing was admitted by vk_setup");
    for (const std::string& s : change.asWarning) iTELL("\"" + file.sPath + "\": " + s);
    return 0;
}

/* sshd lets nobody in whose login shell cannot be run, and tells the other side nothing. */
void TELL_LOGIN_SHELL()
{
    const passwd* pRoot = getpwuid(0);
    if (pRoot == nullptr || *pRoot->pw_shell == '\0' || access(pRoot->pw_shell, X_OK) == 0) return;
    iTELL("root's login shell \"" + std::string(pRoot->pw_shell) +
          "\" cannot be run, so nobody can log in as root; type: usermod -s /bin/sh root");
}

/* The folder of the keys that sign packages, and whether some lie there. */
void SIGNING_KEYS()
{
    std::error_code   error;
    const std::string sFolder = sINI_FOLDER() + cpPACKAGE_KEYS;
    iMAKE_DIRECTORY(sFolder);
    if (std::filesystem::is_empty(sFolder, error) && !error)
        std::printf(
            "%s: put the public keys that sign packages here; until then none is "
            "installed\n",
            sFolder.c_str());
}

/* What sshd makes of the file. Result: how many things are wrong, each told. */
int iTELL_SSHD(const CALL& call, const SSHD_SETTINGS& settings)
{
    std::vector<std::string> asFault = settings.asFault;
    if (!settings.sUnknown.empty()) {
        iTELL("cannot ask sshd for its settings, so " + call.sFile +
              " is taken: " + settings.sUnknown);
        return 0;
    }
    if (const std::string sFault = sSTRICT_FAULT(call.sFile); settings.bStrict && !sFault.empty())
        asFault.push_back(sFault);
    for (const std::string& s : asFault) iTELL("sshd: " + s);
    return static_cast<int>(asFault.size());
}

/* Admits what call holds. Result: exit status. */
int iADMIT(CALL& call)
{
    std::string   sReason;
    KEY_FILE      file;
    SSHD_SETTINGS settings;
    const bool    bAsk = call.sFile.empty();
    if (call.permit.sMode.empty()) call.permit.sMode = svMODE_CTRL;
    const bool bGate = call.permit.sMode == svMODE_CTRL;
    if (bGate && call.permit.sPackages.empty())
        call.permit.sPackages = asvPACKAGES[PACKAGES_SIGNED];
    if (!iPUBLIC_KEYS(call.asKey, call.permit.keys, sReason)) return iTELL(sReason, iUSAGE);
    if (bGate && !iGATE(call)) return 1;
    if (bAsk) {
        if (!iROOT()) return 1;
        settings = sctSSHD_SETTINGS(call.permit.sServer, call.permit.sFrom, bGate);
        call.sFile = settings.asKeyFile.empty() ? sROOTS_FILE() : settings.asKeyFile[0];
    }
    if (!iKEY_FILE_OPEN(call.sFile, bAsk && call.sFile == sROOTS_FILE(), file, sReason))
        return iTELL(sReason, 1);
    const PERMIT_CHANGE change = sctADMIT(file.sText, call.permit);
    const int           iExit = iSTORE(file, change, true);
    if (iExit != 0) return iExit;
    for (const std::string& sOld : change.asRenamed) FORGET(sOld, "", "");
    REMEMBER(call.permit);
    if (call.permit.sPackages == asvPACKAGES[PACKAGES_SIGNED]) SIGNING_KEYS();
    if (!bAsk) return 0;
    TELL_LOGIN_SHELL();
    return iTELL_SSHD(call, settings) == 0 ? 0 : 1;
}

int iCONTRADICTS(const char* cpOption, const std::string& sLine, const std::string& sHolds)
{
    if (sLine.empty() || sLine == sHolds) return 0;
    iTELL(std::string("the line says ") + cpOption + " " + sLine + ", and " +
          (sHolds.empty() ? "this client decides that" : sHolds + " holds here") +
          "; nothing was changed");
    return 1;
}

/* A line that was pasted or kept; the command itself may stand before its words. What is
   typed here holds: the line brings keys and the addresses that they are taken from, and
   where it says something else than what holds, nobody knows what was meant. */
int iADMIT_LINE(const CALL& typed, const std::string& sLine)
{
    CALL                     call = typed;
    CALL                     pasted;
    std::vector<std::string> asWord = asKEY_LINE_WORDS(sLine);
    const auto               command = std::find(asWord.begin(), asWord.end(), "set_client");
    if (command != asWord.end())
        asWord.erase(asWord.begin(), command + 1);
    else
        pasted.permit.sServer = typed.permit.sServer;
    if (!iREAD_ARGUMENTS(asWord, pasted)) return iUSAGE;
    if (call.permit.sMode.empty()) call.permit.sMode = svMODE_CTRL;
    if (call.permit.sMode == svMODE_CTRL && call.permit.sPackages.empty())
        call.permit.sPackages = asvPACKAGES[PACKAGES_SIGNED];
    if (iCONTRADICTS("the name", pasted.permit.sServer, call.permit.sServer) ||
        iCONTRADICTS("--mode", pasted.permit.sMode, call.permit.sMode) ||
        iCONTRADICTS("--packages", pasted.permit.sPackages, call.permit.sPackages) ||
        iCONTRADICTS("--file", pasted.sFile, call.sFile) ||
        iCONTRADICTS("--config", pasted.sConfig, call.sConfig) ||
        (!call.permit.sFrom.empty() &&
         iCONTRADICTS("--from", pasted.permit.sFrom, call.permit.sFrom)))
        return iUSAGE;
    if (call.permit.sFrom.empty()) call.permit.sFrom = pasted.permit.sFrom;
    call.asKey = pasted.asKey;
    return iADMIT(call);
}

/* The line that was kept. Result 0: told, or there is none. */
int iREAD_REMEMBERED(const std::string& sPath, std::string& sLine)
{
    KEY_FILE    file;
    std::string sReason;
    if (access(sPath.c_str(), F_OK) != 0) return 0;
    if (!iKEY_FILE_OPEN(sPath, false, file, sReason)) return iTELL(sReason);
    if (!file.bRight) return iTELL("\"" + sPath + "\" is not used: others may have written it");
    sLine = file.sText.substr(0, file.sText.find('\n'));
    return 1;
}

/* Without a key: what this server was admitted with before. Result: exit status, or
   -1 when nothing is known. */
int iADMIT_REMEMBERED(const CALL& call)
{
    int iExit = -1;
    for (const REMEMBERED& remembered : asctRemembered) {
        CALL        one = call;
        std::string sLine;
        const bool  bAsked = (call.permit.sMode.empty() && call.permit.sPackages.empty()) ||
                            (call.permit.sMode.empty() ? svMODE_CTRL == remembered.svMode
                                                       : call.permit.sMode == remembered.svMode);
        if (!bAsked || !iREAD_REMEMBERED(sREMEMBERED_FILE(call.permit.sServer, remembered), sLine))
            continue;
        one.permit.sMode = remembered.svMode;
        if (call.permit.sPackages.empty()) one.permit.sPackages = remembered.svPackages;
        iExit = std::max(iExit, iADMIT_LINE(one, sLine));
    }
    return iExit;
}

/* What prints the line there. */
std::string sPERMIT_COMMAND(const CALL& call)
{
    return "vk_setup permit --mode " +
           (call.permit.sMode.empty() ? std::string(svMODE_CTRL) : call.permit.sMode);
}

int iADMIT_ASKED(const CALL& call)
{
    const char* cpServer = call.permit.sServer.c_str();
    if (isatty(STDIN_FILENO) != 0)
        std::fprintf(stderr, "Type on %s: %s\nand paste the line that it prints: ", cpServer,
                     sPERMIT_COMMAND(call).c_str());
    std::string sLine;
    for (char c = 0; sLine.size() < uLINE_MAX; sLine += c) {
        std::vector<WAIT_FD> fds{{STDIN_FILENO}};
        if (iWAIT(fds, 0) != WAIT_READY || lREAD(STDIN_FILENO, &c, 1) <= 0 || c == '\n') break;
    }
    sLine = std::string(svTRIMMED(sLine));
    if (!sLine.empty()) return iADMIT_LINE(call, sLine);
    return iTELL("no key of " + call.permit.sServer + "; the line to type is printed there by " +
                     sPERMIT_COMMAND(call),
                 iUSAGE);
}

/* Also makes the configuration that was named the one that is read; one that is not there
   would let the gate read another than was meant. */
int iBEGIN(const std::vector<std::string>& asArgument, CALL& call)
{
    call.sConfig = sENVIRONMENT("VK_INI");
    if (!iREAD_ARGUMENTS(asArgument, call)) return 0;
    if (!call.sConfig.empty() && access(call.sConfig.c_str(), R_OK) != 0)
        return iTELL("cannot read \"" + call.sConfig + "\": " + std::strerror(errno) +
                     "; --config names vk.ini of this client");
    if (!call.sConfig.empty()) setenv("VK_INI", call.sConfig.c_str(), 1);
    return iCONFIG_VALID();
}

}  // namespace

int iSET_CLIENT(const std::vector<std::string>& asArgument)
{
    CALL call;
    if (!iBEGIN(asArgument, call)) return iUSAGE;
    if (!call.asKey.empty()) return iADMIT(call);
    const int iExit = iADMIT_REMEMBERED(call);
    return iExit >= 0 ? iExit : iADMIT_ASKED(call);
}

int iUNSET_CLIENT(const std::vector<std::string>& asArgument)
{
    CALL call;
    if (!iBEGIN(asArgument, call)) return iUSAGE;
    const PERMIT& permit = call.permit;
    if (!call.asKey.empty() || !permit.sPackages.empty() || !permit.sFrom.empty())
        return iTELL("unset_client takes the name of the server, --mode, --file and --config alone",
                     iUSAGE);
    const std::string&       sServer = permit.sServer;
    std::vector<std::string> asFile{call.sFile};
    int                      iExit = 0;
    if (call.sFile.empty()) {
        if (!iROOT()) return 1;
        // What sshd read when the server was admitted may be another file than today's.
        asFile = sctSSHD_SETTINGS(sServer, "", true).asKeyFile;
        if (std::find(asFile.begin(), asFile.end(), sROOTS_FILE()) == asFile.end())
            asFile.insert(asFile.begin(), sROOTS_FILE());
        std::erase_if(asFile, [&](const std::string& s) {
            return s != asFile[0] && access(s.c_str(), F_OK) != 0;
        });
    }
    for (const std::string& sFile : asFile) {
        std::string sReason;
        KEY_FILE    file;
        if (!iKEY_FILE_OPEN(sFile, call.sFile.empty() && sFile == sROOTS_FILE(), file, sReason))
            iExit = iTELL(sReason, 1);
        else
            iExit = std::max(iExit,
                             iSTORE(file, sctTAKE_BACK(file.sText, sServer, permit.sMode), false));
    }
    if (iExit == 0) FORGET(sServer, permit.sMode, "all");
    return iExit;
}
