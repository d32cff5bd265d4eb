/* Command lines of this server. */
#pragma once

#include <string>

/* Run a command line through /bin/sh on this server, the program's own
   directory first in the search path, and wait for it, at most total_timeout and
   idle_timeout together, two minutes at least; then its process group is ended. Output
   goes where the program's own goes. Result: exit status, 128 + signal of a killed
   command, -1 when it could not be started (told on standard error). */
int start_system(const char* cpCommand);
int i_cm_exec(const char* cpCommand);

/* The same with a limit of the caller's, milliseconds. */
int iRUN_LOCALLY(const char* cpCommand, long lLimitMs);

/* PATH with the program's own directory in front. */
std::string sSEARCH_PATH_OF_PROGRAM();
