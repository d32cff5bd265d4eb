/* Search patterns and Perl-compatible matching. */
#pragma once

#include <string_view>

/* 1 when svLine matches a search pattern. A pattern closed by "^" is split at
   "|": each piece is a text matched anywhere, letter case counts, any one
   suffices; a piece that is exactly OR is a connective. Without a closing "^" it
   is one name, matched as a whole word between blanks, tabs or line ends,
   letter case ignored, comments after "#" not searched. An empty piece and an
   empty name match nothing. */
int iPATTERN_HIT(std::string_view svPattern, std::string_view svLine);

/* Perl-compatible match of cpPattern against cpSubject. Each capture pointer
   receives a text that stays valid until the process ends, or null (no match,
   or the group took no part). */
void pscanf(const char* cpSubject, const char* cpPattern, char** ppFirst, char** ppSecond);
