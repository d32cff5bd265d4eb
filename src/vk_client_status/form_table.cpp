/* The table of the fleet, and one client in full. On a terminal with ages, elsewhere with
   whole values and times. */
#include <algorithm>

#include "chosen.h"
#include "common/text/text.h"
#include "forms.h"
#include "moment.h"
#include "wording.h"

namespace {

constexpr TABLE_HEAD asctHead[] = {
    {"NAME", 0}, {"STATE", 0},  {"SINCE", 1},  {"CHECKED", 1}, {"SUCCESS", 4}, {"VERSION", 2},
    {"SP", 6},   {"UPDATE", 3}, {"SYSTEM", 5}, {"MODE", 7},    {"LOC", 6},
};

std::vector<std::string> asCELLS(const CLIENT& c, long lNow, const TABLE_LOOK& look)
{
    std::string sSince = sWHEN(c.lSince, lNow, look);
    if (!sSince.empty() && !c.bSinceExact) sSince += "+";
    std::string sUpdate(svUPDATE(c.eUpdate));
    if (c.lUpdate != 0 && !sUpdate.empty()) sUpdate += " " + sWHEN(c.lUpdate, lNow, look);
    return {sONE_LINE(c.sName),
            std::string(svSTATE(c.eState)),
            sSince,
            sWHEN(c.lChecked, lNow, look),
            sWHEN(c.lSucceeded, lNow, look),
            sONE_LINE(c.sVersion),
            sONE_LINE(c.sServicepack),
            sUpdate,
            sONE_LINE(c.sOs),
            sONE_LINE(c.sMode),
            sONE_LINE(c.sLocation)};
}

/* What is wrong and what to type, each on a line of its own. */
std::vector<TABLE_ROW::BELOW> BELOW(const CLIENT& client)
{
    std::vector<TABLE_ROW::BELOW> below;
    if (client.eState == STATE_FAILED) {
        below.push_back({sWHY(client), COLOR_DIM});
        if (!client.sCure.empty())
            below.push_back({"cure: " + sONE_LINE(client.sCure), COLOR_CYAN});
        if (!client.sCommand.empty())
            below.push_back({"type: " + sONE_LINE(client.sCommand), COLOR_CYAN});
    }
    if (!client.sUpdateWhy.empty() && client.sUpdateWhy != sWHY(client))
        below.push_back({"update: " + client.sUpdateWhy, COLOR_DIM});
    return below;
}

}  // namespace

COLOR eCOLOR(CLIENT_STATE eState)
{
    constexpr COLOR aeColor[] = {COLOR_RED,  COLOR_YELLOW, COLOR_YELLOW,
                                 COLOR_CYAN, COLOR_GREEN,  COLOR_DIM};
    return aeColor[eState];
}

std::string sFORM_TABLE(const FLEET& fleet, const CHOSEN& all, const TABLE_LOOK& look)
{
    CHOSEN chosen = all;
    v_WORST_FIRST(chosen);
    std::vector<TABLE_ROW> rows;
    rows.reserve(chosen.size());
    for (const CLIENT* p : chosen)
        rows.push_back({asCELLS(*p, fleet.lNow, look), eCOLOR(p->eState), BELOW(*p)});
    return sTABLE(asctHead, rows, look) + sSUMMARY(sctCOUNT(chosen), chosen.size()) + "\n";
}

namespace {

/* One "label   value" of the view of a client; nothing for an empty value. */
void v_FACT(std::string& s, std::string_view svLabel, std::string_view svValue)
{
    constexpr size_t uLabel = 16;
    if (svValue.empty()) return;
    s.append("  ").append(sPADDED(svLabel, uLabel)).append(sONE_LINE(svValue)).append("\n");
}

std::string sWITH_AGE(long lTime, const FLEET& fleet)
{
    return lTime == 0 ? "" : sTIME_TEXT(lTime) + " (" + sAGO(lTime, fleet.lNow) + ")";
}

std::string sDURATION(long lMilliseconds)
{
    if (lMilliseconds < 0) return "";
    constexpr long lSECOND = 1000;
    const long     lTenths = lMilliseconds / (lSECOND / 10);
    return std::to_string(lTenths / 10) + "." + std::to_string(lTenths % 10) + " s";
}

void v_RUNS(std::string& s, const std::vector<OUTCOME>& runs, const TABLE_LOOK& look)
{
    s += runs.empty() ? "\nNo run in the outcome logs.\n" : "\nLast runs\n";
    for (const OUTCOME& run : runs) {
        std::string sLine = "  " + sTIME_TEXT(run.lEnd) + "  " + sPADDED(sONE_LINE(run.sTask), 12) +
                            sPADDED(run.bStarted ? std::to_string(run.iExit) : "-", 3) +
                            sPADDED(sDURATION(run.lMilliseconds), 9);
        const std::string sCause = run.sCause.empty() ? "" : sONE_LINE(run.sCause) + ": ";
        sLine += sCause + sONE_LINE(run.sMessage);
        if (!run.bStarted && run.sMessage.empty()) sLine += "not started";
        if (!run.bStored) sLine += " [not stored in the row]";
        s += (look.iWidth == 0 ? sLine : sFITTED(sLine, static_cast<size_t>(look.iWidth))) + "\n";
    }
}

}  // namespace

std::string sFORM_CLIENT(const FLEET& fleet, const CLIENT& client,
                         const std::vector<DETAIL>& details, const std::vector<OUTCOME>& runs,
                         const TABLE_LOOK& look)
{
    std::string s = sCOLORED(sONE_LINE(client.sName), COLOR_BOLD, look.bColor) + "  " +
                    sCOLORED(svSTATE(client.eState), eCOLOR(client.eState), look.bColor);
    if (client.lSince != 0)
        s += " since " + std::string(client.bSinceExact ? "" : "before ") +
             sWITH_AGE(client.lSince, fleet);
    s += "\n";
    v_FACT(s, "message", client.sMessage);
    v_FACT(s, "cause", client.sCause + (client.sStage.empty() ? "" : " (" + client.sStage + ")"));
    for (const std::string& sWords : client.asWords)
        v_FACT(s, &sWords == client.asWords.data() ? "words" : "", sWords);
    v_FACT(s, "cure", client.sCure);
    v_FACT(s, "type", client.sCommand);
    v_FACT(s, "last check", sWITH_AGE(client.lChecked, fleet));
    v_FACT(s, "last success", sWITH_AGE(client.lSucceeded, fleet));
    v_FACT(s, "version", client.sVersion);
    v_FACT(s, "service pack", client.sServicepack);
    std::string sUpdate(svUPDATE(client.eUpdate));
    if (client.lUpdate != 0) sUpdate += " " + sWITH_AGE(client.lUpdate, fleet);
    v_FACT(s, "last update", sUpdate);
    v_FACT(s, "why", client.sUpdateWhy);
    v_FACT(s, "its message", client.sUpdateMessage);
    v_FACT(s, "client id", client.sId);
    v_FACT(s, "system", client.sOs);
    v_FACT(s, "access mode", client.sMode);
    v_FACT(s, "location", client.sLocation);
    for (const DETAIL& detail : details) v_FACT(s, detail.sLabel, detail.sValue);
    v_FACT(s, "host key", client.sHostKey);
    v_FACT(s, "same key as", client.sSameKeyAs);
    v_RUNS(s, runs, look);
    return s;
}
