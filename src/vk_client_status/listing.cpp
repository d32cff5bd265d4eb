/* Forms of lists. */
#include "listing.h"

#include <nlohmann/json.hpp>

#include "common/common.h"
#include "moment.h"

namespace {

using JSON = nlohmann::ordered_json;

/* Quoted where it must be, and no formula. */
std::string sCSV(const std::string& sValue)
{
    std::string s = sONE_LINE(sValue);
    if (!s.empty() && std::string_view("=+-@").find(s[0]) != std::string_view::npos)
        s.insert(0, "'");
    if (s.find_first_of(",\"") == s.npos) return s;
    return "\"" + sMARKED(s, "\"", '"') + "\"";
}

long lTIME(const std::string& sValue)
{
    return std::strtol(sValue.c_str(), nullptr, 10);
}

std::string sJSON(const LISTING& listing)
{
    std::string s;
    for (const LISTING_ROW& row : listing.rows) {
        JSON line;
        for (size_t u = 0; u < listing.columns.size(); u++)
            if (const std::string& sValue = row.asValue[u]; !sValue.empty())
                line[listing.columns[u].cpKey] =
                    listing.columns[u].bTime ? sTIME_TEXT(lTIME(sValue), true) : sValue;
        s += line.dump(-1, ' ', false, JSON::error_handler_t::replace) + "\n";
    }
    return s;
}

std::string sCSV_FORM(const LISTING& listing)
{
    std::vector<std::string> asHead;
    for (const LISTING_COLUMN& column : listing.columns) asHead.emplace_back(column.cpKey);
    std::string s = sCSV_LINE(asHead);
    for (const LISTING_ROW& row : listing.rows) {
        std::vector<std::string> asValue = row.asValue;
        for (size_t u = 0; u < asValue.size(); u++)
            if (listing.columns[u].bTime) asValue[u] = sTIME_TEXT(lTIME(asValue[u]));
        s += sCSV_LINE(asValue);
    }
    return s;
}

std::string sTABLE_FORM(const LISTING& listing, long lNow, const TABLE_LOOK& look)
{
    std::vector<TABLE_HEAD> heads;
    for (const LISTING_COLUMN& column : listing.columns)
        if (column.cpHead != nullptr) heads.push_back({column.cpHead, column.iDispensable});
    std::vector<TABLE_ROW> rows;
    for (const LISTING_ROW& row : listing.rows) {
        TABLE_ROW shown{{}, row.eColor, row.below};
        for (size_t u = 0; u < listing.columns.size(); u++)
            if (listing.columns[u].cpHead != nullptr)
                shown.asCell.push_back(u == 1 ? row.sShown
                                       : listing.columns[u].bTime
                                           ? sWHEN(lTIME(row.asValue[u]), lNow, look)
                                           : sONE_LINE(row.asValue[u]));
        rows.push_back(std::move(shown));
    }
    return sTABLE(heads, rows, look) + listing.sSummary;
}

}  // namespace

std::string sFORM_LISTING(const LISTING& listing, FORM eForm, long lNow, const TABLE_LOOK& look,
                          bool bZero)
{
    if (eForm == FORM_JSON) return sJSON(listing);
    if (eForm == FORM_CSV) return sCSV_FORM(listing);
    if (eForm != FORM_NAMES) return sTABLE_FORM(listing, lNow, look);
    std::string s;
    for (const LISTING_ROW& row : listing.rows)
        if (row.bNamed) v_ADD_NAME(s, row.asValue[0], bZero ? '\0' : '\n');
    return s;
}

std::string sCSV_LINE(const std::vector<std::string>& asValue)
{
    std::string s;
    for (const std::string& sValue : asValue)
        s.append(&sValue == asValue.data() ? "" : ",").append(sCSV(sValue));
    return s + "\r\n";
}

void v_ADD_NAME(std::string& s, const std::string& sName, char cEnd)
{
    if (cEnd == '\n' && sONE_LINE(sName) != sName)
        v_STDERR("\"%s\" is skipped: its name contains a control character; use -0", sName.c_str());
    else
        s.append(sName).push_back(cEnd);
}
