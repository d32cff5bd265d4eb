/* Layout of a table. */
#include "table.h"

#include <algorithm>

#include "moment.h"

namespace {

constexpr size_t uGAP = 2;
constexpr size_t uNAME_LEAST = 12;
constexpr size_t uCELL_MOST = 28;  // of a terminal's columns
constexpr int    iMOST_DISPENSABLE = 7;
constexpr size_t uNAME = 0;
constexpr size_t uCOLORED = 1;

using CELLS = std::vector<std::string>;

/* The columns that are shown and how wide they are. A terminal that is too narrow loses
   the most dispensable ones first, and then the ends of names. */
std::vector<size_t> auWIDTHS(std::span<const TABLE_HEAD> heads, const std::vector<TABLE_ROW>& rows,
                             const TABLE_LOOK& look)
{
    std::vector<size_t> auWidth(heads.size(), 0);
    for (const TABLE_ROW& row : rows)
        for (size_t u = 0; u < auWidth.size(); u++)
            auWidth[u] = std::max(auWidth[u], uCOLUMNS(row.asCell[u]));
    for (size_t u = 0; u < auWidth.size(); u++) {
        if (look.iWidth != 0 && u != uNAME) auWidth[u] = std::min(auWidth[u], uCELL_MOST);
        if (auWidth[u] != 0)
            auWidth[u] = std::max(auWidth[u], std::string_view(heads[u].cpHead).size());
    }
    if (look.iWidth == 0) return auWidth;
    const auto uWide = [&] {
        size_t uSum = 0;
        for (const size_t u : auWidth) uSum += u == 0 ? 0 : u + uGAP;
        return uSum - std::min(uSum, uGAP);
    };
    const auto uRoom = static_cast<size_t>(look.iWidth);
    for (int iLevel = iMOST_DISPENSABLE; iLevel > 0; iLevel--)
        for (size_t u = auWidth.size(); u-- > 0;)
            if (heads[u].iDispensable == iLevel &&
                uWide() - auWidth[uNAME] + std::min(auWidth[uNAME], uCELL_MOST) > uRoom)
                auWidth[u] = 0;
    if (uWide() > uRoom) {
        const size_t uRest = uWide() - auWidth[uNAME];
        auWidth[uNAME] = std::max(uRoom > uRest ? uRoom - uRest : 0, uNAME_LEAST);
    }
    return auWidth;
}

std::string sROW(const CELLS& row, const std::vector<size_t>& auWidth, COLOR eColor, bool bColor)
{
    std::string sLine;
    size_t      uPending = 0;  // no blanks at the end of a line
    for (size_t u = 0; u < row.size(); u++) {
        if (auWidth[u] == 0) continue;
        const std::string sCell = sFITTED(row[u], auWidth[u]);
        if (!sCell.empty()) {
            sLine.append(uPending, ' ')
                .append(u == uCOLORED ? sCOLORED(sCell, eColor, bColor) : sCell);
            uPending = 0;
        }
        uPending += auWidth[u] + uGAP - uCOLUMNS(sCell);
    }
    return sLine;
}

}  // namespace

std::string sTABLE(std::span<const TABLE_HEAD> heads, const std::vector<TABLE_ROW>& rows,
                   const TABLE_LOOK& look)
{
    if (rows.empty()) return "";
    const std::vector<size_t> auWidth = auWIDTHS(heads, rows, look);
    CELLS                     asHead;
    for (const TABLE_HEAD& head : heads) asHead.emplace_back(head.cpHead);
    std::string s =
        sCOLORED(sROW(asHead, auWidth, COLOR_NONE, false), COLOR_BOLD, look.bColor) + "\n";
    constexpr size_t uINDENT = 3;
    constexpr int    iNARROW = 20;
    const auto       uRoom = static_cast<size_t>(std::max(look.iWidth, iNARROW)) - uINDENT;
    for (const TABLE_ROW& row : rows) {
        s += sROW(row.asCell, auWidth, row.eColor, look.bColor) + "\n";
        for (const TABLE_ROW::BELOW& below : row.below)
            s.append(uINDENT, ' ')
                .append(sCOLORED(look.iWidth == 0 ? below.sText : sFITTED(below.sText, uRoom),
                                 below.eColor, look.bColor))
                .append("\n");
    }
    return s + "\n";
}

std::string sWHEN(long lTime, long lNow, const TABLE_LOOK& look)
{
    return look.iWidth == 0 ? sTIME_TEXT(lTime) : sAGO(lTime, lNow);
}
