/* Times. The local zone's offset is asked for once an hour of a fleet, since asking
   costs more than all the rest of a line. */
#include "moment.h"

#include <algorithm>
#include <ctime>
#include <unordered_map>

namespace {

constexpr long lHOUR = 3'600;
constexpr long lMINUTE = 60;

/* Days since 1970 of a date, by the rule of 400 years that begin in March. */
constexpr long lDAYS(long lYear, long lMonth, long lDayOfMonth)
{
    lYear -= lMonth <= 2;
    const long lEra = (lYear >= 0 ? lYear : lYear - 399) / 400;
    const long lOfEra = lYear - lEra * 400;
    const long lOfYear = (153 * (lMonth + (lMonth > 2 ? -3 : 9)) + 2) / 5 + lDayOfMonth - 1;
    return lEra * 146'097 + lOfEra * 365 + lOfEra / 4 - lOfEra / 100 + lOfYear - 719'468;
}
static_assert(lDAYS(1970, 1, 1) == 0 && lDAYS(2000, 3, 1) == 11'017);

/* Offset of the local zone at an hour that is told in local time. */
long lLOCAL_OFFSET(long lLocalHour)
{
    static std::unordered_map<long, long> offsets;
    const auto                            known = offsets.find(lLocalHour);
    if (known != offsets.end()) return known->second;
    const time_t lAsUtc = lLocalHour * lHOUR;
    tm           sctTm{};
    gmtime_r(&lAsUtc, &sctTm);
    sctTm.tm_isdst = -1;
    const time_t lTime = mktime(&sctTm);
    return offsets[lLocalHour] = lTime == -1 ? 0 : lAsUtc - lTime;
}

/* Takes a number of uDigits digits off the front; -1 when they are none. */
long lDIGITS(std::string_view& sv, size_t uDigits)
{
    if (sv.size() < uDigits) return -1;
    long l = 0;
    for (size_t u = 0; u < uDigits; u++) {
        if (sv[u] < '0' || sv[u] > '9') return -1;
        l = l * 10 + (sv[u] - '0');
    }
    sv.remove_prefix(uDigits);
    return l;
}

bool bTAKE(std::string_view& sv, std::string_view svOneOf)
{
    if (sv.empty() || svOneOf.find(sv[0]) == svOneOf.npos) return false;
    sv.remove_prefix(1);
    return true;
}

/* Seconds east of Greenwich. */
bool bZONE(std::string_view sv, long& lOffset)
{
    lOffset = 0;
    if (sv == "Z") return true;
    const bool bWest = sv.starts_with('-');
    if (!bTAKE(sv, "+-")) return false;
    const long lHours = lDIGITS(sv, 2);
    bTAKE(sv, ":");
    const long lMinutes = sv.empty() ? 0 : lDIGITS(sv, 2);
    if (lHours < 0 || lMinutes < 0 || !sv.empty()) return false;
    lOffset = (lHours * lHOUR + lMinutes * lMINUTE) * (bWest ? -1 : 1);
    return true;
}

}  // namespace

long lSECONDS_OF(std::string_view sv)
{
    const long lYear = lDIGITS(sv, 4);
    if (!bTAKE(sv, "-")) return 0;
    const long lMonth = lDIGITS(sv, 2);
    if (!bTAKE(sv, "-")) return 0;
    const long lOfMonth = lDIGITS(sv, 2);
    if (!bTAKE(sv, "T ")) return 0;
    const long lHours = lDIGITS(sv, 2);
    if (!bTAKE(sv, ":")) return 0;
    const long lMinutes = lDIGITS(sv, 2);
    if (!bTAKE(sv, ":")) return 0;
    const long lRest = lDIGITS(sv, 2);
    if (std::min({lYear, lMonth - 1, lOfMonth - 1, lHours, lMinutes, lRest}) < 0 || lMonth > 12 ||
        lOfMonth > 31 || lHours > 23 || lMinutes > 59 || lRest > 60)
        return 0;
    if (bTAKE(sv, "."))
        while (bTAKE(sv, "0123456789")) continue;
    const long lTime =
        lDAYS(lYear, lMonth, lOfMonth) * lDAY + lHours * lHOUR + lMinutes * lMINUTE + lRest;
    long lOffset = 0;
    if (sv.empty()) return lTime - lLOCAL_OFFSET(lTime / lHOUR);
    return bZONE(sv, lOffset) ? lTime - lOffset : 0;
}

long lDAY_BEGIN(long lTime, int iDays)
{
    const time_t l = lTime;
    tm           sctTm{};
    localtime_r(&l, &sctTm);
    sctTm.tm_hour = sctTm.tm_min = sctTm.tm_sec = 0;
    sctTm.tm_mday -= iDays;
    sctTm.tm_isdst = -1;
    return mktime(&sctTm);
}

std::string sTIME_FORMAT(long lTime, const char* cpFormat)
{
    if (lTime == 0) return "";
    const time_t l = lTime;
    tm           sctTm{};
    localtime_r(&l, &sctTm);
    char szTime[64];
    return {szTime, std::strftime(szTime, sizeof szTime, cpFormat, &sctTm)};
}

std::string sTIME_TEXT(long lTime, bool bZone)
{
    if (!bZone) return sTIME_FORMAT(lTime, "%Y-%m-%d %H:%M:%S");
    std::string sTime = sTIME_FORMAT(lTime, "%Y-%m-%dT%H:%M:%S%z");
    if (sTime.size() > 2) sTime.insert(sTime.size() - 2, ":");
    return sTime;
}

std::string sAGO(long lTime, long lNow)
{
    if (lTime == 0) return "";
    const long l = std::max(lNow - lTime, 0L);
    if (l < lMINUTE) return "now";
    if (l < lHOUR) return std::to_string(l / lMINUTE) + " min";
    if (l < 2 * lDAY) return std::to_string(l / lHOUR) + " h";
    return std::to_string(l / lDAY) + " d";
}
