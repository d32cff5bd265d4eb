/* How far a copy has come: the read position of the copying process in the source
   file, as the kernel tells it, so that the data itself takes no detour. */
#pragma once

#include <sys/types.h>

#include <string>

struct COPY_PROGRESS {
    std::string sSource;        // absolute path, links resolved
    std::string sName;          // shown to the user
    long        lSize;          // bytes
    long        lPosition = 0;  // bytes read so far
    long        lBegin;         // lNOW_MS of the start
    bool        bTerminal;
    bool        bShown = false;
    std::string sDescriptor;  // /proc entry of the source file once found

    COPY_PROGRESS(const std::string& sFile, long lBytes);
    COPY_PROGRESS(const COPY_PROGRESS&) = delete;
    COPY_PROGRESS& operator=(const COPY_PROGRESS&) = delete;
    ~COPY_PROGRESS();  // clears the line
};

/* Looks where process iPid is and shows it on standard error when that is a
   terminal. Result 1 it has moved since the last look, 0 not. */
int iPROGRESS_SHOW(COPY_PROGRESS& progress, pid_t iPid);
