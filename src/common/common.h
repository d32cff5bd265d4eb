/* General operations of the service library: configuration values, day
   protocol, info output, time, text, patterns, versions, files, local
   commands. */
#pragma once

#include <features.h>
#include <cstddef>

#include "cm_lang.h"
#include "cm_text.h"
#include "cm_trace.h"

/* ---- configuration values --------------------------------------------- */

/* Value of a configuration variable, "" when it has none; valid until the
   process ends. */
const char* read_glbv(const char* cpName);

/* Copies the variable's value into szBuf, cut to the array; cRead is 'r'.
   Returns szBuf. */
char* glbv_N(char cRead, const char* cpName, char* szBuf, size_t uSize);
template<size_t N>
char* glbv(char cRead, const char* cpName, char (&szBuf)[N])
{
    return glbv_N(cRead, cpName, szBuf, N);
}

/* Default of a setting: cpKey under [defaults], else the variable. szBuf stays
   as it was when neither is set. Result 1 set, 0 not. */
int i_get_default2_N(const char* cpKey, const char* cpVariable, char* szBuf, size_t uSize,
                     const str_log& sctLog);
template<size_t N>
int i_get_default2(const char* cpKey, const char* cpVariable, char (&szBuf)[N], str_log sctLog)
{
    return i_get_default2_N(cpKey, cpVariable, szBuf, N, sctLog);
}

/* ---- day protocol and info output -------------------------------------- */

/* Appends one line "YYYY-MM-DD HH:MM:SS PID text" to the day protocol
   (gv_rw_prot, day label, ".prt") by one write; line feeds and other control
   characters become blanks. iZero is 0. A text without values is written as it
   is, per-cent signs included. What cannot be written is told once on standard
   error. */
void FPROT(int iZero, const char* cpText);
void FPROT_FORMAT(int iZero, const char* cpFormat, ...) __attribute__((format(printf, 2, 3)));
template<class V, class... REST>
void FPROT(int iZero, const char* cpFormat, V value, REST... rest)
{
    FPROT_FORMAT(iZero, cpFormat, value, rest...);
}

/* Appends one line "KIND text" to the run's answer file, and shows it on
   standard error when that is a terminal. cKind is 'S' (status) or 'M'
   (message), iZero is 0. A run that has no answer file yet gets one. */
void info(char cKind, int iZero, const char* cpText);

/* Forms the name of the run's answer file: gv_rw_work, "answ/", run
   identifier, "_", sender, ".inf" (szFILE_NAME replaces what a file name cannot
   hold). info writes into it from now on. */
void make_answ_file_name_N(const char* cpTimeStamp, const char* cpSender, char* szFile,
                           size_t uSize);
template<size_t N>
void make_answ_file_name(const char* cpTimeStamp, const char* cpSender, char (&szFile)[N])
{
    make_answ_file_name_N(cpTimeStamp, cpSender, szFile, N);
}

/* One line on standard error, control characters made harmless, passwords
   masked. v_STDERR_ONCE tells a text with the same cpKey only once per run. */
void v_STDERR(const char* cpFormat, ...) __attribute__((format(printf, 1, 2)));
void v_STDERR_ONCE(const char* cpKey, const char* cpFormat, ...)
    __attribute__((format(printf, 2, 3)));

/* ---- time -------------------------------------------------------------- */

/* Local time. szBuf beginning with 'I' selects "YYYYMMDDHHMMSS_PID", else
   "YYYY-MM-DD HH:MM:SS". Returns szBuf. */
char* time_get_N(char* szBuf, size_t uSize);
template<size_t N>
char* time_get(char (&szBuf)[N])
{
    return time_get_N(szBuf, N);
}

/* Local time as "YYYY-MM-DD HH:MM:SS"; valid until the next call. */
const char* psz_now_iso();

/* Rewrites a client's time stamp in place into "YYYY-MM-DD HH:MM:SS". Takes
   that form, YYYYMMDDHHMMSS, YYYY-MM-DDTHH:MM:SSZ and seconds since 1970 (the
   two last become local time). Anything else becomes empty. */
void cm_time_stamp2iso_N(char* szBuf, size_t uSize);
template<size_t N>
void cm_time_stamp2iso(char (&szBuf)[N])
{
    cm_time_stamp2iso_N(szBuf, N);
}

/* ---- text -------------------------------------------------------------- */

#if !defined(__GLIBC__) || !__GLIBC_PREREQ(2, 38)
/* Copies, or appends so that the whole stays within uSize, terminator
   included. Return the length that was wanted. */
size_t strlcpy(char* cpDest, const char* cpSrc, size_t uSize);
size_t strlcat(char* cpDest, const char* cpSrc, size_t uSize);
#endif

/* Joins texts into szBuf, up to the empty text that closes the list; iNew 1
   starts with an empty buffer, 0 appends. Cut to the array. Returns szBuf. */
char* str_chain_N(char* szBuf, size_t uSize, int iNew, std::span<const char* const> texts);
template<size_t N, class... T>
char* str_chain(char (&szBuf)[N], int iNew, const T*... texts)
{
    const char* const acpText[] = {texts...};
    return str_chain_N(szBuf, N, iNew, acpText);
}

/* 1 when svLine matches a search pattern. A pattern closed by "^" is split at
   "|": each piece is a text matched anywhere, letter case counts, any one
   suffices; a piece that is exactly OR is a connective. Without a closing "^" it
   is one name, matched as a whole word between blanks, tabs or line ends,
   letter case ignored, comments after "#" not searched. An empty piece and an
   empty name match nothing. */
int iPATTERN_HIT(std::string_view svPattern, std::string_view svLine);

/* Perl-compatible match of cpPattern against cpSubject. Each capture pointer
   receives a text that stays valid until the process ends, or null (no match,
   or the group took no part). */
void pscanf(const char* cpSubject, const char* cpPattern, char** ppFirst, char** ppSecond);

/* Version a.b.c.d or a.b.c-d as one number,
   ((a * 10^5 + b) * 10^5 + c) * 10^5 + d. A suffix after the fourth number that
   begins with - _ ~ + or . is ignored. 0 for null and for anything else (a
   above 9000, another part above 99999, a part missing). */
long l_cli_version(const char* cpVersion);

/* Decimal text; valid until the next call. */
const char* intoas(long lNumber);

/* ASCII letters, in place. Return the text. */
char* uppercase(char* cpText);
char* lowercase(char* cpText);

/* ---- files ------------------------------------------------------------- */

/* svName as a piece of a file name: "/", control characters and a leading "."
   replaced by "_". */
std::string szFILE_NAME(std::string_view svName);

/* 1 when the file exists. */
int file_exist(const char* cpPath);

/* i_LL_search over the lines of a text file; iMode is 32. Lines of any length
   are read, control characters dropped, invalid UTF-8 replaced.
   Result  1 hit: cpPattern holds the whole line, cut to uSize-1 bytes; 0 none,
           or the file cannot be read */
int file_search2(const char* cpPath, char* cpPattern, size_t uSize, int iMode);

/* Deletes a file. Result 1 deleted, 0 not (traced). */
int i_FILE_DELETE(const char* cpPath, str_log sctLog);

/* Tells a failed close of a file that the tool wrote, on standard error and in
   the day protocol. iOne is 1. */
void i_check_fclose_errno(int iErrno, int iOne);

/* ---- local commands ---------------------------------------------------- */

/* Run a command line through /bin/sh on this server, the program's own
   directory first in the search path, and wait for it. Output goes where the
   program's own goes. Result: exit status, 128 + signal of a killed command,
   -1 when it could not be started. */
int start_system(const char* cpCommand);
int i_cm_exec(const char* cpCommand);

/* PATH with the program's own directory in front. */
std::string sSEARCH_PATH_OF_PROGRAM();

/* How long a local command may run, milliseconds: total_timeout and idle_timeout
   together, at least two minutes. */
long lLOCAL_COMMAND_LIMIT_MS();
