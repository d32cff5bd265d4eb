/* The configuration that ssh, sftp and the ssh of a jump host are given. */
#pragma once

#include <string>
#include <vector>

/* Words of ssh that name its configuration: a file of this run, in memory where it has no
   place for one, around the one of the access mode. What must be off, whatever that one
   says, stands before it; what holds where it says nothing stands behind it, since the
   first value counts. Jump hosts get the same file.
   sConfig  the access mode's file; empty: the administrator's own
   Result   1 asWord is filled; 0 sConfig cannot be read, or there is no memory: sReason
            says why */
int iSSH_CONFIGURATION(const std::string& sConfig, std::vector<std::string>& asWord,
                       std::string& sReason);
