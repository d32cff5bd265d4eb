/* Small files that other programs trust, read and replaced as a whole. */
#pragma once

#include <string>
#include <string_view>

#include "common/unix/cm_hal_pipe.h"

/* One file in an open folder, which is locked against other runs until the record
   is let go. */
struct KEY_FILE {
    std::string sPath;  // for texts
    std::string sName;
    FD          fdFolder;
    std::string sText;  // what it holds, "" when it is not there
    bool        bThere = false;
    bool        bRight = false;  // owner and mode are as they must be
    std::string sMended;         // folders whose owner or mode was put right, "" for none
};

/* Opens the folder of sPath and reads the file. A symbolic link in its place is
   refused. bPrivateFolder: the folder and the home that it lies in are the key
   owner's own: it is made (mode 0700) where it is missing, is no link either, and
   nobody else may own them or write into them, as sshd demands.
   Result  1 read, or not there; 0 not: sReason says why */
int iKEY_FILE_OPEN(const std::string& sPath, bool bPrivateFolder, KEY_FILE& file,
                   std::string& sReason);

/* Replaces the file by one that holds svText, mode 0600, owned as its folder is:
   written beside it, on the disk before it gets the name.
   Result  1 replaced; 0 not: sReason says why, the file is as it was */
int iKEY_FILE_REPLACE(const KEY_FILE& file, std::string_view svText, std::string& sReason);
