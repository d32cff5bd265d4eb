/* Passwords that no line may show. */
#pragma once

#include <string>
#include <string_view>

/* Passwords that this run has read. v_SECRET adds one (empty: nothing);
   sMASKED gives svText with every occurrence of one replaced by "***". */
void        v_SECRET(std::string_view svPassword);
std::string sMASKED(std::string_view svText);
