/* Remote commands and file copies: what the tool asks of the service. Ways
   to reach a host, and the limits of each wait, are in command.h.

   A host is named by its client name. Without an access mode the service takes
   the one that this run already used for the host, then the host's own
   "accessmode" in clients, then VKSSH. The backup server itself (client_id 0,
   or this machine's name) is worked on by local child processes.

   No operation ends the process. Every text written into a caller's buffer is
   cut to it at a character boundary and terminated. */
#pragma once

#include <sys/types.h>

#include <cstddef>

#include "../cm_trace.h"
#include "../common/LL.h"
#include "../log/outcome_log.h"
#include "../text/command_line.h"
#include "../unix/cm_hal_pipe.h"

using BOOL = int;  // 0 or 1

/* One remote command, zeroed by the caller. A field left zero is not given. The
   service takes szClient, szPort, szAccessMode, szCmd, szOutFile, bAppendMode,
   LL_Stdout, iTimeout and iRetries and fills szSts and szMsg; it looks at no other
   field. */
struct RCMD {
    char        szClient[256];  // host that runs the command
    char        szLocalAddress[256];
    char        szPlatform[21];
    char        szPort[20];  // empty: as configured for ssh
    char        szPortOpt[256];
    char        szUser[256];
    char        szCmd[24576];  // command line for the host's shell
    char        szId[65];
    char        szInFile[512];
    char        szOutFile[512];  // file on the server that receives the output
    char        szErrFile[512];
    char        szAccessMode[11];
    int         iASyncFlg;
    int         iProt;
    int         iTimeout;  // seconds for connecting and for silence; three times that in all
    int         iRetries;  // further tries after a connection that failed
    bool        bAvoidNewPgrp;
    char        szSts[20];    // out: word after STATUS= in the last such line
    char        szMsg[3072];  // out: its MSG text, else the last line, else the reason
    t_LL        LL_Stdout;    // receives the output lines
    t_LL        LL_Stderr;
    BOOL        bAppendMode;  // szOutFile is appended to
    BOOL        bAvoidErrProt;
    BOOL        bAvoidProt;
    BOOL        bAvoidFileNotFound;
    BOOL        bScriptFlag;  // standard error goes to szOutFile too, in order: it always does
    BOOL        bCommandNotFound;
    BOOL        bBinaryMode;
    BOOL        bVerbose;
    BOOL        bStderr;
    BOOL        bReadByCaller;
    BOOL        bReadUntilSeekString;
    char        szSearchPattern[256];
    BOOL        bPendingProcessing;
    int         iErrLevel;
    BOOL        bAbortIfInterruptFlagSet;
    pid_t       hProcHandleOrPid;
    BOOL        bDiffStreams;
    DB_PROC_PIP sctPP;
};

/* What the last operations on hosts have met. */
struct REMOTE_END {
    DIAGNOSIS   diagnosis;  // of the last whose failure may decide a run; empty when it succeeded
    std::string sMode;      // access mode of the last host
    REACHED     reached;    // and whom its name led to
};
const REMOTE_END& sctREMOTE_END();

/* Runs szCmd on szClient and waits for its end.
   Result  the command's exit status, at full width; 255 when it could not be
           run or its connection broke (szSts is empty, szMsg the reason).
   szOutFile is written even when the command fails and holds its output byte for
   byte. Where it cannot be written that is told on standard error, and the command
   runs all the same. */
int i_RCMD(RCMD* pCmd, str_log sctLog);

/* Runs a command and appends its output lines to a list.
   iTimeout  seconds for connecting and for silence; three times that in all;
             0: as configured
   iRetries  further tries after a connection that failed
   Result    0 success; > 0 the command failed, its lines are in the list; < 0 it
             could not be run: cpMsg (uMsg bytes) holds the reason, else empty */
int i_RCMD_LL(const char* cpHost, const char* cpAccessMode, const char* cpCommand, int iTimeout,
              int iRetries, t_LL LL_Output, char* cpMsg, size_t uMsg, str_log sctLog);

/* Lists the root directory of a client, which proves that access works; waits as long
   as a connection test at most. A host whose accessmode is PROXY is reached with its
   data mover as the jump host.
   cpBuf     256 bytes, not written; iZero and the three texts are not used
   Result    as i_RCMD_LL; the reason of a negative result is only traced */
int iClientDir(const char* cpHost, char* cpBuf, int iZero, const char* cpNone1, const char* cpNone2,
               const char* cpNone3, t_LL LL_Output, str_log sctLog);

/* Runs a command, waiting as long as a connection test at most, and leaves what it
   printed in cpAnswer (uAnswer bytes), whatever its status: of a command that asks for
   "KEY=^" the last line that begins with KEY=, else the last line unless that is a
   status line; "" when there is none.
   Result  as i_RCMD_LL */
int i_RCMD_EXEC(const char* cpHost, const char* cpCommand, char* cpAnswer, size_t uAnswer,
                str_log sctLog);

/* Runs a command with the configured limits and leaves its last line, or the reason of
   one that could not be run, in cpMsg (uMsg bytes), which is traced with the result.
   iOne is not used. Result as i_RCMD_LL. */
int i_RCMD_EXEC_LOG(const char* cpHost, const char* cpCommand, int iOne, char* cpMsg, size_t uMsg,
                    str_log sctLog);

/* Copies a file from the server to a client (cMode 'p'). It arrives whole or not
   at all: temporary name, size compared, mode set, renamed; missing folders are
   made. Progress is shown on standard error when that is a terminal.
   cpSource  absolute or symbolic path on the server
   cpTarget  absolute or symbolic path on the client
   cpMode    octal permissions, or null
   Result    1 copied; 0 not: cpMsg (uMsg bytes) holds the reason, else empty. The two
             numbers are not used */
int REMOTE_COPY_CLIENT(char cMode, const char* cpHost, const char* cpSource, const char* cpTarget,
                       const char* cpMode, char* cpMsg, size_t uMsg, int iZero1, int iZero2,
                       str_log sctLog);

/* Removes the folders between cpTop and cpFile on a client, as far as they are empty; both
   as for a copy. */
void v_REMOVE_EMPTY_FOLDERS(const char* cpHost, const char* cpFile, const char* cpTop,
                            str_log sctLog);

/* The line that tells why a command failed: the first that holds "ssh:" or "Error:",
   else the last that is not blank.
   cpLine  uLine bytes: the line, or "No message found"
   Result  1 there is one, 0 not */
int iERROR_LINE(t_LL LL_Output, char* cpLine, size_t uLine);

/* Asks the backup client on a host for its report, with the limits of a
   connection test.
   cpMsg        2048 bytes: alive: the report's version line; else the reason, of a
                command that failed its error line
   cpVersion    256 bytes: the version, "" when there is none
   cpInstalled  256 bytes or null: the version of the installed product, likewise
   cpN, cpNull  not used
   Result       1 it answered with a version, 0 not */
int alive_test_qtc(const char* cpHost, char* cpMsg, char* cpVersion, const char* cpN,
                   char* cpInstalled, const char* cpNull, str_log sctLog);

/* The name under which clients reach the server for a backup: the first
   interface of client_id 0 by i_order that is a bare name, else cpServerNode.
   cpInterface  256 bytes. Result 1 from the table, 0 the node name. */
int i_CHECK_AND_SET_INTERFACE(char* cpInterface, const char* cpServerNode, str_log sctLog);

/* User and password stored for a client: user_name and password; os_user and
   os_password when user_name is empty. The password is masked from then on in
   every trace, day protocol line and error line of the run.
   cpUser 256, cpPassword 2048 bytes; empty when nothing is stored, or it cannot be
   read. cpTask, cpNull and cpPurpose are not used.
   Result  1 the client was found, 0 not */
int i_GET_TASK_OR_CLIENT_PASSWORD(const char* cpTask, const char* cpClient, char* cpUser,
                                  const char* cpNull, const char* cpPurpose, char* cpPassword,
                                  str_log sctLog);

/* Takes the report of "qtc -h" apart: lines KEY=value among other lines; letter
   case and blanks around key and value do not matter, the first of a key counts.
   Buffers of fields that the report lacks stay as they are.
   cpVersion .. cpModuleVersions  256 bytes each, cpCores 22
   Result  1 a version was found, 0 none */
int i_search_client_info(t_LL LL_Output, char* cpVersion, char* cpVelkaVersion, char* cpCores,
                         char* cpOs, char* cpHw, char* cpPackage, char* cpExType,
                         char* cpInstallationDate, char* cpUpdateDate, char* cpUpdateState,
                         char* cpUpdateMessage, char* cpServicepackNumber,
                         char* cpServicepackPackage, char* cpServicepackDate,
                         char* cpModuleVersions, str_log sctLog);

/* The versions in such a report, of the backup client and of the installed product:
   256 bytes each, empty where it has none. Result 1 the first is there, 0 not. */
int iREPORT_VERSIONS(t_LL LL_Output, char* cpVersion, char* cpInstalled);

/* Says that one command is all that this run has for a host, as far as it knows now: it
   makes a connection that ends with it. A further one to the same host begins a connection
   that is shared from then on. */
void v_REMOTE_ONE_COMMAND();

/* Says that this run needs no host any more: the shared connections end while it does
   its last work. A later command would connect anew. */
void v_REMOTE_DONE();

/* The shell that reads command lines on a host, by its platform class. */
SHELL eHOST_SHELL(const char* cpHost);
