/* Day protocol and info output. */
#pragma once

#include <cstddef>
#include <string>

/* Appends one line "YYYY-MM-DD HH:MM:SS PID text" to the day protocol (gv_rw_prot, day
   label, ".prt") by one write; line feeds and other control characters become blanks.
   iZero is 0. A text without values is written as it is, per-cent signs included. What
   cannot be written is told once on standard error. */
void FPROT(int iZero, const char* cpText);
void FPROT_FORMAT(int iZero, const char* cpFormat, ...) __attribute__((format(printf, 2, 3)));
template<class V, class... REST>
void FPROT(int iZero, const char* cpFormat, V value, REST... rest)
{
    FPROT_FORMAT(iZero, cpFormat, value, rest...);
}

/* This run has written into it. */
bool bPROTOCOL_WRITTEN();

/* A file of the day label beside the day protocol: its own, with ".prt". */
std::string sDAY_FILE(const char* cpExtension);

/* Appends one line "KIND text" to the run's answer file, and shows it on standard error
   when that is a terminal. cKind is 'S' (status) or 'M' (message), iZero is 0. A run
   that has no answer file yet gets one. The text is made one line, passwords masked;
   what cannot be written is told once on standard error. */
void info(char cKind, int iZero, const char* cpText);

/* Forms the name of the run's answer file: gv_rw_work, "answ/", run
   identifier, "_", sender, ".inf" (szFILE_NAME replaces what a file name cannot
   hold; a longer name than a file's may be is shortened in its middle). info writes
   into it from now on.
   szFile  receives the name, cut to the array */
void make_answ_file_name_N(const char* cpTimeStamp, const char* cpSender, char* szFile,
                           size_t uSize);
template<size_t N>
void make_answ_file_name(const char* cpTimeStamp, const char* cpSender, char (&szFile)[N])
{
    make_answ_file_name_N(cpTimeStamp, cpSender, szFile, N);
}
