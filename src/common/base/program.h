/* What the library has to know about its program. */
#pragma once

#include <span>
#include <string>
#include <string_view>

struct PROGRAM {
    const char* cpName;     // in front of its lines on standard error; null: its file's name
    const char* cpOptions;  // its options, in getopt's form
    char        cSecret;    // the option whose value no trace may show
    /* Programs on clients that are left to finish once they run: half an installation
       is worse than one that nobody waits for. */
    std::span<const std::string_view> leftToFinish;
    /* Null, or: 1 when svText is a message of the program's catalogue, and then where the
       value in it that comes from another program or a library begins and ends. */
    int (*pForeign)(std::string_view svText, size_t& uBegin, size_t& uEnd) = nullptr;
};

/* Each program defines its own; the library's serves those that define none. */
extern const PROGRAM sctPROGRAM;

const char* cpPROGRAM_NAME();

/* The path of a file that lies beside this program. */
std::string sBESIDE(std::string_view svName);

/* A variable of the environment, "" where it is not set. */
std::string sENVIRONMENT(const char* cpName);
