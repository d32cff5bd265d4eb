/* The plan of an update: the result for each client if the update ran now. */
#pragma once

#include "listing.h"

struct PLAN_WISH {
    std::string              sPackage;  // as -P takes it
    bool                     bServicepack = false;
    std::vector<std::string> asTyped;  // the words of this program's command line
};

/* The clients in the order in which a run over many goes. What cannot be read of the package
   is told on standard error. */
LISTING sctPLAN(const CHOSEN& chosen, const PLAN_WISH& wish);

/* The command that updates clients, as it is typed: with their names where they are few, else
   with what this program tells when it is called by asTyped.
   asTask  -U or -S, the package and options */
std::string sUPDATE_COMMAND(const std::vector<std::string>& asTask,
                            const std::vector<std::string>& asName,
                            const std::vector<std::string>& asTyped);
