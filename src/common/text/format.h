/* Formats of statements and command lines, taken apart once for both: the
   literal texts and the values between them. */
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

/* A value inside a formatted statement or command line. */
struct FORMAT_VALUE {
    enum KIND {
        TEXT,       // a value from outside: quoted or escaped where it stands
        FREE,       // a text that may be shortened where the whole would not fit
        LIKE,       // a value inside a LIKE pattern: its wildcards are escaped too
        RAW,        // a piece formed by us: stands as it is
        NUMBER,     // %d, %ld
        CHARACTER,  // %c
    };
    KIND             eKind = TEXT;
    std::string_view svText = {};
    long             lNumber = 0;
};

/* Marks of the kinds at the call site: FREE_TEXT{szMsg}. */
struct FREE_TEXT {
    std::string_view svText;
};
struct LIKE_TEXT {
    std::string_view svText;
};
struct RAW_TEXT {
    std::string_view svText;
};

inline FORMAT_VALUE sctVALUE(std::string_view sv)
{
    return {FORMAT_VALUE::TEXT, sv, 0};
}
inline FORMAT_VALUE sctVALUE(FREE_TEXT t)
{
    return {FORMAT_VALUE::FREE, t.svText, 0};
}
inline FORMAT_VALUE sctVALUE(LIKE_TEXT t)
{
    return {FORMAT_VALUE::LIKE, t.svText, 0};
}
inline FORMAT_VALUE sctVALUE(RAW_TEXT t)
{
    return {FORMAT_VALUE::RAW, t.svText, 0};
}
inline FORMAT_VALUE sctVALUE(int i)
{
    return {FORMAT_VALUE::NUMBER, {}, i};
}
inline FORMAT_VALUE sctVALUE(long l)
{
    return {FORMAT_VALUE::NUMBER, {}, l};
}
inline FORMAT_VALUE sctVALUE(char c)
{
    return {FORMAT_VALUE::CHARACTER, {}, c};
}

/* A literal text of the format, or (pValue not null) the place of a value. */
struct FORMAT_PIECE {
    std::string_view    svLiteral = {};
    const FORMAT_VALUE* pValue = nullptr;
};

/* Takes %s, %d, %ld, %c and %% apart. pieces point into format and values.
   Result  1 done; 0 the values do not fit the format in number or kind */
int iFORMAT_SPLIT(const char* cpFormat, std::span<const FORMAT_VALUE> values,
                  std::vector<FORMAT_PIECE>& pieces);

/* Text of a value that is written without quoting: numbers, RAW_TEXT. */
std::string sFORMAT_BARE(const FORMAT_VALUE& value);
