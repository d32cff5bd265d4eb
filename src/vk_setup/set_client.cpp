/* set_client and unset_client. What a server was admitted with is kept below gv_rw_ini
   (permits/SERVER.MODE), so that a client whose authorized_keys was lost is opened
   again by the command alone. */
#include "set_client.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/base/descriptor.h"
#include "common/base/program.h"
#include "common/config/config.h"
#include "common/config/variables.h"
#include "common/lines/appending.h"
#include "common/text/text.h"
#include "common/unix/cm_hal_pipe.h"
#include "key_file.h"
#include "permit.h"

namespace {

constexpr size_t uNAME_MAX = 255;
constexpr size_t uLINE_MAX = size_t{64} * 1024;
constexpr int    iUSAGE = 2;

constexpr const char* acpGate[] = {"/usr/libexec/velka/vk_ctrl", "/usr/sbin/vk_ctrl",
                                   "/usr/bin/vk_ctrl"};

struct CALL {
    PERMIT                   permit;  // sMode is empty until one is given
    std::string              sFile;   // authorized_keys; empty: root's
    std::string              sConfig;
    std::vector<std::string> asKey;
};

int iTELL(const std::string& sText, int iResult = 0)
{
    std::fprintf(stderr, "vk_setup: %s\n", sONE_LINE(sText).c_str());
    return iResult;
}

/* Words that stand in a quoted option of authorized_keys, or in a file name. */
bool bPLAIN(const std::string& s, const char* cpMore)
{
    return !s.empty() && s.size() <= uNAME_MAX && std::all_of(s.begin(), s.end(), [&](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               (c != '\0' && std::strchr(cpMore, c) != nullptr);
    });
}

struct OPTION {
    const char*  cpName;
    std::string* pValue;
};

int iTAKE_OPTION(const std::vector<std::string>& asArgument, size_t& u, CALL& call)
{
    const OPTION asctOption[] = {{"--mode", &call.permit.sMode},
                                 {"--from", &call.permit.sFrom},
                                 {"--file", &call.sFile},
                                 {"--config", &call.sConfig}};
    for (const OPTION& option : asctOption) {
        if (asArgument[u] != option.cpName) continue;
        if (u + 1 == asArgument.size()) return iTELL(std::string(option.cpName) + " needs a value");
        *option.pValue = asArgument[++u];
        return 1;
    }
    return iTELL("unknown option \"" + asArgument[u] + "\"; see vk_setup -h");
}

int iCHECK(const CALL& call)
{
    const PERMIT& permit = call.permit;
    if (!bPLAIN(permit.sServer, "._-:") || permit.sServer.starts_with('.'))
        return iTELL("\"" + permit.sServer + "\" is no name of a server");
    if (!permit.sMode.empty() && permit.sMode != svMODE_CTRL && permit.sMode != svMODE_VKSSH)
        return iTELL("--mode: \"" + permit.sMode + "\" is none of CTRL, VKSSH");
    if (!permit.sFrom.empty() && !bPLAIN(permit.sFrom, "._-:/,*?![]%"))
        return iTELL("--from: \"" + permit.sFrom + "\" is no list of addresses");
    if (!call.sConfig.empty() && (!bPLAIN(call.sConfig, "._-/+,=@") || call.sConfig[0] != '/'))
        return iTELL("--config: \"" + call.sConfig + "\" is no absolute path of plain characters");
    return 1;
}

/* Reads SERVER, options and key in any order. */
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

/* Where a session of the server looks for keys. Result 0: told. */
int iFILE(CALL& call)
{
    if (!call.sFile.empty()) return 1;
    if (geteuid() != 0) return iTELL("root's authorized_keys is changed by root only; use sudo");
    const passwd* pRoot = getpwuid(0);
    if (pRoot == nullptr) return iTELL("this system knows no root");
    call.sFile = std::string(pRoot->pw_dir) + "/.ssh/authorized_keys";
    return 1;
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
    if (!bPLAIN(*found, "._-/+,=@"))
        return iTELL("\"" + *found + "\" cannot stand in authorized_keys; install it elsewhere");
    call.permit.sGate = *found + (call.sConfig.empty() ? "" : " --config " + call.sConfig);
    return 1;
}

std::string sREMEMBERED_FILE(const std::string& sServer, std::string_view svMode)
{
    std::string sPath;
    iCONFIG_VARIABLE("gv_rw_ini", sPath);
    return sPath + "permits/" + sServer + "." + std::string(svMode);
}

std::string sREMEMBERED_TEXT(const PERMIT& permit)
{
    std::string sText = "--mode " + permit.sMode;
    if (!permit.sFrom.empty()) sText += " --from " + permit.sFrom;
    for (const PUBLIC_KEY& key : permit.keys)
        sText +=
            " " + key.sType + " " + key.sBlob + (key.sComment.empty() ? "" : " ") + key.sComment;
    return sText + "\n";
}

/* A client that forgets has lost a convenience, no more. */
void REMEMBER(const PERMIT& permit)
{
    const std::string sPath = sREMEMBERED_FILE(permit.sServer, permit.sMode);
    const std::string sText = sREMEMBERED_TEXT(permit);
    std::string       sReason;
    KEY_FILE          file;
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
    if (bMend) std::printf("%s: owner and mode put right\n", file.sPath.c_str());
    if (!file.sMended.empty())
        std::printf("%s: owner and mode put right\n", sONE_LINE(file.sMended).c_str());
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
          "\" cannot be run, so ssh admits nobody as root; type: usermod -s /bin/sh root");
}

/* Admits what call holds. Result: exit status. */
int iADMIT(CALL& call)
{
    std::string sReason;
    KEY_FILE    file;
    const bool  bRoots = call.sFile.empty();
    if (call.permit.sMode.empty()) call.permit.sMode = svMODE_CTRL;
    if (!iPUBLIC_KEYS(call.asKey, call.permit.keys, sReason)) return iTELL(sReason, iUSAGE);
    if (call.permit.sMode == svMODE_CTRL && !iGATE(call)) return 1;
    if (!iFILE(call)) return 1;
    if (!iKEY_FILE_OPEN(call.sFile, bRoots, file, sReason)) return iTELL(sReason, 1);
    const int iExit = iSTORE(file, sctADMIT(file.sText, call.permit), true);
    if (iExit == 0) REMEMBER(call.permit);
    if (bRoots) TELL_LOGIN_SHELL();
    return iExit;
}

/* Words of a line that holds arguments; the command itself may stand before them. */
int iADMIT_LINE(const CALL& call, const std::string& sLine)
{
    CALL                     one = call;
    std::vector<std::string> asWord = asKEY_LINE_WORDS(sLine);
    const auto               command = std::find(asWord.begin(), asWord.end(), "set_client");
    if (command != asWord.end()) asWord.erase(asWord.begin(), command + 1);
    const auto server = std::find(asWord.begin(), asWord.end(), call.permit.sServer);
    if (command != asWord.end() && server != asWord.end()) asWord.erase(server);
    return iREAD_ARGUMENTS(asWord, one) ? iADMIT(one) : iUSAGE;
}

/* The line that was kept. Result 0: told, or there is none. */
int iREAD_REMEMBERED(const std::string& sPath, std::string& sLine)
{
    KEY_FILE    file;
    std::string sReason;
    if (access(sPath.c_str(), F_OK) != 0) return 0;
    if (!iKEY_FILE_OPEN(sPath, false, file, sReason)) return iTELL(sReason);
    sLine = file.sText.substr(0, file.sText.find('\n'));
    return 1;
}

/* Without a key: what this server was admitted with before. Result: exit status, or
   -1 when nothing is known. */
int iADMIT_REMEMBERED(const CALL& call)
{
    int iExit = -1;
    for (const std::string_view svMode : {svMODE_CTRL, svMODE_VKSSH}) {
        std::string sLine;
        const bool  bAsked = call.permit.sMode.empty() || call.permit.sMode == svMode;
        if (bAsked && iREAD_REMEMBERED(sREMEMBERED_FILE(call.permit.sServer, svMode), sLine))
            iExit = std::max(iExit, iADMIT_LINE(call, sLine));
    }
    return iExit;
}

/* What prints the line there. */
std::string sPERMIT_COMMAND(const CALL& call)
{
    const std::string sCommand = "vk_setup permit";
    return call.permit.sMode.empty() ? sCommand + " (mode CTRL: " + sCommand + " --mode CTRL)"
                                     : sCommand + " --mode " + call.permit.sMode;
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

/* Also makes the configuration that was named the one that is read. */
int iBEGIN(const std::vector<std::string>& asArgument, CALL& call)
{
    call.sConfig = sENVIRONMENT("VK_INI");
    if (!iREAD_ARGUMENTS(asArgument, call)) return 0;
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
    if (!call.asKey.empty())
        return iTELL("unset_client takes the name of the server alone", iUSAGE);
    const bool  bRoots = call.sFile.empty();
    std::string sReason;
    KEY_FILE    file;
    if (!iFILE(call)) return 1;
    if (!iKEY_FILE_OPEN(call.sFile, bRoots, file, sReason)) return iTELL(sReason, 1);
    const int iExit = iSTORE(file, sctTAKE_BACK(file.sText, call.permit.sServer), false);
    for (const std::string_view svMode : {svMODE_CTRL, svMODE_VKSSH}) {
        const std::string sPath = sREMEMBERED_FILE(call.permit.sServer, svMode);
        if (iExit == 0 && unlink(sPath.c_str()) != 0 && errno != ENOENT)
            iTELL("cannot remove \"" + sPath + "\": " + std::strerror(errno));
    }
    return iExit;
}
