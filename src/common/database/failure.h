/* What went wrong in the database, as data. */
#pragma once

#include <string>

/* The kind of a failure: by SQLSTATE, of a connection that was never made by what the
   system says of its socket, else by the client library's own words. */
enum DB_KIND {
    DB_FINE,
    DB_REFUSED,       // nobody listens, or the socket's queue is full
    DB_STARTING,      // starts, stops, or has just stopped
    DB_BUSY,          // no connection left
    DB_SILENT,        // no answer in time
    DB_LOST,          // the connection broke
    DB_UNKNOWN_HOST,  // the name of the server cannot be resolved
    DB_PASSWORD,      // wrong, missing, or no right to connect
    DB_NO_DATABASE,   // there is no database of that name
    DB_TLS,           // certificate or encryption
    DB_NO_TABLE,      // or schema
    DB_NO_COLUMN,
    DB_NO_PERMISSION,    // for the table
    DB_READ_ONLY,        // a standby, or a database that takes no changes
    DB_LOCKED,           // another holds it for longer than statement_timeout
    DB_KEY_TAKEN,        // a row of that key is there
    DB_IN_THE_WAY,       // two transactions wait for each other
    DB_REFUSES_OPTIONS,  // a pooler that takes no session options
    DB_OTHER
};

struct DB_ERROR {
    DB_KIND     eKind = DB_FINE;
    std::string sSqlState;     // empty when the connection failed
    std::string sText;         // one line
    const char* cpCause = "";  // identifier of a row of the table of causes
};

/* The failure with this SQLSTATE (may be empty) and this text. */
DB_ERROR sctDB_FAILURE(const std::string& sSqlState, const std::string& sText);

/* The failure of a connection that was never made and of which the words say nothing,
   by what the system says when its address is tried once more.
   sHost  as the client library names it: a name, an address, or the folder of a socket */
DB_ERROR sctDB_UNREACHED(const std::string& sHost, const std::string& sPort,
                         const std::string& sText);

/* true for a failure that passes by itself: worth another try. */
bool bDB_PASSES(DB_KIND eKind);
