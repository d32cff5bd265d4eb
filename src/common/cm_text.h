/* Bounded text: every copy and every cut of the system goes through here.
   Texts are UTF-8 and are cut at a character boundary. */
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

/* Longest prefix of svText that has at most uMax bytes and ends at a
   character boundary. */
std::string_view svTEXT_CUT(std::string_view svText, size_t uMax);

/* Copies svText into szDest (uSize bytes, terminator included).
   Result  1 it fitted, 0 it was cut; szDest is always terminated. */
int iTEXT_COPY(char* szDest, size_t uSize, std::string_view svText);

/* The same for an array, whose length is taken from its type. */
template<size_t N>
int iTEXT_SET(char (&szDest)[N], std::string_view svText)
{
    return iTEXT_COPY(szDest, N, svText);
}

/* Formats like snprintf; a longer text is cut at a character boundary. */
void x_Snprintf(char* szDest, size_t uSize, const char* cpFormat, ...)
    __attribute__((format(printf, 3, 4)));

/* svText with invalid UTF-8 replaced by U+FFFD. */
std::string sVALID_UTF8(std::string_view svText);

/* sVALID_UTF8, and control characters (tab included, line feed too) replaced
   by a blank: what may stand inside one line that a person reads. */
std::string sONE_LINE(std::string_view svText);

/* Passwords that this run has read. v_SECRET adds one (empty: nothing);
   sMASKED gives svText with every occurrence of one replaced by "***". */
void        v_SECRET(std::string_view svPassword);
std::string sMASKED(std::string_view svText);

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
