/* What lets a backup server in: lines of authorized_keys. Those that vk_setup has
   written end with the word "vk_setup:SERVER"; all others stay as they are. */
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "public_key.h"

constexpr std::string_view svMODE_CTRL = "CTRL";    // through the gate
constexpr std::string_view svMODE_VKSSH = "VKSSH";  // the plain key

struct PERMIT {
    std::string             sServer;
    std::string             sMode;      // CTRL or VKSSH
    std::string             sFrom;      // addresses as in authorized_keys(5), empty: any
    std::string             sGate;      // command of the gate, for CTRL
    std::string             sPackages;  // that the gate takes, for CTRL
    std::vector<PUBLIC_KEY> keys;
};

/* What became of the text of a file. */
struct PERMIT_CHANGE {
    std::string              sText;
    std::vector<std::string> asDone;     // for the user; empty: nothing was to do
    std::vector<std::string> asWarning;  // what stands in the way
    std::vector<std::string> asRenamed;  // names that the server had before
};

/* Admits the keys of a permit. What vk_setup wrote goes where it was for the same server
   and mode, or holds one of the same keys, also for a server of another name: it was
   renamed, and taking the old name back must not shut it out. Where another line holds a key
   already, the new one goes before it, since sshd takes the first. */
PERMIT_CHANGE sctADMIT(std::string_view svText, const PERMIT& permit);

/* Takes back what was admitted for a server, of that mode or (empty) of all. */
PERMIT_CHANGE sctTAKE_BACK(std::string_view svText, const std::string& sServer,
                           std::string_view svMode);
