/* Columns of text. */
#include "cells.h"

#include <wchar.h>

#include <algorithm>

namespace {

constexpr std::string_view svELLIPSIS = "…";

/* Columns of the character at the front, and the bytes that it takes (at least one). What the
   locale does not know takes one column. */
size_t uFRONT(std::string_view sv, size_t& uBytes)
{
    wchar_t      c = 0;
    mbstate_t    state{};
    const size_t uTaken = mbrtowc(&c, sv.data(), sv.size(), &state);
    uBytes = uTaken > 0 && uTaken <= sv.size() ? uTaken : 1;
    const int iWidth = uBytes == uTaken ? wcwidth(c) : 1;
    return iWidth < 0 ? 1 : static_cast<size_t>(iWidth);
}

}  // namespace

size_t uCOLUMNS(std::string_view svText)
{
    if (std::all_of(svText.begin(), svText.end(), [](char c) { return c >= ' ' && c < 127; }))
        return svText.size();
    size_t uColumns = 0;
    for (size_t uBytes = 0; !svText.empty(); svText.remove_prefix(uBytes))
        uColumns += uFRONT(svText, uBytes);
    return uColumns;
}

std::string sFITTED(std::string_view svText, size_t uMax)
{
    if (uCOLUMNS(svText) <= uMax) return std::string(svText);
    if (uMax == 0) return "";
    size_t uUsed = 1;  // the ellipsis
    size_t uKept = 0;
    while (uKept < svText.size()) {
        size_t       uBytes = 0;
        const size_t uWidth = uFRONT(svText.substr(uKept), uBytes);
        if (uUsed + uWidth > uMax) break;
        uUsed += uWidth;
        uKept += uBytes;
    }
    return std::string(svText.substr(0, uKept)).append(svELLIPSIS);
}

std::string sPADDED(std::string_view svText, size_t uWidth)
{
    std::string  s(svText);
    const size_t uColumns = uCOLUMNS(svText);
    return uColumns < uWidth ? s.append(uWidth - uColumns, ' ') : s;
}

std::string sCOLORED(std::string_view svText, COLOR eColor, bool bColor)
{
    constexpr const char* acpCode[] = {"", "31;1", "33", "32", "36", "2", "1"};
    if (!bColor || eColor == COLOR_NONE) return std::string(svText);
    return std::string("\033[") + acpCode[eColor] + "m" + std::string(svText) + "\033[0m";
}

std::string sCOUNTED(long lCount, std::string_view svOne)
{
    return std::to_string(lCount).append(" ").append(svOne).append(lCount == 1 ? "" : "s");
}
