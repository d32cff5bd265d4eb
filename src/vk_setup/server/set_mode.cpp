/* The access mode of one client, which a registration always stores as VKSSH. A client
   that is not registered yet is registered first, without looking for it, so that its
   one and only test goes the way that the mode says. */
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "../programs.h"
#include "common/common.h"
#include "common/config/config.h"
#include "common/config/variables.h"
#include "common/text/statement.h"
#include "database.h"
#include "setup.h"
#include "steps.h"

namespace {

constexpr char szTOOL[] = "vk_config_client";
constexpr int  iREGISTER_S = 120;

enum FOUND { FOUND_FAILED, FOUND_NOT, FOUND_ROW };

/* Told unless FOUND_ROW. */
FOUND eSTORED_MODE(PGconn* pConn, const SETUP_ARGS& args, std::string& sMode)
{
    char        szSql[2048];
    DB_ROWS     rows;
    std::string sError;
    iSQL(szSql, "select coalesce(accessmode,'') from clients where client_id>0 and name='%s'",
         args.sClient.c_str());
    if (!iRUN(pConn, szSql, &rows, sError)) {
        v_STDERR("cannot read the row of \"%s\": %s", args.sClient.c_str(), sError.c_str());
        return FOUND_FAILED;
    }
    if (rows.empty()) return FOUND_NOT;
    sMode = rows[0][0];
    return FOUND_ROW;
}

/* 1: the system that was given, if one was, is one that rows can be found with. */
int iKNOWN_SYSTEM(PGconn* pConn, const SETUP_ARGS& args)
{
    char szSql[2048];
    iSQL(szSql, "select count(*) from oper_systems where os='%s'", args.sSystem.c_str());
    if (args.sSystem.empty() || sVALUE(pConn, szSql) != "0") return 1;
    v_STDERR("--os: \"%s\" is not in the table oper_systems", args.sSystem.c_str());
    return 0;
}

/* Mode VIRTUAL is what a registration tests nothing for. */
int iREGISTER(const SETUP_ARGS& args)
{
    const PROGRAM_RUN run = sctRUN_PROGRAM(
        {sPROGRAM_PATH(szTOOL), "-c", args.sClient, "-o", args.sSystem, "-t", "0", "-m", "VIRTUAL"},
        iREGISTER_S);
    if (run.bGood()) return 1;
    v_STDERR("cannot register \"%s\": %s", args.sClient.c_str(), sLAST_LINE(run.sOut).c_str());
    return 0;
}

int iSTORE(PGconn* pConn, const SETUP_ARGS& args)
{
    char        szSql[2048];
    std::string sError;
    iSQL(szSql, "update clients set accessmode='%s' where client_id>0 and name='%s'",
         args.sMode.c_str(), args.sClient.c_str());
    if (iRUN(pConn, szSql, nullptr, sError)) return 1;
    v_STDERR("cannot store the access mode of \"%s\": %s", args.sClient.c_str(), sError.c_str());
    return 0;
}

/* Result 1: the row has the mode; else told. */
int iBRING_TO_MODE(const SETUP_ARGS& args)
{
    std::string      sMode;
    std::string      sError;
    const CONNECTION pConn =
        pCONNECT(sCONFIG_TEXT("database", "conninfo", szCONFIG_CONNINFO), sError);
    if (!pConn) {
        v_STDERR("cannot reach the database: %s; vk_setup check says more", sError.c_str());
        return 0;
    }
    if (sctSERVER_ROW(pConn.get()).sName == args.sClient) {
        v_STDERR("\"%s\" is this backup server, which no access mode leads to",
                 args.sClient.c_str());
        return 0;
    }
    if (!iKNOWN_SYSTEM(pConn.get(), args)) return 0;
    FOUND eFound = eSTORED_MODE(pConn.get(), args, sMode);
    if (eFound == FOUND_NOT && args.sSystem.empty())
        v_STDERR("\"%s\" is not registered; give its operating system, such as --os Linux",
                 args.sClient.c_str());
    if (eFound == FOUND_NOT && !args.sSystem.empty() && iREGISTER(args)) {
        eFound = eSTORED_MODE(pConn.get(), args, sMode);
        if (eFound == FOUND_ROW) iSTEP(STEP_MADE, "row of " + args.sClient);
    }
    if (eFound != FOUND_ROW) return 0;
    const bool bThere = sMode == args.sMode;
    if (!bThere && !iSTORE(pConn.get(), args)) return 0;
    iSTEP(bThere ? STEP_THERE : STEP_MADE, "access mode " + args.sMode + " of " + args.sClient);
    return 1;
}

}  // namespace

int iSET_MODE(const SETUP_ARGS& args)
{
    std::string sConfig;
    const bool  bNoSsh = args.sMode == "PROXY" || args.sMode == "VIRTUAL";
    if (!bNoSsh && !iCONFIG_ACCESS(args.sMode.c_str(), sConfig)) {
        v_STDERR("access mode \"%s\" has no section [access %s] in %s", args.sMode.c_str(),
                 args.sMode.c_str(), sCONFIG_PLACE().c_str());
        return 2;
    }
    if (!iBRING_TO_MODE(args)) return 1;
    // The rest is the tool's: its status line is the last one, its exit code counts.
    const std::string sTool = sPROGRAM_PATH(szTOOL);
    const bool        bRegister = !args.sSystem.empty();
    const char* const acpArgument[] = {szTOOL,
                                       "-c",
                                       args.sClient.c_str(),
                                       bRegister ? "-o" : "-C",
                                       bRegister ? args.sSystem.c_str() : "r",
                                       nullptr};
    execv(sTool.c_str(), const_cast<char* const*>(acpArgument));
    v_STDERR("cannot run \"%s\": %s", szTOOL, std::strerror(errno));
    return 1;
}
