/* Time texts, all in local time. */
#include "time_text.h"

#include <sys/time.h>
#include <unistd.h>

#include <cstring>
#include <ctime>

#include "text.h"

namespace {

tm sctLOCAL(time_t lSeconds)
{
    tm sctTm{};
    localtime_r(&lSeconds, &sctTm);
    return sctTm;
}

/* In the form of strftime; zeros in front fill it up to uLength, since a year below
   1000 comes with fewer digits. */
std::string sTIME(const char* cpFormat, const tm& sctTm, size_t uLength = 0)
{
    char        szTime[64];
    std::string sTime(szTime, std::strftime(szTime, sizeof szTime, cpFormat, &sctTm));
    if (sTime.size() < uLength) sTime.insert(0, uLength - sTime.size(), '0');
    return sTime;
}

constexpr char szISO[] = "%Y-%m-%d %H:%M:%S";

std::string sISO(const tm& sctTm)
{
    return sTIME(szISO, sctTm, std::strlen("YYYY-MM-DD hh:mm:ss"));
}

/* Reads a text that is in a form to the letter. What strptime lets pass besides (blanks,
   signs, missing digits, 30 February) does not come out as it went in. */
int iREAD_STAMP(const char* cpText, const char* cpFormat, tm& sctTm)
{
    sctTm = {};
    if (strptime(cpText, cpFormat, &sctTm) == nullptr || sctTm.tm_year <= -1900) return 0;
    tm sctTrue = sctTm;
    timegm(&sctTrue);
    return sTIME(cpFormat, sctTrue, std::strlen(cpText)) == cpText;
}

/* Seconds since 1970: up to 11 digits, the year 5138. */
int iREAD_SECONDS(const char* cpText, time_t& lSeconds)
{
    const size_t uDigits = std::strspn(cpText, "0123456789");
    if (uDigits == 0 || uDigits > 11 || cpText[uDigits] != '\0') return 0;
    lSeconds = 0;
    for (; *cpText != '\0'; cpText++) lSeconds = lSeconds * 10 + (*cpText - '0');
    return 1;
}

std::string sISO_STAMP(const char* cpText)
{
    tm     sctTm{};
    time_t lSeconds = 0;
    if (iREAD_STAMP(cpText, szISO, sctTm) || iREAD_STAMP(cpText, "%Y%m%d%H%M%S", sctTm))
        return sISO(sctTm);
    if (iREAD_STAMP(cpText, "%Y-%m-%dT%H:%M:%SZ", sctTm)) {
        const tm sctHere = sctLOCAL(timegm(&sctTm));
        // West of Greenwich the year 1 begins in a year 0, which no database takes.
        return sctHere.tm_year > -1900 ? sISO(sctHere) : "";
    }
    if (iREAD_SECONDS(cpText, lSeconds)) return sISO(sctLOCAL(lSeconds));
    return "";
}

}  // namespace

std::string sLOCAL_TIME_AS(const char* cpFormat, time_t lSeconds)
{
    return sTIME(cpFormat, sctLOCAL(lSeconds));
}

std::string sLOCAL_TIME(bool bMilliseconds)
{
    timeval sctNow{};
    gettimeofday(&sctNow, nullptr);
    std::string sTime = sISO(sctLOCAL(sctNow.tv_sec));
    if (!bMilliseconds) return sTime;
    char szMilliseconds[16];
    x_Snprintf(szMilliseconds, sizeof szMilliseconds, ".%03ld", sctNow.tv_usec / 1000);
    return sTime + szMilliseconds;
}

char* time_get_N(char* szBuf, size_t uSize)
{
    if (uSize == 0) return szBuf;
    const time_t lNow = time(nullptr);
    if (szBuf[0] == 'I')
        iTEXT_COPY(szBuf, uSize, sLOCAL_TIME_AS("%Y%m%d%H%M%S_", lNow) + std::to_string(getpid()));
    else
        iTEXT_COPY(szBuf, uSize, sISO(sctLOCAL(lNow)));
    return szBuf;
}

const char* psz_now_iso()
{
    static char szNow[32];
    iTEXT_SET(szNow, sISO(sctLOCAL(time(nullptr))));
    return szNow;
}

void cm_time_stamp2iso_N(char* szBuf, size_t uSize)
{
    if (uSize == 0) return;
    const std::string sText(szBuf, strnlen(szBuf, uSize - 1));
    if (!iTEXT_COPY(szBuf, uSize, sISO_STAMP(sText.c_str()))) szBuf[0] = '\0';
}
