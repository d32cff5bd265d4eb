/* The database as the setup sees it: any connection text, statements with their
   rows, and what the database lacks of the schema in sql/. */
#pragma once

#include <libpq-fe.h>

#include <memory>
#include <string>
#include <vector>

#include "common/base/holder.h"
#include "common/config/keys.h"

using CONNECTION = std::unique_ptr<PGconn, FREE_BY<PQfinish>>;
using DB_ROWS = std::vector<std::vector<std::string>>;  // NULL is ""

/* What a connection text says; szCONFIG_CONNINFO where vk.ini has none. */
struct CONNECTION_TEXT {
    std::string sText;
    std::string sHost, sPort, sDatabase, sUser, sPassFile;
    bool        bLocal = false;  // a socket of this machine
    std::string sError;          // why it cannot be parsed; else ""
};

CONNECTION_TEXT sctCONNECTION_TEXT(const std::string& sText);
/* "database velka at /run/postgresql as root": never a password. */
std::string sSHOWN(const CONNECTION_TEXT& text);

/* Connects, 10 seconds at most unless the text says otherwise.
   Result  null: sError says why, one line */
CONNECTION pCONNECT(const std::string& sText, std::string& sError);

/* Runs one statement, 60 seconds at most. rows (or null) receives every row.
   Result  1 it ran, 0 it failed: sError says why, one line */
int iRUN(PGconn* pConn, const std::string& sSql, DB_ROWS* pRows, std::string& sError);
/* The first column of the first row, "" when there is none or the statement fails. */
std::string sVALUE(PGconn* pConn, const std::string& sSql);
/* A name as a statement takes it: between double quotes. */
std::string sIDENTIFIER(const std::string& sName);

/* ---- schema -------------------------------------------------------------- */

/* A table, a column, an index or a key: a column whose values are unique, or refer to
   another table. */
struct SCHEMA_PART {
    std::string sKind;   // "table", "column", "index" or "key"
    std::string sTable;  // that it is, or belongs to
    std::string sName;   // TABLE, TABLE.COLUMN or INDEX
    std::string sSql;    // makes it
    std::string sRule;   // of a key: "primary key", "unique" or "references OTHER ..."
    bool        bRefers() const { return sRule.starts_with("references "); }
};

struct SCHEMA {
    std::vector<SCHEMA_PART> parts;
    std::string              sSystems;  // rows of oper_systems: "('A', 'B'), ..."
};

/* Reads the product's schema. Result 0: sError says what is missing. */
int iREAD_SCHEMA(SCHEMA& schema, std::string& sError);

/* What the database lacks. */
struct DB_GAPS {
    std::vector<SCHEMA_PART> parts;         // no columns of a missing table, no key of a column
    std::vector<std::string> asForbidden;   // tables with rights missing
    long                     lSystems = 0;  // rows of oper_systems
    std::string              sError;        // the database could not be asked
    bool                     bNone() const
    {
        return parts.empty() && asForbidden.empty() && lSystems == 0 && sError.empty();
    }
};

DB_GAPS sctGAPS(PGconn* pConn, const SCHEMA& schema);

/* The row of the server itself. */
struct SERVER_ROW {
    bool        bThere = false;
    std::string sName, sOs;
    bool        bKnownOs = false;  // its os has a row in oper_systems
    std::string sError;
};

SERVER_ROW sctSERVER_ROW(PGconn* pConn);
