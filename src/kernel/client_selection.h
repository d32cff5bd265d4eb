/* Which clients a run over many works on: the statement that selects them, and who of
   those that were named is left out. */
#pragma once

#include <string>
#include <vector>

#include "vk_config_client.h"

struct SELECTION {
    char szStatement[6144];
    bool bTooLong;  // the name list does not fit; nothing may be selected with it
    bool bByName;   // the list chooses the clients
};

/* The selection by the names of the list, or of all clients by location or system.
   Location and operating system count only for all clients, and each replaces what
   stood before. Clients whose exec is '1', in order of name. */
SELECTION sctSELECTION(const SCT_ARGS* pArg, t_LL LL_ClientList);

/* The name of a selected row is one of a client. A row that bears the word for all
   clients is none: its run would start this one again, without end. That is told. */
bool bCLIENT_NAME(const char* cpName);

/* Tells which of the named clients are not among those selected, and why. */
void v_TELL_LEFT_OUT(const std::vector<std::string>& asSelected, t_LL LL_ClientList);
