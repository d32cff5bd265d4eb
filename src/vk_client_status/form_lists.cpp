/* Forms for programs: names, JSON lines, comma-separated values. */
#include <nlohmann/json.hpp>

#include "common/common.h"
#include "forms.h"
#include "listing.h"
#include "moment.h"

namespace {

using JSON = nlohmann::ordered_json;

/* A value that is not known is left out. */
void v_PUT(JSON& line, const char* cpKey, const std::string& sValue)
{
    if (!sValue.empty()) line[cpKey] = sValue;
}

std::string sDAYS(const CLIENT& client)
{
    constexpr std::string_view svLetter = "-+~x";  // in the order of DAY_STATE
    std::string                s;
    for (const DAY_STATE eDay : client.aeDay) s += svLetter[eDay];
    return s;
}

JSON JSON_OF(const CLIENT& client, const FLEET& fleet)
{
    JSON line;
    line["name"] = client.sName;
    v_PUT(line, "client_id", client.sId);
    v_PUT(line, "system", client.sOs);
    v_PUT(line, "mode", client.sMode);
    v_PUT(line, "location", client.sLocation);
    v_PUT(line, "version", client.sVersion);
    v_PUT(line, "servicepack", client.sServicepack);
    line["state"] = svSTATE(client.eState);
    v_PUT(line, "since", sTIME_TEXT(client.lSince, true));
    if (client.lSince != 0) line["since_exact"] = client.bSinceExact;
    v_PUT(line, "last_check", sTIME_TEXT(client.lChecked, true));
    v_PUT(line, "last_success", sTIME_TEXT(client.lSucceeded, true));
    v_PUT(line, "last_update", sTIME_TEXT(client.lUpdate, true));
    v_PUT(line, "update_state", std::string(svUPDATE(client.eUpdate)));
    v_PUT(line, "update_message", client.sUpdateMessage);
    v_PUT(line, "update_cause", client.sUpdateCause);
    v_PUT(line, "update_why", client.sUpdateWhy);
    v_PUT(line, "id", client.sMessageId);
    v_PUT(line, "msg", client.sMessage);
    v_PUT(line, "stage", client.sStage);
    v_PUT(line, "cause", client.sCause);
    if (!client.asWords.empty()) line["words"] = client.asWords;
    v_PUT(line, "cure", client.sCure);
    v_PUT(line, "command", client.sCommand);
    v_PUT(line, "host_key", client.sHostKey);
    v_PUT(line, "same_host_key_as", client.sSameKeyAs);
    line["days"] = sDAYS(client);
    line["source"] = fleet.bDatabase ? "database" : "log";
    return line;
}

struct CSV_COLUMN {
    const char* cpHead;
    std::string (*pValue)(const CLIENT& client);
};

constexpr CSV_COLUMN asctCsv[] = {
    {"name", [](const CLIENT& c) { return c.sName; }},
    {"system", [](const CLIENT& c) { return c.sOs; }},
    {"mode", [](const CLIENT& c) { return c.sMode; }},
    {"location", [](const CLIENT& c) { return c.sLocation; }},
    {"version", [](const CLIENT& c) { return c.sVersion; }},
    {"servicepack", [](const CLIENT& c) { return c.sServicepack; }},
    {"state", [](const CLIENT& c) { return std::string(svSTATE(c.eState)); }},
    {"since", [](const CLIENT& c) { return sTIME_TEXT(c.lSince); }},
    {"last_check", [](const CLIENT& c) { return sTIME_TEXT(c.lChecked); }},
    {"last_success", [](const CLIENT& c) { return sTIME_TEXT(c.lSucceeded); }},
    {"last_update", [](const CLIENT& c) { return sTIME_TEXT(c.lUpdate); }},
    {"update_state", [](const CLIENT& c) { return std::string(svUPDATE(c.eUpdate)); }},
    {"id", [](const CLIENT& c) { return c.sMessageId; }},
    {"cause", [](const CLIENT& c) { return c.sCause; }},
    {"cure", [](const CLIENT& c) { return c.sCure; }},
    {"msg", [](const CLIENT& c) { return c.sMessage; }},
    {"command", [](const CLIENT& c) { return c.sCommand; }},
    {"update_cause", [](const CLIENT& c) { return c.sUpdateCause; }},
    {"update_why", [](const CLIENT& c) { return c.sUpdateWhy; }},
};

}  // namespace

std::string sFORM_NAMES(const CHOSEN& chosen, bool bZero)
{
    std::string s;
    for (const CLIENT* p : chosen) v_ADD_NAME(s, p->sName, bZero ? '\0' : '\n');
    return s;
}

std::string sFORM_JSON(const FLEET& fleet, const CHOSEN& chosen)
{
    std::string s;
    for (const CLIENT* pClient : chosen)
        s.append(JSON_OF(*pClient, fleet).dump(-1, ' ', false, JSON::error_handler_t::replace))
            .append("\n");
    return s;
}

std::string sFORM_CSV(const FLEET& /*fleet*/, const CHOSEN& chosen)
{
    std::vector<std::string> asValue;
    for (const CSV_COLUMN& column : asctCsv) asValue.emplace_back(column.cpHead);
    std::string s = sCSV_LINE(asValue);
    for (const CLIENT* p : chosen) {
        for (size_t u = 0; u < asValue.size(); u++) asValue[u] = asctCsv[u].pValue(*p);
        s += sCSV_LINE(asValue);
    }
    return s;
}
