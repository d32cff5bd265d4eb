/* The command line. */
#pragma once

#include <string>

#include "chosen.h"
#include "forms.h"

/* What is shown of the chosen clients. */
enum VIEW { VIEW_FLEET, VIEW_PLAN, VIEW_CHANGED, VIEW_ROLLOUT, VIEW_LIST };

struct OPTIONS {
    CHOICE                   choice;
    VIEW                     eView = VIEW_FLEET;
    FORM                     eForm = FORM_TABLE;
    NAGIOS_LIMITS            limits;
    std::string              sPackage;  // of VIEW_PLAN
    bool                     bServicepack = false;
    long                     lSince = 0;     // of VIEW_CHANGED; 0: a day ago
    std::string              sRemember;      // file of the state at the last call, or empty
    std::string              sList;          // of VIEW_LIST
    int                      iEvery = 1440;  // minutes between two writings of the page
    std::string              sOutput;        // file that is replaced; empty: standard output
    std::string              sPage;          // the file of --html
    std::string              sColor = "auto";
    int                      iWidth = -1;  // -1: that of the terminal
    int                      iDays = iSTRIP_DAYS;
    int                      iStaleDays = 3;
    bool                     bZero = false;
    std::vector<std::string> asTyped;  // the words of the command line
};

/* Reads the command line. --help and --version are answered here. Options that are not
   used are told on standard error.
   Result  -1 go on; else the exit code with which the program ends: what is wrong has
           been told on standard error */
int iREAD_OPTIONS(int argc, char** argv, OPTIONS& options);
