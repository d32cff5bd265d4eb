/* The gate that a server meets on a client of access mode CTRL. One session, one
   request (request.h); what it may ask for is carried out by the operations below,
   which write to standard output what the server reads. */
#pragma once

#include <string>
#include <vector>

#include "common/remote/reach.h"
#include "common/remote/request.h"

/* Who asks, and what this client takes from it. */
struct CALLER {
    std::string sServer;  // address, or "the server"
    std::string sUser;    // account on this client
    PACKAGES    ePackages = PACKAGES_SIGNED;
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

/* What the words of a command line ask for. */
enum WORK {
    WORK_NONE,    // nothing that belongs to a server's work
    WORK_RUN,     // a program of the backup client
    WORK_REMOVE,  // a file that came with an update
    WORK_UPDATE,  // the update script
};

/* Compares with the command lines that a server forms, word for word. sPath is set for
   WORK_REMOVE (symbolic) and WORK_UPDATE (the package). */
WORK eWORK(const std::vector<std::string>& asWord, std::string& sPath);

/* Runs one of the backup client's programs from gv_ro_bin, its arguments as words.
   It ends when the server's end of standard input does; the update script goes on.
   Result: exit status of the gate, as for the operations below. */
int iGATE_RUN(const REQUEST& request);

/* Lists the root directory, which proves that access works. */
int iGATE_LIST(const REQUEST& request);

/* Takes a file from standard input. It lies in a folder of the server's own (sFROM_SERVER),
   arrives whole, as many bytes as announced, or not at all, and no symbolic link is
   followed on its way. The update script and the keys that an update brings are answered
   as taken and left alone: the client uses its own.
   With PACKAGES_ANY they are taken, and everything lies where it does without a gate. */
int iGATE_PUT(const REQUEST& request);

/* How many bytes a file has that iGATE_PUT could have taken. */
int iGATE_SIZE(const REQUEST& request);

/* Removes such a file; one that is not there counts as removed. */
int iGATE_REMOVE(const REQUEST& request, const std::string& sPath);

/* Where the files of an update lie. */
std::string sFROM_SERVER();
