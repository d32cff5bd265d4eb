/* The run record and the tool's operations. Every operation takes the record of
   the run by address; what it reads and writes stands beside it. Trace lines of
   an operation begin with "+++ " at its entry and "--- " at its exit. */
#pragma once

#include <cstddef>
#include <cstring>
#include <string>

#include "../common/cm_db_access.h"
#include "../common/common.h"
#include "../common/common/LL.h"
#include "../common/common/cm_common.h"
#include "messages.h"
#include "velka.h"

/* By the tool's trace context. */
#define TRACE(...) TRACE_BY(strLog, __VA_ARGS__)

/* What a run was asked for and did not do: one line on standard error, and in the trace. */
#define TELL(...)              \
    do {                       \
        v_STDERR(__VA_ARGS__); \
        TRACE(__VA_ARGS__);    \
    } while (0)

/* Texts of the record against fixed words. The server's programs also write the
   word NULL for a value that is not given. */
inline bool bIS(const char* cpText, const char* cpWord)
{
    return std::strcmp(cpText, cpWord) == 0;
}
inline bool bGIVEN(const char* cpText)
{
    return cpText[0] != '\0' && !bIS(cpText, "NULL");
}

struct SCT_ARGS;
/* "outcome of beta not stored": what a failed statement leaves undone. */
std::string sNOT_STORED(const char* cpWhat, const SCT_ARGS* pArg);

/* Tells why a statement for the client's row has changed none: "WHAT: REASON". */
void v_TELL_NO_ROW(const std::string& sWhat, const SCT_ARGS* pArg);

enum updateMode {
    notdefined = 0,
    update = 1,     // -U, package update
    sp_update = 2,  // -S, service-pack update
};

struct SCT_ARGS {
    char       cStdoutFlg;            // 'n': the run has an answer file
    char       szAccessMode[11];      // remote-access mode of the client
    char       szAnswerFile[1024];    // name of the run's answer file
    char       szNodeName[256];       // client (-c), or "ALL_CLIENTS"
    char       szNodeId[8];           // its client_id
    char       szNodeAddr[256];       // its address (-a), or "via_nameserver"
    char       szOpersys[33];         // its operating system (-o)
    char       szLocationId[5];       // its location (-l)
    char       szPlatform[21];        // platform class of its operating system
    char       szSender[256];         // who started the run (-s)
    char       szVelkaNode[256];      // name of the backup server's own row
    char       szDataMover[256];      // host that backs the client up on its behalf
    char       szVelkaPlatf[21];      // platform class of the backup server
    char       szTimeStamp[256];      // identifier of this run (-i)
    char       szOptions[256];        // access options (-O)
    char       szUpdateOptions[256];  // options of a package update (-O with -U)
    char       szUserComment[256];    // free comment (-u)
    char       szUser[256];           // operating-system user; no option sets it
    char       szPassword[256];       // operating-system password (-p)
    char       szServerType[256];     // vm_server_type of the client
    char       szSetupType[256];      // not used
    char       szPackage[1024];       // update package (-P)
    char       szMsg[256];            // not used
    int        iCheck;                // 1: -C was given
    int        iForceUpdate;          // 1: -F, or "force" in -O
    int        iServicePack;          // -e: service pack after a package update
    int        iUpdated;              // 1: this run has run an update script
    int        iUpdateEnded;          // 1: the update came to its own end, not to another's
    int        iRemoved;              // -C d: 1 the row is gone, -1 it stayed
    int        iRowStays;             // 1: the run was refused; the client's row is left alone
    int        iOverMany;             // 1: the run starts those of others, and has no client
    char       szSystemGiven[33];     // -o, as it was given
    int        iTest;                 // -t: depth of the tests after a registration
    char       cPermit;               // '1': the client takes part in backups
    updateMode eUpdate;               // -U, -S
    char       szCheck[256];          // -C
    int        iRunAsUser;            // 1: -k was given
};

/* ---- front end --------------------------------------------------------- */

/* The options of the command line, in getopt's form. */
inline constexpr const char* cpOPTIONS = "USa:e:i:l:m:c:O:Fo:P:s:t:u:p:v:C:k";

/* The word that stands for all clients in place of a name. */
inline constexpr const char* cpALL_CLIENTS = "ALL_CLIENTS";

/* Writes the usage text to standard output. */
void USAGE();

/* Reads the command line into the record and -m into cpAccessMode (11 bytes).
   Multi-client runs and updates end inside; it returns only for a prepared
   single-client run. */
void ARGUMENTS(int argc, char** argv, SCT_ARGS* pArg, char (&cpAccessMode)[11]);

/* Checks or updates the clients of LL_ClientList, or all, one child run each;
   prints their status lines, the report of a check and the summary. Never
   returns: exit code 0, or 2 when a client failed. */
[[noreturn]] void MULTI_CLIENT_RUN(SCT_ARGS* pArg, t_LL LL_ClientList);

/* The single exit of a client run: stores the outcome in the client's row, writes
   day protocol and info output, chains the service-pack update, prints the status
   line, gives everything back and ends the process with iExit.
   cpTxt    the run message
   cDelFlg  delete flag, traced only */
[[noreturn]] void ZFINISH(const char* cpTxt, int iExit, char cDelFlg, SCT_ARGS* pArg);

/* Ends the run with a message of the catalogue whose only value is svDetail, of which
   as much is taken as the message has room for (uSize bytes, terminator included).
   cpTrace  what the trace says in front of the message, or null */
[[noreturn]] void v_END_RUN(SCT_ARGS* pArg, int iExit, MESSAGE_ID eId,
                            std::string_view svDetail = "", size_t uSize = 2048,
                            const char* cpTrace = nullptr);

/* Ends a run that cannot be begun as it was asked for, which has been told: E006, exit
   code 2. It says nothing about the client, whose row is left alone. */
[[noreturn]] void v_REFUSE_RUN(SCT_ARGS* pArg);

/* ---- client registry --------------------------------------------------- */

/* Looks the client szNodeName up and loads szVelkaPlatf and, when it is found,
   szNodeId, szDataMover, szOpersys, szPlatform and szAccessMode.
   szAccessMode  "CTRL" or "VKSSH" replaces the stored access mode
   Result        1 registered, 0 not (the fields stay as they were); a database
                 failure ends the run with E004 */
int iTEST_IF_ALREADY_IN_DATABASE(SCT_ARGS* pArg, const char* szAccessMode);

/* Tells an operating system (of -o, or stored) that is not in oper_systems, and the one
   that may be meant; nothing for a known one. */
void v_TELL_UNKNOWN_SYSTEM(const SCT_ARGS* pArg);

/* Registers the client, or refreshes its entry, and completes its interfaces;
   szNodeId holds its identifier then. A stored client whose operating system is not in
   oper_systems gets the one of -o. Failures end the run. */
void INSERT_INTO_DATABASE(SCT_ARGS* pArg);

/* Removes the client's interfaces and its row; iRemoved says whether it went.
   cpRet   256 bytes or more: I008; E001 for the backup server's own row
   Result  1, also when the row stayed, which is told; 0 it is the backup server,
           which stays */
int iDELETE_FROM_DATABASE(SCT_ARGS* pArg, char* cpRet);

/* Appends the client's address and name to the server's hosts file unless the
   file names it. A file that cannot be opened is told and ends the run with E005. */
void INSERT_ETC_HOST(SCT_ARGS* pArg);

/* Before a registration that ends with an entry there: an address that cannot stand in
   the hosts file is told and ends the run with E006, unless the file names the client. */
void v_REQUIRE_HOSTS_ADDRESS(SCT_ARGS* pArg);

/* ---- connection tests -------------------------------------------------- */

/* Asks the backup client for its report, on the client or its data mover, and
   refreshes the inventory from it. Writes szDataMover and szPlatform. I009 goes to the
   day protocol and the info output, I002 or E003 to the day protocol; the message of a
   failure goes to msg and comment of the client's row, too.
   cpRet   run message, uSize bytes, always filled
   Result  1 it answered (I005, I014, I015), 0 it did not (E...) */
int iTEST_QTC_CONNECTION(SCT_ARGS* pArg, char* cpRet, size_t uSize);

/* Makes a small test backup and judges its output, which stays in rsh_NAME.tmp of the
   work directory unless it succeeded. I010 goes to the day protocol and the info
   output; what E012 hides is told.
   cpRet   run message, uSize bytes, always filled
   Result  1 it succeeded, or is not possible for this client; 0 it failed */
int iTEST_BACKUP_CONNECTION(SCT_ARGS* pArg, char* cpRet, size_t uSize);

/* Judges the output file of a test backup; a success deletes it. An error line goes to
   the day protocol as E003.
   cpRet   run message, uSize bytes, always filled
   Result  1 success (I005), 0 not (E...) */
int iANALYSE_TEST_ANSWER(SCT_ARGS* pArg, const char* cpFile, char* cpRet, size_t uSize);

/* Turns the error line in cpRet (uSize bytes) into the message for the user: E009, E010,
   E011 or E002. E010 and its advice (I006, I007) go to the day protocol. */
void CREATE_USER_INFO(SCT_ARGS* pArg, char* cpRet, size_t uSize);

/* Reduces an authentication line, in place, to the texts inside its first two
   pairs of square brackets, joined by a blank. Of a longer line the first 511
   bytes count. Returns cpAuthLine. */
char* szEXTRACT_AUTH_DATA(char* cpAuthLine);

/* ---- client software update -------------------------------------------- */

/* Updates the client's package (-U) or service pack (-S) under its semaphore.
   Never returns: exit code 0, 1 (a warning), 2, or the update script's up to 9. */
[[noreturn]] void UPDATE_CLIENT(SCT_ARGS* pArg);

/* How the run message begins for a client that another run is updating. */
inline constexpr const char* cpALREADY_RUNNING = "Update already running. Semaphore ";

/* 1 when an update of the client is under way in another process, 0 not. */
int iUPDATE_RUNS(const SCT_ARGS* pArg);
