/* The one connection to the database, and statements over it row by row. For
   the database operations only. */
#pragma once

#include <libpq-fe.h>

#include <functional>
#include <string>

/* How a statement ended. */
struct DB_OUTCOME {
    bool        bOk = false;
    bool        bColumns = false;  // it had a result of rows (a SELECT)
    long        lRows = 0;         // rows returned, or changed
    std::string sError;            // one line
    std::string sSqlState;         // empty when the connection failed
};

/* Called for every row; pRow holds that row alone, as row 0, and the columns. */
using DB_ROW = std::function<void(const PGresult* pRow)>;

/* true when this run has, or had, a connection. */
bool bDB_CONNECTED_ONCE();

/* Runs one statement; connects where there is no connection. bColumns of a SELECT
   without rows is set too; pColumns is then called with its empty result. */
DB_OUTCOME sctDB_RUN(const char* cpSql, const DB_ROW& pRow);
