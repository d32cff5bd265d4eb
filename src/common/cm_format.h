/* Formats of statements and command lines, taken apart once for both: the
   literal texts and the values between them. */
#pragma once

#include <vector>

#include "cm_text.h"

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
