/* Statements and command lines: what was put in is what their reader gets out. The
   readers here are small ones of our own, after the rules of the database server,
   the POSIX shell and Windows programs. */
#include <cstring>
#include <vector>

#include "common/cm_db_access.h"
#include "common/text/command_line.h"
#include "must.h"

namespace {

/* Takes the literals out of a statement. */
std::vector<std::string> asLITERALS(std::string_view sv, std::string& sRest)
{
    std::vector<std::string> as;
    bool                     bInside = false;
    for (size_t u = 0; u < sv.size(); ++u) {
        if (!bInside) sRest += sv[u];
        if (sv[u] != '\'')
            bInside ? as.back() += sv[u] : "";
        else if (bInside && u + 1 < sv.size() && sv[u + 1] == '\'')
            as.back() += sv[u++];
        else if ((bInside = !bInside))
            as.emplace_back();
    }
    MUST(!bInside);
    return as;
}

std::string sREAD_POSIX(std::string_view sv)
{
    std::string s;
    char        cQuote = 0;
    for (size_t u = 0; u < sv.size(); ++u) {
        const bool bEscape = sv[u] == '\\' && cQuote != '\'' && u + 1 < sv.size();
        if (bEscape && (cQuote == 0 || std::strchr("$`\"\\\n", sv[u + 1]) != nullptr)) {
            s += sv[++u];
        } else if ((cQuote == 0 && (sv[u] == '\'' || sv[u] == '"')) || sv[u] == cQuote) {
            cQuote = cQuote == 0 ? sv[u] : '\0';
        } else {
            MUST(cQuote == '\'' || (sv[u] != '$' && sv[u] != '`'));
            MUST(cQuote != 0 || std::strchr(" \t\n;&|<>(){}*?[]#~!", sv[u]) == nullptr);
            s += sv[u];
        }
    }
    MUST(cQuote == 0);
    return s;
}

std::string sREAD_WINDOWS(std::string_view sv)
{
    std::string s;
    bool        bInside = false;
    for (size_t u = 0; u < sv.size(); ++u) {
        const size_t uSlashes = std::min(sv.find_first_not_of('\\', u), sv.size()) - u;
        const bool   bQuote = u + uSlashes < sv.size() && sv[u + uSlashes] == '"';
        s.append(bQuote ? uSlashes / 2 : uSlashes, '\\');
        u += uSlashes;
        if (u == sv.size()) break;
        MUST(bInside || std::strchr(" \t&|<>()^", sv[u]) == nullptr);
        if (!bQuote || uSlashes % 2 != 0)
            s += sv[u];
        else if (bInside && u + 1 < sv.size() && sv[u + 1] == '"')
            s += sv[u++];
        else
            bInside = !bInside;
    }
    MUST(!bInside);
    return s;
}

void STATEMENT(std::string_view svName, std::string_view svText)
{
    char        szSql[160];
    std::string sRest;
    std::string sName = sVALID_UTF8(svName);
    std::string sText = sVALID_UTF8(svText);
    std::erase(sName, '\0');
    std::erase(sText, '\0');
    if (!iSQL(szSql, "update t set m='%s',n=%d where k='%s'", FREE_TEXT{svText}, 7, svName))
        return MUST(szSql[0] == '\0');
    const std::vector<std::string> as = asLITERALS(szSql, sRest);
    MUST(sRest == "update t set m=',n=7 where k='" && as.size() == 2);
    MUST(as[1] == sName && sText.starts_with(as[0]) && sVALID_UTF8(as[0]) == as[0]);
}

void COMMAND(SHELL eShell, const char* cpFormat, const std::string& sValue)
{
    char szCmd[200];
    if (!iCMD(szCmd, eShell, cpFormat, std::string_view(sValue))) return MUST(szCmd[0] == '\0');
    MUST((eShell == SHELL_POSIX ? sREAD_POSIX(szCmd) : sREAD_WINDOWS(szCmd)) == "p:" + sValue);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t uSize)
{
    const std::string s(reinterpret_cast<const char*>(pData), uSize);
    const size_t      uCut = uSize == 0 ? 0 : pData[0] % uSize;
    STATEMENT(s.substr(0, uCut), s.substr(uCut));
    for (const char* cpFormat : {"p:%s", "\"p:%s\"", "'p:%s'"}) COMMAND(SHELL_POSIX, cpFormat, s);
    for (const char* cpFormat : {"p:%s", "\"p:%s\""}) COMMAND(SHELL_WINDOWS, cpFormat, s);
    return 0;
}
