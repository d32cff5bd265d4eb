/* Outcome log: one JSON object per run and line, in gv_rw_prot, day label, ".jsonl".

   A run has one record, which its end puts together of what the operations have handed
   back. What has no value is left out of the line; keys are only ever added. Texts are shown as everywhere: one line,
   passwords masked. */
#pragma once

#include <array>
#include <string>
#include <vector>

/* Where the time of a run goes. The connection to a client counts until its shell
   answers; the update script has a time of its own beside other commands. */
enum RUN_TIME { TIME_DATABASE, TIME_CONNECT, TIME_COMMAND, TIME_COPY, TIME_SCRIPT, RUN_TIMES };

/* Whom an operation reached. */
struct REACHED {
    std::string sHost;
    int         iPort = 0;
    std::string sHostKey;  // its fingerprint
};

/* Why an operation failed, as data. */
struct DIAGNOSIS {
    std::string              sStage;  // server name route port greeting host-key login ...
    std::string              sCause;  // identifier of a row of the table of causes
    std::string              sSentence;
    std::vector<std::string> asWords;   // that show it, the most telling first
    std::string              sCure;     // what to do, or where to look; may be empty
    std::string              sCommand;  // typed on this server it cures; may be empty
    std::string              sTry;      // a command that shows the same; may be empty
};

struct RUN_RECORD {
    std::string sRun;      // identifier of the run
    std::string sRollout;  // that of the update of many that it belongs to
    std::string sSender;
    std::string sClient;
    std::string sClientId;
    std::string sTask;            // register check test remove update servicepack
    bool        bStarted = true;  // false: the line is not written by the run itself
    int         iExit = 0;        // with bStarted false 0 is null: nobody was started
    std::string sMessage;         // run message
    DIAGNOSIS   diagnosis;        // of the operation that decided
    std::string sMode;            // access mode of the host
    REACHED     reached;
    std::string sVersionBefore;
    std::string sVersionAfter;
    int         iStored = -1;  // 1 the outcome stands in the client's row, 0 not, -1 unknown

    int iAt = -1;  // RUN_TIME of the operation under way, else of the last one; -1: none yet

    std::array<long, RUN_TIMES> alMicroseconds{-1, -1, -1, -1, -1};  // -1: none
};

/* The record of this run: the times are kept here, the rest is the run's. */
RUN_RECORD& sctRUN_RECORD();

/* Adds the time from its making to its end to the run's. */
class STAGE_TIMER {
public:
    explicit STAGE_TIMER(RUN_TIME eTime);
    STAGE_TIMER(const STAGE_TIMER&) = delete;
    STAGE_TIMER& operator=(const STAGE_TIMER&) = delete;
    ~STAGE_TIMER();
    /* What follows is another stage's time. */
    void Switch(RUN_TIME eTime);

private:
    void Add();

    RUN_TIME m_eTime;
    long     m_lStart;
};

/* Appends the record's line by one write. The begin of the line is that of the
   process, or for a client that was not started now. What cannot be written is told
   once on standard error. */
void v_OUTCOME_LOG(const RUN_RECORD& record);

/* The line, without its end. */
std::string sOUTCOME_LINE(const RUN_RECORD& record);

/* An update of many clients that is about to begin. */
struct ROLLOUT_RECORD {
    std::string              sRun;  // identifier of the run, and of the rollout
    std::string              sSender;
    std::string              sTask;
    std::string              sPackage;
    std::vector<std::string> asArgument;  // task, package and options as they are typed
    std::vector<std::string> asClient;    // in the order of the rollout
    int                      iPilot = 0;
    int                      iStopAfter = 0;
};

/* Appends its line: who is killed before the end leaves by it what was planned. */
void v_ROLLOUT_LOG(const ROLLOUT_RECORD& record);

/* 1 when the run of that process has left a line for the client. Looks at the end of the
   log only. */
int iOUTCOME_STANDS(long lPid, const std::string& sClient);
