/* Times. The local zone's offset is asked for once an hour of a fleet, since asking
   costs more than all the rest of a line. */
#include "moment.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <optional>
#include <unordered_map>

#include "common/text/text.h"
#include "common/text/time_text.h"

namespace {

constexpr long lHOUR = 3'600;
constexpr long lMINUTE = 60;

constexpr size_t uDATE = 10;       // bytes of "YYYY-MM-DD"
constexpr size_t uDATE_TIME = 19;  // and of "YYYY-MM-DD HH:MM:SS"

/* Midnight in Greenwich of "YYYY-MM-DD". The last date is kept: a log has many lines of a
   day. Result  no value: it is no date */
std::optional<long> lMIDNIGHT(std::string_view svDate)
{
    static std::string         sLast;
    static std::optional<long> lLast;
    if (svDate == sLast) return lLast;
    tm sctTm{};
    sLast = svDate;
    const char* cpEnd = strptime(sLast.c_str(), "%Y-%m-%d", &sctTm);
    const bool  bDate = sLast.size() == uDATE && cpEnd != nullptr && *cpEnd == '\0' &&
                       sLast.find(' ') == sLast.npos;
    lLast = bDate ? std::optional<long>(timegm(&sctTm)) : std::nullopt;
    return lLast;
}

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

}  // namespace

long lSECONDS_OF(std::string_view svTime)
{
    char szTime[64];
    if (!iTEXT_SET(szTime, svTime) || svTime.size() < uDATE_TIME) return 0;
    const std::optional<long> lMidnight = lMIDNIGHT(svTime.substr(0, uDATE));
    const bool                bForm = (svTime[uDATE] == 'T' || svTime[uDATE] == ' ') &&
                       svTime.find(' ', uDATE + 1) == svTime.npos;
    tm          sctTm{};
    const char* cpRest = strptime(szTime + uDATE + 1, "%H:%M:%S", &sctTm);
    if (!lMidnight || !bForm || cpRest != szTime + uDATE_TIME || sctTm.tm_sec > 60) return 0;
    if (*cpRest == '.') cpRest += 1 + std::strspn(cpRest + 1, "0123456789");
    const long lTime = *lMidnight + sctTm.tm_hour * lHOUR + sctTm.tm_min * lMINUTE + sctTm.tm_sec;
    if (*cpRest == '\0') return lTime - lLOCAL_OFFSET(lTime / lHOUR);
    cpRest = strptime(cpRest, "%z", &sctTm);
    return cpRest != nullptr && *cpRest == '\0' ? lTime - sctTm.tm_gmtoff : 0;
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
    return lTime == 0 ? "" : sLOCAL_TIME_AS(cpFormat, lTime);
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
