/* The page: one file that loads nothing else, works without its script, and shows
   what clients and people have written as plain text only.

   It has to stay small for many clients, so a row spends no byte on closing tags that
   may be left out, and a strip of days is a text ("++++x~") whose runs of equal days
   are elements: <b> well, <i> failed, <u> both, <s> no run. */
#include <algorithm>
#include <map>

#include "cells.h"
#include "chosen.h"
#include "common/common.h"
#include "forms.h"
#include "log_records.h"
#include "moment.h"
#include "wording.h"

extern const char szPAGE_STYLE[];
extern const char szPAGE_SCRIPT[];
extern const char szPAGE_SCRIPT_SHA256[];

namespace {

constexpr size_t uTEXT_MOST = 400;  // bytes of a text that a client wrote
constexpr size_t uGROUP_OPEN = 12;  // the list of more clients is folded
constexpr size_t uGROUPS_MOST = 8;  // bars; the rest is one more

/* A text as HTML, one line. */
std::string sHTML(std::string_view svText)
{
    constexpr std::string_view svSpecial = "&<>\"'";
    constexpr const char*      acpName[] = {"&amp;", "&lt;", "&gt;", "&quot;", "&#39;"};
    std::string                s;
    for (const char c : sONE_LINE(svText))
        if (const size_t u = svSpecial.find(c); u != svSpecial.npos)
            s += acpName[u];
        else
            s += c;
    return s;
}

std::string sBOUNDED(const std::string& sText)
{
    const std::string_view svCut = svTEXT_CUT(sText, uTEXT_MOST);
    return sHTML(svCut) + (svCut.size() < sText.size() ? "…" : "");
}

std::string sMINUTE(long lTime)
{
    return sTIME_FORMAT(lTime, "%Y-%m-%d %H:%M");
}

std::string sDATE(long lTime)
{
    return sTIME_FORMAT(lTime, "%Y-%m-%d");
}

/* The script runs by its own hash, so nothing that came into the page otherwise would. */
std::string sSCRIPT_HASH()
{
    constexpr std::string_view svDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    constexpr int iBITS = 6;
    std::string   s;
    unsigned      uHeld = 0;
    int           iHeld = 0;
    for (const char c : std::string_view(szPAGE_SCRIPT_SHA256)) {  // base 16 into base 64
        uHeld = uHeld << 4U | static_cast<unsigned>(c <= '9' ? c - '0' : c - 'a' + 10);
        for (iHeld += 4; iHeld >= iBITS; iHeld -= iBITS)
            s += svDigits[uHeld >> (iHeld - iBITS) & 63U];
    }
    if (iHeld != 0) s += svDigits[uHeld << (iBITS - iHeld) & 63U];
    return s.append(s.size() % 4 == 0 ? 0 : 4 - s.size() % 4, '=');
}

/* ---- head, tiles ------------------------------------------------------------------ */

void v_HEAD(std::string& s, const FLEET& fleet, const COUNTS& counts, int iEvery)
{
    const long lNext = fleet.lNow + iEvery * 60L;
    s +=
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
        "style-src 'unsafe-inline'; img-src data:; base-uri 'none'; form-action 'none'; "
        "script-src 'sha256-" +
        sSCRIPT_HASH() +
        "'\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        "<meta name=\"color-scheme\" content=\"light dark\">\n"
        "<meta name=\"referrer\" content=\"no-referrer\">\n"
        "<meta name=\"robots\" content=\"noindex\">\n<link rel=\"icon\" href=\"data:,\">\n<title>" +
        std::to_string(counts.aiState[STATE_FAILED]) +
        " failing · backup clients</title>\n<style>\n" + szPAGE_STYLE +
        "</style>\n</head>\n<body>\n<header>\n<h1>Backup clients</h1>\n<p>" +
        sCOUNTED(counts.iTakePart, "client") + ", as of <time id=\"written\" datetime=\"" +
        sTIME_TEXT(fleet.lNow, true) + "\">" + sTIME_FORMAT(fleet.lNow, "%e %B %Y, %H:%M %Z") +
        "</time><span id=\"age\"></span>; next update due by <time id=\"next\" datetime=\"" +
        sTIME_TEXT(lNext, true) + "\">" +
        sTIME_FORMAT(lNext, lNext < fleet.lNow + lDAY ? "%H:%M" : "%e %B, %H:%M") +
        "</time></p>\n<p class=\"notice\" id=\"late\" role=\"alert\" hidden></p>\n";
    if (const std::string sNotice = sNOTICE(fleet); !sNotice.empty())
        s += "<p class=\"notice\" role=\"alert\">" + sHTML(sNotice) + "</p>\n";
}

struct TILE {
    const char* cpClass;  // colour
    const char* cpState;  // class of its rows
    const char* cpWord;
    int         iCount;
    bool        bAlways;
};

void v_TILES(std::string& s, const COUNTS& counts)
{
    const auto at = [&](CLIENT_STATE eState) { return counts.aiState[eState]; };
    const TILE asctTile[] = {
        {"failed", "f", "failing", at(STATE_FAILED), true},
        {"warned", "r", "waiting for a restart", at(STATE_WARNED), false},
        {"stale", "s", "stale", at(STATE_STALE), true},
        {"never", "n", "never checked", at(STATE_NEVER), false},
        {"well", "w", "well", at(STATE_WELL), true},
        {"updating", "u", "updating", counts.aiUpdate[UPDATE_RUNNING], true},
        {"failed", "e", "updates failed", iFAILED_UPDATES(counts), false},
        {"off", "o", "off", at(STATE_OFF), false},
    };
    s += "<ul class=\"tiles\">\n";
    for (const TILE& tile : asctTile)
        if (tile.bAlways || tile.iCount != 0)
            s += std::string("<li class=\"") + tile.cpClass + (tile.iCount == 0 ? " zero" : "") +
                 "\" data-state=\"" + tile.cpState + "\"><span><b>" + std::to_string(tile.iCount) +
                 "</b> " + tile.cpWord + "</span></li>\n";
    s += "</ul>\n<div class=\"share\" aria-hidden=\"true\">";
    for (int i = 0; i < STATE_OFF; i++)
        if (const int iCount = at(static_cast<CLIENT_STATE>(i)); iCount != 0)
            s += "<hr class=\"" + std::string(svSTATE(static_cast<CLIENT_STATE>(i))) +
                 "\" style=\"--n:" + std::to_string(iCount) + "\">";
    s += "</div>\n</header>\n<main>\n";
}

/* ---- what fails ----------------------------------------------------------------------- */

/* What a card tells of each of its clients. */
struct TOLD {
    std::string sWords, sCure, sCommand, sSince;
};

/* A client of a card, and its row in the table of all. */
struct ILL {
    const CLIENT* pClient;
    size_t        uRow;
    TOLD          told;
};
using ILLS = std::vector<ILL>;

/* The failure of a client: words, a line each, or the run's message. */
TOLD sctFAILURE(const CLIENT& client, const FLEET& fleet)
{
    constexpr size_t uLINES = 6;
    std::string      sWords;
    for (size_t u = 0; u < client.asWords.size() && u < uLINES; u++)
        sWords.append(u == 0 ? "" : "\n").append(client.asWords[u]);
    std::string sSince = std::string("since ") + (client.bSinceExact ? "" : "before ") +
                         sMINUTE(client.lSince) + " (" + sAGO(client.lSince, fleet.lNow) + ")";
    if (client.lSucceeded != 0) sSince += ", last success " + sMINUTE(client.lSucceeded);
    return {sWords.empty() ? sMESSAGE_TEXT(client.sMessage) : sWords, client.sCure, client.sCommand,
            sSince};
}

TOLD sctUPDATE_FAILURE(const CLIENT& client, const FLEET& /*fleet*/)
{
    return {client.sUpdateWhy, "", "",
            std::string(svUPDATE(client.eUpdate)) + " " + sMINUTE(client.lUpdate)};
}

/* A text with the client's name left open. */
std::string sOPEN_NAME(std::string sText, const std::string& sName)
{
    constexpr std::string_view svOPEN = "NAME";
    for (size_t u = 0; !sName.empty() && (u = sText.find(sName, u)) != sText.npos;
         u += svOPEN.size())
        sText.replace(u, sName.size(), svOPEN);
    return sText;
}

/* The text that all clients of a card share, but for their names; none: each has its own. */
std::string sSHARED(const ILLS& ills, std::string TOLD::*pText)
{
    const std::string& sFirst = ills.front().told.*pText;
    if (std::all_of(ills.begin(), ills.end(),
                    [&](const ILL& ill) { return ill.told.*pText == sFirst; }))
        return sFirst;
    const auto sOpen = [&](const ILL& ill) {
        return sOPEN_NAME(ill.told.*pText, ill.pClient->sName);
    };
    const std::string sShared = sOpen(ills.front());
    return std::all_of(ills.begin(), ills.end(),
                       [&](const ILL& ill) { return sOpen(ill) == sShared; })
               ? sShared
               : "";
}

std::string sLINES(const std::string& sText)
{
    std::string s;
    for (const std::string_view sv : asvPIECES(sText))
        s.append(s.empty() ? "" : "<br>").append(sBOUNDED(std::string(sv)));
    return s;
}

/* sRun: what is copied, where that is not what is shown. */
void v_TOLD(std::string& s, const TOLD& told, const std::string& sRun = "")
{
    if (!told.sWords.empty()) s += "<p>" + sLINES(told.sWords) + "</p>";
    if (!told.sCure.empty()) s += "<p class=\"cure\">" + sBOUNDED(told.sCure) + "</p>";
    if (!told.sCommand.empty())
        s += "<p class=\"run\"><code" + (sRun.empty() ? "" : " data-run=\"" + sRun + "\"") + ">" +
             sBOUNDED(told.sCommand) + "</code></p>";
}

/* The commands of all clients of a card, where one card shows them with the name left open. */
std::string sALL_COMMANDS(const ILLS& ills)
{
    std::string s;
    for (const ILL& ill : ills) s.append(s.empty() ? "" : "&#10;").append(sHTML(ill.told.sCommand));
    return s;
}

void v_CARD(std::string& s, const std::string& sTitle, const std::string& sStage, const ILLS& ills,
            char cMark)
{
    const TOLD shared{sSHARED(ills, &TOLD::sWords), sSHARED(ills, &TOLD::sCure),
                      sSHARED(ills, &TOLD::sCommand), ""};
    const bool bOpenName = shared.sCommand != ills.front().told.sCommand;
    const bool bFolded = ills.size() > uGROUP_OPEN;
    s += "<article><h3>" + sHTML(sTitle) +
         (sStage.empty() ? "" : " <small>" + sHTML(sStage) + "</small>") + " <b>" +
         sCOUNTED(static_cast<long>(ills.size()), "client") + "</b></h3>";
    v_TOLD(s, shared, bOpenName ? sALL_COMMANDS(ills) : "");
    s += bFolded ? "<details><summary>the clients</summary><ul>\n" : "<ul>\n";
    for (const ILL& ill : ills) {
        s.append("<li id=\"").append(1, cMark).append(std::to_string(ill.uRow)).append("\"><b>");
        s.append(sHTML(ill.pClient->sName)).append("</b> ").append(sHTML(ill.told.sSince));
        v_TOLD(s, {shared.sWords.empty() ? ill.told.sWords : "",
                   shared.sCure.empty() ? ill.told.sCure : "",
                   shared.sCommand.empty() ? ill.told.sCommand : "", ""});
        s += "\n";
    }
    s += bFolded ? "</ul></details></article>\n" : "</ul></article>\n";
}

/* A section with a card for each cause, the commonest first. cMark: before the number of a
   client's row in the address of its entry. */
struct CARDS {
    const char* cpId;
    const char* cpTitle;
    char        cMark;
    bool (*pShown)(const CLIENT& client);
    std::string (*pCause)(const CLIENT& client);
    TOLD (*pTold)(const CLIENT& client, const FLEET& fleet);
    bool bStage;
};
constexpr CARDS sctFailing = {
    "failing",
    "What fails, and what to do",
    'c',
    [](const CLIENT& c) { return c.eState == STATE_FAILED; },
    [](const CLIENT& c) { return sREASON(c).empty() ? "no cause known" : sREASON(c); },
    sctFAILURE,
    true};
constexpr CARDS sctUpdates = {"updates",
                              "Updates that did not succeed",
                              'u',
                              bUPDATE_FAILED,
                              [](const CLIENT& c) {
                                  return c.sUpdateCause.empty() ? std::string(svUPDATE(c.eUpdate))
                                                                : c.sUpdateCause;
                              },
                              sctUPDATE_FAILURE,
                              false};

void v_CARDS(std::string& s, const CARDS& cards, const FLEET& fleet, const CHOSEN& chosen)
{
    std::map<std::string, ILLS> groups;
    for (size_t u = 0; u < chosen.size(); u++)
        if (cards.pShown(*chosen[u]))
            groups[cards.pCause(*chosen[u])].push_back(
                {chosen[u], u, cards.pTold(*chosen[u], fleet)});
    if (groups.empty()) return;
    std::vector<const std::pair<const std::string, ILLS>*> order;
    order.reserve(groups.size());
    for (const auto& group : groups) order.push_back(&group);
    std::stable_sort(order.begin(), order.end(), [](const auto* a, const auto* b) {
        return a->second.size() > b->second.size();
    });
    s += std::string("<section class=\"cards\" id=\"") + cards.cpId + "\">\n<h2>" + cards.cpTitle +
         "</h2>\n";
    for (const auto* p : order)
        v_CARD(s, p->first, cards.bStage ? p->second.front().pClient->sStage : "", p->second,
               cards.cMark);
    s += "</section>\n";
}

/* ---- the last days ----------------------------------------------------------------------- */

void v_DAYS(std::string& s, const FLEET& fleet, const CHOSEN& chosen)
{
    std::array<int, iSTRIP_DAYS> aiFailed{};
    std::array<int, iSTRIP_DAYS> aiMixed{};
    int                          iMost = 1;
    for (size_t u = 0; u < aiFailed.size(); u++) {
        for (const CLIENT* p : chosen) {
            aiFailed[u] += p->aeDay[u] == DAY_FAILED ? 1 : 0;
            aiMixed[u] += p->aeDay[u] == DAY_MIXED ? 1 : 0;
        }
        iMost = std::max(iMost, aiFailed[u] + aiMixed[u]);
    }
    s += "<section id=\"days\">\n<h2>Clients that failed, by day</h2>\n<ol>\n";
    for (size_t u = 0; u < aiFailed.size(); u++)
        s += "<li><span>" + std::to_string(aiFailed[u] + aiMixed[u]) +
             "</span><hr style=\"--h:" + std::to_string(aiMixed[u] * 100 / iMost) +
             "%\" class=\"mixed\"><hr style=\"--h:" + std::to_string(aiFailed[u] * 100 / iMost) +
             "%\"><small>" + sTIME_FORMAT(fleet.alDay[u], "%e") + "<br>" +
             sTIME_FORMAT(fleet.alDay[u], "%b") + "</small></li>\n";
    s += "</ol>\n</section>\n";
}

/* ---- groups ------------------------------------------------------------------------------ */

struct GROUP {
    std::string sValue;
    long        lOrder = 0;  // the highest first
    int         iCount = 0, iFailing = 0;
};

/* By a column of the table; the rest of many groups is one more. */
struct GROUPING {
    const char* cpHead;  // of that column
    const char* cpTitle;
    bool        bAlways;  // also where there is but one group
    std::string (*pValue)(const CLIENT& client);
    long (*pOrder)(const CLIENT& client);
};
constexpr GROUPING asctGrouping[] = {
    {"Version", "Versions", true, [](const CLIENT& c) { return sONE_LINE(c.sVersion); },
     [](const CLIENT& c) { return lINSTALLED(c); }},
    {"System", "Systems", false, [](const CLIENT& c) { return sONE_LINE(c.sOs); }, nullptr},
    {"Loc", "Locations", false, [](const CLIENT& c) { return sONE_LINE(c.sLocation); }, nullptr},
};

std::vector<GROUP> GROUPS(const GROUPING& grouping, const CHOSEN& chosen)
{
    std::map<std::string, GROUP> found;
    for (const CLIENT* p : chosen) {
        GROUP& group = found[grouping.pValue(*p)];
        group.sValue = grouping.pValue(*p);
        group.iCount++;
        group.iFailing += p->eState == STATE_FAILED ? 1 : 0;
        group.lOrder =
            grouping.pOrder == nullptr ? group.iCount : std::max(group.lOrder, grouping.pOrder(*p));
    }
    std::vector<GROUP> groups;
    groups.reserve(found.size());
    for (auto& [sValue, group] : found) groups.push_back(std::move(group));
    std::stable_sort(groups.begin(), groups.end(),
                     [](const GROUP& a, const GROUP& b) { return a.lOrder > b.lOrder; });
    if (groups.size() <= uGROUPS_MOST + 1) return groups;
    GROUP rest{"others", 0, 0, 0};
    for (size_t u = uGROUPS_MOST; u < groups.size(); u++) {
        rest.iCount += groups[u].iCount;
        rest.iFailing += groups[u].iFailing;
    }
    groups.resize(uGROUPS_MOST);
    groups.push_back(std::move(rest));
    return groups;
}

void v_GROUPS(std::string& s, const GROUPING& grouping, const CHOSEN& chosen)
{
    const std::vector<GROUP> groups = GROUPS(grouping, chosen);
    if (groups.empty() || (groups.size() == 1 && !grouping.bAlways)) return;
    int iMost = 1;
    for (const GROUP& group : groups) iMost = std::max(iMost, group.iCount);
    const auto sBAR = [&](int i) { return std::to_string(i * 100 / iMost) + "%\">"; };
    s += std::string("<section class=\"bars\" data-column=\"") + grouping.cpHead + "\">\n<h2>" +
         grouping.cpTitle + "</h2>\n<dl>\n";
    for (const GROUP& group : groups)
        s += "<dt>" + (group.sValue.empty() ? "unknown" : sHTML(group.sValue)) +
             "</dt><dd><div><hr class=\"failed\" style=\"--w:" + sBAR(group.iFailing) +
             "<hr style=\"--w:" + sBAR(group.iCount - group.iFailing) + "</div><b>" +
             std::to_string(group.iCount) + "</b><i>" +
             (group.iFailing == 0 ? "&nbsp;" : std::to_string(group.iFailing) + " failing") +
             "</i></dd>\n";
    s += "</dl>\n</section>\n";
}

/* ---- all clients -------------------------------------------------------------------------- */

void v_STRIP(std::string& s, const CLIENT& client)
{
    constexpr char acTag[] = {'s', 'b', 'u', 'i'};  // in the order of DAY_STATE
    constexpr char acLetter[] = {'-', '+', '~', 'x'};
    for (size_t u = 0; u < client.aeDay.size();) {
        const DAY_STATE eDay = client.aeDay[u];
        s.append("<").append(1, acTag[eDay]).append(">");
        for (; u < client.aeDay.size() && client.aeDay[u] == eDay; u++) s += acLetter[eDay];
        s.append("</").append(1, acTag[eDay]).append(">");
    }
}

std::string sUPDATE(const CLIENT& client)
{
    std::string s(svUPDATE(client.eUpdate));
    return client.lUpdate == 0 || s.empty() ? s : s + " " + sDATE(client.lUpdate);
}

std::string sVERSION(const CLIENT& client)
{
    return client.sServicepack.empty() ? client.sVersion
                                       : client.sVersion + " SP " + client.sServicepack;
}

/* Columns behind name, state and strip. Style and script know the first three by their
   places; of the others those without any value are left out. */
struct PAGE_COLUMN {
    const char* cpHead;
    std::string (*pValue)(const CLIENT& client);
};
constexpr PAGE_COLUMN asctColumn[] = {
    {"Failing since", [](const CLIENT& c) { return sDATE(c.lSince); }},
    {"Checked", [](const CLIENT& c) { return sMINUTE(c.lChecked); }},
    {"Version", sVERSION},
    {"Last update", sUPDATE},
    {"System", [](const CLIENT& c) { return c.sOs; }},
    {"Mode", [](const CLIENT& c) { return c.sMode; }},
    {"Loc", [](const CLIENT& c) { return c.sLocation; }},
};
constexpr size_t uPLACED = 3;

std::vector<const PAGE_COLUMN*> COLUMNS(const CHOSEN& chosen)
{
    std::vector<const PAGE_COLUMN*> columns;
    for (const PAGE_COLUMN& column : asctColumn)
        if (columns.size() < uPLACED ||
            std::any_of(chosen.begin(), chosen.end(),
                        [&](const auto* p) { return !column.pValue(*p).empty(); }))
            columns.push_back(&column);
    return columns;
}

void v_ROW(std::string& s, const CLIENT& client, size_t uRow,
           const std::vector<const PAGE_COLUMN*>& columns)
{
    constexpr char acClass[] = {'f', 'r', 's', 'n', 'w', 'o'};  // in the order of CLIENT_STATE
    const bool     bUpdate = bUPDATE_FAILED(client);
    const char     cMark = client.eState == STATE_FAILED ? sctFailing.cMark
                           : bUpdate                     ? sctUpdates.cMark
                                                         : ' ';
    s.append("<tr class=\"").append(1, acClass[client.eState]);
    s.append(client.eUpdate == UPDATE_RUNNING ? " u" : bUpdate ? " e" : "");
    s.append("\"><th scope=\"row\">");
    if (cMark != ' ')
        s.append("<a href=\"#").append(1, cMark).append(std::to_string(uRow)).append("\">");
    s.append(sHTML(client.sName)).append(cMark != ' ' ? "</a>" : "");
    s.append("<td>").append(svSTATE(client.eState)).append("<td>");
    v_STRIP(s, client);
    for (const PAGE_COLUMN* pColumn : columns) {
        const bool bMarked = pColumn->pValue == sUPDATE && bUpdate;
        s.append(bMarked ? "<td><em>" : "<td>").append(sHTML(pColumn->pValue(client)));
        s.append(bMarked ? "</em>" : "");
    }
    s += "\n";
}

void v_ALL(std::string& s, const FLEET& fleet, const CHOSEN& chosen)
{
    const std::vector<const PAGE_COLUMN*> columns = COLUMNS(chosen);
    s += "<section id=\"all\">\n<h2>All clients</h2>\n"
         "<div class=\"wide\"><table><caption>Every client: how it stands, its last days, when it "
         "was checked, what runs on it</caption>\n<thead><tr><th scope=\"col\">Client</th>"
         "<th scope=\"col\">State</th><th scope=\"col\" data-fixed>" +
         sTIME_FORMAT(fleet.alDay.front(), "%e %b") + " – today</th>";
    for (const PAGE_COLUMN* pColumn : columns)
        s.append("<th scope=\"col\">").append(pColumn->cpHead).append("</th>");
    s += "</tr></thead>\n<tbody>\n";
    for (size_t u = 0; u < chosen.size(); u++) v_ROW(s, *chosen[u], u, columns);
    s += "</tbody></table></div>\n</section>\n";
}

/* Above what it filters. */
constexpr char szFILTER[] =
    "<div class=\"find\"><input id=\"filter\" type=\"search\" autocomplete=\"off\" "
    "spellcheck=\"false\" placeholder=\"Filter: a name, a system, a version …  ( / )\" "
    "aria-label=\"Filter the clients\"><output id=\"told\" for=\"filter\"></output></div>\n";

constexpr char szKEY[] =
    "</main>\n<footer>\n<p>Days:<span class=\"key\"><b>+</b></span>every run succeeded"
    "<span class=\"key\"><u>~</u></span>some failed<span class=\"key\"><i>x</i></span>every run "
    "failed<span class=\"key\"><s>-</s></span>no run</p>\n";

}  // namespace

std::string sFORM_PAGE(const FLEET& fleet, const CHOSEN& all, int iEvery)
{
    CHOSEN chosen = all;
    v_WORST_FIRST(chosen);
    const COUNTS counts = sctCOUNT(chosen);
    std::string  s;
    v_HEAD(s, fleet, counts, iEvery);
    v_TILES(s, counts);
    s += szFILTER;
    v_CARDS(s, sctFailing, fleet, chosen);
    v_CARDS(s, sctUpdates, fleet, chosen);
    s += "<div class=\"side\">\n";
    v_DAYS(s, fleet, chosen);
    for (const GROUPING& grouping : asctGrouping) v_GROUPS(s, grouping, chosen);
    s += "</div>\n";
    v_ALL(s, fleet, chosen);
    s += szKEY;
    s += "<p>Stale: not checked for " + sCOUNTED(fleet.iStaleDays, "day") + ".</p>\n</footer>\n";
    return s + "<script>" + szPAGE_SCRIPT + "</script>\n</body>\n</html>\n";
}
