/* Causes: why an operation on a host, or the run itself, failed. Each is one row of one
   table: identifier, stage, whose words show it and which, a sentence, and what to do.
   The man page has the same table (compared by a test).

   Sentences and cures hold places in braces, filled where the failure is told:
   {host} the client's name, {name} {address} {port} where its name leads, {user}, {key}
   and {config} of ssh, {jump} the host in between, {file} {line} of what is wrong there,
   {program}, {dir} of the client's programs, {kept} and {offered} fingerprints, {words}
   what was said, {server} the backup server's own name. */
#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>

#include "../log/outcome_log.h"

/* How far an operation came, in this order. */
enum STAGE {
    STAGE_NONE,
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
    STAGES
};

/* Whose words show a cause. Those of one speaker are never taken for another's. */
enum SPEAKER {
    NOBODY,         // it is found out otherwise
    SSH_SAYS,       // ssh on this server, before the login
    JUMP_SAYS,      // the ssh to a host in between
    SFTP_SAYS,      // the copying program
    WE_SAY,         // this library
    SHELL_SAYS,     // the client before the command began
    SCRIPT_SAYS,    // the client's update script
    DATABASE_SAYS,  // the database, or its client library
};

struct CAUSE {
    const char* cpId;
    STAGE       eStage;
    SPEAKER     eSpeaker;
    const char* cpWords;     // texts separated by "|", any of which shows it
    const char* cpSentence;  // what is wrong
    const char* cpCure;      // what to do, with the command to type; may be empty
};

/* All rows; of one speaker the first whose words are there counts. */
std::span<const CAUSE> actCAUSES();

/* The row with an identifier; one that does not exist ends the program in tests. */
const CAUSE& sctCAUSE(std::string_view svId);

/* The first row of a speaker, at eFrom or a later stage, that svText shows; null: none. */
const CAUSE* pCAUSE_SHOWN(SPEAKER eSpeaker, std::string_view svText, STAGE eFrom = STAGE_NONE);

const char* cpSTAGE(STAGE eStage);

/* Values of the places in braces, without the braces. */
using PLACES = std::map<std::string, std::string>;

/* What prints the line that admits this server on a client of an access mode. */
const char* cpPERMIT_COMMAND(std::string_view svMode);

/* svText with its places filled; one without a value stays as it is. */
std::string sFILLED(std::string_view svText, const PLACES& places);

/* The same for a cure: it is typed into a shell, so each value is a word there. */
std::string sCURE_FILLED(std::string_view svText, const PLACES& places);

/* A diagnosis from a row. Words and what to try are the caller's. */
DIAGNOSIS sctDIAGNOSIS(const CAUSE& cause, const PLACES& places);
