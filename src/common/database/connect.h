/* Making the connection to the database. For connection.cpp only. */
#pragma once

#include <libpq-fe.h>

#include <memory>
#include <string>
#include <vector>

#include "../base/holder.h"
#include "../cm_db_access.h"
#include "failure.h"

using CONNECTION = std::unique_ptr<PGconn, FREE_BY<PQfinish>>;

/* The time for which something that passes by itself is tried again: retry_time from
   now, or none where it has passed in vain and nothing has worked since. */
class DB_PATIENCE {
public:
    DB_PATIENCE();
    /* Pauses before another try. Result 0: the time is over, or a signal came. */
    int iAnother();
    /* A server has answered a statement. */
    static void Restore();

private:
    long m_lUntil;
    int  m_iPause;
};

/* Connects by the connection text of vk.ini, to the first of its hosts that serves.
   A server that is busy, starts, stops or refuses its socket is tried again for
   retry_time seconds; once they have passed in vain, the next calls ask it only
   once each, until one succeeds.
   Result  null: error says why; one line of text */
CONNECTION pDB_CONNECT(DB_ERROR& error);

/* The same, but each host is asked once. */
CONNECTION pDB_CONNECT_ONCE(DB_ERROR& error);

/* Masks the password of the connection text, as connecting does. */
void v_DB_MASK_PASSWORD();

/* Seconds that a statement may take; 0: no limit. */
int iDB_STATEMENT_TIMEOUT();

/* true when the connection text names several hosts: of which one takes changes. */
bool bDB_SEVERAL_HOSTS();

/* Statements that give a new session the settings that the operations rely on, where
   it could not be started with them. */
std::vector<std::string> asDB_SETTINGS_LEFT(PGconn* pConn);

/* Waits for the connection's socket. A signal that the caller only wants to see does
   not end a statement that stores an outcome; the deadline (lNOW_MS time, 0: none)
   does. Result 0: it has passed. */
int iDB_WAIT(PGconn* pConn, bool bRead, bool bWrite, long lDeadline);
