/* Values inside command lines, quoted for the shell that reads them. */
#include "command_line.h"

#include <cstring>

#include "text.h"

namespace {

/* Where a place of the format stands. */
enum PLACE { PLACE_BARE, PLACE_DOUBLE, PLACE_SINGLE };

bool bPLAIN(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::strchr("._-/:=,+@%", c) != nullptr;
}

/* The Windows interpreter reads %NAME%. */
bool bPLAIN_WORD(SHELL eShell, std::string_view svWord)
{
    for (const char c : svWord)
        if (c == '\0' || !bPLAIN(c) || (eShell == SHELL_WINDOWS && c == '%')) return false;
    return true;
}

/* A shell takes no zero byte; the Windows interpreter ends a line at a line
   feed and knows no way to quote a control character. */
bool bTAKEN_BY_SHELL(SHELL eShell, std::string_view svWord)
{
    for (const char c : svWord) {
        const auto uc = static_cast<unsigned char>(c);
        if (uc == 0 || (eShell == SHELL_WINDOWS && uc < 0x20U)) return false;
    }
    return true;
}

/* The body of a double-quoted Windows word. Programs there read a run of
   backslashes before a quote as half as many, and "" inside quotes as one;
   the command interpreter sees an even number of quotes. It replaces %NAME% inside
   quotes too, but knows no variable whose name holds a quote: per-cent signs stand
   outside, between two quotes that belong to no one. */
std::string sWINDOWS_BODY(std::string_view svWord, bool bQuoteFollows)
{
    std::string s;
    size_t      uBackslashes = 0;
    bool        bOutside = false;
    for (const char c : svWord) {
        if ((c == '%') != bOutside) {
            s.append(uBackslashes, '\\').push_back('"');
            uBackslashes = 0;
            bOutside = !bOutside;
        }
        if (c == '"') s.append(uBackslashes, '\\').push_back('"');
        s.push_back(c);
        uBackslashes = c == '\\' ? uBackslashes + 1 : 0;
    }
    if (bOutside) s.push_back('"');
    if (bQuoteFollows) s.append(uBackslashes, '\\');
    return s;
}

std::string sPOSIX_DOUBLE_BODY(std::string_view svWord)
{
    return sMARKED(svWord, "$`\"\\");
}

/* Inside single quotes only the quote itself needs care. */
std::string sPOSIX_SINGLE_BODY(std::string_view svWord)
{
    std::string s;
    for (const char c : svWord) {
        if (c == '\'')
            s.append("'\\''");
        else
            s.push_back(c);
    }
    return s;
}

/* The place after a text that stands as it is. */
PLACE ePLACE_AFTER(SHELL eShell, PLACE ePlace, std::string_view svLiteral)
{
    for (size_t u = 0; u < svLiteral.size(); u++) {
        const char c = svLiteral[u];
        if (eShell == SHELL_WINDOWS) {
            if (c == '"') ePlace = ePlace == PLACE_DOUBLE ? PLACE_BARE : PLACE_DOUBLE;
        } else if (ePlace == PLACE_SINGLE) {
            if (c == '\'') ePlace = PLACE_BARE;
        } else if (c == '\\') {
            u++;
        } else if (c == '"') {
            ePlace = ePlace == PLACE_DOUBLE ? PLACE_BARE : PLACE_DOUBLE;
        } else if (c == '\'' && ePlace == PLACE_BARE) {
            ePlace = PLACE_SINGLE;
        }
    }
    return ePlace;
}

std::string sVALUE_AT(SHELL eShell, PLACE ePlace, std::string_view svWord, bool bQuoteFollows)
{
    if (bPLAIN_WORD(eShell, svWord)) return std::string(svWord);
    if (ePlace == PLACE_BARE) return sSHELL_WORD(eShell, svWord);
    if (eShell == SHELL_WINDOWS) return sWINDOWS_BODY(svWord, bQuoteFollows);
    return ePlace == PLACE_DOUBLE ? sPOSIX_DOUBLE_BODY(svWord) : sPOSIX_SINGLE_BODY(svWord);
}

/* True when the text after piece u begins with a double quote. */
bool bQUOTE_FOLLOWS(const std::vector<FORMAT_PIECE>& pieces, size_t u)
{
    return u + 1 < pieces.size() && pieces[u + 1].svLiteral.substr(0, 1) == "\"";
}

/* True when an empty value at piece u would be no word at all: blanks, or the ends of
   the line, on both sides. */
bool bSTANDS_ALONE(const std::vector<FORMAT_PIECE>& pieces, size_t u, const std::string& sCmd)
{
    if (!sCmd.empty() && sCmd.back() != ' ') return false;
    for (u++; u < pieces.size(); u++) {
        const FORMAT_VALUE* pValue = pieces[u].pValue;
        if (pValue != nullptr && pValue->eKind == FORMAT_VALUE::NUMBER) return false;
        const std::string_view sv = pValue == nullptr ? pieces[u].svLiteral : pValue->svText;
        if (!sv.empty()) return sv[0] == ' ';
    }
    return true;
}

int iJOIN(SHELL eShell, const std::vector<FORMAT_PIECE>& pieces, std::string& sCmd)
{
    PLACE ePlace = PLACE_BARE;
    for (size_t u = 0; u < pieces.size(); u++) {
        const FORMAT_VALUE* pValue = pieces[u].pValue;
        if (pValue == nullptr || pValue->eKind == FORMAT_VALUE::RAW) {
            const std::string_view sv = pValue == nullptr ? pieces[u].svLiteral : pValue->svText;
            ePlace = ePLACE_AFTER(eShell, ePlace, sv);
            sCmd.append(sv);
            continue;
        }
        if (pValue->eKind == FORMAT_VALUE::NUMBER) {
            sCmd.append(sFORMAT_BARE(*pValue));
            continue;
        }
        const auto             cOne = static_cast<char>(pValue->lNumber);
        const std::string_view svWord =
            pValue->eKind == FORMAT_VALUE::CHARACTER ? std::string_view(&cOne, 1) : pValue->svText;
        if (!bTAKEN_BY_SHELL(eShell, svWord)) return 0;
        if (svWord.empty() && ePlace == PLACE_BARE && bSTANDS_ALONE(pieces, u, sCmd)) {
            sCmd.append(sSHELL_WORD(eShell, svWord));
            continue;
        }
        sCmd.append(sVALUE_AT(eShell, ePlace, svWord, bQUOTE_FOLLOWS(pieces, u)));
    }
    return 1;
}

size_t uTooLong = 0;

}  // namespace

size_t uCMD_TOO_LONG()
{
    return uTooLong;
}

std::string sSHELL_WORD(SHELL eShell, std::string_view svWord)
{
    if (!svWord.empty() && bPLAIN_WORD(eShell, svWord)) return std::string(svWord);
    /* What the shell cannot take becomes a blank: a word never ends early. */
    std::string sWord(svWord);
    for (char& c : sWord)
        if (!bTAKEN_BY_SHELL(eShell, {&c, 1})) c = ' ';
    if (eShell == SHELL_WINDOWS) return '"' + sWINDOWS_BODY(sWord, true) + '"';
    return '\'' + sPOSIX_SINGLE_BODY(sWord) + '\'';
}

std::string sTYPED(const std::vector<std::string>& asWord)
{
    std::string sLine;
    for (const std::string& s : asWord)
        sLine += (sLine.empty() ? "" : " ") + sSHELL_WORD(SHELL_POSIX, s);
    return sLine;
}

std::string sSHELL_INSIDE_QUOTES(SHELL eShell, std::string_view svWord)
{
    return eShell == SHELL_WINDOWS ? sWINDOWS_BODY(svWord, false) : sPOSIX_DOUBLE_BODY(svWord);
}

int iCMD_FORM(char* szCmd, size_t uSize, SHELL eShell, const char* cpFormat,
              std::span<const FORMAT_VALUE> values)
{
    if (uSize == 0) return 0;
    szCmd[0] = '\0';
    std::vector<FORMAT_PIECE> pieces;
    std::string               sCmd;
    uTooLong = 0;
    if (!iFORMAT_SPLIT(cpFormat, values, pieces) || !iJOIN(eShell, pieces, sCmd)) return 0;
    uTooLong = sCmd.size() >= uSize ? uSize - 1 : 0;
    if (uTooLong > 0 || sCmd.find('\0') != std::string::npos) return 0;
    return iTEXT_COPY(szCmd, uSize, sCmd);
}
