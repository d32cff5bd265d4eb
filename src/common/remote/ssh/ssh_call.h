/* Calls of ssh and sftp for a host: the argument vector with the configuration of the
   host's access mode, on the run's shared connection. What travels is the caller's. */
#pragma once

#include <string>

#include "../../unix/cm_hal_pipe.h"
#include "../transport.h"

/* Forms an ssh that has sRemote run on the host, and marks where its own words will
   begin. sPort: empty, as configured. Standard input is left to the caller.
   Result  1 formed; 0 the host cannot be reached this way: sReason says why */
int iSSH_CALL(const HOST& host, const std::string& sPort, const std::string& sRemote,
              int iConnectTimeout, CHILD_SPEC& sctSpec, std::string& sReason);

/* Forms an sftp that reads its commands from standard input. Result as above. */
int iSFTP_CALL(const HOST& host, CHILD_SPEC& sctSpec, std::string& sReason);

/* Why the call of the host that was formed last failed, in ssh's own words; "" when
   it has none. eFailure as for TRANSPORT::sREASON. */
std::string sSSH_REASON(const HOST& host, FAILURE& eFailure);

/* The shared connection of the host stands already. */
bool bSSH_ESTABLISHED(const HOST& host);
