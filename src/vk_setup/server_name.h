/* Names of backup servers, which stand in authorized_keys and in the names of files. */
#pragma once

#include <algorithm>
#include <string_view>

/* Letters, digits and the characters of svMore, at least one and at most 255. */
inline bool bPLAIN_WORD(std::string_view sv, std::string_view svMore)
{
    return !sv.empty() && sv.size() <= 255 && std::all_of(sv.begin(), sv.end(), [&](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               svMore.find(c) != std::string_view::npos;
    });
}

inline bool bSERVER_NAME(std::string_view sv)
{
    return bPLAIN_WORD(sv, "._-:") && sv[0] != '.' && sv[0] != '-' && sv != "ALL_CLIENTS";
}
