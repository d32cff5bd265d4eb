/* Time texts, all in local time. */
#pragma once

#include <cstddef>
#include <ctime>
#include <string>

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

/* Local time in a form of strftime. */
std::string sLOCAL_TIME_AS(const char* cpFormat, time_t lSeconds);

/* Local time "YYYY-MM-DD HH:MM:SS", with ".mmm" behind it when bMilliseconds. */
std::string sLOCAL_TIME(bool bMilliseconds);
