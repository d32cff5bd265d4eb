/* The command line. */
#pragma once

#include <string>

#include "chosen.h"
#include "forms.h"

enum FORM { FORM_TABLE, FORM_NAMES, FORM_JSON, FORM_CSV, FORM_NAGIOS, FORM_PROMETHEUS, FORM_PAGE };

struct OPTIONS {
    CHOICE      choice;
    FORM        eForm = FORM_TABLE;
    LIMITS      limits;
    std::string sOutput;  // file that is replaced; empty: standard output
    std::string sColor = "auto";
    int         iWidth = -1;  // -1: that of the terminal
    int         iDays = iSTRIP_DAYS;
    int         iStaleDays = 3;
    bool        bZero = false;
};

/* Reads the command line. --help and --version are answered here.
   Result  -1 go on; else the exit code with which the program ends: what is wrong has
           been told on standard error */
int iREAD_OPTIONS(int argc, char** argv, OPTIONS& options);
