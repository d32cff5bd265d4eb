/* The gate that a server meets on a client of access mode CTRL. One session, one
   request (request.h); what it may ask for is carried out by the operations below,
   which write to standard output what the server reads. */
#pragma once

#include <string>

#include "common/remote/request.h"

/* Who asks, for the texts. */
struct CALLER {
    std::string sServer;  // address, or "the server"
    std::string sUser;    // account on this client
};
CALLER& sctCALLER();

/* Tells the server and the system log that a request is refused, and why. Result 1,
   the gate's exit status then. */
int iREFUSE(const std::string& sCause);

/* The lines around an answer. */
void v_ANSWER_BEGIN(const REQUEST& request);
/* Result: the exit status of the gate for lStatus. */
int iANSWER_END(const REQUEST& request, long lStatus);

/* Writes to standard output. Result 1 all of it, 0 nobody listens. */
int iSAY(std::string_view svText);

/* Runs one of the backup client's programs from gv_ro_bin, its arguments as words.
   It ends when the server's end of standard input does; the update script goes on.
   Result: exit status of the gate, as for the operations below. */
int iGATE_RUN(const REQUEST& request);

/* Lists the root directory, which proves that access works. */
int iGATE_LIST(const REQUEST& request);

/* Takes a file from standard input: the update script into gv_ro_bin, anything else
   below gv_rw_work. It arrives whole, as many bytes as announced, or not at all. No
   symbolic link below these directories is followed. */
int iGATE_PUT(const REQUEST& request);

/* How many bytes a file has that iGATE_PUT could have taken. */
int iGATE_SIZE(const REQUEST& request);
