/* Copies that a run could not bring to an end, noted on this server (gv_rw, "copies/"),
   so that the next run for that client takes the unfinished file away. */
#pragma once

#include <string>

#include "../../base/holder.h"

/* The note of a copy under way. Letting it go keeps the note; v_COPY_ENDED removes it. */
struct COPY_NOTE {
    std::string sFile;
    FD          fdLock;
};

/* Notes that sPart is about to be written on the client. A note that cannot be made
   hinders no copy. */
COPY_NOTE sctNOTE_COPY(const std::string& sHost, const std::string& sPart);

/* Nothing unfinished is left on the client. */
void v_COPY_ENDED(COPY_NOTE& note);

/* Such a note stands there. */
bool bCOPY_NOTED(const std::string& sHost);

/* The unfinished file that an ended run has left on the client, "" for none. note holds
   the note against other runs meanwhile. */
std::string sUNFINISHED(const std::string& sHost, COPY_NOTE& note);
