/* The schema of sql/ taken apart, so that a database that has a part of it gets the
   rest. The files are the product's own: plain statements, comments after "--". */
#include <cctype>
#include <string_view>

#include "common/common.h"
#include "database.h"
#include "files.h"

namespace {

constexpr char szBLANK[] = " \t\r\n";

/* Texts between cMark, those inside quotes and parentheses left whole; comments go. */
std::vector<std::string> asSPLIT(std::string_view svText, char cMark)
{
    std::vector<std::string> asPart(1);
    bool                     bQuoted = false;
    int                      iDepth = 0;
    for (size_t u = 0; u < svText.size(); u++) {
        const char c = svText[u];
        if (!bQuoted && svText.substr(u, 2) == "--") {
            u = std::min(svText.find('\n', u), svText.size());
            asPart.back() += '\n';
            continue;
        }
        if (c == '\'') bQuoted = !bQuoted;
        if (!bQuoted && c == '(') iDepth++;
        if (!bQuoted && c == ')') iDepth--;
        if (!bQuoted && iDepth == 0 && c == cMark)
            asPart.emplace_back();
        else
            asPart.back() += c;
    }
    for (std::string& s : asPart) s = std::string(svTRIMMED(s, szBLANK));
    std::erase(asPart, "");
    return asPart;
}

/* Words up to a parenthesis, in small letters. */
std::vector<std::string> asWORDS(std::string_view svText)
{
    std::vector<std::string> asWord(1);
    for (const char c : svText.substr(0, svText.find('('))) {
        const bool bBlank = std::string_view(szBLANK).find(c) != std::string_view::npos;
        if (!bBlank)
            asWord.back() += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        else if (!asWord.back().empty())
            asWord.emplace_back();
    }
    if (asWord.back().empty()) asWord.pop_back();
    return asWord;
}

bool bTABLE_CONSTRAINT(const std::string& sWord)
{
    for (const char* cp : {"constraint", "primary", "foreign", "unique", "check", "exclude"})
        if (sWord == cp) return true;
    return false;
}

void TAKE_TABLE(const SCHEMA_STATEMENT& statement, SCHEMA& schema)
{
    const std::string& sSql = statement.sSql;
    const size_t       uOpen = sSql.find('(');
    const size_t       uClose = sSql.rfind(')');
    if (uOpen == sSql.npos || uClose == sSql.npos || uClose < uOpen) return;
    SCHEMA_TABLE table{statement.sTable, {}};
    for (const std::string& s :
         asSPLIT(std::string_view(sSql).substr(uOpen + 1, uClose - uOpen - 1), ',')) {
        const std::vector<std::string> asWord = asWORDS(s);
        if (asWord.empty() || bTABLE_CONSTRAINT(asWord[0])) continue;
        table.columns.push_back({asWord[0], s});
        for (const char* cpKey : {" primary key", " unique", " references "}) {
            const size_t uKey = s.find(cpKey);
            if (uKey != s.npos)
                schema.keys.push_back({statement.sTable, asWord[0], s.substr(uKey + 1)});
        }
    }
    schema.tables.push_back(std::move(table));
}

void TAKE_STATEMENT(const std::string& sSql, SCHEMA& schema)
{
    SCHEMA_STATEMENT               statement{sSql, "", ""};
    const std::vector<std::string> asWord = asWORDS(sSql);
    const auto                     bWORD = [&](size_t u, const char* cp) {
        return u < asWord.size() && asWord[u] == cp;
    };
    const size_t uIndex = bWORD(1, "unique") ? 2 : 1;
    if (bWORD(0, "create") && bWORD(1, "table") && asWord.size() > 2)
        statement.sTable = asWord.back();
    if (bWORD(0, "create") && bWORD(uIndex, "index") && bWORD(uIndex + 2, "on")) {
        statement.sIndex = asWord[uIndex + 1];
        statement.sTable = asWord.size() > uIndex + 3 ? asWord[uIndex + 3] : "";
    }
    if (!statement.sTable.empty() && statement.sIndex.empty()) TAKE_TABLE(statement, schema);
    schema.statements.push_back(std::move(statement));
}

int iREAD_PRODUCT_FILE(const char* cpName, std::string& sText, std::string& sError)
{
    const std::string sFile = sPRODUCT_FILE(cpName);
    if (!sFile.empty() && iREAD_FILE(sFile, sText)) return 1;
    return iREASON(sError, std::string("the product's file ") + cpName + " is missing");
}

}  // namespace

int iREAD_SCHEMA(SCHEMA& schema, std::string& sError)
{
    std::string sTables;
    std::string sSystems;
    if (!iREAD_PRODUCT_FILE("sql/schema.sql", sTables, sError) ||
        !iREAD_PRODUCT_FILE("sql/oper_systems.sql", sSystems, sError))
        return 0;
    schema = {};
    for (const std::string& sSql : asSPLIT(sTables, ';')) TAKE_STATEMENT(sSql, schema);
    const std::vector<std::string> asRows = asSPLIT(sSystems, ';');
    const size_t uValues = asRows.empty() ? std::string::npos : asRows[0].find("values");
    if (uValues != std::string::npos)
        schema.sSystems = svTRIMMED(asRows[0], szBLANK).substr(uValues + 6);
    if (!schema.tables.empty() && !schema.sSystems.empty()) return 1;
    return iREASON(sError,
                   "the product's files sql/schema.sql and sql/oper_systems.sql are not usable");
}
