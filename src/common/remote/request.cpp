#include "request.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

#include "../lines/standard_error.h"

namespace {

struct VERB {
    std::string_view svName;
    size_t           uLeast;  // words behind the mark
    size_t           uMost;
};

// In the order of REQUEST_VERB.
constexpr VERB asctVerb[] = {
    {"run", 1, SIZE_MAX},
    {"list", 0, 0},
    {"put", 3, 3},
    {"size", 1, 1},
};

bool bLETTER_OR_DIGIT(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool bPLAIN(char c)
{
    return bLETTER_OR_DIGIT(c) || std::string_view("._-/:=,+@").find(c) != std::string_view::npos;
}

bool bMARK(std::string_view sv)
{
    return !sv.empty() && sv.size() <= uREQUEST_MARK_MAX &&
           std::all_of(sv.begin(), sv.end(),
                       [](char c) { return bLETTER_OR_DIGIT(c) || c == '-' || c == '_'; });
}

void ADD_WORD(std::string& sLine, std::string_view svWord)
{
    if (!sLine.empty()) sLine += ' ';
    if (svWord.empty()) sLine += '%';
    for (const char c : svWord) {
        if (bPLAIN(c)) {
            sLine += c;
            continue;
        }
        const auto uc = static_cast<unsigned char>(c);
        sLine += '%';
        sLine += "0123456789ABCDEF"[uc >> 4U];
        sLine += "0123456789ABCDEF"[uc & 15U];
    }
}

int iHEX(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

int iREAD_WORD(std::string_view sv, std::string& sWord, std::string& sReason)
{
    sWord.clear();
    if (sv == "%") return 1;
    sReason = sv.empty() ? "two blanks, or one at an end" : "a character that is not allowed";
    if (sv.empty()) return 0;
    for (size_t u = 0; u < sv.size(); ++u) {
        if (bPLAIN(sv[u])) {
            sWord += sv[u];
            continue;
        }
        if (sv[u] != '%') return 0;
        const int iHigh = u + 2 < sv.size() ? iHEX(sv[u + 1]) : -1;
        const int iLow = u + 2 < sv.size() ? iHEX(sv[u + 2]) : -1;
        if (iHigh < 0 || iLow < 0 || iHigh + iLow == 0)
            return iREASON(sReason, "a \"%\" that is no valid escape");
        sWord += static_cast<char>(iHigh * 16 + iLow);
        u += 2;
    }
    return 1;
}

int iSPLIT(std::string_view svLine, std::vector<std::string>& asWord, std::string& sReason)
{
    for (;;) {
        const size_t uEnd = svLine.find(' ');
        asWord.emplace_back();
        if (!iREAD_WORD(svLine.substr(0, uEnd), asWord.back(), sReason)) return 0;
        if (uEnd == std::string_view::npos) return 1;
        svLine.remove_prefix(uEnd + 1);
    }
}

template<class NUMBER>
bool bNUMBER(const std::string& s, int iBase, NUMBER uMost, NUMBER& uValue)
{
    const auto [cpEnd, eError] = std::from_chars(s.data(), s.data() + s.size(), uValue, iBase);
    return eError == std::errc() && cpEnd == s.data() + s.size() && uValue >= 0 && uValue <= uMost;
}

int iREAD_PUT(const std::vector<std::string>& asWord, REQUEST& request, std::string& sReason)
{
    sReason = "an invalid size";
    if (!bNUMBER(asWord[3], 10, INT64_MAX / 2, request.lSize)) return 0;
    sReason = "an invalid mode";
    return bNUMBER(asWord[4], 8, 0777U, request.uMode);
}

/* Reads what stands between quotes. uAt is behind the opening one, then behind the
   closing one. Result 0: there is none, or a shell would expand something. */
int iQUOTED(std::string_view sv, size_t& uAt, std::string& sWord)
{
    const char cQuote = sv[uAt - 1];
    for (; uAt < sv.size(); ++uAt) {
        const char c = sv[uAt];
        if (c == cQuote) {
            ++uAt;
            return 1;
        }
        if (cQuote == '"' && (c == '$' || c == '`')) return 0;
        const bool bEscape =
            cQuote == '"' && c == '\\' && uAt + 1 < sv.size() &&
            std::string_view("$`\"\\\n").find(sv[uAt + 1]) != std::string_view::npos;
        if (bEscape) ++uAt;
        if (!bEscape || sv[uAt] != '\n') sWord += sv[uAt];
    }
    return 0;
}

bool bOBEYED_BY_SHELL(char c)
{
    return std::string_view("|&;<>()$`*?[]{}#~!\n\r").find(c) != std::string_view::npos || c == 0;
}

}  // namespace

int iREQUEST_FORM(const REQUEST& request, std::string& sLine)
{
    sLine = asctVerb[request.eVerb].svName;
    ADD_WORD(sLine, request.sMark);
    if (request.eVerb == REQUEST_RUN)
        for (const std::string& sWord : request.asWord) ADD_WORD(sLine, sWord);
    if (request.eVerb == REQUEST_PUT || request.eVerb == REQUEST_SIZE)
        ADD_WORD(sLine, request.sPath);
    if (request.eVerb == REQUEST_PUT) {
        char szMode[16] = "";
        *std::to_chars(szMode, szMode + sizeof szMode - 1, request.uMode, 8).ptr = '\0';
        ADD_WORD(sLine, std::to_string(request.lSize));
        ADD_WORD(sLine, szMode);
    }
    if (sLine.size() <= uREQUEST_MAX && sLine.find("%00") == std::string::npos) return 1;
    sLine.clear();
    return 0;
}

int iREQUEST_READ(std::string_view svLine, REQUEST& request, std::string& sReason)
{
    request = {};
    sReason = svLine.empty() ? "no request" : "a request that is too long";
    if (svLine.empty() || svLine.size() > uREQUEST_MAX) return 0;
    std::vector<std::string> asWord;
    if (!iSPLIT(svLine, asWord, sReason)) return 0;
    const auto* const pVerb =
        std::find_if(std::begin(asctVerb), std::end(asctVerb),
                     [&](const VERB& verb) { return verb.svName == asWord[0]; });
    sReason = "an unknown request";
    if (pVerb == std::end(asctVerb)) return 0;
    sReason = "a request without a mark";
    if (asWord.size() < 2 || !bMARK(asWord[1])) return 0;
    sReason = "a request with too few or too many words";
    if (asWord.size() - 2 < pVerb->uLeast || asWord.size() - 2 > pVerb->uMost) return 0;
    request.eVerb = static_cast<REQUEST_VERB>(pVerb - std::begin(asctVerb));
    request.sMark = asWord[1];
    if (request.eVerb == REQUEST_RUN) request.asWord.assign(asWord.begin() + 2, asWord.end());
    if (request.eVerb == REQUEST_PUT || request.eVerb == REQUEST_SIZE) request.sPath = asWord[2];
    return request.eVerb != REQUEST_PUT || iREAD_PUT(asWord, request, sReason);
}

int iPOSIX_WORDS(std::string_view svCommand, std::vector<std::string>& asWord, std::string& sReason)
{
    bool bInside = false;  // of a word
    asWord.clear();
    for (size_t u = 0; u < svCommand.size();) {
        const char c = svCommand[u++];
        if (c == ' ' || c == '\t') {
            bInside = false;
            continue;
        }
        if (!bInside) asWord.emplace_back();
        bInside = true;
        bool bGood = !bOBEYED_BY_SHELL(c);
        if (c == '"' || c == '\'')
            bGood = iQUOTED(svCommand, u, asWord.back()) != 0;
        else if (c == '\\')
            bGood = u < svCommand.size() && svCommand[u] != '\n' && svCommand[u] != '\0';
        if (!bGood)
            return iREASON(sReason, std::string("a \"") +
                                        (c == '\n' || c == '\r' || c == '\0' ? ' ' : c) +
                                        "\" that only a shell would read");
        if (c == '\\') asWord.back() += svCommand[u++];
        if (c != '"' && c != '\'' && c != '\\') asWord.back() += c;
    }
    return 1;
}
