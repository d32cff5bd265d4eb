/* Time texts, all in local time. */
#include "time_text.h"

#include <sys/time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>

#include "text.h"

namespace {

struct STAMP {
    int iYear = 0, iMonth = 0, iDay = 0, iHour = 0, iMinute = 0, iSecond = 0;
};

tm sctLOCAL(time_t lSeconds)
{
    tm sctTm{};
    localtime_r(&lSeconds, &sctTm);
    return sctTm;
}

std::string sTIME(const char* cpFormat, time_t lSeconds)
{
    const tm sctTm = sctLOCAL(lSeconds);
    char     szTime[64];
    return {szTime, std::strftime(szTime, sizeof szTime, cpFormat, &sctTm)};
}

constexpr char szISO[] = "%Y-%m-%d %H:%M:%S";

int iDAYS(int iYear, int iMonth)
{
    constexpr int aiDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool    bLeap = (iYear % 4 == 0 && iYear % 100 != 0) || iYear % 400 == 0;
    return iMonth == 2 && bLeap ? 29 : aiDays[iMonth - 1];
}

bool bPOSSIBLE(const STAMP& s)
{
    return s.iYear >= 1 && s.iMonth >= 1 && s.iMonth <= 12 && s.iDay >= 1 &&
           s.iDay <= iDAYS(s.iYear, s.iMonth) && s.iHour <= 23 && s.iMinute <= 59 &&
           s.iSecond <= 59;
}

/* Reads a stamp of the shape of cpShape, in which the letters Y M D h m s stand
   for the digits of their fields and anything else for itself. */
int iREAD_STAMP(const char* cpText, const char* cpShape, STAMP& stamp)
{
    if (std::strlen(cpText) != std::strlen(cpShape)) return 0;
    stamp = {};
    for (; *cpShape != '\0'; cpShape++, cpText++) {
        int* pField = nullptr;
        switch (*cpShape) {
            case 'Y':
                pField = &stamp.iYear;
                break;
            case 'M':
                pField = &stamp.iMonth;
                break;
            case 'D':
                pField = &stamp.iDay;
                break;
            case 'h':
                pField = &stamp.iHour;
                break;
            case 'm':
                pField = &stamp.iMinute;
                break;
            case 's':
                pField = &stamp.iSecond;
                break;
            default:
                if (*cpText != *cpShape) return 0;
                continue;
        }
        if (*cpText < '0' || *cpText > '9') return 0;
        *pField = *pField * 10 + (*cpText - '0');
    }
    return bPOSSIBLE(stamp);
}

std::string sSTAMP(const STAMP& s)
{
    char szTime[96];
    x_Snprintf(szTime, sizeof szTime, "%04d-%02d-%02d %02d:%02d:%02d", s.iYear, s.iMonth, s.iDay,
               s.iHour, s.iMinute, s.iSecond);
    return szTime;
}

time_t lFROM_UTC(const STAMP& s)
{
    tm sctTm{};
    sctTm.tm_year = s.iYear - 1900;
    sctTm.tm_mon = s.iMonth - 1;
    sctTm.tm_mday = s.iDay;
    sctTm.tm_hour = s.iHour;
    sctTm.tm_min = s.iMinute;
    sctTm.tm_sec = s.iSecond;
    return timegm(&sctTm);
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
    STAMP  stamp;
    time_t lSeconds = 0;
    if (iREAD_STAMP(cpText, "YYYY-MM-DD hh:mm:ss", stamp)) return sSTAMP(stamp);
    if (iREAD_STAMP(cpText, "YYYYMMDDhhmmss", stamp)) return sSTAMP(stamp);
    if (iREAD_STAMP(cpText, "YYYY-MM-DDThh:mm:ssZ", stamp)) return sTIME(szISO, lFROM_UTC(stamp));
    if (iREAD_SECONDS(cpText, lSeconds)) return sTIME(szISO, lSeconds);
    return "";
}

}  // namespace

std::string sLOCAL_TIME(bool bMilliseconds)
{
    timeval sctNow{};
    gettimeofday(&sctNow, nullptr);
    std::string sTime = sTIME(szISO, sctNow.tv_sec);
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
        iTEXT_COPY(szBuf, uSize, sTIME("%Y%m%d%H%M%S_", lNow) + std::to_string(getpid()));
    else
        iTEXT_COPY(szBuf, uSize, sTIME(szISO, lNow));
    return szBuf;
}

const char* psz_now_iso()
{
    static char szNow[32];
    iTEXT_SET(szNow, sTIME(szISO, time(nullptr)));
    return szNow;
}

void cm_time_stamp2iso_N(char* szBuf, size_t uSize)
{
    if (uSize == 0) return;
    const std::string sText(szBuf, strnlen(szBuf, uSize - 1));
    if (!iTEXT_COPY(szBuf, uSize, sISO_STAMP(sText.c_str()))) szBuf[0] = '\0';
}
