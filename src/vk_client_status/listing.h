/* Rows of named values, in each of the forms that lists have: a table for people, names,
   JSON lines, comma-separated values. */
#pragma once

#include <span>
#include <string>
#include <vector>

#include "forms.h"

struct LISTING_COLUMN {
    const char* cpKey = "";        // in JSON, and the head of comma-separated values
    const char* cpHead = nullptr;  // of the table; null: it does not show the column
    int         iDispensable = 0;
    bool        bTime = false;  // values are seconds since 1970 in decimal
};

struct LISTING_ROW {
    std::vector<std::string>      asValue;  // the first is the name
    std::string                   sShown;   // instead of the second, in the table
    COLOR                         eColor = COLOR_NONE;
    std::vector<TABLE_ROW::BELOW> below;
    bool                          bNamed = true;  // among the names
};

struct LISTING {
    std::span<const LISTING_COLUMN> columns;
    std::vector<LISTING_ROW>        rows;
    std::string                     sSummary;  // lines under the table
};

std::string sFORM_LISTING(const LISTING& listing, FORM eForm, long lNow, const TABLE_LOOK& look,
                          bool bZero);

/* A line of comma-separated values. */
std::string sCSV_LINE(const std::vector<std::string>& asValue);

/* Adds a name to a list of names, closed by cEnd. A name with a control character is told
   on standard error instead where a line feed closes. */
void v_ADD_NAME(std::string& s, const std::string& sName, char cEnd);
