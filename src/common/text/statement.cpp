/* Values inside statements. */
#include "statement.h"

#include <algorithm>
#include <set>

#include "../base/immortal.h"
#include "text.h"

namespace {

/* What the server would take for the end of the text, or not take at all. */
std::string sCLEAN(std::string_view svText)
{
    std::string s = sVALID_UTF8(svText);
    std::erase(s, '\0');
    return s;
}

std::string sLITERAL_BODY(std::string_view svText, bool bPattern)
{
    return sMARKED(bPattern ? sMARKED(svText, "\\%_") : std::string(svText), "'", '\'');
}

/* One piece of the statement, ready to stand in it. A free text is kept clean
   but not yet quoted, so that a cut never splits a pair of quotes. */
struct PIECE {
    std::string sText;
    bool        bFree = false;
};

/* Forms a value. Text outside single quotes of the format would be read as a
   part of the statement: it is refused. */
int iPIECE(const FORMAT_VALUE& value, bool bQuoted, PIECE& piece)
{
    switch (value.eKind) {
        case FORMAT_VALUE::NUMBER:
        case FORMAT_VALUE::RAW:
            piece.sText = sFORMAT_BARE(value);
            return 1;
        case FORMAT_VALUE::FREE:
            piece = {sCLEAN(value.svText), true};
            return bQuoted;
        case FORMAT_VALUE::CHARACTER: {
            const auto c = static_cast<char>(value.lNumber);
            piece.sText = sLITERAL_BODY(sCLEAN({&c, 1}), false);
            return bQuoted || (c >= '0' && c <= '9');
        }
        case FORMAT_VALUE::TEXT:
        case FORMAT_VALUE::LIKE:
            break;
    }
    piece.sText = sLITERAL_BODY(sCLEAN(value.svText), value.eKind == FORMAT_VALUE::LIKE);
    return bQuoted;
}

int iPIECES(const std::vector<FORMAT_PIECE>& format, std::vector<PIECE>& pieces)
{
    bool bQuoted = false;
    for (const FORMAT_PIECE& part : format) {
        PIECE piece;
        if (part.pValue == nullptr)
            piece.sText = part.svLiteral;
        else if (!iPIECE(*part.pValue, bQuoted, piece))
            return 0;
        if (part.pValue == nullptr || part.pValue->eKind == FORMAT_VALUE::RAW)
            bQuoted ^= std::count(piece.sText.begin(), piece.sText.end(), '\'') % 2 != 0;
        pieces.push_back(std::move(piece));
    }
    return 1;
}

/* The statement with every free text cut to uLimit bytes. */
std::string sJOIN(const std::vector<PIECE>& pieces, size_t uLimit)
{
    std::string s;
    for (const PIECE& piece : pieces) {
        if (piece.bFree)
            s += sLITERAL_BODY(svTEXT_CUT(piece.sText, uLimit), false);
        else
            s += piece.sText;
    }
    return s;
}

/* The longest common limit of the free texts with which the statement fits;
   the caller knows that 0 does. */
size_t uFITTING_LIMIT(const std::vector<PIECE>& pieces, size_t uSize)
{
    size_t uFits = 0;
    size_t uOver = 1;
    for (const PIECE& piece : pieces)
        if (piece.bFree) uOver = std::max(uOver, piece.sText.size() + 1);
    while (uOver - uFits > 1) {
        const size_t uTry = uFits + (uOver - uFits) / 2;
        (sJOIN(pieces, uTry).size() < uSize ? uFits : uOver) = uTry;
    }
    return uFits;
}

}  // namespace

int iSQL_FORM(char* szSql, size_t uSize, const char* cpFormat, std::span<const FORMAT_VALUE> values)
{
    if (uSize == 0) return 0;
    szSql[0] = '\0';
    std::vector<FORMAT_PIECE> format;
    std::vector<PIECE>        pieces;
    if (!iFORMAT_SPLIT(cpFormat, values, format) || !iPIECES(format, pieces)) return 0;
    std::string sSql = sJOIN(pieces, std::string::npos);
    if (sSql.size() >= uSize) {
        if (sJOIN(pieces, 0).size() >= uSize) return 0;
        sSql = sJOIN(pieces, uFITTING_LIMIT(pieces, uSize));
    }
    if (sSql.find('\0') != std::string::npos) return 0;
    return iTEXT_COPY(szSql, uSize, sSql);
}

const char* pDBNULL(const char* cpValue)
{
    if (cpValue == nullptr || *cpValue == '\0') return "NULL";
    static IMMORTAL<std::set<std::string>> texts;
    return texts.Get().insert('\'' + sLITERAL_BODY(sCLEAN(cpValue), false) + '\'').first->c_str();
}
