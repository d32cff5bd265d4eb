/* The first setup of a server, and what it shares with the other subcommands. */
#include <unistd.h>

#include <cstdio>

#include "common/common.h"
#include "common/config/config.h"
#include "common/unix/cm_hal_pipe.h"
#include "common/unix/cm_hal_semaphor.h"
#include "database.h"
#include "files.h"
#include "setup.h"
#include "steps.h"

namespace {

constexpr long lALONE_MS = 600'000;

void NEXT_STEPS()
{
    std::string sLine;
    std::string sError;
    std::printf("\nOn each client, as root, one of these lines:\n");
    for (const char* cpMode : acpKeyMode) {
        const bool bCtrl = std::string_view(cpMode) == "CTRL";
        if (iPERMIT_LINE(cpMode, sLine, sError))
            std::printf("  # mode %s%s\n  %s\n", cpMode,
                        bCtrl ? ", for this server's own work only" : "", sLine.c_str());
    }
    std::printf(
        "then here:\n"
        "  vk_config_client -c CLIENT -o Linux\n"
        "or, when it is one of mode CTRL:\n"
        "  vk_setup set_mode CLIENT CTRL --os Linux\n");
}

}  // namespace

std::string sMACHINE_NAME()
{
    char szName[256] = "";
    if (gethostname(szName, sizeof szName - 1) != 0) return "localhost";
    return szName;
}

std::string sSERVER_NAME(std::string& sError)
{
    const CONNECTION pConn =
        pCONNECT(sCONFIG_TEXT("database", "conninfo", szCONFIG_CONNINFO), sError);
    if (!pConn) return {};
    const SERVER_ROW row = sctSERVER_ROW(pConn.get());
    return row.bThere && !row.sName.empty() ? row.sName : sMACHINE_NAME();
}

namespace {

/* Two setups at once would each make what the other makes. Result 1: there was one, which
   may have changed the configuration. */
int iALONE(sct_semaphore& sema)
{
    std::snprintf(sema.szSema, sizeof sema.szSema, "vk_setup_server");
    std::snprintf(sema.szCaller, sizeof sema.szCaller, "vk_setup");
    const long lEnd = lNOW_MS() + lALONE_MS;
    int        iWaited = 0;
    // Where the lock cannot be made, the steps say what is missing.
    while (i_SEMA('+', &sema) == 0 && lNOW_MS() < lEnd) {
        iWaited = 1;
        v_STDERR_ONCE("alone", "another vk_setup server is running; waiting for its end");
        iSLEEP_MS(100);
    }
    return iWaited;
}

}  // namespace

int iSERVER(const SETUP_ARGS& args)
{
    sct_semaphore sema{};
    if (iALONE(sema)) v_CONFIG_FORGET();
    if (!iCONFIG_VALID()) return 2;
    v_SETUP_CONFIGURATION();
    const int iDatabase = iSETUP_DATABASE(args);
    v_SETUP_DIRECTORIES();
    std::string       sError;
    const std::string sStored = args.sName.empty() ? sSERVER_NAME(sError) : args.sName;
    v_SETUP_ACCESS(sStored.empty() ? sMACHINE_NAME() : sStored);
    i_SEMA('-', &sema);
    if (iREPORT_EXIT() != 0 || !iDatabase) {
        std::printf("\nNot everything is done; see vk_setup check.\n");
        return 1;
    }
    NEXT_STEPS();
    return 0;
}

int iSHOW(const SETUP_ARGS& args)
{
    std::string sValue;
    if (!iCONFIG_VARIABLE(args.sVariable.c_str(), sValue) || sValue.empty()) {
        v_STDERR("\"%s\" is not a variable with a value", args.sVariable.c_str());
        return 1;
    }
    std::printf("%s\n", sValue.c_str());
    return 0;
}
