/* The configuration that ssh, sftp and the ssh of a jump host are given. */
#include "ssh_configuration.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>

#include "../../base/descriptor.h"
#include "../../base/holder.h"
#include "../../base/immortal.h"
#include "../../lines/standard_error.h"
#include "ssh_connection.h"

namespace {

// Nothing of the administrator's goes to a client. Of several SetEnv the first counts. The
// run's own connection is shared by the command line, which comes before this; the one to
// a host in between by nobody, or it would outlive the run and serve the next.
constexpr char szFIRST[] =
    "Host *\n"
    "    ForwardAgent no\n"
    "    ForwardX11 no\n"
    "    GSSAPIDelegateCredentials no\n"
    "    PermitLocalCommand no\n"
    "    Tunnel no\n"
    "    RemoteCommand none\n"
    "    StdinNull no\n"
    "    ForkAfterAuthentication no\n"
    "    ControlMaster no\n"
    "    ControlPath none\n"
    "    SetEnv VK_CONFIG_CLIENT=1\n";
// A new host key is kept, a changed one refused. What SendEnv gathered is let go.
constexpr char szLAST[] =
    "Host *\n"
    "    StrictHostKeyChecking accept-new\n"
    "    SendEnv -*\n";
constexpr char szOWN[] = "Include ~/.ssh/config\nInclude /etc/ssh/ssh_config\n";

/* ssh includes only files that nobody else can have written. */
bool bCAN_BE_INCLUDED(int iFd, const std::string& sConfig)
{
    struct stat sctStat {};
    return fstat(iFd, &sctStat) == 0 && (sctStat.st_uid == 0 || sctStat.st_uid == geteuid()) &&
           (sctStat.st_mode & 022U) == 0 && sConfig[0] == '/' &&
           sConfig.find_first_of("\"\\*?[%$~\n") == std::string::npos;
}

/* The access mode's own settings, by name so that ssh tells file and line of what is
   wrong in them, else as text. */
int iSETTINGS(const std::string& sConfig, std::string& sText, std::string& sReason)
{
    if (sConfig.empty()) {
        sText += szOWN;
        return 1;
    }
    FD fd = fdOPEN_FILE(sConfig, O_RDONLY);
    if (!fd.bOpen())
        return iREASON(sReason, "Can't open user config file " + sConfig + ": " + cpERRNO(errno));
    if (bCAN_BE_INCLUDED(fd.iGet(), sConfig)) {
        sText += "Include \"" + sConfig + "\"\n";
        return 1;
    }
    constexpr size_t uMOST = size_t{1} << 20;
    uREAD_NOW(fd, sText, uMOST);
    sText += "\n";
    return 1;
}

/* Writes the file of an access mode once per run. Result  its path, "" where there is
   no place for it. */
std::string sWRITTEN(const std::string& sConfig, const std::string& sText)
{
    static IMMORTAL<std::map<std::string, std::string>> written;
    const std::string&                                  sDirectory = sPRIVATE_DIRECTORY();
    if (sDirectory.empty()) return {};
    std::string& sFile = written.Get()[sDirectory + "\n" + sConfig];
    if (!sFile.empty()) return sFile;
    const std::string sPath = sDirectory + "/config" + std::to_string(written.Get().size());
    const FD          fd(open(sPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (fd.bOpen() && iWRITE_ALL(fd.iGet(), sText)) sFile = sPath;
    return sFile;
}

/* The same in memory, for a run that has no place for a file: ssh reads it over this
   process's descriptor. "" where there is no memory either (errno). */
std::string sIN_MEMORY(const std::string& sConfig, const std::string& sText)
{
    static IMMORTAL<std::map<std::string, FD>> kept;
    FD&                                        fd = kept.Get()[sConfig];
    if (!fd.bOpen()) {
        FD fdNew(memfd_create("ssh_config", MFD_CLOEXEC));
        if (!fdNew.bOpen() || !iWRITE_ALL(fdNew.iGet(), sText)) return {};
        fd = std::move(fdNew);
    }
    return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fd.iGet());
}

}  // namespace

int iSSH_CONFIGURATION(const std::string& sConfig, std::vector<std::string>& asWord,
                       std::string& sReason)
{
    std::string sText = szFIRST;
    if (!iSETTINGS(sConfig, sText, sReason)) return 0;
    sText += szLAST;
    std::string sFile = sWRITTEN(sConfig, sText);
    if (sFile.empty()) sFile = sIN_MEMORY(sConfig, sText);
    if (sFile.empty()) return iCANNOT("write", "the configuration of ssh", sReason);
    asWord = {"-F", sFile};
    return 1;
}
