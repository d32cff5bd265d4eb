/* Causes: why an operation on a host, or the run itself, failed. Each is one row of one
   table: identifier, stage, a sentence, where to look, and a command where one is certain
   to cure. The man page's table is made of it. Who judges names the row; what fits none is
   "not-recognised".

   The texts hold places in braces, filled where the failure is told: {host} the client's
   name, {name} {address} {port} where its name leads, {user}, {key} and {config} of ssh,
   {named} who named that user, {jump} the host in between, {program}, {dir} of the client's
   programs, {why} an error of this server's system, {words} what was said, {database} the
   machine of the database, {permit} the command that prints the line to type on a client. */
#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "../log/outcome_log.h"

/* How far an operation came, in this order. */
enum STAGE {
    STAGE_NONE,
    STAGE_SERVER,  // what this server lacks itself
    STAGE_NAME,
    STAGE_ROUTE,
    STAGE_PORT,
    STAGE_GREETING,
    STAGE_HOST_KEY,
    STAGE_LOGIN,
    STAGE_SHELL,
    STAGE_PROGRAM,
    STAGE_ANSWER,
    STAGE_COPY,
    STAGE_SCRIPT,
    STAGE_END,
    STAGES,
    STAGE_REACHED = STAGES  // of a row: wherever the operation was at last
};

struct CAUSE {
    const char* cpId = "";
    STAGE       eStage = STAGE_REACHED;
    const char* cpSentence = "";  // what is wrong
    const char* cpCure = "";      // what to do or where to look, and on which machine
    const char* cpCommand = "";   // typed on this server it cures
};

constexpr const char* cpNOT_RECOGNISED = "not-recognised";

/* What stands in front of a cause that is the host in between's. */
constexpr const char* cpJUMP = "jump-";

std::span<const CAUSE> actCAUSES();
const CAUSE*           pCAUSE(std::string_view svId);  // its row, null for none
const char*            cpSTAGE(STAGE eStage);

/* Values of the places in braces, without the braces. */
using PLACES = std::map<std::string, std::string>;

/* What somebody found out about a failure. */
struct FINDING {
    std::string              sCause;  // identifier of a row; "" there was no failure
    STAGE                    eReached = STAGE_NONE;
    std::vector<std::string> asWords;  // that show it, the most telling first
};

/* The diagnosis of a finding. Of an identifier that has no row the program ends. */
DIAGNOSIS sctDIAGNOSIS(const FINDING& finding, const PLACES& places);
