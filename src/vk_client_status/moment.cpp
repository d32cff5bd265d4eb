/* Times. The local zone's offset is asked for once an hour of a fleet, since asking
   costs more than all the rest of a line. */
#include "moment.h"

#include <algorithm>
#include <ctime>
#include <optional>
#include <unordered_map>

#include "common/text/time_text.h"

namespace {

constexpr long lHOUR = 3'600;
constexpr long lMINUTE = 60;

constexpr size_t uDATE = 10;  // bytes of "YYYY-MM-DD"

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
    const std::optional<long> lMidnight = lMIDNIGHT(sv.substr(0, uDATE));
    if (!lMidnight) return 0;
    sv.remove_prefix(uDATE);
    if (!bTAKE(sv, "T ")) return 0;
    const long lHours = lDIGITS(sv, 2);
    if (!bTAKE(sv, ":")) return 0;
    const long lMinutes = lDIGITS(sv, 2);
    if (!bTAKE(sv, ":")) return 0;
    const long lRest = lDIGITS(sv, 2);
    if (std::min({lHours, lMinutes, lRest}) < 0 || lHours > 23 || lMinutes > 59 || lRest > 60)
        return 0;
    if (bTAKE(sv, "."))
        while (bTAKE(sv, "0123456789")) continue;
    const long lTime = *lMidnight + lHours * lHOUR + lMinutes * lMINUTE + lRest;
    long       lOffset = 0;
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
