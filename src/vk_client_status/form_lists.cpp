/* Forms for programs: names, JSON lines, comma-separated values. */
#include <nlohmann/json.hpp>

#include "common/common.h"
#include "forms.h"
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
    v_PUT(line, "id", client.sMessageId);
    v_PUT(line, "msg", client.sMessage);
    v_PUT(line, "stage", client.sStage);
    v_PUT(line, "cause", client.sCause);
    if (!client.asWords.empty()) line["words"] = client.asWords;
    v_PUT(line, "cure", client.sCure);
    v_PUT(line, "host_key", client.sHostKey);
    v_PUT(line, "same_host_key_as", client.sSameKeyAs);
    line["days"] = sDAYS(client);
    line["source"] = fleet.bDatabase ? "database" : "log";
    return line;
}

/* Quoted where it must be, and no formula. */
std::string sCSV(const std::string& sValue)
{
    std::string s = sVALID_UTF8(sValue);
    if (!s.empty() && std::string_view("=+-@\t\r").find(s[0]) != std::string_view::npos)
        s.insert(0, "'");
    if (s.find_first_of(",\"\r\n") == s.npos) return s;
    return "\"" + sMARKED(s, "\"", '"') + "\"";
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
};

}  // namespace

std::string sFORM_NAMES(const CHOSEN& chosen, bool bZero)
{
    std::string s;
    for (const CLIENT* pClient : chosen) {
        if (!bZero && pClient->sName.find_first_of("\r\n") != std::string::npos) {
            v_STDERR("\"%s\" is left out: it holds a line feed; use -0", pClient->sName.c_str());
            continue;
        }
        s.append(pClient->sName).push_back(bZero ? '\0' : '\n');
    }
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
    std::string s;
    for (const CSV_COLUMN& column : asctCsv) s.append(s.empty() ? "" : ",").append(column.cpHead);
    s += "\r\n";
    for (const CLIENT* pClient : chosen) {
        for (const CSV_COLUMN& column : asctCsv)
            s.append(&column == asctCsv ? "" : ",").append(sCSV(column.pValue(*pClient)));
        s += "\r\n";
    }
    return s;
}
