/* The first setup of a server, and what it shares with the other subcommands. */
#include <unistd.h>

#include <cstdio>

#include "common/common.h"
#include "common/config/config.h"
#include "database.h"
#include "files.h"
#include "report.h"
#include "setup.h"

namespace {

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

std::string sSERVER_NAME()
{
    std::string      sError;
    const CONNECTION pConn =
        pCONNECT(sCONFIG_TEXT("database", "conninfo", szCONFIG_CONNINFO), sError);
    if (!pConn) return sMACHINE_NAME();
    const SERVER_ROW row = sctSERVER_ROW(pConn.get());
    return row.bThere && !row.sName.empty() ? row.sName : sMACHINE_NAME();
}

int iSERVER(const SETUP_ARGS& args)
{
    v_SETUP_CONFIGURATION();
    const int iDatabase = iSETUP_DATABASE(args);
    v_SETUP_DIRECTORIES();
    v_SETUP_ACCESS(args.sName.empty() ? sSERVER_NAME() : args.sName);
    if (iREPORT_EXIT() != 0 || !iDatabase) {
        std::printf("\nNot everything is done; vk_setup check looks at the whole.\n");
        return 1;
    }
    NEXT_STEPS();
    return 0;
}
