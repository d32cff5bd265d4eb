/* Values inside statements. */
#pragma once

#include <cstddef>
#include <span>

#include "format.h"

/* The one place that puts values into statements. %s, %d, %ld, %c and %% as in
   printf. Text values (TEXT, FREE, LIKE) stand inside single quotes of the
   format: their quotes are doubled and invalid UTF-8 is replaced; RAW_TEXT
   stands as it is. A statement that would not fit has its FREE_TEXTs
   shortened, keeping their beginnings, until it does.
   Result  1 formed; 0 it does not fit: szSql is empty then, and iDB_ACCESS,
           iDB_SEL_GETVALUE and iDB_VA fail on the empty statement. */
int iSQL_FORM(char* szSql, size_t uSize, const char* cpFormat,
              std::span<const FORMAT_VALUE> values);

template<size_t N, class... V>
int iSQL(char (&szSql)[N], const char* cpFormat, const V&... values)
{
    const FORMAT_VALUE asctValue[sizeof...(V) + 1] = {sctVALUE(values)..., {}};
    return iSQL_FORM(szSql, N, cpFormat, {asctValue, sizeof...(V)});
}

/* A statement that is formed where it is run, at most 2047 bytes. */
struct SQL {
    char szText[2048] = {};

    template<class... V>
    explicit SQL(const char* cpFormat, const V&... values)
    {
        iSQL(szText, cpFormat, values...);
    }
    operator const char*() const { return szText; }
};

/* A date that may be empty, ready to stand bare in a statement (RAW_TEXT): NULL
   for an empty value, else the value as a quoted literal. The text stays valid
   until the process ends. */
const char* pDBNULL(const char* cpValue);
