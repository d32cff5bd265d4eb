/* What the trace, the day protocol, the info output and the error lines have in
   common: one line, made harmless, appended by one write. */
#pragma once

#include <cstdarg>
#include <string>

/* Formats like vprintf. */
std::string sFORMATTED(const char* cpFormat, va_list args) __attribute__((format(printf, 1, 0)));

/* Passwords masked, control characters and invalid UTF-8 replaced. */
std::string sSAFE_LINE(const std::string& sText);

/* Local time "YYYY-MM-DD HH:MM:SS", with ".mmm" behind it when bMilliseconds. */
std::string sLOCAL_TIME(bool bMilliseconds);

/* Opens a file for appending (mode 0640, closed on exec) and makes its directory
   where that is missing. Result  the descriptor, or -1: errno says why */
int iOPEN_APPEND(const std::string& sFile);

/* Writes sText by one write. Result 1 written whole, 0 not: errno says why. */
int iWRITE_WHOLE(int iFd, const std::string& sText);

/* Appends a line (without its line feed) to a file; a failure is told once for
   cpKey on standard error. */
void APPEND_LINE(const char* cpKey, const std::string& sFile, const std::string& sLine);
