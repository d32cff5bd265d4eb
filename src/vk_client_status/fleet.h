/* The fleet as this program shows it: one record per client, read from the database
   and the outcome logs and judged in one place, so that every form says the same. */
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

constexpr int iSTRIP_DAYS = 14;

/* How a client stands, in the order in which lists show it. */
enum CLIENT_STATE {
    STATE_FAILED,  // its last run failed
    STATE_WARNED,  // its last run did its work, and asks for something (a restart)
    STATE_STALE,   // well when it was last looked at, which is too long ago
    STATE_NEVER,   // entered, and never looked at
    STATE_WELL,
    STATE_OFF,  // takes no part in checks of all clients
    STATE_COUNT
};

enum UPDATE_STATE {
    UPDATE_NONE,         // nothing is known of an update
    UPDATE_DONE,         // the last one succeeded, or found the version installed
    UPDATE_WARNED,       // it succeeded, and the client did not answer afterwards
    UPDATE_RESTART,      // it asked for a restart of which no report tells yet
    UPDATE_FAILED,       // it failed, or was refused before it began
    UPDATE_NOT_STARTED,  // a run over many clients left this one out
    UPDATE_INTERRUPTED,  // begun, not ended, and nobody is at it
    UPDATE_RUNNING,
    UPDATE_COUNT
};

/* What a day of a client was like. */
enum DAY_STATE : uint8_t { DAY_NONE, DAY_WELL, DAY_MIXED, DAY_FAILED };

/* One run, as its line in the outcome log tells it. */
struct OUTCOME {
    long                     lBegin = 0;  // seconds since 1970, 0: not told
    long                     lEnd = 0;
    std::string              sTask, sClientId, sId, sMessage, sStage, sCause, sCure, sCommand;
    std::string              sMode, sHost, sPort;
    std::string              sHostKey, sVersionBefore, sVersionAfter, sSender;
    std::vector<std::string> asWords;
    int                      iExit = 0;
    bool                     bStarted = true;  // false: left out by a run over many clients
    bool                     bStored = true;
    long                     lMilliseconds = -1;
};

/* A client. Times are seconds since 1970, 0 where there is none. */
struct CLIENT {
    std::string              sName, sId, sOs, sMode, sLocation, sVersion, sServicepack;
    long                     lVersion = 0;
    bool                     bTakesPart = true;
    int                      iAccessState = 0;
    long                     lChecked = 0;
    long                     lSucceeded = 0;
    std::string              sMessage, sMessageId;  // of the last run
    CLIENT_STATE             eState = STATE_NEVER;
    long                     lSince = 0;          // first failure after the last success
    bool                     bSinceExact = true;  // false: at that time it had failed already
    std::string              sStage, sCause, sCure, sCommand;  // of the failure, while it lasts
    std::vector<std::string> asWords;
    UPDATE_STATE             eUpdate = UPDATE_NONE;
    long                     lUpdate = 0;  // end of the last update; begin of one under way
    std::string              sUpdateMessage;
    std::string              sUpdateWhy;    // why it failed or was not started, in one line
    std::string              sUpdateCause;  // its cause, or identifier of its message
    std::string              sHostKey;
    std::string              sSameKeyAs;         // another client that shows the same host key
    std::array<DAY_STATE, iSTRIP_DAYS> aeDay{};  // the last one is today

    /* Read from the database, and only used to judge. */
    std::string sUpdateColumn, sDataMover;
    long        lUpdateColumn = 0;
    long        lOrder = 0;  // place in the order in which a run over many goes
};

/* A client as it stood at an earlier time. */
struct PRIOR {
    bool         bKnown = true;  // false: it is new since then
    bool         bFailing = false;
    std::string  sCause;  // or identifier of the message, while it failed
    std::string  sVersion;
    UPDATE_STATE eUpdate = UPDATE_NONE;
    long         lUpdate = 0;
};
using PRIORS = std::map<std::string, PRIOR>;

/* An update of many clients, as the line tells it that its parent wrote before it began. */
struct ROLLOUT_RUN {
    std::string                    sRun, sPackage;
    long                           lBegin = 0;
    int                            iPilot = 0, iStopAfter = 0;
    bool                           bParent = false;  // the run that starts the others is alive
    std::vector<std::string>       asArgument;       // its task and options, as they were typed
    std::vector<std::string>       asClient;         // in the order in which they are updated
    std::map<std::string, OUTCOME> ended;            // or told as not started
};

struct FLEET {
    std::vector<CLIENT>               clients;  // in the order of their names
    long                              lNow = 0;
    int                               iStaleDays = 3;
    bool                              bDatabase = true;
    std::string                       sDatabaseError;  // why the database could not be read
    std::string                       sLogError;       // why the outcome logs could not be read
    long                              lBadLines = 0;   // of the outcome logs, skipped
    PRIORS                            priors;          // of clients with a run since wish.lSince
    ROLLOUT_RUN                       rollout;         // the last one; sRun empty: none
    std::array<long, iSTRIP_DAYS + 1> alDay{};         // where the days of the strips begin
};

/* How many clients stand in each state. */
struct COUNTS {
    std::array<int, STATE_COUNT>  aiState{};
    std::array<int, UPDATE_COUNT> aiUpdate{};
    int                           iTakePart = 0;
};

/* What is to be read. */
struct READ_WISH {
    long        lNow = 0;
    int         iDays = iSTRIP_DAYS;  // of the outcome logs, today included
    int         iStaleDays = 3;
    std::string sRunsOf;  // the client whose last runs are wanted, or empty
    int         iRuns = 10;
    bool        bLogs = true;      // false: where the database answers, the rows suffice
    bool        bServer = false;   // the server's own row is a client like the others
    bool        bRollout = false;  // the last update of many clients is wanted
    long        lSince = 0;        // how clients stood then is wanted; 0: not
};

/* Reads the fleet. A database that cannot be read is told in fleet.sDatabaseError; the
   clients are then those of the outcome logs.
   runs    the last runs of wish.sRunsOf, the newest first
   Result  0: neither database nor logs tell of a client */
int iREAD_FLEET(const READ_WISH& wish, FLEET& fleet, std::vector<OUTCOME>& runs);

/* Updates that did not come to their end, for whatever reason. */
int iFAILED_UPDATES(const COUNTS& counts);

COUNTS sctCOUNT(const std::vector<const CLIENT*>& chosen);

/* What it fails for, short: the cause, or the identifier of the message. */
const std::string& sREASON(const CLIENT& client);

/* An update of the client is under way (1), or one was killed that began at lTime (0), which
   is 0 when none is known. */
int iLOCKED(const std::string& sName, long& lTime);

/* The words of states, as every form writes them. */
std::string_view svSTATE(CLIENT_STATE eState);
std::string_view svUPDATE(UPDATE_STATE eState);
