/* Test backup: the client sends a little data to the backup server, and the
   output of its backup client program, kept in a file, is judged afterwards. */
#include <unistd.h>

#include <cstring>
#include <memory>
#include <string>

#include "vk_config_client.h"

namespace {

enum VALUES {
    SERVER,           // the server's interface
    NODE_AND_SERVER,  // the client's name, then the server's interface
};

/* One backup command. The first row whose cpFirst holds the version's first
   character is taken; an empty cpFirst takes every version that is not below
   cpFrom. */
struct BACKUP_COMMAND {
    const char* cpFirst;
    const char* cpFrom;
    const char* cpTrace;
    const char* cpFormat;
    VALUES      eValues;
};

// clang-format off
constexpr BACKUP_COMMAND asctUnix[] = {
    {"123", "",      "Unix qtc Ver. < 4",     "qtc -b -d . -s bck_test_%s.tmp -S %s /etc/velka2000.ini", NODE_AND_SERVER},
    {"",    "4.4R7", "Unix qtc Ver. >=  4",   "qtc -b -s NULL:64:32 -S http://%s:11000 gv_rw_ini:vk.ini", SERVER},
    {"",    "",      "Unix qtc Ver. >=  4",   "qtc -b -s NULL:64:32 -S %s gv_rw_ini:vk.ini", SERVER},
};
constexpr BACKUP_COMMAND asctWindows[] = {
    {"2",   "",      "Windows qtc Ver. 2",    "qtc -b -d . -s bck_test_%s.tmp \"-S\" %s qtc.exe", NODE_AND_SERVER},
    {"3",   "",      "Windows qtc Ver. 3",    "qtc -b -d . -s bck_test_%s.tmp \"-S\" %s ./qtc.exe", NODE_AND_SERVER},
    {"",    "",      "Windows qtc Ver. >=4",  "qtc -b -s NULL:64:32 \"-S\" %s gv_ro_bin:qtc.exe", SERVER},
};
// clang-format on

/* From this version on the client knows itself under which name it reaches the
   server. */
constexpr const char* cpREMOTE_CLIENT = "_REMOTE_CLIENT_";

bool bTAKES(const BACKUP_COMMAND& row, const char* cpVersion)
{
    if (row.cpFirst[0] != '\0')
        return cpVersion[0] != '\0' && std::strchr(row.cpFirst, cpVersion[0]) != nullptr;
    return std::strcmp(cpVersion, row.cpFrom) >= 0;  // texts, not version numbers
}

template<size_t ROWS>
const BACKUP_COMMAND& sctCHOOSE(const BACKUP_COMMAND (&rows)[ROWS], const char* cpVersion)
{
    for (const BACKUP_COMMAND& row : rows)
        if (bTAKES(row, cpVersion)) return row;
    return rows[ROWS - 1];
}

void v_ANNOUNCE(const SCT_ARGS* pArg, char (&szBuf)[256])
{
    MESSAGE(szBuf, MSG_I010, pArg->szNodeName);
    FPROT(0, szBuf);
    info('M', 0, szBuf);
}

/* Unix and Windows clients: the command follows the version of the client's
   backup program. cpVersion is what the version query left, its result unseen. */
template<size_t N>
void v_FORM_COMMAND(const SCT_ARGS* pArg, const char* cpVersion, const char* cpServer,
                    char (&szCmd)[N])
{
    const bool            bUnix = bIS(pArg->szPlatform, "UNIX") || bIS(pArg->szPlatform, "LINUX");
    const BACKUP_COMMAND& row =
        bUnix ? sctCHOOSE(asctUnix, cpVersion) : sctCHOOSE(asctWindows, cpVersion);
    TRACE("%s", row.cpTrace);
    if (row.cpFrom[0] != '\0') {
        TRACE("qtc version >= 4.4R7: %s. Use _REMOTE_CLIENT for tapeserver", cpVersion);
        cpServer = cpREMOTE_CLIENT;
    }
    const SHELL eShell = eHOST_SHELL(pArg->szNodeName);
    if (row.eValues == NODE_AND_SERVER)
        iCMD(szCmd, eShell, row.cpFormat, szFILE_NAME(pArg->szNodeName), cpServer);
    else
        iCMD(szCmd, eShell, row.cpFormat, cpServer);
}

/* NetWare clients: the data mover reads the client's files, with the user and
   password stored for it. The trace shows the option without the password. */
template<size_t N>
void v_FORM_NETWARE_COMMAND(const SCT_ARGS* pArg, const char* cpServer, char (&szBuf)[256],
                            char (&szCmd)[N])
{
    constexpr const char* cpOption = "-N \"%s:%s.NetWare File System:%s:%s:%s:0\"";
    char                  szBackupUser[256] = "";
    char                  szEncrypted[2048] = "";
    const char*           cpNode = pArg->szNodeName;
    x_Snprintf(szBuf, sizeof szBuf, "bbck_test_%s.tmp", cpNode);
    i_GET_TASK_OR_CLIENT_PASSWORD("", cpNode, szBackupUser, nullptr, szBuf, szEncrypted, strLog);

    const SHELL eShell = eHOST_SHELL(pArg->szDataMover);
    char        szBackupExtraOpt[256];
    char        szShown[256];
    iCMD(szShown, eShell, cpOption, cpNode, cpNode, cpNode, szBackupUser,
         RAW_TEXT{szEncrypted[0] != '\0' ? "***" : ""});
    TRACE("NetWare specific backup options: %s", szShown);
    szCmd[0] = '\0';
    if (iCMD(szBackupExtraOpt, eShell, cpOption, cpNode, cpNode, cpNode, szBackupUser, szEncrypted))
        iCMD(szCmd, eShell, "qtc_smdr -b -d . -s bck_test_%s.tmp -S %s %s SYS:etc/hosts",
             szFILE_NAME(cpNode), cpServer, RAW_TEXT{szBackupExtraOpt});
}

void v_RUN(const char* cpHost, const char* cpCommand, const char* cpOutFile)
{
    const auto pRcmd = std::make_unique<RCMD>();
    pRcmd->bScriptFlag = 1;
    iTEXT_SET(pRcmd->szClient, cpHost);
    iTEXT_SET(pRcmd->szCmd, cpCommand);
    iTEXT_SET(pRcmd->szOutFile, cpOutFile);
    // Without a command there is no output, and an old one must not be judged.
    if (cpCommand[0] == '\0') i_FILE_DELETE(cpOutFile, strLog);
    const int iStatus = i_RCMD(pRcmd.get(), strLog);
    TRACE("RCMD returned %d", iStatus);
}

bool bNO_TEST_POSSIBLE(const SCT_ARGS* pArg)
{
    return bIS(pArg->szOpersys, "Citrix XenServer") || bIS(pArg->szAccessMode, "PROXY") ||
           bIS(pArg->szAccessMode, "VIRTUAL");
}

}  // namespace

int iTEST_BACKUP_CONNECTION(SCT_ARGS* pArg, char* cpRet, size_t uSize)
{
    TRACE("+++ iTEST_BACKUP_CONNECTION  to node %s", pArg->szNodeName);
    char szBuf[256];
    v_ANNOUNCE(pArg, szBuf);
    if (bNO_TEST_POSSIBLE(pArg)) {
        TRACE("--- iTEST_BACKUP_CONNECTION: No backup test possible for this client");
        MESSAGE(cpRet, uSize, MSG_I005, pArg->szNodeName);
        return 1;
    }
    char szTestTargetFile[1024];
    char szRshFile[1024];
    x_Snprintf(szTestTargetFile, sizeof szTestTargetFile, "%sbck_test_%s.tmp",
               glbv('r', "gv_rw_work", gszRw), szFILE_NAME(pArg->szNodeName).c_str());
    static_cast<void>(::unlink(szTestTargetFile));
    x_Snprintf(szRshFile, sizeof szRshFile, "%srsh_%s.tmp", gszRw,
               szFILE_NAME(pArg->szNodeName).c_str());
    i_FILE_DELETE(szRshFile, strLog);

    char szTapeServer[256] = "";
    i_CHECK_AND_SET_INTERFACE(szTapeServer, pArg->szVelkaNode, strLog);
    char szCmd[24576];
    iSQL(szCmd, "select qtc_version from clients where name='%s'", pArg->szNodeName);
    iDB_SEL_GETVALUE(szCmd, "qtc_version", szBuf, strLog);

    const char* cpHost = pArg->szNodeName;
    if (bIS(pArg->szPlatform, "NETWARE")) {
        cpHost = pArg->szDataMover;
        x_Snprintf(szRshFile, sizeof szRshFile, "%srsh_%s.tmp", gszRw, szFILE_NAME(cpHost).c_str());
        v_FORM_NETWARE_COMMAND(pArg, szTapeServer, szBuf, szCmd);
    } else {
        v_FORM_COMMAND(pArg, szBuf, szTapeServer, szCmd);
    }
    v_RUN(cpHost, szCmd, szRshFile);

    const int iRet = iANALYSE_TEST_ANSWER(pArg, szRshFile, cpRet, uSize);
    static_cast<void>(::unlink(szTestTargetFile));
    TRACE("--- iTEST_BACKUP_CONNECTION returns %d - %s", iRet, cpRet);
    return iRet;
}
