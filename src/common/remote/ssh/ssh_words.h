/* What ssh says of a connection, taken apart: how far it came, whom it reached, and why
   it went no further. */
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "../cause.h"

/* One connection by ssh's own log, which holds its steps. */
struct SSH_STORY {
    STAGE                    eReached = STAGE_NAME;  // the stage that it was in at last
    std::string              sName;  // whom it went to, as the configuration names it
    std::string              sAddress;
    std::string              sPort;
    std::string              sUser;
    std::string              sHostKey;              // fingerprint that was shown
    std::string              sKept;                 // file and line in which it was found
    std::string              sKey;                  // file of the key that was tried last
    std::string              sMethods;              // by which the login can go on
    size_t                   uKeys = 0;             // keys that ssh would try
    size_t                   uOffered = 0;          // keys that it has offered
    bool                     bAccepted = false;     // the last one was accepted
    bool                     bRefused = false;      // and what followed was refused
    bool                     bCertificate = false;  // one was a certificate
    bool                     bPartial = false;      // accepted, and something more is wanted
    bool                     bForced = false;       // the key runs a command of its own
    bool                     bShared = false;       // it went over a connection that stood already
    bool                     bProxy = false;        // another program makes the connection
    std::string              sJump;                 // the host in between, where it is known
    std::string              sUnwritten;            // file that did not take a new host key
    std::vector<std::string> asTried;               // addresses, each with why it failed
    std::vector<std::string> asBanner;              // lines that came in place of a greeting
    std::vector<std::string> asOwn;                 // lines that are not of debugging
    std::vector<std::string> asSince;  // those that tell something, since the last good step
    std::string              sLast;    // the last line of all
};

/* What ssh says when the connection that it has just left to a background process broke
   before its own command could use it. The command has not begun. */
constexpr const char* cpNO_MASTER = "Failed to connect to new control master";

/* And when it found no room for the socket of the connection, under its first name or
   its last. */
constexpr const char* acpNO_SOCKET[] = {"unix_listener: cannot bind to path",
                                        "muxserver_listen: link mux listener"};

/* Takes the log apart. */
SSH_STORY sctSSH_STORY(std::string_view svLog);

/* Why a connection failed. */
struct SSH_VERDICT : FINDING {
    bool        bDenied = false;  // the host refuses whoever we are: a further try may lock us out
    std::string sReason;          // for the user; "" where ssh says nothing of a failure
};

/* svProxy  what the program wrote that makes the way (bProxy), an ssh with its steps
   bLate    a limit passed
   places   {host} and {config} set; what is found out is added */
SSH_VERDICT sctWHY(const SSH_STORY& story, std::string_view svProxy, bool bLate, PLACES& places);
