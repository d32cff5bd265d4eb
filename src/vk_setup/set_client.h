/* The subcommands of vk_setup that run on a client. Their result is the exit status: 0
   done, or there was nothing to do; 1 not done; 2 the arguments are wrong. What they did
   is on standard output, a line each; what is wrong on standard error. */
#pragma once

#include <string>
#include <vector>

/* Admits a backup server: adds its key to root's authorized_keys. */
int iSET_CLIENT(const std::vector<std::string>& asArgument);

/* Takes that back. */
int iUNSET_CLIENT(const std::vector<std::string>& asArgument);
