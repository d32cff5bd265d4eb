/* Bounded text: every copy and every cut of the system goes through here.
   Texts are UTF-8 and are cut at a character boundary. */
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

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

/* The pieces of a text between, and in front of, cEnd; an empty one at the end is none. */
std::vector<std::string_view> asvPIECES(std::string_view svText, char cEnd = '\n');

/* svText with invalid UTF-8 replaced by U+FFFD. */
std::string sVALID_UTF8(std::string_view svText);

/* sVALID_UTF8, and control characters (tab included, line feed too, and those that turn
   the direction of writing) replaced by a blank: what may stand inside one line that a
   person reads. */
std::string sONE_LINE(std::string_view svText);

/* sONE_LINE with one blank for several, and none at the ends. */
std::string sCONDENSED(std::string_view svText);

/* svText without the blanks (any of svBlanks) at its ends. */
std::string_view svTRIMMED(std::string_view svText, std::string_view svBlanks = " \t\r");

/* svText with cMark in front of each of its characters that stand in svMarked. */
std::string sMARKED(std::string_view svText, std::string_view svMarked, char cMark = '\\');

/* The texts in one, svBetween between them. */
std::string sJOINED(const std::vector<std::string>& asText, std::string_view svBetween);

/* 1 when a control character stands in svText (line feed, tab, C1, direction included). */
bool bHAS_CONTROLS(std::string_view svText);
