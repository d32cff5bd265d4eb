/* What the service needs to know of a host, read in one statement per host and
   run, and the access mode that this run uses for it. */
#pragma once

#include <string>

#include "../cm_trace.h"
#include "../text/command_line.h"

struct HOST {
    std::string sName;        // as the caller named it
    std::string sAccessMode;  // the mode in force for this run
    std::string sStoredMode;  // "accessmode" of its row
    std::string sPlatform;    // platform class, empty when unknown
    std::string sUser;        // os_user, empty: as configured for ssh
    std::string sDataMover;
    std::string sUnread;          // why the database did not tell it; such a host is not reached
    std::string sUnreadCause;     // the same as a row of the table of causes
    bool        bLocal = false;   // the backup server itself
    bool        bClient = false;  // it has a row
};

/* The host, with its access mode chosen: cpAccessMode when it is not empty, else
   the mode already used for it, else its own, else VKSSH. The record lives until
   the process ends. One that could not be read (sUnread) is read again next time. */
HOST& sctHOST(const char* cpName, const char* cpAccessMode, const str_log& sctLog);

/* From now on the host counts as one of that platform class in this run. */
void v_HOST_PLATFORM(const HOST& host, const char* cpPlatform);

/* The shell that reads command lines on the host. */
SHELL eSHELL_OF(const HOST& host);
