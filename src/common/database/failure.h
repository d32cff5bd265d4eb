/* What went wrong in the database, as data. */
#pragma once

#include <string>

/* What a failure means for the next try: by SQLSTATE, else by the client library's own
   words. */
enum DB_KIND {
    DB_FINE,
    DB_BUSY,             // no connection: nobody listens, or none is left
    DB_STARTING,         // starts, stops, or has just stopped
    DB_SILENT,           // no answer in time
    DB_LOST,             // the connection broke
    DB_READ_ONLY,        // a standby, or a database that takes no changes
    DB_KEY_TAKEN,        // a row of that key is there
    DB_IN_THE_WAY,       // two transactions wait for each other
    DB_REFUSES_OPTIONS,  // a pooler that takes no session options
    DB_OTHER             // another try fails likewise
};

struct DB_ERROR {
    DB_KIND     eKind = DB_FINE;
    std::string sSqlState;     // empty when the connection failed
    std::string sText;         // one line
    const char* cpCause = "";  // identifier of a row of the table of causes
};

/* The failure with this SQLSTATE (may be empty) and this text. */
DB_ERROR sctDB_FAILURE(const std::string& sSqlState, const std::string& sText);

/* true for a failure that passes by itself: worth another try. */
bool bDB_PASSES(DB_KIND eKind);
