/* The one connection to the database, and statements over it row by row. For
   the database operations only. */
#pragma once

#include <libpq-fe.h>

#include <functional>
#include <string>

#include "connect.h"

/* How a statement ended. */
struct DB_OUTCOME {
    bool        bOk = false;
    bool        bColumns = false;  // it had a result of rows (a SELECT)
    long        lRows = 0;         // rows returned, or changed
    DB_ERROR    error;             // DB_FINE when it ran
    std::string sNote;             // a connection that was replaced for it, for the trace
};

/* Called for every row; pRow holds that row alone, as row 0, and the columns. Null:
   the statement is run anew, the rows that came are void. */
using DB_ROW = std::function<void(const PGresult* pRow)>;

/* true when this run has, or had, a connection. */
bool bDB_CONNECTED_ONCE();

/* From now on statements belong to one transaction, or no longer: a connection that
   breaks inside it is not replaced, and what is left of it fails. */
void v_DB_IN_TRANSACTION(bool bInside);

/* Sets a new connection up as statements need it. */
void v_DB_SET_UP(PGconn* pConn);

/* The connection of this process; null when it has none now. */
PGconn* pDB_HERE();

/* In a process that was forked off: statements go over a connection that its parent has
   made for it. Where nothing is under way on it at the end of this process, it is left
   open and *pIdle becomes true; one that breaks is replaced as any other. */
void v_DB_BORROW(PGconn* pConn, bool* pIdle);

/* Runs one statement; connects where there is no connection. */
DB_OUTCOME sctDB_RUN(const char* cpSql, const DB_ROW& pRow);
