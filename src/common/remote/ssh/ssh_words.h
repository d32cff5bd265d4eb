/* What ssh says of a connection that failed, put for the user. */
#pragma once

#include <string>
#include <string_view>

/* The reason in ssh's words: the line that tells most, with "Host is unknown: " or
   "Error: Authentication failed: " in front where that is what it means; "" when
   the words say nothing of a failure.
   pbRefused  out: the host has refused whoever we are */
std::string sREASON_OF(std::string_view svWords, bool* pbRefused);
