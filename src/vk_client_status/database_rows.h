/* The clients' rows in the database. */
#pragma once

#include <string>
#include <vector>

#include "fleet.h"

/* Reads the rows of all clients but the server's own.
   sError  why the database cannot be read
   Result  1 read, 0 not: clients is empty then */
int iREAD_ROWS(std::vector<CLIENT>& clients, std::string& sError);

/* A column that only the view of one client shows. */
struct DETAIL {
    std::string sLabel, sValue;
};

/* The further columns of one client's row that hold something, and its addresses.
   Empty where the database cannot be read. */
std::vector<DETAIL> READ_DETAILS(const std::string& sName);
