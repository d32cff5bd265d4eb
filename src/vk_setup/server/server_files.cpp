/* The files part of the first setup: directories, update scripts, and for each access
   mode that has a key of its own, key pair and ssh configuration. */
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "../programs.h"
#include "common/common.h"
#include "common/config/config.h"
#include "files.h"
#include "setup.h"
#include "steps.h"

namespace fs = std::filesystem;

namespace {

/* Takes the rights uForbidden from a file that has them. */
void TIGHTEN(const std::string& sFile, mode_t uForbidden)
{
    struct stat sctStat {};
    if (stat(sFile.c_str(), &sctStat) != 0 || (sctStat.st_mode & uForbidden) == 0) return;
    if (chmod(sFile.c_str(), sctStat.st_mode & 07777U & ~uForbidden) != 0)
        iSTEP(STEP_FAILED, sCANNOT("change the mode of", sFile));
    else
        iSTEP(STEP_MADE, "mode of " + sFile);
}

/* Result 1: it is there now. */
int iDIRECTORY(const std::string& sDirectory, mode_t uMode)
{
    struct stat sctStat {};
    if (stat(sDirectory.c_str(), &sctStat) == 0 && S_ISDIR(sctStat.st_mode)) return 1;
    if (!iMAKE_DIRECTORY(sDirectory) || chmod(sDirectory.c_str(), uMode) != 0)
        return iSTEP(STEP_FAILED, sCANNOT("make", sDirectory));
    return iSTEP(STEP_MADE, "directory " + sDirectory);
}

/* The scripts are links to the product's own, so that an upgrade renews them. */
void UPDATE_SCRIPTS()
{
    std::string sSkel;
    std::string sReason;
    iCONFIG_SERVER_PATH("gv_ro:skel/", sSkel, sReason);
    for (const char* cpScript : acpUpdateScript) {
        const std::string sTarget = sPRODUCT_FILE(std::string("skel/") + cpScript);
        const std::string sLink = sSkel + cpScript;
        std::error_code   error;
        if (fs::exists(sLink, error)) continue;
        if (sTarget.empty()) {
            iSTEP(STEP_FAILED, "update script " + sLink +
                                   ": the product's own is missing too; "
                                   "install the package again");
            continue;
        }
        if (!iDIRECTORY(sSkel, 0755)) return;
        unlink(sLink.c_str());  // one that leads nowhere
        if (symlink(sTarget.c_str(), sLink.c_str()) != 0)
            iSTEP(STEP_FAILED, sCANNOT("make", sLink));
        else
            iSTEP(STEP_MADE, "update script " + sLink);
    }
}

/* The key exchange that costs least of those that protect against later quantum computers;
   an ssh that does not know it would refuse the whole file. */
std::string sKEY_EXCHANGE()
{
    constexpr const char* cpNAME = "mlkem768x25519-sha256";
    const bool bKnown = sctRUN_PROGRAM({"ssh", "-Q", "kex"}).sOut.find(cpNAME) != std::string::npos;
    return std::string(bKnown ? "    " : "    # From OpenSSH 9.9 on, connects faster:\n    # ") +
           "KexAlgorithms ^" + cpNAME + "\n";
}

std::string sSSH_CONFIGURATION(const std::string& sMode, const std::string& sFolder)
{
    return "# ssh_config(5) of vk_config_client for clients of access mode " + sMode +
           ".\n"
           "# The first value found counts: put blocks of your own (another port, a jump\n"
           "# host, another user) above this one.\n"
           "Host *\n"
           "    User root\n"
           "    IdentityFile " +
           sFolder +
           "id_ed25519\n"
           "    IdentitiesOnly yes\n"
           "    IdentityAgent none\n"
           "    StrictHostKeyChecking accept-new\n"
           "    UserKnownHostsFile " +
           sFolder + "known_hosts\n" + sKEY_EXCHANGE();
}

/* A key pair without a passphrase, since nobody is there to type it. */
void MAKE_KEY(const std::string& sKey, const std::string& sServer)
{
    const PROGRAM_RUN run = sctRUN_PROGRAM(
        {"ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-C", "velka@" + sServer, "-f", sKey});
    if (!run.bGood())
        iSTEP(STEP_FAILED, "key pair " + sKey + ": " + sLAST_LINE(run.sOut));
    else
        iSTEP(STEP_MADE, "key pair " + sKey);
}

void MAKE_PUBLIC(const std::string& sKey)
{
    std::string sPublic;
    std::string sReason;
    if (!file_exist(sKey.c_str()) || file_exist((sKey + ".pub").c_str()) ||
        iAGENT_KEY(sKey.c_str()))
        return;
    if (!iPUBLIC_KEY(sKey, sPublic, sReason) ||
        !iREPLACE_FILE(sKey + ".pub", sPublic + "\n", 0644, sReason))
        iSTEP(STEP_FAILED, "public key of " + sKey + ": " + sReason);
    else
        iSTEP(STEP_MADE, "public key " + sKey + ".pub");
}

/* Keys that the configuration names beside itself are the product's; others are the
   administrator's, and stay his. Result 1: the mode has what it needs. */
int iACCESS(const std::string& sMode, const std::string& sServer)
{
    std::string sConfig;
    std::string sReason;
    if (!iCONFIG_ACCESS(sMode.c_str(), sConfig)) return 0;
    if (sConfig.empty())
        return iSTEP(STEP_THERE, "mode " + sMode + ": the administrator's own ssh configuration");
    const std::string sFolder = sFOLDER(sConfig);
    if (!iDIRECTORY(sFolder, 0700)) return 0;
    if (!file_exist(sConfig.c_str())) {
        if (!iREPLACE_FILE(sConfig, sSSH_CONFIGURATION(sMode, sFolder), 0600, sReason))
            return iSTEP(STEP_FAILED, "ssh configuration: " + sReason);
        iSTEP(STEP_MADE, "ssh configuration " + sConfig);
    }
    TIGHTEN(sConfig, 0022);
    const std::vector<std::string> asKey = asIDENTITIES(sConfig, sReason);
    if (!sReason.empty())
        return iSTEP(STEP_FAILED, "ssh configuration " + sConfig + ": " + sReason);
    for (const std::string& sKey : asKey) {
        if (!sKey.starts_with(sFolder)) continue;
        if (!file_exist(sKey.c_str())) MAKE_KEY(sKey, sServer);
        MAKE_PUBLIC(sKey);
        TIGHTEN(sKey, 0077);
    }
    return iSTEP(STEP_THERE, "ssh configuration and key of mode " + sMode);
}

}  // namespace

std::string sDIRECTORY(const WORK_DIRECTORY& directory)
{
    std::string sPath;
    iCONFIG_VARIABLE(directory.cpKey, sPath);
    return sPath + directory.cpBelow;
}

void v_SETUP_CONFIGURATION()
{
    const std::string sPlace = sCONFIG_PLACE();
    std::string       sText;
    std::string       sReason;
    if (file_exist(sPlace.c_str())) {
        iSTEP(STEP_THERE, "configuration " + sPlace);
    } else {
        if (!iREAD_FILE(sPRODUCT_FILE("vk.ini"), sText))
            sText = "; Configuration of vk_config_client(8)\n";
        if (!iMAKE_DIRECTORY(sFOLDER(sPlace)))
            iSTEP(STEP_FAILED, "configuration: " + sCANNOT("make", sFOLDER(sPlace)));
        else if (!iREPLACE_FILE(sPlace, sText, 0640, sReason))
            iSTEP(STEP_FAILED, "configuration: " + sReason);
        else
            iSTEP(STEP_MADE, "configuration " + sPlace);
    }
    TIGHTEN(sPlace, 0027);
}

void v_SETUP_DIRECTORIES()
{
    int iAll = 1;
    for (const WORK_DIRECTORY& directory : asctWorkDirectory) {
        iAll &= iDIRECTORY(sDIRECTORY(directory), 0750);
        TIGHTEN(sDIRECTORY(directory), 0002);
    }
    if (iAll) iSTEP(STEP_THERE, "directories of the tool");
    UPDATE_SCRIPTS();
}

void v_SETUP_ACCESS(const std::string& sServer)
{
    if (sPROGRAM_PATH("ssh-keygen").empty() || sPROGRAM_PATH("ssh").empty())
        iSTEP(STEP_TO_DO, "ssh is not installed: apt-get install openssh-client");
    else
        for (const char* cpMode : acpKeyMode) iACCESS(cpMode, sServer);
}
