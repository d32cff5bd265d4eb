/* One child run of a run over many clients: its process, and what it writes. */
#pragma once

#include <string>
#include <vector>

#include "cm_hal_pipe.h"

struct CLIENT_CHILD {
    std::string sName;           // the client
    CHILD       child;           // its process
    long        lPid = 0;        // also when it has ended
    int         iDatabase = -1;  // its connection to the database, of those handed out
    std::string sOut;            // standard output so far, its end when there is much
    std::string sErr;            // a line of standard error that is not complete yet
};

/* Starts a program (its name first, then its arguments) as a child, its output and
   error output on pipes. A program that lies beside this one goes before those of the
   search path; where it is this very program, the child is forked off (forked_run.h).
   pReady  what makes the start of a forked child ready: it says in the record
           what the child keeps and does first
   Result  1 it runs, 0 it could not be started: sReason says why */
int iCLIENT_START(CLIENT_CHILD* pChild, const std::vector<std::string>& asWord,
                  const std::function<void(CHILD_SPEC&)>& pReady, std::string& sReason);

/* Reads what has come without waiting. Complete lines of standard error go to
   ours; sForward receives them. */
void v_CLIENT_READ(CLIENT_CHILD* pChild, std::string& sForward);

/* Reads what is left once the process has ended. Something that it left behind
   may hold its pipes open, so their end is not waited for. sForward receives the
   rest of standard error, the last line completed. */
void v_CLIENT_DRAIN(CLIENT_CHILD* pChild, std::string& sForward);

/* Adds the child's descriptors to those that are waited for. */
void v_CLIENT_WAIT_FOR(const CLIENT_CHILD* pChild, std::vector<WAIT_FD>& fds);
