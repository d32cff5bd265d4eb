/* Which clients are shown: names and choices of the command line. */
#pragma once

#include <string>
#include <vector>

#include "fleet.h"

/* Several choices narrow; of one that is given several times any suffices. Texts may
   hold the patterns of a shell. */
struct CHOICE {
    std::vector<std::string> asName;
    std::vector<std::string> asCause;  // a cause, or a message's identifier
    std::vector<std::string> asLocation;
    std::vector<std::string> asSystem;           // the beginning of one suffices
    long                     lVersionBelow = 0;  // as l_cli_version makes it; 0: any
    int                      iStaleDays = -1;    // not looked at for so long; -1: any
    bool bFailed = false, bNever = false, bUpdating = false, bUpdateFailed = false;
    bool bRestartPending = false, bSameHostKey = false;

    bool operator==(const CHOICE&) const = default;
};

/* The clients that fit, in the order of their names. */
std::vector<const CLIENT*> CHOOSE(const FLEET& fleet, const CHOICE& choice);

/* The same of a client that has no row any more, of which only the name is known. */
bool bCHOSEN_GONE(const CHOICE& choice, const std::string& sName);

/* The names and patterns that no client of the fleet has. */
std::vector<std::string> asUNFITTING(const FLEET& fleet, const CHOICE& choice);

/* More than the rows has to be known for it. */
bool bNEEDS_LOGS(const CHOICE& choice);

/* The installed version as a number, by the row's number or, without one, its text. */
long lINSTALLED(const CLIENT& client);

/* Its last update did not come to its end, for whatever reason. */
bool bUPDATE_FAILED(const CLIENT& client);

/* A version of one to four parts ("5.2") as l_cli_version makes it. 0: it is none. */
long lVERSION_OF(const std::string& sVersion);

/* Lists for people: the failed ones first. */
void v_WORST_FIRST(std::vector<const CLIENT*>& chosen);
