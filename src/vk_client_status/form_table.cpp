/* The table for people: on a terminal as wide as that, with ages and a line or two
   under each failed client; elsewhere plain, with full values and times. */
#include <algorithm>

#include "cells.h"
#include "chosen.h"
#include "common/text/text.h"
#include "forms.h"
#include "moment.h"
#include "wording.h"

namespace {

constexpr size_t uGAP = 2;
constexpr size_t uNAME_LEAST = 12;
constexpr size_t uCELL_MOST = 28;  // of a terminal's columns

std::string sWHEN(long lTime, const FLEET& fleet, bool bPlain)
{
    return bPlain ? sTIME_TEXT(lTime) : sAGO(lTime, fleet.lNow);
}

std::string sSINCE(const CLIENT& client, const FLEET& fleet, bool bPlain)
{
    if (client.lSince == 0) return "";
    return sWHEN(client.lSince, fleet, bPlain) + (client.bSinceExact ? "" : "+");
}

std::string sUPDATE(const CLIENT& client, const FLEET& fleet, bool bPlain)
{
    std::string s(svUPDATE(client.eUpdate));
    if (client.lUpdate != 0 && !s.empty()) s += " " + sWHEN(client.lUpdate, fleet, bPlain);
    return s;
}

/* A column, and how readily a narrow terminal does without it (0: never). */
struct TABLE_COLUMN {
    const char* cpHead;
    int         iDispensable;
    std::string (*pValue)(const CLIENT& client, const FLEET& fleet, bool bPlain);
};

constexpr TABLE_COLUMN asctColumn[] = {
    {"NAME", 0, [](const CLIENT& c, const FLEET&, bool) { return sONE_LINE(c.sName); }},
    {"STATE", 0,
     [](const CLIENT& c, const FLEET&, bool) { return std::string(svSTATE(c.eState)); }},
    {"SINCE", 1, sSINCE},
    {"CHECKED", 1, [](const CLIENT& c, const FLEET& f, bool b) { return sWHEN(c.lChecked, f, b); }},
    {"SUCCESS", 4,
     [](const CLIENT& c, const FLEET& f, bool b) { return sWHEN(c.lSucceeded, f, b); }},
    {"VERSION", 2, [](const CLIENT& c, const FLEET&, bool) { return sONE_LINE(c.sVersion); }},
    {"SP", 6, [](const CLIENT& c, const FLEET&, bool) { return sONE_LINE(c.sServicepack); }},
    {"UPDATE", 3, sUPDATE},
    {"SYSTEM", 5, [](const CLIENT& c, const FLEET&, bool) { return sONE_LINE(c.sOs); }},
    {"MODE", 7, [](const CLIENT& c, const FLEET&, bool) { return sONE_LINE(c.sMode); }},
    {"LOC", 6, [](const CLIENT& c, const FLEET&, bool) { return sONE_LINE(c.sLocation); }},
};
constexpr size_t uNAME = 0;
constexpr size_t uSTATE = 1;

using CELLS = std::vector<std::string>;

COLOR eCOLOR(CLIENT_STATE eState)
{
    constexpr COLOR aeColor[] = {COLOR_RED,  COLOR_YELLOW, COLOR_YELLOW,
                                 COLOR_CYAN, COLOR_GREEN,  COLOR_DIM};
    return aeColor[eState];
}

/* The columns that are shown and how wide they are. A column without any value is not
   shown; a terminal that is too narrow loses the most dispensable ones first, and then
   the ends of names. */
std::vector<size_t> auWIDTHS(const std::vector<CELLS>& rows, const TABLE_LOOK& look)
{
    std::vector<size_t> auWidth(std::size(asctColumn), 0);
    for (const CELLS& row : rows)
        for (size_t u = 0; u < row.size(); u++) auWidth[u] = std::max(auWidth[u], uCOLUMNS(row[u]));
    for (size_t u = 0; u < auWidth.size(); u++) {
        if (look.iWidth != 0 && u != uNAME) auWidth[u] = std::min(auWidth[u], uCELL_MOST);
        if (auWidth[u] != 0)
            auWidth[u] = std::max(auWidth[u], std::string_view(asctColumn[u].cpHead).size());
    }
    if (look.iWidth == 0) return auWidth;
    const auto uWide = [&] {
        size_t uSum = 0;
        for (const size_t u : auWidth) uSum += u == 0 ? 0 : u + uGAP;
        return uSum - std::min(uSum, uGAP);
    };
    const auto uRoom = static_cast<size_t>(look.iWidth);
    for (int iLevel = 7; iLevel > 0; iLevel--)
        for (size_t u = auWidth.size(); u-- > 0;)
            if (asctColumn[u].iDispensable == iLevel &&
                uWide() - auWidth[uNAME] + std::min(auWidth[uNAME], uCELL_MOST) > uRoom)
                auWidth[u] = 0;
    if (uWide() > uRoom) {
        const size_t uRest = uWide() - auWidth[uNAME];
        auWidth[uNAME] = std::max(uRoom > uRest ? uRoom - uRest : 0, uNAME_LEAST);
    }
    return auWidth;
}

void v_ROW(std::string& s, const CELLS& row, const std::vector<size_t>& auWidth, COLOR eState,
           bool bColor)
{
    std::string sLine;
    size_t      uPending = 0;  // no blanks at the end of a line
    for (size_t u = 0; u < row.size(); u++) {
        if (auWidth[u] == 0) continue;
        const std::string sCell = sFITTED(row[u], auWidth[u]);
        if (!sCell.empty()) {
            sLine.append(uPending, ' ')
                .append(u == uSTATE ? sCOLORED(sCell, eState, bColor) : sCell);
            uPending = 0;
        }
        uPending += auWidth[u] + uGAP - uCOLUMNS(sCell);
    }
    s.append(sLine).append("\n");
}

/* What is wrong and what to type, each on a line of its own. */
void v_CAUSE(std::string& s, const CLIENT& client, const TABLE_LOOK& look)
{
    if (client.eState != STATE_FAILED) return;
    const auto line = [&](const std::string& sText, COLOR eColor) {
        constexpr size_t  uIndent = 3;
        const std::string sShown =
            look.iWidth == 0
                ? sText
                : sFITTED(sText, static_cast<size_t>(std::max(look.iWidth, 20)) - uIndent);
        s.append(uIndent, ' ').append(sCOLORED(sShown, eColor, look.bColor)).append("\n");
    };
    line(sWHY(client), COLOR_DIM);
    if (!client.sCure.empty()) line("cure: " + sONE_LINE(client.sCure), COLOR_CYAN);
}

}  // namespace

std::string sFORM_TABLE(const FLEET& fleet, const CHOSEN& all, const TABLE_LOOK& look)
{
    CHOSEN chosen = all;
    v_WORST_FIRST(chosen);
    std::vector<CELLS> rows;
    rows.reserve(chosen.size());
    for (const CLIENT* pClient : chosen)
        for (CELLS& row = rows.emplace_back(); const TABLE_COLUMN& column : asctColumn)
            row.push_back(column.pValue(*pClient, fleet, look.iWidth == 0));
    const std::vector<size_t> auWidth = auWIDTHS(rows, look);
    std::string               s;
    if (!chosen.empty()) {
        CELLS heads;
        for (const TABLE_COLUMN& column : asctColumn) heads.emplace_back(column.cpHead);
        std::string sHeads;
        v_ROW(sHeads, heads, auWidth, COLOR_NONE, false);
        sHeads.pop_back();
        s = sCOLORED(sHeads, COLOR_BOLD, look.bColor) + "\n";
    }
    for (size_t u = 0; u < rows.size(); u++) {
        v_ROW(s, rows[u], auWidth, eCOLOR(chosen[u]->eState), look.bColor);
        v_CAUSE(s, *chosen[u], look);
    }
    if (!chosen.empty()) s += "\n";
    return s + sSUMMARY(sctCOUNT(chosen), chosen.size()) + "\n";
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
    v_FACT(s, "last check", sWITH_AGE(client.lChecked, fleet));
    v_FACT(s, "last success", sWITH_AGE(client.lSucceeded, fleet));
    v_FACT(s, "version", client.sVersion);
    v_FACT(s, "service pack", client.sServicepack);
    std::string sUpdate(svUPDATE(client.eUpdate));
    if (client.lUpdate != 0) sUpdate += " " + sWITH_AGE(client.lUpdate, fleet);
    v_FACT(s, "last update", sUpdate);
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
