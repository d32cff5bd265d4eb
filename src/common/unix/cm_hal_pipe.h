/* Child processes, pipes and waiting.

   Every wait of the program goes through iWAIT: descriptors, child exits and a
   deadline together. INT, TERM and HUP are looked at there; when one came,
   everything on the registers is given back (children ended, temporary files
   removed) and the process ends by that signal, unless the caller asked to see it
   (v_SIGNALS_TO_CALLER). While things are given back, no signal is looked at.
   Elsewhere a signal interrupts what waits (a library's call, output that nobody
   reads), each second anew; a process that has not ended after four seconds ends
   as it stands, and what it held the system and the next run give back.

   Children lead a session of their own, have no signal blocked, /dev/null or the
   given descriptors as standard input and output, and are told to end when
   this process dies (parent-death signal). A child that cannot exec hands its
   errno back through a close-on-exec pipe. */
#pragma once

#include <sys/select.h>
#include <sys/types.h>

#include <cstdio>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "../base/holder.h"

/* State of a running command inside RCMD, for the library's own use. Plain:
   what owns a child process is CHILD. */
struct DB_PROC_PIP {
    pid_t  iChildPid;
    int    ifdOut;
    FILE*  fhdlOut;
    int    ifdErr;
    FILE*  fhdlErr;
    fd_set fdset_read;
    FILE*  fpStdout;
    FILE*  fpStderr;
    int    iCntOutChannels;
    int    iMax_read;
    int    iFdInFile;
    int    iFdOldStdin;
    int    iIdleTimeout;
    int    bIdleTimeoutExpired;
    int    iNewPgrp;
    int    bBinaryMode;
    int    bStdinPipe;
};

/* Monotonic clock, milliseconds. */
long lNOW_MS();

/* One child. Filled in place, never copied or moved; it stands on the register
   while its process lives. Letting it go ends its process group (TERM, a
   bounded wait, then KILL) and reaps it. */
struct CHILD {
    pid_t iPid = -1;          // leader of its session and group; -1 once reaped
    FD    fdIn;               // writing end of its standard input, where one was asked for
    FD    fdOut;              // its standard output
    FD    fdErr;              // its standard error, where it was asked for apart
    FD    fdExit;             // becomes readable when the process has ended (pidfd)
    int   iStatus = -1;       // exit status, 128 + signal when killed; valid once reaped
    int   iSignal = 0;        // that killed it; valid once reaped
    bool  bOutlives = false;  // letting it go leaves it running

    CHILD() = default;
    CHILD(const CHILD&) = delete;
    CHILD& operator=(const CHILD&) = delete;
    ~CHILD();
};

/* How to start one. */
struct CHILD_SPEC {
    std::vector<std::string>                         asArgument;       // the program first
    std::vector<std::pair<std::string, std::string>> asEnvironment;    // added to ours
    bool                                             bPipeIn = false;  // false: /dev/null
    std::string sFirstInput = {};   // written to that pipe at once; at most 1 MiB
    std::string sInFile = {};       // a file as standard input, in place of the pipe
    std::string sErrFile = {};      // a file to which standard error is appended
    bool        bPipeOut = true;    // false: our own standard output
    bool        bErrToOut = true;   // standard error joins standard output
    bool        bPipeErr = false;   // standard error on a pipe of its own (bErrToOut false)
    bool        bOutlives = false;  // it is left to finish when it is let go or this process ends
    /* What the child does in place of a program, forked off this process with all that it
       holds; it never returns. The arguments are its own then. */
    void (*pBody)(const CHILD_SPEC&) = nullptr;
    int                   iKept = -1;   // a descriptor of this process that it keeps,
    std::function<void()> pFirst = {};  // and what it does first
};

/* Starts a child. Its command line is traced at level 1, passwords masked.
   Result  1 it runs; 0 it could not be started, or nobody could see its end:
           sReason is "cannot run "PROGRAM": CAUSE", errno is that cause, and child is as
           before. */
int iCHILD_START(CHILD& child, const CHILD_SPEC& sctSpec, std::string& sReason);

/* What a program writes on both outputs until it ends, iLimitMs have passed, or it has
   written 4 MiB; one that still runs then is ended. Its exit status in *pStatus, where that
   is wanted: -1 could not be started, and the text says why. */
std::string sSAID_BY(const std::vector<std::string>& asArgument, int iLimitMs,
                     int* pStatus = nullptr);

/* Reaps the child when it has ended. Result 1 it has (iStatus is set), 0 it
   still runs. */
int iCHILD_ENDED(CHILD& child);

/* Ends the child's process group: TERM, up to iGraceMs, then KILL; reaps. */
void v_CHILD_END(CHILD& child, int iGraceMs);

/* Waits up to iGraceMs for a child that has done its work, then ends its leader
   alone and reaps it: what it has left behind goes on. */
void v_CHILD_LET_GO(CHILD& child, int iGraceMs);

/* Sends iSignal to the child's process group. */
void v_CHILD_SIGNAL(const CHILD& child, int iSignal);

enum WAIT_RESULT { WAIT_READY = 1, WAIT_TIMEOUT = 0, WAIT_SIGNAL = -1, WAIT_FAILED = -2 };

/* One descriptor to wait for; bReady is the answer. */
struct WAIT_FD {
    int  iFd = -1;
    bool bWrite = false;
    bool bReady = false;
};

/* Waits until a descriptor is ready or the deadline has passed (lDeadline,
   lNOW_MS time; 0: none). WAIT_SIGNAL only after v_SIGNALS_TO_CALLER, and once for
   each signal: who waits again waits in full. WAIT_FAILED: the system cannot wait
   (no memory), for a second already; errno says why. */
WAIT_RESULT iWAIT(std::vector<WAIT_FD>& fds, long lDeadline);

/* Sleeps. Ends early, with 0, when a signal came and the caller sees them. */
int iSLEEP_MS(long lMilliseconds);

/* Opens standard input, output and error on /dev/null where the caller has closed
   them, so that nothing else gets their numbers; a file that grows past RLIMIT_FSIZE
   ends neither this process nor its children, the write fails. The first call of main. */
void v_STANDARD_DESCRIPTORS();

/* From then on a lack of memory is told and ends the process with exit code 2. */
void v_MEMORY_SETUP();

/* Installs the handlers of INT, TERM, HUP and ALRM and blocks nothing, whatever the
   caller had blocked; ignores PIPE, no longer ignores CHLD; sets up what follows a lack of
   memory. Called once, at the start of main. */
void v_SIGNALS_SETUP();

/* From now on a signal is only noted: the next iWAIT returns WAIT_SIGNAL. The caller has
   four seconds then to end with v_END_BY_SIGNAL. */
void v_SIGNALS_TO_CALLER();

/* The first that is done when a signal ends the process, while its children still live. */
void v_AT_SIGNAL(void (*pDo)());

/* The signal that came, 0 none. */
int iSIGNALLED();

/* Work to be done when the process ends, by exit or by INT, TERM or HUP; last
   registered first. pDone must not wait without a limit. */
void v_AT_END(void (*pDone)());

/* Work to be done at once in a process that a caller forks off this one: it has a copy
   of everything that is open and registered here, but all that is its parent's, and it
   may neither use nor give it back. It makes its own where it needs some. */
void v_AFTER_FORK(void (*pForget)());

/* Gives back everything on the registers, then exits, or ends by the signal.
   Standard output is flushed before; where that fails, it is told on standard error,
   and an exit code 0 becomes 2. */
[[noreturn]] void v_END_PROCESS(int iExit);
[[noreturn]] void v_END_BY_SIGNAL(int iSignal);
