/* Directories, disks, update scripts, programs, ssh configurations and keys. */
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>

#include "../programs.h"
#include "common/common.h"
#include "common/config/config.h"
#include "common/remote/ssh/known_key.h"
#include "files.h"
#include "setup.h"
#include "steps.h"

namespace {

constexpr unsigned long uMIN_FREE = 64UL << 20U;  // bytes
constexpr unsigned long uMIN_FILES = 1000;
constexpr long          lMIN_SSH = 706;  // 7.6 knows "accept-new"

std::string sCHMOD(const char* cpMode, const std::string& sFile)
{
    return sTYPED({"chmod", cpMode, sFile});
}

void CHECK_DIRECTORY(const std::string& sDirectory)
{
    struct stat       sctStat {};
    const std::string sWhat = "directory " + sDirectory;
    std::string       sBare = sDirectory;
    while (sBare.size() > 1 && sBare.ends_with('/')) sBare.pop_back();
    const auto wrong = [&sWhat, &sctStat](const std::string& sCommand) {
        if (errno == EACCES && geteuid() != 0 && geteuid() != sctStat.st_uid)
            v_WRONG_ADVICE(sWhat, std::strerror(EACCES), "run vk_setup check as root");
        else
            v_WRONG(sWhat, std::strerror(errno), sCommand);
    };
    if (stat(sBare.c_str(), &sctStat) != 0)
        wrong("vk_setup server");
    else if (!S_ISDIR(sctStat.st_mode))
        v_WRONG(sWhat, "is not a directory",
                sTYPED({"mv", sBare, sBare + ".old"}) + " && vk_setup server");
    else if ((sctStat.st_mode & S_IWOTH) != 0)
        v_WRONG(sWhat, "everybody may write there", sCHMOD("o-w", sDirectory));
    else if (access(sBare.c_str(), R_OK | W_OK | X_OK) != 0)
        wrong(sCHMOD("u+rwx", sDirectory));
    else
        v_GOOD(sWhat);
}

/* Room for protocols, answers and packages, once for each file system. */
void CHECK_DISKS()
{
    std::set<dev_t> seen;
    for (const WORK_DIRECTORY& directory : asctWorkDirectory) {
        const std::string sDirectory = sDIRECTORY(directory);
        struct statvfs    sctFs {};
        struct stat       sctStat {};
        if (stat(sDirectory.c_str(), &sctStat) != 0 || !seen.insert(sctStat.st_dev).second ||
            statvfs(sDirectory.c_str(), &sctFs) != 0)
            continue;
        const unsigned long uFree = sctFs.f_bavail * sctFs.f_frsize;
        const std::string   sWhat =
            "disk of " + sDirectory + ": " + std::to_string(uFree >> 20U) + " MiB free";
        const std::string sLook = "make room; what takes it: du -xh " + sDirectory + " | sort -h";
        if ((sctFs.f_flag & ST_RDONLY) != 0)
            v_WRONG(sWhat, "mounted read-only", sTYPED({"mount", "-o", "remount,rw", sDirectory}));
        else if (uFree < uMIN_FREE)
            v_WRONG_ADVICE(sWhat, "that is less than 64 MiB", sLook);
        else if (sctFs.f_files > 0 && sctFs.f_favail < uMIN_FILES)
            v_WRONG_ADVICE(sWhat, "but almost no inodes", sLook);
        else
            v_GOOD(sWhat);
    }
}

void CHECK_UPDATE_SCRIPTS()
{
    std::string sReason;
    for (const char* cpScript : acpUpdateScript) {
        std::string sFile;
        std::string sText;
        iCONFIG_SERVER_PATH((std::string("gv_ro:skel/") + cpScript).c_str(), sFile, sReason);
        const std::string sWhat = "update script " + sFile;
        if (!iREAD_FILE(sFile, sText))
            v_WRONG(sWhat, std::strerror(errno), "vk_setup server");
        else if (sText.empty())
            v_WRONG(sWhat, "is empty", sTYPED({"rm", sFile}) + " && vk_setup server");
        else
            v_GOOD(sWhat);
    }
}

void CHECK_HOSTS_FILE()
{
    std::string sFile = "/etc/hosts";
    struct stat sctStat {};
    iCONFIG_VARIABLE("gv_hosts_file", sFile);
    if (sFile.empty()) sFile = "/etc/hosts";
    const std::string sWhat = "hosts file " + sFile;
    const std::string sMake = "echo '127.0.0.1 localhost' >" + sTYPED({sFile});
    if (stat(sFile.c_str(), &sctStat) != 0)
        v_WRONG(sWhat, std::strerror(errno), sMake);
    else if (!S_ISREG(sctStat.st_mode))
        v_WRONG(sWhat, "is not a regular file",
                sTYPED({"mv", sFile, sFile + ".old"}) + " && " + sMake);
    else if ((sctStat.st_mode & 0022U) != 0)
        v_WRONG(sWhat, "others than its owner may change it", sCHMOD("644", sFile));
    else
        v_GOOD(sWhat);
}

/* The shared connections of a run lie there. */
void CHECK_TEMPORARY()
{
    const char*       cpTmp = std::getenv("TMPDIR");
    const std::string sTmp = cpTmp != nullptr && *cpTmp == '/' ? cpTmp : "/tmp";
    struct stat       sctStat {};
    if (stat(sTmp.c_str(), &sctStat) != 0 || !S_ISDIR(sctStat.st_mode))
        v_WRONG("temporary directory " + sTmp, "is not a directory",
                sTYPED({"install", "-d", "-m", "1777", sTmp}));
    else if ((sctStat.st_mode & (S_IWOTH | S_ISVTX)) == S_IWOTH)
        v_WRONG("temporary directory " + sTmp, "anybody may remove anybody's files there",
                sCHMOD("1777", sTmp));
    else
        v_GOOD("temporary directory " + sTmp);
}

/* "OpenSSH_9.2p1 ..." as 902; 0: something else. */
long lSSH_VERSION(const std::string& sText)
{
    constexpr std::string_view svName = "OpenSSH_";
    const size_t               uAt = sText.find(svName);
    if (uAt == std::string::npos) return 0;
    char*      cpEnd = nullptr;
    const long lMajor = std::strtol(sText.c_str() + uAt + svName.size(), &cpEnd, 10);
    return lMajor * 100 + (*cpEnd == '.' ? std::strtol(cpEnd + 1, nullptr, 10) : 0);
}

void CHECK_PROGRAM(const char* cpName, const char* cpPackage)
{
    const std::string sPath = sPROGRAM_PATH(cpName);
    const std::string sUsual = std::string("/usr/bin/") + cpName;
    if (!sPath.empty())
        v_GOOD("program " + sPath);
    else if (file_exist(sUsual.c_str()))
        v_WRONG("program " + sUsual, "may not be run", sCHMOD("755", sUsual));
    else
        v_WRONG(std::string("program ") + cpName, "is not there",
                std::string("apt-get install --reinstall ") + cpPackage);
}

/* What somebody else may change is not to be trusted with root's keys. Result 0: told. */
int iCHECK_OWNER(const std::string& sWhat, const std::string& sFile)
{
    struct stat sctStat {};
    if (stat(sFile.c_str(), &sctStat) != 0)
        v_WRONG(sWhat, std::strerror(errno), "vk_setup server");
    else if (sctStat.st_uid != geteuid() && sctStat.st_uid != 0)
        v_WRONG(sWhat, "belongs to another user",
                sTYPED({"chown", std::to_string(geteuid()), sFile}));
    else if ((sctStat.st_mode & 0022U) != 0)
        v_WRONG(sWhat, "others than its owner may change it", sCHMOD("go-w", sFile));
    else
        return 1;
    return 0;
}

/* The command that makes the key. */
std::string sMAKE_KEY(const std::string& sKey, bool bOwn)
{
    return bOwn ? "vk_setup server" : sTYPED({"ssh-keygen", "-t", "ed25519", "-N", "", "-f", sKey});
}

/* The private key that is there, and its public half. */
void CHECK_KEY_PAIR(const std::string& sKey, const std::string& sWhat, bool bOwn)
{
    const PROGRAM_RUN run = sctRUN_PROGRAM({"ssh-keygen", "-y", "-P", "", "-f", sKey});
    if (!run.bGood() && run.sOut.find("passphrase") != std::string::npos)
        return v_WRONG(sWhat, "has a passphrase, and nobody is there to type it",
                       sTYPED({"ssh-keygen", "-p", "-N", "", "-f", sKey}));
    if (!run.bGood())
        return v_WRONG(sWhat, "cannot be read: " + sLAST_LINE(run.sOut),
                       sTYPED({"mv", sKey, sKey + ".old"}) + " && " + sMAKE_KEY(sKey, bOwn));
    // Comments may differ, type and key may not.
    std::string       sPublic;
    const std::string sOwn = sLAST_LINE(run.sOut);
    const std::string sBody = sOwn.substr(0, sOwn.find(' ', sOwn.find(' ') + 1));
    if (!iREAD_FILE(sKey + ".pub", sPublic) || !sPublic.starts_with(sBody))
        return v_WRONG(sWhat, "its public half " + sKey + ".pub is missing or does not match",
                       sTYPED({"ssh-keygen", "-y", "-f", sKey}) + " >" + sTYPED({sKey + ".pub"}));
    std::string sValid;
    if (iCERTIFICATE_INVALID(sKey, sValid))
        return v_WRONG_ADVICE(sWhat, "its certificate is not valid now (" + sValid + ")",
                              "have " + sKey + ".pub signed again");
    v_GOOD(sWhat);
}

/* The private key of a mode. bOwn: the setup makes it where it is missing. */
void CHECK_KEY(const std::string& sConfig, const std::string& sKey, bool bOwn)
{
    struct stat       sctStat {};
    const std::string sWhat = "key " + sKey;
    std::string       sError;
    if (stat(sKey.c_str(), &sctStat) != 0)
        return v_WRONG(sWhat, std::strerror(errno), sMAKE_KEY(sKey, bOwn));
    if (iAGENT_KEY(sKey)) {
        if (iAGENT_HOLDS(sConfig, sKey, sError))
            v_GOOD(sWhat + ": its private key is in an agent");
        else
            v_WRONG_ADVICE(sWhat, "no agent has its private key: " + sError,
                           "start the agent that IdentityAgent names, and ssh-add the key");
        return;
    }
    if ((sctStat.st_mode & 0077U) != 0)
        return v_WRONG(sWhat, "others may read it, so ssh does not use it", sCHMOD("600", sKey));
    if (sctStat.st_uid != geteuid())
        return v_WRONG(sWhat, "belongs to another user",
                       sTYPED({"chown", std::to_string(geteuid()), sKey}));
    CHECK_KEY_PAIR(sKey, sWhat, bOwn);
}

/* The number behind "line ", 0 none. */
long lLINE_IN(const std::string& sText)
{
    const size_t uAt = sText.find("line ");
    return uAt == std::string::npos ? 0 : std::strtol(sText.c_str() + uAt + 5, nullptr, 10);
}

void CHECK_MODE(const std::string& sMode)
{
    std::string sConfig;
    std::string sError;
    if (!iCONFIG_ACCESS(sMode.c_str(), sConfig)) {
        v_WRONG("ssh configuration of mode " + sMode, "its path in vk.ini has an unknown key",
                sTYPED({"sed", "-i", "/^\\[access " + sMode + "\\]/,/^\\[/s/^config/; &/",
                        sCONFIG_PLACE()}));
        return;
    }
    if (sConfig.empty())
        return v_GOOD("ssh configuration of mode " + sMode + ": the administrator's own");
    const std::string sWhat = "ssh configuration " + sConfig;
    const std::string sFolder = sFOLDER(sConfig);
    if (!file_exist(sFolder.c_str())) v_WRONG(sWhat, std::strerror(ENOENT), "vk_setup server");
    if (!file_exist(sFolder.c_str()) || !iCHECK_OWNER("directory " + sFolder, sFolder) ||
        !iCHECK_OWNER(sWhat, sConfig))
        return;
    const std::vector<std::string> asKey = asIDENTITIES(sConfig, sError);
    if (!sError.empty()) {
        if (sError.starts_with(sConfig + ": ")) sError.erase(0, sConfig.size() + 2);
        const long lLine = lLINE_IN(sError);
        if (lLine > 0)
            v_WRONG(sWhat, sError,
                    sTYPED({"sed", "-i", std::to_string(lLine) + "s/^/# /", sConfig}));
        else
            v_WRONG_ADVICE(sWhat, sError, "correct it by hand");
        return;
    }
    v_GOOD(sWhat);
    // A configuration that names no key of its own gets ssh's usual ones, some of which
    // may not exist; one that does has to have them.
    for (const std::string& sKey : asKey)
        if (sKey.starts_with(sFOLDER(sConfig)) || file_exist(sKey.c_str()) || asKey.size() == 1)
            CHECK_KEY(sConfig, sKey, sKey.starts_with(sFOLDER(sConfig)));
}

}  // namespace

void v_CHECK_DIRECTORIES()
{
    for (const WORK_DIRECTORY& directory : asctWorkDirectory)
        CHECK_DIRECTORY(sDIRECTORY(directory));
    CHECK_DISKS();
    CHECK_TEMPORARY();
    CHECK_UPDATE_SCRIPTS();
    CHECK_HOSTS_FILE();
}

void v_CHECK_PROGRAMS()
{
    CHECK_PROGRAM("vk_config_client", "./vk-config-client_*.deb");
    for (const char* cpName : {"sftp", "ssh-keygen"}) CHECK_PROGRAM(cpName, "openssh-client");
    if (sPROGRAM_PATH("ssh").empty()) return CHECK_PROGRAM("ssh", "openssh-client");
    const std::string sVersion = sLAST_LINE(sctRUN_PROGRAM({"ssh", "-V"}).sOut);
    if (lSSH_VERSION(sVersion) < lMIN_SSH)
        v_WRONG("program ssh: " + sVersion, "OpenSSH 7.6 or later is needed",
                "apt-get install openssh-client");
    else
        v_GOOD("program ssh: " + sVersion);
}

void v_CHECK_ACCESS()
{
    for (const char* cpMode : acpKeyMode) CHECK_MODE(cpMode);
}
