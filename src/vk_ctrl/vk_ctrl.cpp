/* vk_ctrl: the forced command of a key that admits a backup server to this client
   for its own work only. Whatever the server sends is a request of a small
   language; no shell reads it, and the server's environment is not used. */
#include <pwd.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/base/descriptor.h"
#include "common/base/immortal.h"
#include "common/base/program.h"
#include "common/config/config.h"
#include "common/config/variables.h"
#include "common/text/text.h"
#include "common/unix/cm_hal_pipe.h"
#include "gate.h"

namespace {

constexpr int  iEXIT_USAGE = 2;
constexpr long lFIRST_LINE_MS = 60'000;

/* What programs get instead of the environment that came with the session. */
void CLEAN_ENVIRONMENT(const std::string& sConfig)
{
    clearenv();
    const passwd*     pUser = getpwuid(geteuid());
    const std::string sHome = pUser != nullptr ? pUser->pw_dir : "/";
    sctCALLER().sUser = pUser != nullptr ? pUser->pw_name : std::to_string(geteuid());
    setenv("HOME", sHome.c_str(), 1);
    setenv("USER", sctCALLER().sUser.c_str(), 1);
    setenv("LOGNAME", sctCALLER().sUser.c_str(), 1);
    setenv("SHELL", "/bin/sh", 1);
    if (!sConfig.empty()) setenv("VK_INI", sConfig.c_str(), 1);
    // Known only now, since it depends on the configuration.
    std::string sPrograms;
    iCONFIG_VARIABLE("gv_ro_bin", sPrograms);
    while (sPrograms.size() > 1 && sPrograms.back() == '/') sPrograms.pop_back();
    setenv("PATH",
           (sPrograms + ":/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin").c_str(),
           1);
    if (chdir(sHome.c_str()) != 0 && chdir("/") != 0) std::perror("vk_ctrl: cannot enter \"/\"");
}

/* The line that comes first on standard input. Byte by byte: what follows it is not
   the gate's to read yet. Result 0: its end did not come, so nobody knows what it was
   to be. */
int iFIRST_LINE(std::string& sLine)
{
    const long lEnd = lNOW_MS() + lFIRST_LINE_MS;
    while (sLine.size() <= uREQUEST_MAX) {
        std::vector<WAIT_FD> fds{{STDIN_FILENO}};
        char                 c = '\0';
        if (iWAIT(fds, lEnd) != WAIT_READY) return 0;
        const ssize_t iGot = lREAD(STDIN_FILENO, &c, 1);
        if (iGot < 0 && errno == EAGAIN) continue;
        if (iGot <= 0) return 0;
        if (c == '\n') return 1;
        sLine += c;
    }
    return 1;  // too long, which is told
}

int iCARRY_OUT(const std::string& sSent)
{
    REQUEST     request;
    std::string sReason;
    std::string sLine;
    if (sSent != svREQUEST_FOLLOWS)
        sLine = sSent;
    else if (!iFIRST_LINE(sLine))
        return iREFUSE("an unterminated request");
    if (!iREQUEST_READ(sLine, request, sReason)) return iREFUSE(sReason);
    switch (request.eVerb) {
        case REQUEST_RUN:
            return iGATE_RUN(request);
        case REQUEST_LIST:
            return iGATE_LIST(request);
        case REQUEST_PUT:
            return iGATE_PUT(request);
        case REQUEST_SIZE:
            return iGATE_SIZE(request);
    }
    return iREFUSE("an unknown request");
}

void USAGE(FILE* pFile)
{
    std::fputs(
        "usage: vk_ctrl [--config FILE] [--packages signed|none|any]\n"
        "  the forced command of a backup server's key in authorized_keys; it carries out\n"
        "  the request that sshd hands it, and nothing else (see vk_ctrl(8))\n"
        "  --config FILE     vk.ini of this client (default: /etc/velka/vk.ini)\n"
        "  --packages WHICH  packages that the server may install (default: signed)\n",
        pFile);
}

int iREAD_ARGUMENTS(int argc, char** argv, std::string& sConfig)
{
    for (int i = 1; i < argc; i += 2) {
        if (i + 1 == argc) return 0;
        const std::string_view svOption = argv[i];
        if (svOption == "--config")
            sConfig = argv[i + 1];
        else if (svOption != "--packages" || !iPACKAGES(argv[i + 1], sctCALLER().ePackages))
            return 0;
    }
    return 1;
}

constexpr std::string_view asvLEFT_TO_FINISH[] = {"vk_execute_update"};

}  // namespace

extern const PROGRAM sctPROGRAM{"vk_ctrl", "", '\0', asvLEFT_TO_FINISH};

CALLER& sctCALLER()
{
    static IMMORTAL<CALLER> caller;
    return caller.Get();
}

int iREFUSE(const std::string& sCause)
{
    const CALLER&     caller = sctCALLER();
    const std::string sLine =
        sONE_LINE(caller.sServer + " is not allowed to connect or security problem for user " +
                  caller.sUser + ": " + sCause);
    iSAY(sLine + "\n");
    syslog(LOG_WARNING, "refused: %s", sLine.c_str());
    return 1;
}

void v_ANSWER_BEGIN(const REQUEST& request)
{
    iSAY(request.sMark + " begin\n");
}

int iANSWER_END(const REQUEST& request, long lStatus)
{
    iSAY("\n" + request.sMark + " " + std::to_string(lStatus) + "\n");
    return static_cast<int>(std::clamp(lStatus, 0L, 255L));
}

int iSAY(std::string_view svText)
{
    return iWRITE_ALL(STDOUT_FILENO, svText);
}

int main(int argc, char** argv)
{
    v_STANDARD_DESCRIPTORS();
    std::string sConfig;
    const bool  bHelp =
        argc == 2 && (std::strcmp(argv[1], "-h") == 0 || std::strcmp(argv[1], "--help") == 0);
    if (bHelp || !iREAD_ARGUMENTS(argc, argv, sConfig)) {
        USAGE(bHelp ? stdout : stderr);
        return bHelp ? 0 : iEXIT_USAGE;
    }
    const std::string sLine = sENVIRONMENT("SSH_ORIGINAL_COMMAND");
    const std::string sPeer = sENVIRONMENT("SSH_CONNECTION");
    sctCALLER().sServer = sPeer.empty() ? "the server" : sPeer.substr(0, sPeer.find(' '));

    openlog("vk_ctrl", LOG_PID, LOG_AUTH);
    closefrom(STDERR_FILENO + 1);
    dup2(STDOUT_FILENO, STDERR_FILENO);  // one stream, so that lines keep their order
    umask(022);
    CLEAN_ENVIRONMENT(sConfig);
    if (!iCONFIG_VALID()) return 1;
    v_SIGNALS_SETUP();
    return iCARRY_OUT(sLine);
}
