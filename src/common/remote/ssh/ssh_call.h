/* Calls of ssh and sftp for a host: the argument vector with the configuration of the
   host's access mode, on the run's shared connection. What travels is the caller's. */
#pragma once

#include <string>

#include "../../unix/cm_hal_pipe.h"
#include "../transport.h"

/* Forms an ssh that has sRemote run on the host, and marks where its own words will
   begin. sPort: empty, as configured. Standard input is left to the caller.
   Result  1 formed; 0 the host cannot be reached this way: refusal says why */
int iSSH_CALL(const HOST& host, const std::string& sPort, const std::string& sRemote,
              int iConnectTimeout, CHILD_SPEC& sctSpec, REFUSAL& refusal);

/* Forms an sftp that reads its commands from standard input. Result as above. */
int iSFTP_CALL(const HOST& host, CHILD_SPEC& sctSpec, REFUSAL& refusal);

/* What the transports over ssh have in common: whatever travels, they know of the way
   from ssh's own words and from the shared connection. */
struct OVER_SSH : TRANSPORT {
    WAY         sctWAY(const HOST& host, bool bLate) override;
    REACHED     sctREACHED(const HOST& host) override;
    STAGE       eREACHED(const HOST& host) override;
    std::string sLOG(const HOST& host) override;
    bool        bESTABLISHED(const HOST& host) override;
    bool        bSHARING_FAILED(const HOST& host) override;
};

/* A line that does the same by hand (TRANSPORT::sBY_HAND).
   bPath  with the search path that a command gets */
std::string sSSH_BY_HAND(const HOST& host, std::string_view svCommand, bool bPath);

/* Asked when an sftp ended without a reason: ssh's words when the host has no sftp, else
   "". Connects by itself. */
std::string sSSH_NO_SFTP(const HOST& host);
