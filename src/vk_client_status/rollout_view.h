/* The last update of many clients: who is done, who is left, and how to continue. */
#pragma once

#include "listing.h"

/* The chosen clients of fleet.rollout, in its order. Names are those that are not updated
   and that nobody is at.
   asTyped  the words of this program's command line */
LISTING sctROLLOUT_VIEW(const FLEET& fleet, const CHOSEN& chosen,
                        const std::vector<std::string>& asTyped);
