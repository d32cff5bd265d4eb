/* One file to a client through sftp. */
#pragma once

#include <string>
#include <vector>

#include "../../unix/cm_hal_pipe.h"
#include "../transport.h"

/* Sends sSource to sTarget (absolute, in the client's own form) with the sftp
   client that sctSpec starts: written as "TARGET.part", its size compared, its mode
   set, renamed. Missing folders are made; a ".part" that an ended run left is
   written over. Memory does not grow with the file.
   cpMode   octal permissions or null
   Where it fails, nothing is left but, where the connection broke, the ".part" file:
   the next run for the client that can takes it away. */
COPY_END sctSFTP_PUT(CHILD_SPEC sctSpec, const HOST& host, const std::string& sSource,
                     const std::string& sTarget, const char* cpMode);

/* Removes folders, the first one first, as far as they are empty. */
void v_SFTP_REMOVE_FOLDERS(CHILD_SPEC sctSpec, const std::vector<std::string>& asFolder);

/* Takes away what a copy to that client has left when its run was killed. */
void v_SFTP_TIDY(CHILD_SPEC sctSpec, const std::string& sHost);
