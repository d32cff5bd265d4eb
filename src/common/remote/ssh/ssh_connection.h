/* The shared connections of this run: one per host and access mode, made by the
   first command, used by the rest, ended with the run. Where the run has one command for
   a host (v_REMOTE_ONE_COMMAND), that one connects by itself, and a further one begins
   what is shared.

   The first ssh makes the connection and, once it is authenticated, leaves it to a
   background process that later ones reach through a socket in a private
   directory (mode 0700, short path; below TMPDIR where that is fit, else below
   /run/vk_config_client, gv_rw or /tmp). That process ends when it is told to at the
   end of the run, and by itself, iCONNECTION_IDLE_S after its last command, when
   this process was killed. The directory is locked by the run that owns it; the
   next run removes those of killed ones. */
#pragma once

#include <string>

#include "../../base/holder.h"
#include "../../unix/drain.h"
#include "../host.h"

constexpr int iCONNECTION_IDLE_S = 25;

struct SSH_CONNECTION {
    std::string sSocket;          // control socket, empty when there is no directory for it
    DRAIN       words;            // ssh's own, since the command formed last
    DRAIN       beside;           // what else came on its standard error
    bool        bAlone = false;   // the next command is the only one as far as is known
    bool        bShared = false;  // a command was given the socket
    FD          fdEnding;         // it was asked to end here, and closes this when it has
};

/* The connection of a host, made known on first use. */
SSH_CONNECTION& sctCONNECTION(const HOST& host);

/* The run's private directory, made on first use; empty where none can be made (told
   once on standard error). */
const std::string& sPRIVATE_DIRECTORY();
