/* Database access: six operations over one PostgreSQL connection.

   The connection is opened by the first statement and closed at exit. Every
   statement is complete text, runs by itself and, outside iDB_TRANSACTION, is
   committed by itself; one call can never run two. A connection that the server
   has closed is replaced before the statement is sent. One that breaks under a
   statement is replaced too, and the statement sent again, once, where that can do
   no harm (select, update, delete: this program's set fixed values by name or
   identifier); else it fails. A server that is full, starts, stops or refuses its
   socket is tried again for retry_time. Every wait has a limit (connect_timeout,
   statement_timeout). No operation ends the process; a connection that cannot be
   made, or is lost with its statement, is told once on standard error.

   Error texts are terse, one line, UTF-8. */
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "cm_trace.h"
#include "database/failure.h"
#include "text/statement.h"
#include "text/text.h"

struct DB_REC_LIS_ELEMENT {
    int                 iRow;         // from 1, in the database's order
    char*               cpData;       // column values, zero-terminated, one after the other
    DB_REC_LIS_ELEMENT* pstrNextRec;  // null after the last
};

/* A query result. The caller sets { "CONFIG_CLIENT", 0, 0, nullptr, nullptr }
   before the first use and never frees it; filling it again lets the old
   records go. */
struct DB_REC_LIS {
    char                szId[32];
    int                 iRows;
    size_t              iSize;  // bytes of values held
    DB_REC_LIS_ELEMENT* pstrFirstRec;
    DB_REC_LIS_ELEMENT* pstrLastRec;
};

/* ---- operations ------------------------------------------------------- */

int iDB_ACCESS_N(const char* cpSql, char* cpReply, size_t uReply, DB_REC_LIS* pList,
                 const str_log& sctLog);

/* Runs a statement.
   szReply  out: after a failure the error text; after success with a list the
            number of rows, without a list the first column of the first row
            (empty for NULL or no row), after an insert, update or delete the
            number of rows. Always one line, cut to the array.
   pList    receives every row, or null; empty after a failure
   Result   1 it ran, 0 it failed */
template<size_t N>
int iDB_ACCESS(const char* cpSql, char (&szReply)[N], DB_REC_LIS* pList, str_log sctLog)
{
    return iDB_ACCESS_N(cpSql, szReply, N, pList, sctLog);
}

/* The longest waits in seconds, for a program that would rather answer without the
   database than late. Where the configuration has less, that holds; -1: only that. */
struct DB_WAITS {
    int iRetry = -1;      // a server that is full, starts, stops or refuses its socket
    int iConnect = -1;    // the connection to one host
    int iStatement = -1;  // a statement
};

/* Set before the first statement. */
void v_DB_WAIT_AT_MOST(const DB_WAITS& sctWaits);

/* Why the last statement failed, as data and as text; DB_FINE when it ran. */
const DB_ERROR& sctDB_ERROR();

/* The machine on which the database was looked for last; "this server". */
std::string sDB_MACHINE();

/* The file that the database's library takes a password from. */
std::string sDB_PASSWORD_FILE();

/* Tells the last statement's failure in one line on standard error and in the trace,
   "WHAT: REASON", once per sWhat; nothing when it ran. A run that never had a
   connection has told that, and what follows from it is only traced. */
void DB_TELL_FAILURE(const std::string& sWhat, const str_log& sctLog);

/* Runs a statement whose outcome decides nothing for the run: an insert, update or
   delete that stores what there is to store. A failure is told (DB_TELL_FAILURE).
   sWhat   what is missing then: "outcome of beta not stored"
   Result  number of rows that it changed; -1 it failed */
int iDB_EXECUTE(const std::string& sWhat, const char* cpSql, const str_log& sctLog);

/* The same with a statement that is formed here (iSQL), at most 2047 bytes. */
template<class... V>
int iDB_EXECUTE_SQL(const std::string& sWhat, const str_log& sctLog, const char* cpFormat,
                    const V&... values)
{
    return iDB_EXECUTE(sWhat, SQL(cpFormat, values...), sctLog);
}

/* The same without a word about a failure, for a caller who looks at the result. */
int iDB_RUN(const char* cpSql, const str_log& sctLog);
template<class... V>
int iDB_RUN_SQL(const str_log& sctLog, const char* cpFormat, const V&... values)
{
    return iDB_RUN(SQL(cpFormat, values...), sctLog);
}

/* Runs several statements as one transaction: all of them take effect, or none.
   pBody   runs them, by any operation of this header, and returns 1; 0 after the
           first one that failed, or to give up. It may be called several times: a
           lost connection or another run in its way begins it anew
   sWhat   what is missing when it fails, told as by iDB_EXECUTE
   Result  1 committed; 0 nothing of it has taken effect (or, where the connection
           broke under the commit, that is not known) */
using DB_BODY = std::function<int()>;
int iDB_TRANSACTION(const std::string& sWhat, const str_log& sctLog, const DB_BODY& pBody);

/* Lets the records of a list go before the process ends. */
void DB_LET_GO(DB_REC_LIS* pList);

int iDB_SEL_GETVALUE_N(const char* cpSql, const char* cpColumn, char* cpValue, size_t uValue,
                       const str_log& sctLog);

/* Runs a SELECT and copies the named column of its first row into szValue, cut
   to the array; NULL becomes an empty text.
   Result  1 copied; 0 no row, no such column or a failed statement: szValue
           stays as it was */
template<size_t N>
int iDB_SEL_GETVALUE(const char* cpSql, const char* cpColumn, char (&szValue)[N], str_log sctLog)
{
    return iDB_SEL_GETVALUE_N(cpSql, cpColumn, szValue, N, sctLog);
}

/* A column and the array that receives it. */
struct DB_DEST {
    const char* cpColumn;
    char*       cpValue;
    size_t      uValue;
};

inline void DB_PAIRS(std::vector<DB_DEST>&, const char* /* end mark */) {}
template<size_t N, class... REST>
void DB_PAIRS(std::vector<DB_DEST>& dest, const char* cpColumn, char (&szValue)[N], REST&&... rest)
{
    dest.push_back({cpColumn, szValue, N});
    DB_PAIRS(dest, std::forward<REST>(rest)...);
}

int iDB_SEL_GET_DEST(const DB_REC_LIS* pList, int iRow, const str_log& sctLog,
                     const std::vector<DB_DEST>& dest);

/* Copies columns of row iRow (from 1) of a filled list: pairs of a column name
   and an array, closed by a one-character text ("d"). Values are cut to the
   arrays. A column that the result lacks leaves its array as it was.
   szReply  not written
   Result   1 all copied; 0 no such row, every array stays as it was, or a column
            missing, its array stays */
template<size_t N, class... PAIRS>
int iDB_SEL_GET(const DB_REC_LIS* pList, int iRow, char (&szReply)[N], const str_log* pLog,
                PAIRS&&... pairs)
{
    static_cast<void>(szReply);
    std::vector<DB_DEST> dest;
    DB_PAIRS(dest, std::forward<PAIRS>(pairs)...);
    return iDB_SEL_GET_DEST(pList, iRow, *pLog, dest);
}

int iDB_VA_DEST(const char* cpSql, char* cpReply, size_t uReply, const str_log& sctLog,
                const std::vector<DB_DEST>& dest);

/* Runs a SELECT and copies columns of its first row, pairs as in iDB_SEL_GET.
   szReply  out: the error text after a failed statement, else the number of rows;
            iLength is its length
   Result   1 a row was found and every column copied; 0 otherwise, and every
            array without a value stays as it was */
template<size_t N, class... PAIRS>
int iDB_VA(const char* cpSql, char (&szReply)[N], int iLength, const str_log* pLog,
           PAIRS&&... pairs)
{
    std::vector<DB_DEST> dest;
    DB_PAIRS(dest, std::forward<PAIRS>(pairs)...);
    return iDB_VA_DEST(cpSql, szReply,
                       static_cast<size_t>(iLength) < N ? static_cast<size_t>(iLength) : N, *pLog,
                       dest);
}

/* Traces the first iCount records of the list, by the trace context of the last
   operation; what a column of passwords holds is shown as ***. */
void DB_SEL_LOOP_RECORDS(const DB_REC_LIS* pList, int iCount);
