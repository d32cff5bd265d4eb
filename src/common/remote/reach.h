/* What the key of a backup server reaches on a client, by access mode and by what the
   client's gate (vk_ctrl --packages) takes for an update. The first row that the
   installation has decides what a stolen key is worth; "vk_setup check" and vk_setup(8)
   show the same table. */
#pragma once

#include <algorithm>
#include <iterator>
#include <string_view>

/* Packages that the gate lets the server install. The client's own update script does it,
   except for ANY. */
enum PACKAGES { PACKAGES_SIGNED, PACKAGES_NONE, PACKAGES_ANY };

// In the order of PACKAGES.
constexpr std::string_view asvPACKAGES[] = {"signed", "none", "any"};

struct REACH {
    const char* cpWay;    // access mode, and for CTRL the packages
    const char* cpReach;  // what whoever has the key can do there
};

constexpr REACH asctREACH[] = {
    {"VKSSH", "everything, as root"},
    {"CTRL, packages any", "everything, as root: the update script comes with the key"},
    {"CTRL, packages signed",
     "read the client's report, send its vk.ini as a test backup, install packages signed "
     "with a key that the client's administrator has put there, old ones too"},
    {"CTRL, packages none", "read the client's report, send its vk.ini as a test backup"},
};

/* Result  1 ePackages is set; 0 the word stands for none. */
inline int iPACKAGES(std::string_view svWord, PACKAGES& ePackages)
{
    const auto* const pFound = std::find(std::begin(asvPACKAGES), std::end(asvPACKAGES), svWord);
    if (pFound == std::end(asvPACKAGES)) return 0;
    ePackages = static_cast<PACKAGES>(pFound - std::begin(asvPACKAGES));
    return 1;
}

/* Where the client's administrator puts the public keys that sign packages. */
constexpr const char* cpPACKAGE_KEYS = "packages.d/";  // below gv_rw_ini
