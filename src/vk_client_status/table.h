/* A table for people: on a terminal as wide as that, elsewhere plain with whole values. */
#pragma once

#include <span>
#include <string>
#include <vector>

#include "cells.h"

/* How a table looks. */
struct TABLE_LOOK {
    int  iWidth = 0;  // columns of the terminal; 0: plain text, whole values, full times
    bool bColor = false;
};

/* A column, and how readily a narrow terminal does without it (0: never). The first is
   the name, which may be cut; the second has the row's colour. */
struct TABLE_HEAD {
    const char* cpHead;
    int         iDispensable;
};

struct TABLE_ROW {
    std::vector<std::string> asCell;
    COLOR                    eColor = COLOR_NONE;
    struct BELOW {
        std::string sText;
        COLOR       eColor;
    };
    std::vector<BELOW> below;  // lines under the row
};

/* Heads and rows; a column without any value is not shown. Empty without rows. */
std::string sTABLE(std::span<const TABLE_HEAD> heads, const std::vector<TABLE_ROW>& rows,
                   const TABLE_LOOK& look);

/* A time for the table: how long ago, or whole in plain text. */
std::string sWHEN(long lTime, long lNow, const TABLE_LOOK& look);
