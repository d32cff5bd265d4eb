/* What cm_hal_pipe.cpp (children) and waiting.cpp (waits, signals, the end of the process)
   need of each other; no other file includes it. */
#pragma once

#include <csignal>

/* Ends every child on the register, all at once, but those that outlive this process. */
void v_END_CHILDREN();

/* In a process that was forked off this one: the children are its parent's. */
void v_FORGET_CHILDREN();

/* From now on exit gives back what stands on the registers. */
void v_GIVE_BACK_AT_EXIT();

/* In the child, between vfork and exec: default signals, the mask of a wait.
   Only system calls. */
void v_SIGNALS_OF_CHILD();

/* INT, TERM and HUP wait while it lives, once they are set up. */
class SIGNALS_HELD {
public:
    SIGNALS_HELD();
    ~SIGNALS_HELD();
    SIGNALS_HELD(const SIGNALS_HELD&) = delete;
    SIGNALS_HELD&   operator=(const SIGNALS_HELD&) = delete;
    const sigset_t* pBefore() const { return &m_setBefore; }

private:
    sigset_t m_setBefore{};
};

/* In a process that was forked off this one to begin a run of its own: descriptors from 3
   on are closed, but for iKept (-1: none); what stands in buffers, was signalled or belongs
   to the parent's run is forgotten. INT, TERM and HUP stay blocked until v_SIGNALS_SETUP. */
void v_PROCESS_ANEW(int iKept);
