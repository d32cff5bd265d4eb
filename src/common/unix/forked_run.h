/* Further runs of this program in forked processes. Such a process works
   like a newly started program, but need not load anything or read the configuration
   again: what belongs to the parent's run is closed, forgotten and made anew
   before its run begins. */
#pragma once

#include <string>

#include "cm_hal_pipe.h"

/* Says how a run of this program begins: pRun never returns. argc and argv are those of
   main; where they stand, process lists will find the arguments of a forked run. */
void v_RUNS_CAN_BE_FORKED(int argc, char** argv, void (*pRun)(int argc, char** argv));

/* true when the file is this very program, and it has said how a run begins. A program
   that was replaced meanwhile, by an update of its package, is another one. */
bool bRUN_CAN_BE_FORKED(const std::string& sFile);

/* CHILD_SPEC::pBody of such a run, with its arguments, additions to the environment, and
   what it does first. */
[[noreturn]] void v_FORKED_RUN(const CHILD_SPEC& sctSpec);
