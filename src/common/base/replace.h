/* Files that are replaced as a whole: readers see the old text or the new one, never a
   part. */
#pragma once

#include <fcntl.h>
#include <sys/types.h>

#include <string>
#include <string_view>

struct REPLACEMENT {
    std::string sFile;
    std::string sNew;  // beside it, written first
    mode_t      uMode = 0;
    int         iFolder = AT_FDCWD;               // an open folder that both names begin in
    uid_t       uOwner = static_cast<uid_t>(-1);  // -1: this process
    gid_t       uGroup = static_cast<gid_t>(-1);
};

/* Puts svText in the place of a file, by way of the new one, which only one run at a time
   writes and the next one takes over from a run that was killed.
   Result  0: errno says why; the older file is as it was */
int iREPLACE(const REPLACEMENT& file, std::string_view svText);
