/* Entry of the tool and choice of the path that a prepared run takes: check, test,
   removal or registration. Every path ends in ZFINISH. */
#include "vk_config_client.h"

#include <cstdio>

#include "../common/config/config.h"
#include "../common/text/command_line.h"
#include "../common/unix/forked_run.h"
#include "run_outcome.h"

namespace {

/* One argument that asks for help. Beside other arguments the same words are none. */
bool bUSAGE_ASKED(int argc, char** argv)
{
    if (argc != 2) return false;
    if (argv[1][0] == '?') return true;
    for (const char* cpWord : {"-h", "-?", "/?", "--help"})
        if (bIS(argv[1], cpWord)) return true;
    return false;
}

bool bVERSION_ASKED(int argc, char** argv)
{
    return argc == 2 && bIS(argv[1], "--version");
}

void v_SET_DEFAULTS(SCT_ARGS* pArg)
{
    pArg->cStdoutFlg = 'n';
    iTEXT_SET(pArg->szAccessMode, "VKSSH");
    iTEXT_SET(pArg->szNodeAddr, "via_nameserver");
    iTEXT_SET(pArg->szSender, "velka");
    iTEXT_SET(pArg->szCheck, "n");
    pArg->iTest = 2;
    pArg->cPermit = '1';
    pArg->eUpdate = notdefined;
}

/* A registration that is tested to its end makes the client resolvable here. */
bool bHOSTS_ENTRY(const SCT_ARGS* pArg)
{
    return pArg->iTest >= 2 && !bIS(pArg->szNodeAddr, "via_nameserver") &&
           !bIS(pArg->szPlatform, "VMS");
}

/* A mode given with -m that is not the stored one decides only whether there are tests. */
void v_TELL_OTHER_MODE(const SCT_ARGS* pArg, const char* cpAccessMode, bool bTested)
{
    if (cpAccessMode[0] == '\0' || bIS(cpAccessMode, pArg->szAccessMode)) return;
    const std::string sStored = pArg->szAccessMode[0] == '\0'
                                    ? "without an access mode"
                                    : std::string("with access mode ") + pArg->szAccessMode;
    TELL(
        "option -m %s: client %s is stored %s and %stested; to store the other: "
        "vk_setup set_mode %s %s",
        cpAccessMode, pArg->szNodeName, sStored.c_str(), bTested ? "" : "not ",
        sSHELL_WORD(SHELL_POSIX, pArg->szNodeName).c_str(),
        sSHELL_WORD(SHELL_POSIX, cpAccessMode).c_str());
}

/* Registers the client and tests it as deep as -t allows. Result of the last test. */
template<size_t N>
int iREGISTER(SCT_ARGS* pArg, const char* cpAccessMode, char (&szBuf)[N])
{
    const bool bTested = !bIS(cpAccessMode, "PROXY") && !bIS(cpAccessMode, "VIRTUAL");
    if (bTested && bHOSTS_ENTRY(pArg)) v_REQUIRE_HOSTS_ADDRESS(pArg);
    INSERT_INTO_DATABASE(pArg);
    MESSAGE(szBuf, MSG_I012, pArg->szNodeName);
    v_TELL_OTHER_MODE(pArg, cpAccessMode, bTested);
    if (!bTested) {
        TRACE(
            "Skip iTEST_QTC_CONNECTION for accessmode PROXY and VIRTUAL when configuring a new "
            "client.");
        return 1;
    }
    int iRet = iTEST_QTC_CONNECTION(pArg, szBuf, N);
    if (pArg->iTest > 0 && iRet != 0) iRet = iTEST_BACKUP_CONNECTION(pArg, szBuf, N);
    if (iRet == 1 && bHOSTS_ENTRY(pArg)) INSERT_ETC_HOST(pArg);
    return iRet;
}

/* Takes the path that the check letter names. Result 1 success; szBuf holds the
   run message. */
template<size_t N>
int iDISPATCH(SCT_ARGS* pArg, const char* cpAccessMode, char (&szBuf)[N])
{
    const char cPath = pArg->szCheck[0];
    if (cPath != 'r' && cPath != 's' && cPath != 'd') return iREGISTER(pArg, cpAccessMode, szBuf);
    if (!iTEST_IF_ALREADY_IN_DATABASE(pArg, cpAccessMode)) {
        v_TELL_UNKNOWN_SYSTEM(pArg);
        MESSAGE(szBuf, MSG_W003, pArg->szNodeName);
        return 0;
    }
    if (cPath == 'd') return iDELETE_FROM_DATABASE(pArg, szBuf);
    if (cPath == 'r') v_REMOTE_ONE_COMMAND();
    const int iRet = iTEST_QTC_CONNECTION(pArg, szBuf, N);
    return cPath == 's' && iRet == 1 ? iTEST_BACKUP_CONNECTION(pArg, szBuf, N) : iRet;
}

/* One run of the tool: the whole process, or a child of a run over many. */
[[noreturn]] void v_RUN(int argc, char** argv)
{
    v_SIGNALS_SETUP();
    SCT_ARGS   sctArgs = {};
    char       szAccessMode[11] = "";
    char       szBuf[1024] = "";
    const char cDelFlg = 'n';
    v_SET_DEFAULTS(&sctArgs);
    v_set_log_main("vk_config_client_<PID>.lgc", "VK_CONFIG_CLIENT", &strLog);
    if (bUSAGE_ASKED(argc, argv)) {
        USAGE();
        v_END_PROCESS(VK_SUCCESS);
    }
    if (bVERSION_ASKED(argc, argv)) {
        std::printf("%s\n", gszGitId);
        v_END_PROCESS(VK_SUCCESS);
    }
    if (!iCONFIG_VALID()) v_END_PROCESS(VK_ERROR);  // told by the library

    v_OUTCOME_AT_SIGNAL(&sctArgs);
    ARGUMENTS(argc, argv, &sctArgs, szAccessMode);
    TRACE("Access %s", sctArgs.szAccessMode);
    const int iRet = iDISPATCH(&sctArgs, szAccessMode, szBuf);
    ZFINISH(szBuf, iRet == 1 ? VK_SUCCESS : VK_WARNING, cDelFlg, &sctArgs);
}

}  // namespace

int main(int argc, char** argv)
{
    v_STANDARD_DESCRIPTORS();
    v_RUNS_CAN_BE_FORKED(argc, argv, v_RUN);
    v_RUN(argc, argv);
}
