/* Public keys of ssh, as authorized_keys(5) and a ".pub" file write them. */
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct PUBLIC_KEY {
    std::string sType;     // such as ssh-ed25519
    std::string sBlob;     // base64
    std::string sComment;  // one line, may be empty
};

/* Reads keys from the words of a command line: a key as one word or as several, or
   the name of a file (with a "/", or ending with ".pub") that holds some.
   Result  1 at least one key, all of them whole; 0 not: sReason says why */
int iPUBLIC_KEYS(const std::vector<std::string>& asWord, std::vector<PUBLIC_KEY>& keys,
                 std::string& sReason);

/* Splits at blanks that do not stand between double quotes. */
std::vector<std::string> asKEY_LINE_WORDS(std::string_view svLine);

/* Place of the key's type among the words of a line of authorized_keys, -1 when the
   line holds no key. */
int iKEY_PLACE(const std::vector<std::string>& asWord);
