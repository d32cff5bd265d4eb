/* Reading the outcome logs: a JSON object per run and line, a file per day.

   They are large (a line of some 600 bytes per client and day), so the whole of them
   goes once, block by block, through a walk over the keys of each line that takes
   slices and builds nothing. What is said about few runs (why a client fails) is read
   by the JSON library, from the lines that the walk has noted. A line of another
   kind is counted and skipped. */
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "common/unix/cm_hal_pipe.h"
#include "fleet.h"

/* Where a line lies. */
struct LINE_PLACE {
    int    iFile = -1;  // -1: nowhere
    long   lOffset = 0;
    size_t uLength = 0;
};

/* What the walk keeps of a client. */
struct LOG_RECORD {
    LINE_PLACE   last;     // the newest run that was started
    LINE_PLACE   failure;  // the newest of those that failed, while the failure lasts
    LINE_PLACE   update;   // the newest update or service pack
    long         lFirst = 0;
    long         lLast = 0;
    long         lSince = 0;   // first failure after the last run that was well
    long         lWell = 0;    // the last run that was well
    long         lUpdate = 0;  // end of the last update or service pack
    UPDATE_STATE eUpdate = UPDATE_NONE;
    bool         bStored = true;    // the newest run's outcome stands in the row
    bool         bRemoved = false;  // the newest run removed the client
    bool         bReal = false;     // some run got further than "missing parameters"
    std::string  sHostKey;
    std::array<DAY_STATE, iSTRIP_DAYS> aeDay{};

    /* How it stood at wish.lSince, kept when its first later run comes. */
    bool        bLater = false;
    bool        bNew = false;  // that run registered it, and there was none before
    LINE_PLACE  failureThen;
    std::string sVersionThen;
};

struct HASH_TEXT {
    using is_transparent = void;
    size_t operator()(std::string_view sv) const { return std::hash<std::string_view>{}(sv); }
};

struct LOGS {
    std::vector<std::string> asFile;  // the oldest first
    std::unordered_map<std::string, LOG_RECORD, HASH_TEXT, std::equal_to<>> clients;
    std::vector<LINE_PLACE> runs;         // of the one client whose runs are wanted, oldest first
    long                    lOldest = 0;  // end of the oldest run that was read
    long                    lBad = 0;
    std::string             sError;    // why the folder cannot be read
    LINE_PLACE              rollout;   // the line of the last update of many
    std::string             sRollout;  // its identifier
    std::vector<LINE_PLACE> ended;     // lines of its clients
    FD                      fdOpen;    // the file that a line was last read from
    int                     iOpen = -1;
};

/* Walks over the logs of wish.iDays days. alDay: where the days of the strips begin. */
void v_READ_LOGS(const READ_WISH& wish, const std::array<long, iSTRIP_DAYS + 1>& alDay, LOGS& logs);

/* The run of that line. Result 0: it cannot be read any more. */
int iREAD_OUTCOME(LOGS& logs, const LINE_PLACE& place, OUTCOME& outcome);

/* The last update of many clients; its sRun stays empty when there was none. */
void v_READ_ROLLOUT(LOGS& logs, ROLLOUT_RUN& rollout);

/* The identifier at the beginning of a message ("E011-HOSTS"), or empty. */
std::string_view svMESSAGE_ID(std::string_view svMessage);

/* A restart is what the message asks for. */
bool bRESTART_ID(std::string_view svId);
