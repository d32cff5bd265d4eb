/* What ssh says of a connection, taken apart: how far it came, whom it reached, and why
   it went no further. */
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "../cause.h"

/* One connection by ssh's own log. */
struct SSH_STORY {
    STAGE                    eReached = STAGE_NAME;  // the stage that it was in at last
    std::string              sName;  // whom it went to, as the configuration names it
    std::string              sAddress;
    int                      iPort = 0;
    std::string              sUser;
    std::string              sHostKey;           // fingerprint that was shown
    std::string              sKept;              // file and line in which it was found
    std::string              sKey;               // file of the key that was tried last
    bool                     bAccepted = false;  // that key was accepted
    bool                     bRefused = false;   // and what followed was refused
    bool                     bShared = false;    // it went over a connection that stood already
    bool                     bProxy = false;     // another program makes the connection
    std::string              sJump;              // the host in between, where it is known
    std::vector<std::string> asOwn;              // lines that are not of debugging
    std::vector<std::string> asAll;              // all lines, without the mark of their level
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

/* Why the connection failed.
   svJump     what the ssh to a host in between said
   places     {host} and {config} set; what is found out is added
   diagnosis  out: no cause when the words say nothing of a failure
   Result     the reason for the user: the line that tells most, with "Host is unknown: "
              or "Error: Authentication failed: " in front where that is what it means,
              and the others that belong to it; "" as above */
std::string sWHY(const SSH_STORY& story, std::string_view svJump, PLACES& places,
                 DIAGNOSIS& diagnosis);

/* The reason of what sftp wrote on standard error. */
std::string sWHY_NO_COPY(std::string_view svWords);

/* The reason says that the host has refused whoever we are: trying again may
   lock the account. */
bool bREFUSED(std::string_view svReason);
