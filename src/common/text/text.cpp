/* Bounded text and UTF-8. */
#include "text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

constexpr std::string_view svREPLACEMENT = "\xEF\xBF\xBD";

unsigned char ucAT(std::string_view sv, size_t u)
{
    return static_cast<unsigned char>(sv[u]);
}

bool bCONTINUES(unsigned char uc)
{
    return (uc & 0xC0U) == 0x80U;
}

/* Bytes that a character with this first byte has; 0 for no first byte. */
size_t uWANTED(unsigned char uc)
{
    if (uc < 0x80U) return 1;
    if (uc >= 0xC2U && uc <= 0xDFU) return 2;
    if (uc >= 0xE0U && uc <= 0xEFU) return 3;
    if (uc >= 0xF0U && uc <= 0xF4U) return 4;
    return 0;
}

/* Length of the valid character at the beginning of sv, 0 when there is none
   (overlong forms, surrogates and values above U+10FFFF are none). */
size_t uCHARACTER(std::string_view sv)
{
    const unsigned char ucFirst = ucAT(sv, 0);
    const size_t        uLength = uWANTED(ucFirst);
    if (uLength == 0 || uLength > sv.size()) return 0;
    for (size_t u = 1; u < uLength; u++)
        if (!bCONTINUES(ucAT(sv, u))) return 0;
    if (uLength < 3) return uLength;
    const unsigned char ucSecond = ucAT(sv, 1);
    if (ucFirst == 0xE0U && ucSecond < 0xA0U) return 0;
    if (ucFirst == 0xEDU && ucSecond > 0x9FU) return 0;
    if (ucFirst == 0xF0U && ucSecond < 0x90U) return 0;
    if (ucFirst == 0xF4U && ucSecond > 0x8FU) return 0;
    return uLength;
}

/* Where the unfinished character at the end of sv begins, sv.size() when the
   last one is complete. A run of more than three continuation bytes is not
   UTF-8 and is left as it is. */
size_t uWHOLE_CHARACTERS(std::string_view sv)
{
    for (size_t uBack = 1; uBack <= 4 && uBack <= sv.size(); uBack++) {
        const unsigned char uc = ucAT(sv, sv.size() - uBack);
        if (bCONTINUES(uc)) continue;
        return uWANTED(uc) > uBack ? sv.size() - uBack : sv.size();
    }
    return sv.size();
}

/* Characters of three bytes that no reader may meet: the separators of lines and paragraphs
   (U+2028, U+2029), at which some begin a new line, and what turns the direction of writing
   (U+200E, U+200F, U+202A to U+202E, U+2066 to U+2069), so that a text looks like another. */
bool bSTEERS(std::string_view svCharacter)
{
    if (svCharacter.size() != 3) return false;
    const unsigned char uc = ucAT(svCharacter, 2);
    if (svCharacter.starts_with("\xE2\x80"))
        return uc == 0x8EU || uc == 0x8FU || (uc >= 0xA8U && uc <= 0xAEU);
    return svCharacter.starts_with("\xE2\x81") && uc >= 0xA6U && uc <= 0xA9U;
}

/* One control character, C1 controls (C2 80 to C2 9F) included. */
bool bCONTROL(std::string_view svCharacter)
{
    const unsigned char uc = ucAT(svCharacter, 0);
    return uc < 0x20U || uc == 0x7FU || bSTEERS(svCharacter) || svCharacter == "\xD8\x9C" ||
           (svCharacter.size() == 2 && uc == 0xC2U && ucAT(svCharacter, 1) < 0xA0U);
}

}  // namespace

std::string_view svTEXT_CUT(std::string_view svText, size_t uMax)
{
    if (svText.size() <= uMax) return svText;
    const std::string_view svCut = svText.substr(0, uMax);
    return svCut.substr(0, uWHOLE_CHARACTERS(svCut));
}

int iTEXT_COPY(char* szDest, size_t uSize, std::string_view svText)
{
    if (uSize == 0) return 0;
    const std::string_view svCut = svTEXT_CUT(svText, uSize - 1);
    if (!svCut.empty()) std::memmove(szDest, svCut.data(), svCut.size());
    szDest[svCut.size()] = '\0';
    return svCut.size() == svText.size();
}

void x_Snprintf(char* szDest, size_t uSize, const char* cpFormat, ...)
{
    if (uSize == 0) return;
    va_list args;
    va_start(args, cpFormat);
    const int iWanted = std::vsnprintf(szDest, uSize, cpFormat, args);
    va_end(args);
    if (iWanted < 0)
        szDest[0] = '\0';
    else if (static_cast<size_t>(iWanted) >= uSize)
        szDest[uWHOLE_CHARACTERS({szDest, uSize - 1})] = '\0';
}

std::vector<std::string_view> asvPIECES(std::string_view svText, char cEnd)
{
    std::vector<std::string_view> asvPiece;
    while (!svText.empty()) {
        asvPiece.push_back(svText.substr(0, svText.find(cEnd)));
        svText.remove_prefix(std::min(asvPiece.back().size() + 1, svText.size()));
    }
    return asvPiece;
}

std::string sVALID_UTF8(std::string_view svText)
{
    std::string s;
    s.reserve(svText.size());
    while (!svText.empty()) {
        const size_t uLength = uCHARACTER(svText);
        s.append(uLength > 0 ? svText.substr(0, uLength) : svREPLACEMENT);
        svText.remove_prefix(std::max<size_t>(uLength, 1));
    }
    return s;
}

std::string sONE_LINE(std::string_view svText)
{
    std::string s;
    s.reserve(svText.size());
    while (!svText.empty()) {
        const size_t           uLength = uCHARACTER(svText);
        const std::string_view svCharacter = svText.substr(0, std::max<size_t>(uLength, 1));
        if (uLength == 0)
            s.append(svREPLACEMENT);
        else if (bCONTROL(svCharacter))
            s.push_back(' ');
        else
            s.append(svCharacter);
        svText.remove_prefix(svCharacter.size());
    }
    return s;
}

std::string sCONDENSED(std::string_view svText)
{
    std::string s;
    for (const char c : sONE_LINE(svText))
        if (c != ' ' || (!s.empty() && s.back() != ' ')) s.push_back(c);
    if (s.ends_with(' ')) s.pop_back();
    return s;
}

std::string_view svTRIMMED(std::string_view svText, std::string_view svBlanks)
{
    const size_t uBegin = svText.find_first_not_of(svBlanks);
    if (uBegin == svText.npos) return {};
    return svText.substr(uBegin, svText.find_last_not_of(svBlanks) - uBegin + 1);
}

std::string sMARKED(std::string_view svText, std::string_view svMarked, char cMark)
{
    std::string s;
    s.reserve(svText.size() + 8);
    for (const char c : svText) {
        if (svMarked.find(c) != svMarked.npos) s.push_back(cMark);
        s.push_back(c);
    }
    return s;
}

std::string sJOINED(const std::vector<std::string>& asText, std::string_view svBetween)
{
    std::string s;
    for (const std::string& sText : asText) s.append(s.empty() ? "" : svBetween).append(sText);
    return s;
}

bool bHAS_CONTROLS(std::string_view svText)
{
    while (!svText.empty()) {
        const std::string_view svCharacter =
            svText.substr(0, std::max<size_t>(uCHARACTER(svText), 1));
        if (bCONTROL(svCharacter)) return true;
        svText.remove_prefix(svCharacter.size());
    }
    return false;
}
