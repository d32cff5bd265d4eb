/* Trace: a developer's log of every step, off while the level is 0.

   A line is "YYYY-MM-DD HH:MM:SS.mmm PID LEVEL-ID text" in a file below
   gv_rw_lgc. The file is opened by its first line, so level 0 makes no file.
   Every line goes out by one write; control characters and invalid UTF-8 are
   replaced, passwords known to the run are masked. What cannot be written is
   told once on standard error and never ends the run. */
#pragma once

#include <cstdio>

struct str_log {
    char  szLogFile[1024];  // name of the current trace file, below gv_rw_lgc
    int   iLogLevel;        // 0: no tracing
    int   iPid;
    int   iVerbose;
    char  szIns[65];  // identifier that marks the tool's lines
    int   iProtDB;
    int   iThreadId;
    int   iProcessId;
    int   iNoIdent;          // 1: lines carry no identification
    FILE* fpLogFile;         // not used: the library owns the open file itself
    int   bIsPidUsedInName;  // 1: szLogFile carries the process id
    char  szExeName[256];    // name of the program
};

/* Reads the configuration of the installation (VK_INI, else
   /etc/velka/vk.ini), sets eLang and fills the trace context.
   cpFilePattern  file name; "<PID>" stands for the process id
   cpTraceId      identifier of the tool's trace lines
   pLog           trace context; its level becomes trace_level of vk.ini
   A configuration that cannot be read is told on standard error;
   iCONFIG_VALID (config/config.h) then answers 0 and the defaults hold. */
void v_set_log_main(const char* cpFilePattern, const char* cpTraceId, str_log* pLog);

/* That context; null before the call. */
const str_log* pMAIN_LOG();

/* Sets the trace level at once. iLevel below 0 counts as 0. iOne is 1. */
void v_set_log(int iLevel, int iOne, str_log* pLog);

/* From now on the trace goes to cpFileName below gv_rw_lgc. What a file name
   cannot hold is replaced (szFILE_NAME). */
void v_set_log_mover(str_log* pLog, const char* cpFileName);

/* Writes one trace line, formatted like printf. The caller tests iLogLevel
   before, so that no argument is formed while tracing is off. */
void WRITE_TRACE(const str_log* pLog, const char* cpFormat, ...)
    __attribute__((format(printf, 2, 3)));

/* The same where tracing is on. */
#define TRACE_BY(sctLog, ...)                                            \
    do {                                                                 \
        if ((sctLog).iLogLevel > 0) WRITE_TRACE(&(sctLog), __VA_ARGS__); \
    } while (0)

/* The command line, program name first, words joined by one blank, as one
   text; the value of the program's secret option (-p) is shown as ***. The text
   is valid until the next call. */
const char* GET_CALL_PARAM(int argc, char** argv);
