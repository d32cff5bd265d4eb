/* Programs that the setup runs: ssh, ssh-keygen, sshd, the start of a database server. */
#pragma once

#include <string>
#include <vector>

/* What a program left. */
struct PROGRAM_RUN {
    int         iStatus = -1;  // exit status; 128 + signal; -1: it did not start
    std::string sOut;          // standard output and error, in order; or why it did not start
    bool        bGood() const { return iStatus == 0; }
};

/* Runs a program to its end, at most iLimitS seconds, without standard input. */
PROGRAM_RUN sctRUN_PROGRAM(const std::vector<std::string>& asArgument, int iLimitS = 30);

/* The last line that is not empty. */
std::string sLAST_LINE(const std::string& sText);

/* Where a program is found by its name, "" nowhere. This program's own directory and
   those of the system's administration count, whatever PATH says. */
std::string sPROGRAM_PATH(const std::string& sName);
