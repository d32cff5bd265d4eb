/* Times: read from logs and rows, written for people and programs. All are seconds
   since 1970; 0 is none. */
#pragma once

#include <string>
#include <string_view>

constexpr long lDAY = 86'400;

/* "2026-11-25T03:35:34+01:00" (with fractions, with Z, without zone: local time), or
   "YYYY-MM-DD HH:MM:SS" of the database. Anything else is 0. */
long lSECONDS_OF(std::string_view svTime);

/* Midnight that begins the local day iDays before that of lTime. */
long lDAY_BEGIN(long lTime, int iDays);

/* Local time "YYYY-MM-DD HH:MM:SS"; with bZone "YYYY-MM-DDTHH:MM:SS+HH:MM". Empty for none. */
std::string sTIME_TEXT(long lTime, bool bZone = false);

/* Local time in a form of strftime. Empty for none. */
std::string sTIME_FORMAT(long lTime, const char* cpFormat);

/* How long ago, short: "now", "5 min", "3 h", "12 d". Empty for none. */
std::string sAGO(long lTime, long lNow);
