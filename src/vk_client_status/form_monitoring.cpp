/* Forms for monitoring systems: the line of a Nagios plugin, the text file of a
   Prometheus exporter. */
#include <algorithm>
#include <cmath>

#include "cells.h"
#include "common/text/text.h"
#include "forms.h"
#include "wording.h"

namespace {

/* ---- Nagios ------------------------------------------------------------------- */

constexpr int    iUNKNOWN = 3;
constexpr size_t uNAMED = 10;  // clients that the line names

/* The number of clients from which on the limit is reached; 0: never. */
int iREACHED_AT(const LIMIT& limit, int iClients)
{
    if (limit.dNumber <= 0) return 0;
    constexpr double dHUNDRED = 100;
    const double     d = limit.bPercent ? limit.dNumber / dHUNDRED * iClients : limit.dNumber;
    constexpr double dMOST = 1e9;  // no fleet has as many, and an int holds it
    return static_cast<int>(std::clamp(std::ceil(d), 1.0, dMOST));
}

bool bREACHED(int iCount, const LIMIT& limit, int iClients)
{
    const int iAt = iREACHED_AT(limit, iClients);
    return iAt != 0 && iCount >= iAt;
}

/* "|" parts the performance data from the text. */
std::string sPLUGIN_TEXT(std::string s)
{
    s = sONE_LINE(s);
    std::replace(s.begin(), s.end(), '|', '/');
    return s;
}

std::string sFAILING_NAMES(const CHOSEN& chosen)
{
    std::string s;
    size_t      uCount = 0;
    for (const CLIENT* pClient : chosen) {
        if (pClient->eState != STATE_FAILED || ++uCount > uNAMED) continue;
        s.append(s.empty() ? ": " : ", ").append(pClient->sName);
        const std::string& sWhy = pClient->sCause.empty() ? pClient->sMessageId : pClient->sCause;
        if (!sWhy.empty()) s.append(" (").append(sWhy).append(")");
    }
    if (uCount > uNAMED) s += " and " + std::to_string(uCount - uNAMED) + " more";
    return s;
}

/* A number of clients that the plugin compares with limits. */
struct WATCHED {
    const char*  cpLabel;
    int          iValue;
    const LIMIT &warning, &critical;
};

std::string sDATUM(const WATCHED& watched, int iClients)
{
    const auto at = [&](const LIMIT& limit) {
        const int iAt = iREACHED_AT(limit, iClients);
        return iAt == 0 ? "" : std::to_string(iAt - 1);  // a plugin's limit may be met
    };
    return std::string(" ") + watched.cpLabel + "=" + std::to_string(watched.iValue) + ";" +
           at(watched.warning) + ";" + at(watched.critical) + ";0;" + std::to_string(iClients);
}

/* ---- Prometheus ----------------------------------------------------------------- */

std::string sLABEL(const std::string& sValue)
{
    std::string s;
    for (const char c : sVALID_UTF8(sValue)) {
        if (c == '\\' || c == '"') s += '\\';
        s.append(c == '\n' ? "\\n" : std::string(1, c));
    }
    return s;
}

void v_HEAD(std::string& s, const char* cpName, const char* cpHelp)
{
    s.append("# HELP ").append(cpName).append(" ").append(cpHelp).append("\n# TYPE ");
    s.append(cpName).append(" gauge\n");
}

/* A metric with a value for each client that has one. */
struct CLIENT_METRIC {
    const char* cpName;
    const char* cpHelp;
    long (*pValue)(const CLIENT& client);  // -1: none
};

constexpr CLIENT_METRIC asctMetric[] = {
    {"vk_client_failing", "Whether the last run for the client failed.",
     [](const CLIENT& c) { return c.eState == STATE_FAILED ? 1L : 0L; }},
    {"vk_client_last_check_timestamp_seconds", "End of the last run for the client.",
     [](const CLIENT& c) { return c.lChecked == 0 ? -1L : c.lChecked; }},
    {"vk_client_last_success_timestamp_seconds", "End of the last run that succeeded.",
     [](const CLIENT& c) { return c.lSucceeded == 0 ? -1L : c.lSucceeded; }},
    {"vk_client_failing_since_timestamp_seconds", "First failure after the last success.",
     [](const CLIENT& c) { return c.lSince == 0 ? -1L : c.lSince; }},
    {"vk_client_last_update_timestamp_seconds",
     "End of the last update, or begin of one under way.",
     [](const CLIENT& c) { return c.lUpdate == 0 ? -1L : c.lUpdate; }},
};

void v_INFO(std::string& s, const CHOSEN& chosen)
{
    v_HEAD(s, "vk_client_info", "What is known of the client.");
    for (const CLIENT* p : chosen)
        s.append("vk_client_info{client=\"" + sLABEL(p->sName) + "\",system=\"" + sLABEL(p->sOs) +
                 "\",mode=\"" + sLABEL(p->sMode) + "\",location=\"" + sLABEL(p->sLocation) +
                 "\",version=\"" + sLABEL(p->sVersion) + "\",servicepack=\"" +
                 sLABEL(p->sServicepack) + "\",state=\"" + std::string(svSTATE(p->eState)) +
                 "\",update_state=\"" + std::string(svUPDATE(p->eUpdate)) + "\",cause=\"" +
                 sLABEL(p->sCause) + "\"} 1\n");
}

}  // namespace

std::string sFORM_NAGIOS(const FLEET& fleet, const CHOSEN& chosen, const NAGIOS_LIMITS& limits,
                         int& iExit)
{
    constexpr const char* acpWord[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
    const COUNTS          counts = sctCOUNT(chosen);
    const int             iClients = counts.iTakePart;
    const int             iFailing = counts.aiState[STATE_FAILED];
    const int             iStale = counts.aiState[STATE_STALE];
    const int             iNever = counts.aiState[STATE_NEVER];
    const int             iUpdates = iFAILED_UPDATES(counts);
    const WATCHED         asctWatched[] = {
                {"failing", iFailing, limits.warning, limits.critical},
                {"unchecked", iStale + iNever, limits.staleWarning, limits.staleCritical},
                {"updates_failed", iUpdates, limits.updateWarning, limits.updateCritical},
    };
    iExit = 0;
    for (const WATCHED& watched : asctWatched)
        iExit = std::max(iExit, bREACHED(watched.iValue, watched.critical, iClients)  ? 2
                                : bREACHED(watched.iValue, watched.warning, iClients) ? 1
                                                                                      : 0);
    std::string sText = std::to_string(iFailing) + " of " + sCOUNTED(iClients, "client") +
                        " failing" + sFAILING_NAMES(chosen);
    if (iStale != 0)
        sText +=
            "; " + std::to_string(iStale) + " not checked for " + sCOUNTED(fleet.iStaleDays, "day");
    if (iNever != 0) sText += "; " + std::to_string(iNever) + " never checked";
    if (iUpdates != 0) sText += "; " + sCOUNTED(iUpdates, "update") + " failed";
    if (!fleet.sLogError.empty()) {
        iExit = std::max(iExit, 1);
        sText += "; " + fleet.sLogError;
    }
    if (iClients == 0) {
        iExit = iUNKNOWN;
        sText = "no client is chosen";
    }
    if (!fleet.bDatabase) {
        iExit = iUNKNOWN;
        sText =
            "cannot read the database: " + fleet.sDatabaseError + "; by the outcome logs " + sText;
    }
    std::string s = std::string("CLIENTS ") + acpWord[iExit] + " - " + sPLUGIN_TEXT(sText) + " |";
    for (const WATCHED& watched : asctWatched) s += sDATUM(watched, iClients);
    return s + " stale=" + std::to_string(iStale) + " never=" + std::to_string(iNever) +
           " well=" + std::to_string(counts.aiState[STATE_WELL]) +
           " updating=" + std::to_string(counts.aiUpdate[UPDATE_RUNNING]) + "\n";
}

std::string sFORM_PROMETHEUS(const FLEET& fleet, const CHOSEN& chosen)
{
    const COUNTS counts = sctCOUNT(chosen);
    std::string  s;
    v_HEAD(s, "vk_database_up", "Whether the database could be read.");
    s += std::string("vk_database_up ") + (fleet.bDatabase ? "1" : "0") + "\n";
    v_HEAD(s, "vk_clients", "Clients by state.");
    for (int i = 0; i < STATE_COUNT; i++)
        s += "vk_clients{state=\"" + std::string(svSTATE(static_cast<CLIENT_STATE>(i))) + "\"} " +
             std::to_string(counts.aiState[static_cast<size_t>(i)]) + "\n";
    v_HEAD(s, "vk_clients_update", "Clients by the state of their last update.");
    for (int i = 0; i < UPDATE_COUNT; i++) {
        const std::string sState(i == UPDATE_NONE ? "none"
                                                  : svUPDATE(static_cast<UPDATE_STATE>(i)));
        s += "vk_clients_update{update_state=\"" + sState + "\"} " +
             std::to_string(counts.aiUpdate[static_cast<size_t>(i)]) + "\n";
    }
    v_INFO(s, chosen);
    for (const CLIENT_METRIC& metric : asctMetric) {
        v_HEAD(s, metric.cpName, metric.cpHelp);
        for (const CLIENT* p : chosen)
            if (const long lValue = metric.pValue(*p); lValue >= 0)
                s += metric.cpName + ("{client=\"" + sLABEL(p->sName) + "\"} ") +
                     std::to_string(lValue) + "\n";
    }
    v_HEAD(s, "vk_status_timestamp_seconds", "When these figures were taken.");
    return s + "vk_status_timestamp_seconds " + std::to_string(fleet.lNow) + "\n";
}
