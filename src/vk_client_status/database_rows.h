/* The clients' rows in the database. */
#pragma once

#include <string>
#include <vector>

#include "fleet.h"

/* Reads the rows of all clients.
   bServer  the server's own too
   sError  why the database cannot be read
   Result  1 read, 0 not: clients is empty then */
int iREAD_ROWS(bool bServer, std::vector<CLIENT>& clients, std::string& sError);

/* The operating systems that clients may be entered with. */
std::vector<std::string> READ_SYSTEMS();

/* A column that only the view of one client shows. */
struct DETAIL {
    std::string sLabel, sValue;
};

/* The further columns of one client's row that hold something, and its addresses.
   Empty where the database cannot be read. */
std::vector<DETAIL> READ_DETAILS(const std::string& sName);
