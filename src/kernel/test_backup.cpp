/* Test backup: the client sends a little data to the backup server, and the
   output of its backup client program, kept in a file, is judged afterwards.

   Runs for one client share its output file, and those of NetWare clients the file
   of their data mover. Whoever uses the file holds a lock on its name from before
   it is removed until it has been judged, so that no run judges another's output. */
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include "../common/base/descriptor.h"
#include "../common/config/config.h"
#include "../common/unix/cm_hal_semaphor.h"
#include "vk_config_client.h"

namespace {

enum VALUES {
    SERVER,           // the server's interface
    NODE_AND_SERVER,  // the client's name, then the server's interface
};

/* One backup command. The first row whose cpFirst holds the version's first character
   is taken; an empty cpFirst takes every version that is not below cpFrom. */
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

/* From this version on the client knows itself under which name it reaches the server. */
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

/* The output file of a host's test backups, held against other runs. */
struct OUTPUT_FILE {
    char          szPath[1024];
    sct_semaphore sctLock;

    explicit OUTPUT_FILE(const char* cpHost);
    OUTPUT_FILE(const OUTPUT_FILE&) = delete;
    OUTPUT_FILE& operator=(const OUTPUT_FILE&) = delete;
    ~OUTPUT_FILE() { i_SEMA('-', &sctLock); }
};

OUTPUT_FILE::OUTPUT_FILE(const char* cpHost) : szPath(), sctLock()
{
    const std::string sName = "rsh_" + szFILE_NAME(cpHost) + ".tmp";
    iTEXT_SET(szPath, gszRw + sName);
    iTEXT_SET(sctLock.szSema, sSHORT_NAME(sName, sizeof sctLock.szSema - 1));
    iTEXT_SET(sctLock.szCaller, "vk_config_client");
}

/* How long another run may hold the file: as long as its command may take, and
   what ending that costs. */
long lHOLD_LIMIT_MS()
{
    constexpr int iEND_S = 3;
    return 1000L * (iCONFIG_TOTAL_TIMEOUT() + iEND_S);
}

/* Waits for the file. Result 1 it is held, 0 not (told). */
int iHOLD(OUTPUT_FILE* pFile, const SCT_ARGS* pArg)
{
    constexpr long lPAUSE_MAX_MS = 50;
    const long     lStart = lNOW_MS();
    const long     lLimit = lHOLD_LIMIT_MS();
    long           lPause = 1;
    int            iTaken = i_SEMA('+', &pFile->sctLock);
    if (iTaken == 0) TRACE("%s is in use, waiting up to %ld s", pFile->szPath, lLimit / 1000);
    while (iTaken == 0 && lNOW_MS() - lStart < lLimit) {
        lPause = std::min(2 * lPause, lPAUSE_MAX_MS);
        iSLEEP_MS(lPause + getpid() % 7);  // so that those who wait do not ask in step
        iTaken = i_SEMA('+', &pFile->sctLock);
    }
    if (iTaken == 0)
        TELL("no test backup of %s: \"%s\" was in use by others for %ld seconds", pArg->szNodeName,
             pFile->szPath, lLimit / 1000);
    else if (iTaken < 0)
        TELL("no test backup of %s: %s", pArg->szNodeName, pFile->sctLock.szMsg);
    else
        TRACE("holding %s after %ld ms", pFile->szPath, lNOW_MS() - lStart);
    return iTaken == 1;
}

/* Puts an empty file in the place of what an earlier run may have left there.
   Result 0 not (told): what stands there must not be judged. */
int iMAKE_ANEW(const OUTPUT_FILE& file, const SCT_ARGS* pArg)
{
    const char* cpVerb = "remove";
    if (unlink(file.szPath) == 0 || errno == ENOENT) {
        cpVerb = "make";
        iMAKE_DIRECTORY(std::string(file.szPath).substr(0, std::strlen(gszRw)));
        const FD fd(open(file.szPath, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0640));
        if (fd.bOpen()) return 1;
    }
    TELL("no test backup of %s: cannot %s \"%s\": %s", pArg->szNodeName, cpVerb, file.szPath,
         std::strerror(errno));
    return 0;
}

/* Runs the command; sReason is why it did not come to a good end, else empty. */
void v_RUN(const char* cpHost, const char* cpCommand, const char* cpOutFile, std::string& sReason)
{
    constexpr int iNOT_RUN = 255;
    const auto    pRcmd = std::make_unique<RCMD>();
    pRcmd->bScriptFlag = 1;
    iTEXT_SET(pRcmd->szClient, cpHost);
    iTEXT_SET(pRcmd->szCmd, cpCommand);
    iTEXT_SET(pRcmd->szOutFile, cpOutFile);
    const int iStatus = i_RCMD(pRcmd.get(), strLog);
    TRACE("RCMD returned %d", iStatus);
    if (iStatus == 0) return;
    if (iStatus != iNOT_RUN || pRcmd->szMsg[0] == '\0')
        sReason = "the command ended with status " + std::to_string(iStatus);
    if (!sReason.empty() && pRcmd->szMsg[0] != '\0') sReason += ": ";
    sReason += sFOREIGN(pRcmd->szMsg);
}

/* A verdict that says only that there was no answer hides why: that is told. */
void v_TELL_HIDDEN_REASON(const SCT_ARGS* pArg, const char* cpRet, const std::string& sReason)
{
    if (sReason.empty() || sMESSAGE(MSG_E012, {pArg->szNodeName}) != cpRet) return;
    TELL("no answer to the test backup of %s: %s", pArg->szNodeName, sReason.c_str());
}

bool bNO_TEST_POSSIBLE(const SCT_ARGS* pArg)
{
    return bIS(pArg->szOpersys, "Citrix XenServer") || bIS(pArg->szAccessMode, "PROXY") ||
           bIS(pArg->szAccessMode, "VIRTUAL");
}

/* The version of the client's backup program, into what the command is chosen by;
   I010 where none can be read. */
void v_READ_VERSION(const SCT_ARGS* pArg, char (&szBuf)[256])
{
    MESSAGE(szBuf, MSG_I010, pArg->szNodeName);
    iDB_SEL_GETVALUE(SQL("select qtc_version from clients where name='%s'", pArg->szNodeName),
                     "qtc_version", szBuf, strLog);
    DB_TELL_FAILURE(std::string("version of ") + pArg->szNodeName + " not read", strLog);
}

/* Makes the test backup while the output file is held. */
int iBACKUP(SCT_ARGS* pArg, const OUTPUT_FILE& file, char* cpRet, size_t uSize)
{
    char        szBuf[256];
    char        szTapeServer[256] = "";
    char        szCmd[24576];
    std::string sReason;
    i_CHECK_AND_SET_INTERFACE(szTapeServer, pArg->szVelkaNode, strLog);
    v_READ_VERSION(pArg, szBuf);
    const bool bNetWare = bIS(pArg->szPlatform, "NETWARE");
    if (bNetWare)
        v_FORM_NETWARE_COMMAND(pArg, szTapeServer, szBuf, szCmd);
    else
        v_FORM_COMMAND(pArg, szBuf, szTapeServer, szCmd);
    v_RUN(bNetWare ? pArg->szDataMover : pArg->szNodeName, szCmd, file.szPath, sReason);
    const int iRet = iANALYSE_TEST_ANSWER(pArg, file.szPath, cpRet, uSize);
    v_TELL_HIDDEN_REASON(pArg, cpRet, sReason);
    return iRet;
}

/* A NetWare client's data mover writes under its own name; a file of the client's
   name is one that an earlier run left before the client became one. */
void v_REMOVE_OWN_FILE(const SCT_ARGS* pArg)
{
    OUTPUT_FILE own(pArg->szNodeName);
    if (i_SEMA('+', &own.sctLock) == 1) i_FILE_DELETE(own.szPath, strLog);
}

}  // namespace

int iTEST_BACKUP_CONNECTION(SCT_ARGS* pArg, char* cpRet, size_t uSize)
{
    TRACE("+++ iTEST_BACKUP_CONNECTION  to node %s", pArg->szNodeName);
    ANNOUNCE_MESSAGE(MSG_I010, {pArg->szNodeName});
    if (bNO_TEST_POSSIBLE(pArg)) {
        TRACE("--- iTEST_BACKUP_CONNECTION: No backup test possible for this client");
        MESSAGE(cpRet, uSize, MSG_I005, pArg->szNodeName);
        return 1;
    }
    const std::string sTestTargetFile = std::string(glbv('r', "gv_rw_work", gszRw)) + "bck_test_" +
                                        szFILE_NAME(pArg->szNodeName) + ".tmp";
    const bool bNetWare = bIS(pArg->szPlatform, "NETWARE");
    if (bNetWare) v_REMOVE_OWN_FILE(pArg);
    OUTPUT_FILE file(bNetWare ? pArg->szDataMover : pArg->szNodeName);
    int         iRet = 0;
    MESSAGE(cpRet, uSize, MSG_E012, pArg->szNodeName);
    if (iHOLD(&file, pArg) && iMAKE_ANEW(file, pArg)) {
        static_cast<void>(::unlink(sTestTargetFile.c_str()));
        iRet = iBACKUP(pArg, file, cpRet, uSize);
        static_cast<void>(::unlink(sTestTargetFile.c_str()));
    }
    TRACE("--- iTEST_BACKUP_CONNECTION returns %d - %s", iRet, cpRet);
    return iRet;
}
