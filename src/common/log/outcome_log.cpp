/* Outcome log. The only file that knows the library that forms JSON. */
#include "outcome_log.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <ctime>
#include <nlohmann/json.hpp>

#include "../base/descriptor.h"
#include "../base/immortal.h"
#include "../config/variables.h"
#include "../lines/appending.h"
#include "../lines/secret.h"
#include "../lines/standard_error.h"
#include "../text/text.h"
#include "../text/time_text.h"
#include "protocol.h"

namespace {

using JSON = nlohmann::ordered_json;

constexpr const char* acpTIME[] = {"database", "connect", "command", "copy", "script"};
static_assert(std::size(acpTIME) == RUN_TIMES);

timespec sctCLOCK(clockid_t iClock)
{
    timespec sctNow{};
    clock_gettime(iClock, &sctNow);
    return sctNow;
}

long lMICROSECONDS()
{
    const timespec sctNow = sctCLOCK(CLOCK_MONOTONIC);
    return sctNow.tv_sec * 1'000'000 + sctNow.tv_nsec / 1000;
}

/* The process began when its static objects came to life. */
struct BEGIN {
    timespec sctTime = sctCLOCK(CLOCK_REALTIME);
    long     lMicroseconds = lMICROSECONDS();
};
IMMORTAL<BEGIN> begin;

/* "2026-11-25T03:52:27.123+01:00" */
std::string sISO(const timespec& sctTime)
{
    std::string sMilliseconds = std::to_string(1000 + sctTime.tv_nsec / 1'000'000);
    sMilliseconds[0] = '.';
    std::string sZone = sLOCAL_TIME_AS("%z", sctTime.tv_sec);
    if (sZone.size() == 5) sZone.insert(3, ":");
    return sLOCAL_TIME_AS("%Y-%m-%dT%H:%M:%S", sctTime.tv_sec) + sMilliseconds + sZone;
}

/* The identifier in front of a catalogue text ("E004-HOSTS"), or "". */
std::string sIDENTIFIER(const std::string& sMessage)
{
    constexpr std::string_view svShape = "?000-HOSTS   ";
    if (sMessage.size() < svShape.size()) return "";
    for (size_t u = 0; u < svShape.size(); u++) {
        const char c = sMessage[u];
        const bool bFits = svShape[u] == '?'   ? c == 'I' || c == 'W' || c == 'E'
                           : svShape[u] == '0' ? c >= '0' && c <= '9'
                                               : c == svShape[u];
        if (!bFits) return "";
    }
    return sMessage.substr(0, svShape.size() - 3);
}

void SET(JSON& line, const char* cpKey, const std::string& sText)
{
    if (!sText.empty()) line[cpKey] = sSAFE_LINE(sText);
}

/* An identifier that is a number stands as one. */
void SET_NUMBER(JSON& line, const char* cpKey, const std::string& sText)
{
    long       lNumber = 0;
    const auto end = std::from_chars(sText.data(), sText.data() + sText.size(), lNumber);
    if (end.ec == std::errc() && end.ptr == sText.data() + sText.size())
        line[cpKey] = lNumber;
    else
        SET(line, cpKey, sText);
}

void SET_DIAGNOSIS(JSON& line, const DIAGNOSIS& diagnosis)
{
    SET(line, "stage", diagnosis.sStage);
    SET(line, "cause", diagnosis.sCause);
    for (const std::string& sWords : diagnosis.asWords)
        line["words"].push_back(sONE_LINE(sFOREIGN(sWords)));
    SET(line, "cure", diagnosis.sCure);
    SET(line, "command", diagnosis.sCommand);
}

std::string sDUMPED(const JSON& line)
{
    return line.dump(-1, ' ', false, JSON::error_handler_t::replace);
}

long lROUNDED(long lMicroseconds)
{
    return (lMicroseconds + 500) / 1000;
}

void SET_TIMES(JSON& line, const RUN_RECORD& record)
{
    JSON& times = line["ms"];
    for (size_t u = 0; u < RUN_TIMES; u++)
        if (record.alMicroseconds[u] >= 0) times[acpTIME[u]] = lROUNDED(record.alMicroseconds[u]);
    times["total"] = lROUNDED(lMICROSECONDS() - begin.Get().lMicroseconds);
}

}  // namespace

RUN_RECORD& sctRUN_RECORD()
{
    static IMMORTAL<RUN_RECORD> record;
    return record.Get();
}

STAGE_TIMER::STAGE_TIMER(RUN_TIME eTime) : m_eTime(eTime), m_lStart(lMICROSECONDS())
{
    sctRUN_RECORD().iAt = eTime;
}

STAGE_TIMER::~STAGE_TIMER()
{
    Add();
}

void STAGE_TIMER::Switch(RUN_TIME eTime)
{
    Add();
    m_eTime = eTime;
    m_lStart = lMICROSECONDS();
    sctRUN_RECORD().iAt = eTime;
}

void STAGE_TIMER::Add()
{
    long& lSum = sctRUN_RECORD().alMicroseconds[m_eTime];
    lSum = std::max(lSum, 0L) + lMICROSECONDS() - m_lStart;
}

std::string sOUTCOME_LINE(const RUN_RECORD& record)
{
    JSON           line;
    const timespec sctNow = sctCLOCK(CLOCK_REALTIME);
    line["begin"] = sISO(record.bStarted ? begin.Get().sctTime : sctNow);
    line["end"] = sISO(sctNow);
    SET(line, "run", record.sRun);
    SET(line, "rollout", record.sRollout);
    SET(line, "sender", record.sSender);
    line["pid"] = getpid();
    SET(line, "client", record.sClient);
    SET_NUMBER(line, "client_id", record.sClientId);
    SET(line, "task", record.sTask);
    line["exit"] = record.bStarted || record.iExit != 0 ? JSON(record.iExit) : JSON();
    line["id"] = sIDENTIFIER(record.sMessage);
    line["msg"] = sSAFE_LINE(record.sMessage);
    SET_DIAGNOSIS(line, record.diagnosis);
    SET(line, "mode", record.sMode);
    SET(line, "host", record.reached.sHost);
    if (record.reached.iPort > 0) line["port"] = record.reached.iPort;
    SET(line, "host_key", record.reached.sHostKey);
    if (record.bStarted) SET_TIMES(line, record);
    SET(line, "version_before", record.sVersionBefore);
    SET(line, "version_after", record.sVersionAfter);
    if (record.iStored >= 0) line["stored"] = record.iStored == 1;
    return sDUMPED(line);
}

void v_ROLLOUT_LOG(const ROLLOUT_RECORD& record)
{
    JSON line;
    line["begin"] = line["end"] = sISO(sctCLOCK(CLOCK_REALTIME));
    SET(line, "run", record.sRun);
    SET(line, "rollout", record.sRun);
    SET(line, "sender", record.sSender);
    line["pid"] = getpid();
    SET(line, "task", record.sTask);
    SET(line, "package", record.sPackage);
    for (const std::string& sArgument : record.asArgument)
        line["arguments"].push_back(sSAFE_LINE(sArgument));
    for (const std::string& sClient : record.asClient)
        line["clients"].push_back(sSAFE_LINE(sClient));
    line["pilot"] = record.iPilot;
    line["stop_after"] = record.iStopAfter;
    APPEND_LINE("outcome log", sDAY_FILE(".jsonl"), sDUMPED(line), "day protocol");
}

int iOUTCOME_STANDS(long lPid, const std::string& sClient)
{
    constexpr long lLOOKED_AT = 4L << 20;
    const FD       fd = fdOPEN_FILE(sDAY_FILE(".jsonl"), O_RDONLY);
    const long     lEnd = fd.bOpen() ? lseek(fd.iGet(), 0, SEEK_END) : 0;
    std::string    sText;
    lseek(fd.iGet(), std::max(0L, lEnd - lLOOKED_AT), SEEK_SET);
    JSON line;
    line["pid"] = lPid;
    SET(line, "client", sClient);
    const std::string sWanted = sDUMPED(line);
    return fd.bOpen() && (iREAD_ALL(fd.iGet(), sText, 2 * lLOOKED_AT), true) &&
           sText.find(sWanted.substr(1, sWanted.size() - 2)) != sText.npos;
}

void v_OUTCOME_LOG(const RUN_RECORD& record)
{
    // It lies beside the day protocol: one trouble, told once.
    APPEND_LINE("outcome log", sDAY_FILE(".jsonl"), sOUTCOME_LINE(record), "day protocol");
}
