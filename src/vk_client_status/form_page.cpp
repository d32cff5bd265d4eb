/* The page: one file that asks for nothing else, reads without its script, and shows
   what clients and people have written as text and nothing but text.

   It has to stay small for many clients, so a row spends no byte on closing tags that
   may be left out, and a strip of days is a text ("++++x~") whose runs of equal days
   are elements: <b> well, <i> failed, <u> both, <s> no run. */
#include <algorithm>
#include <map>

#include "cells.h"
#include "chosen.h"
#include "common/common.h"
#include "forms.h"
#include "moment.h"
#include "outcome_log.h"
#include "wording.h"

extern const char szPAGE_STYLE[];
extern const char szPAGE_SCRIPT[];
extern const char szPAGE_SCRIPT_SHA256[];

namespace {

constexpr size_t uTEXT_MOST = 400;    // bytes of a text that a client wrote
constexpr size_t uGROUP_OPEN = 12;    // a group of more failed clients is folded
constexpr size_t uVERSIONS_MOST = 8;  // bars; the rest is one more

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

void v_HEAD(std::string& s, const FLEET& fleet, const COUNTS& counts)
{
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
        sCOUNTED(counts.iTakePart, "client") + ", as of <time datetime=\"" +
        sTIME_TEXT(fleet.lNow, true) + "\">" + sTIME_FORMAT(fleet.lNow, "%e %B %Y, %H:%M %Z") +
        "</time></p>\n";
    if (!fleet.bDatabase)
        s += "<p class=\"notice\" role=\"alert\">" + sHTML(sNOTICE(fleet)) + "</p>\n";
}

struct TILE {
    const char* cpClass;   // colour
    const char* cpStates;  // first letters of rows' classes
    const char* cpWord;
    int         iCount;
    bool        bAlways;
};

void v_TILES(std::string& s, const COUNTS& counts)
{
    const auto at = [&](CLIENT_STATE eState) { return counts.aiState[eState]; };
    const int  iFailedUpdates = counts.aiUpdate[UPDATE_FAILED] +
                               counts.aiUpdate[UPDATE_NOT_STARTED] +
                               counts.aiUpdate[UPDATE_INTERRUPTED];
    const TILE asctTile[] = {
        {"failed", "f", "failing", at(STATE_FAILED), true},
        {"warned", "r", "waiting for a restart", at(STATE_WARNED), false},
        {"stale", "sn", "stale", at(STATE_STALE) + at(STATE_NEVER), true},
        {"well", "w", "well", at(STATE_WELL), true},
        {"updating", "u", "updating", counts.aiUpdate[UPDATE_RUNNING], true},
        {"failed", "e", "updates failed", iFailedUpdates, false},
        {"off", "o", "off", at(STATE_OFF), false},
    };
    s += "<ul class=\"tiles\">\n";
    for (const TILE& tile : asctTile)
        if (tile.bAlways || tile.iCount != 0)
            s.append("<li class=\"")
                .append(tile.cpClass)
                .append(tile.iCount == 0 ? " zero" : "")
                .append("\" data-states=\"")
                .append(tile.cpStates)
                .append("\"><span><b>")
                .append(std::to_string(tile.iCount))
                .append("</b> ")
                .append(tile.cpWord)
                .append("</span></li>\n");
    s += "</ul>\n<div class=\"share\" aria-hidden=\"true\">";
    for (int i = 0; i < STATE_OFF; i++)
        if (const int iCount = at(static_cast<CLIENT_STATE>(i)); iCount != 0)
            s.append("<hr class=\"")
                .append(svSTATE(static_cast<CLIENT_STATE>(i)))
                .append("\" style=\"--n:")
                .append(std::to_string(iCount))
                .append("\">");
    s += "</div>\n</header>\n<main>\n";
}

/* ---- the failed ones ------------------------------------------------------------------ */

/* What shows the failure: words, a line each, or the run's message. The cause stands
   above the group. */
std::string sWORDS(const CLIENT& client)
{
    if (client.asWords.empty()) return sBOUNDED(sMESSAGE_TEXT(client));
    constexpr size_t uLINES = 6;
    std::string      s;
    for (size_t u = 0; u < client.asWords.size() && u < uLINES; u++)
        s.append(u == 0 ? "" : "<br>").append(sBOUNDED(client.asWords[u]));
    return s;
}

void v_SICK(std::string& s, const CLIENT& client, size_t uNumber, const FLEET& fleet)
{
    s += "<div class=\"sick\" id=\"c" + std::to_string(uNumber) + "\"><h3>" + sHTML(client.sName) +
         "<small>failing since " + (client.bSinceExact ? "" : "before ") + sMINUTE(client.lSince) +
         " (" + sAGO(client.lSince, fleet.lNow) + ")</small>";
    if (client.lSucceeded != 0)
        s += "<small>last success " + sMINUTE(client.lSucceeded) + "</small>";
    s += "</h3><div><p>" + sWORDS(client) + "</p>";
    if (!client.sCure.empty())
        s += "<p class=\"cure\"><code>" + sBOUNDED(client.sCure) + "</code></p>";
    s += "</div></div>\n";
}

std::string sGROUP(const CLIENT& client)
{
    if (!client.sCause.empty()) return client.sCause;
    return client.sMessageId.empty() ? "no cause known" : client.sMessageId;
}

/* Grouped by cause, the commonest first. numbers: of the clients that have an entry. */
void v_FAILING(std::string& s, const FLEET& fleet, const CHOSEN& chosen,
               std::map<const CLIENT*, size_t>& numbers)
{
    std::map<std::string, CHOSEN> groups;
    for (const CLIENT* p : chosen)
        if (p->eState == STATE_FAILED) groups[sGROUP(*p)].push_back(p);
    if (groups.empty()) return;
    std::vector<const std::pair<const std::string, CHOSEN>*> order;
    order.reserve(groups.size());
    for (const auto& group : groups) order.push_back(&group);
    std::stable_sort(order.begin(), order.end(), [](const auto* a, const auto* b) {
        return a->second.size() > b->second.size();
    });
    s += "<section id=\"failing\">\n<h2>What fails, and what to do</h2>\n";
    for (const auto* pGroup : order) {
        const std::string& sStage = pGroup->second.front()->sStage;
        s += std::string("<details") + (pGroup->second.size() <= uGROUP_OPEN ? " open" : "") +
             "><summary><strong>" + sHTML(pGroup->first) + "</strong>" +
             (sStage.empty() ? "" : " (" + sHTML(sStage) + ")") + " · " +
             sCOUNTED(static_cast<long>(pGroup->second.size()), "client") + "</summary>\n";
        for (const CLIENT* p : pGroup->second) {
            numbers[p] = numbers.size();
            v_SICK(s, *p, numbers[p], fleet);
        }
        s += "</details>\n";
    }
    s += "</section>\n";
}

/* ---- versions ---------------------------------------------------------------------------- */

struct VERSION_BAR {
    std::string sVersion;
    long        lVersion = 0;
    int         iCount = 0;
};

/* The newest first; those that no number is known of at the end. */
std::vector<VERSION_BAR> VERSIONS(const CHOSEN& chosen)
{
    std::map<std::string, VERSION_BAR> versions;
    for (const CLIENT* p : chosen) {
        VERSION_BAR& bar = versions[p->sVersion];
        bar.sVersion = p->sVersion.empty() ? "unknown" : p->sVersion;
        bar.lVersion = std::max(bar.lVersion, p->lVersion);
        bar.iCount++;
    }
    std::vector<VERSION_BAR> bars;
    bars.reserve(versions.size());
    for (auto& [sVersion, bar] : versions) bars.push_back(std::move(bar));
    std::stable_sort(bars.begin(), bars.end(), [](const VERSION_BAR& a, const VERSION_BAR& b) {
        return a.lVersion > b.lVersion;
    });
    if (bars.size() <= uVERSIONS_MOST + 1) return bars;
    VERSION_BAR rest{"older or other", 0, 0};
    for (size_t u = uVERSIONS_MOST; u < bars.size(); u++) rest.iCount += bars[u].iCount;
    bars.resize(uVERSIONS_MOST);
    bars.push_back(std::move(rest));
    return bars;
}

void v_VERSIONS(std::string& s, const CHOSEN& chosen)
{
    const std::vector<VERSION_BAR> bars = VERSIONS(chosen);
    if (bars.empty()) return;
    int iMost = 1;
    for (const VERSION_BAR& bar : bars) iMost = std::max(iMost, bar.iCount);
    s += "<section id=\"versions\">\n<h2>Versions</h2>\n<dl class=\"bars\">\n";
    for (const VERSION_BAR& bar : bars)
        s += "<dt>" + sHTML(bar.sVersion) +
             "</dt><dd><hr style=\"--w:" + std::to_string(bar.iCount * 100 / iMost) + "%\"><span>" +
             std::to_string(bar.iCount) + "</span></dd>\n";
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
    return client.lUpdate == 0 || s.empty() ? s : s + " " + sMINUTE(client.lUpdate);
}

/* Columns behind name, state and strip. Style and script know the first three by their
   places; of the others those without any value are left out. */
struct PAGE_COLUMN {
    const char* cpHead;
    std::string (*pValue)(const CLIENT& client);
};
constexpr PAGE_COLUMN asctColumn[] = {
    {"Failing since", [](const CLIENT& c) { return sMINUTE(c.lSince); }},
    {"Checked", [](const CLIENT& c) { return sMINUTE(c.lChecked); }},
    {"Version", [](const CLIENT& c) { return c.sVersion; }},
    {"SP", [](const CLIENT& c) { return c.sServicepack; }},
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

/* numbers: of the clients that have an entry above. */
void v_ROW(std::string& s, const CLIENT& client, const std::vector<const PAGE_COLUMN*>& columns,
           const std::map<const CLIENT*, size_t>& numbers)
{
    constexpr char acClass[] = {'f', 'r', 's', 'n', 'w', 'o'};  // in the order of CLIENT_STATE
    const auto     number = numbers.find(&client);
    s.append("<tr class=\"").append(1, acClass[client.eState]);
    s.append(client.eUpdate == UPDATE_RUNNING ? " u" : bUPDATE_FAILED(client) ? " e" : "");
    s.append("\"><th scope=\"row\">");
    if (number != numbers.end())
        s.append("<a href=\"#c")
            .append(std::to_string(number->second))
            .append("\">")
            .append(sHTML(client.sName))
            .append("</a>");
    else
        s += sHTML(client.sName);
    s.append("<td>").append(svSTATE(client.eState)).append("<td>");
    v_STRIP(s, client);
    for (const PAGE_COLUMN* pColumn : columns) {
        const bool bMarked = pColumn->pValue == sUPDATE && bUPDATE_FAILED(client);
        s.append(bMarked ? "<td><em>" : "<td>").append(sHTML(pColumn->pValue(client)));
        s.append(bMarked ? "</em>" : "");
    }
    s += "\n";
}

void v_ALL(std::string& s, const FLEET& fleet, const CHOSEN& chosen,
           const std::map<const CLIENT*, size_t>& numbers)
{
    const std::vector<const PAGE_COLUMN*> columns = COLUMNS(chosen);
    s += "<section id=\"all\">\n<h2>All clients</h2>\n"
         "<div class=\"find\"><input id=\"filter\" type=\"search\" autocomplete=\"off\" "
         "spellcheck=\"false\" placeholder=\"Filter: a name, a system, a version …  ( / )\" "
         "aria-label=\"Filter the clients\"><output id=\"told\" for=\"filter\"></output></div>\n"
         "<div class=\"wide\"><table><caption>Every client: how it stands, its last days, when it "
         "was checked, what runs on it</caption>\n<thead><tr><th scope=\"col\">Client</th>"
         "<th scope=\"col\">State</th><th scope=\"col\" data-fixed>" +
         sTIME_FORMAT(fleet.alDay.front(), "%e %b") + " – today</th>";
    for (const PAGE_COLUMN* pColumn : columns)
        s.append("<th scope=\"col\">").append(pColumn->cpHead).append("</th>");
    s += "</tr></thead>\n<tbody>\n";
    for (const CLIENT* p : chosen) v_ROW(s, *p, columns, numbers);
    s += "</tbody></table></div>\n</section>\n";
}

constexpr char szKEY[] =
    "</main>\n<footer>\n<p>Days:<span class=\"key\"><b>+</b></span>every run well"
    "<span class=\"key\"><u>~</u></span>some failed<span class=\"key\"><i>x</i></span>every run "
    "failed<span class=\"key\"><s>-</s></span>no run</p>\n";

}  // namespace

std::string sFORM_PAGE(const FLEET& fleet, const CHOSEN& all)
{
    CHOSEN chosen = all;
    v_WORST_FIRST(chosen);
    const COUNTS                    counts = sctCOUNT(chosen);
    std::map<const CLIENT*, size_t> numbers;
    std::string                     s;
    v_HEAD(s, fleet, counts);
    v_TILES(s, counts);
    v_FAILING(s, fleet, chosen, numbers);
    v_VERSIONS(s, chosen);
    v_ALL(s, fleet, chosen, numbers);
    s += szKEY;
    s += "<p>Stale: not checked for " + sCOUNTED(fleet.iStaleDays, "day") +
         ", or never.</p>\n</footer>\n";
    return s + "<script>" + szPAGE_SCRIPT + "</script>\n</body>\n</html>\n";
}
