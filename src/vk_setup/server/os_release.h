/* Which operating system this machine runs. */
#pragma once

#include <string>
#include <vector>

/* Names of oper_systems that fit this machine, the best first, "Linux" last. */
std::vector<std::string> asSYSTEM_NAMES();
