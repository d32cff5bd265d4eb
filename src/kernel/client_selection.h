/* Which clients a run over many works on: the statements that select them, their rows, and
   which named clients are skipped. */
#pragma once

#include <list>
#include <string>
#include <vector>

#include "vk_config_client.h"

struct SELECTION {
    std::vector<std::string> asStatement;      // one; several for a long list of names
    bool                     bByName = false;  // the list chooses the clients
};

/* The selected rows, in order of name. */
struct SELECTED {
    struct ROW {
        const DB_REC_LIS* pList;
        int               iRow;  // there
    };
    std::list<DB_REC_LIS> lists;
    std::vector<ROW>      rows;
};

/* The selection by the names of the list, or of all clients by location or system.
   Location and operating system count only for all clients, and each replaces what
   stood before. Clients whose exec is '1', in order of name. */
SELECTION sctSELECTION(const SCT_ARGS* pArg, t_LL LL_ClientList);

/* Runs the selection. What it selected before is let go.
   szReply  error text of a statement that failed
   Result   1 selected, 0 not */
int iSELECT(const SELECTION& selection, SELECTED* pSelected, char (&szReply)[256]);

/* Lets the rows go. */
void v_LET_GO(SELECTED* pSelected);

/* The name of a selected row is one of a client. A row that bears the word for all
   clients is none: its run would start this one again, without end. That is told. */
bool bCLIENT_NAME(const char* cpName);

/* Tells which of the named clients are not among those selected, and why. */
void v_TELL_LEFT_OUT(const std::vector<std::string>& asSelected, t_LL LL_ClientList);
