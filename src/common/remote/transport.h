/* How commands and files reach a host: one interface, three ways. The local
   transport starts child processes on this server; the ssh transport goes through
   OpenSSH to a shell, the ctrl transport to the gate of a client (vk_ctrl).
   Everything above it (limits, marks, output, verdict) is the same for all. */
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "../unix/cm_hal_pipe.h"
#include "cause.h"
#include "host.h"

/* Why a command did not run to its end. */
enum FAILURE {
    FAILURE_NONE,        // it did
    FAILURE_REFUSED,     // the host admits nobody with what we have
    FAILURE_TIME_LIMIT,  // a limit passed
    FAILURE_OTHER,
};

/* Why something cannot be tried at all, with the row of the table of causes. */
struct REFUSAL {
    std::string sReason;
    std::string sCause;
    PLACES      places;  // that the row needs besides
};

/* Always 0. */
inline int iREFUSE(REFUSAL& refusal, const std::string& sCause, const std::string& sReason)
{
    refusal.sReason = sReason;
    refusal.sCause = sCause;
    return 0;
}

/* The way that the command formed last took, and why it ended early. */
struct WAY {
    STAGE       eReached = STAGE_PROGRAM;  // the stage that it was in at last
    FINDING     finding;                   // of what the transport's program said
    std::string sReason;                   // the same for the user; "" when it says nothing
    std::string sBeside;                   // what came beside the output before the command began
    std::string sLast;                     // the last line of what it said
    bool        bRefused = false;          // the host admits nobody who comes so
    bool        bForced = false;           // the login is one for another command
    PLACES      places;                    // what is known of the host
    REACHED     reached;
};

/* What became of a copy. */
struct COPY_END {
    bool        bDone = false;
    std::string sReason;  // why not
    FINDING     finding;  // the same, where it is known
    PLACES      places;   // what belongs to that
};

struct TRANSPORT {
    virtual ~TRANSPORT() = default;

    /* Forms the child that runs a command line on the host. sPort: empty, as
       configured.
       Result  1 formed; 0 the host cannot be reached this way: refusal says why */
    virtual int iFORM(const HOST& host, const std::string& sPort, std::string_view svCommand,
                      int iConnectTimeout, CHILD_SPEC& sctSpec, REFUSAL& refusal) = 0;

    /* Whom the command formed last reached, once it has run. */
    virtual REACHED sctREACHED(const HOST& /*host*/) { return {}; }
    /* The way that it took, when it has not run. bLate: a limit passed */
    virtual WAY sctWAY(const HOST& /*host*/, bool /*bLate*/) { return {}; }
    /* How far the one that is under way has come before its command began. */
    virtual STAGE eREACHED(const HOST& /*host*/) { return STAGE_PROGRAM; }
    /* The transport's own log of that command, for the trace. */
    virtual std::string sLOG(const HOST& /*host*/) { return {}; }
    /* A line for a person's shell that does the same as a command on the host. */
    virtual std::string sBY_HAND(const HOST& /*host*/, std::string_view svCommand)
    {
        return std::string(svCommand);
    }
    /* A connection that is shared stands already, and may turn out to be broken. */
    virtual bool bESTABLISHED(const HOST& host) = 0;
    /* The command that was formed last did not begin, only because the connection that
       it had just made for sharing was gone already. */
    virtual bool bSHARING_FAILED(const HOST& /*host*/) { return false; }

    /* What the command that was formed last has taught of the host, when it could not
       be run and its child ended with iExit, -1 where that itself told why: true when it is
       worth another try. */
    virtual bool bLEARNT(const HOST& /*host*/, int /*iExit*/) { return false; }

    /* Takes away what a run that was killed has left on the host. Called when a command
       has just shown that it is there. */
    virtual void TIDY(const HOST& /*host*/) {}

    /* Where a symbolic path lies on the host, as sctPUT takes it.
       Result  1 sPath is set; 0 unknown directory key: sReason says which */
    virtual int iPLACE(const HOST& host, const char* cpPath, std::string& sPath,
                       std::string& sReason) = 0;

    /* Copies sSource (a file on this server) to sTarget (of iPLACE) on the host, whole
       or not at all, missing folders made.
       cpMode  octal permissions or null */
    virtual COPY_END sctPUT(const HOST& host, const std::string& sSource,
                            const std::string& sTarget, const char* cpMode) = 0;

    /* Removes folders on the host, the first one first, as far as they are empty. */
    virtual void REMOVE_FOLDERS(const HOST& /*host*/, const std::vector<std::string>& /*asFolder*/)
    {
    }
};

TRANSPORT& LOCAL_TRANSPORT();
TRANSPORT& SSH_TRANSPORT();
TRANSPORT& CTRL_TRANSPORT();

/* The transport of a host. */
TRANSPORT& TRANSPORT_OF(const HOST& host);

/* A symbolic path on a client, by what this server's configuration says of clients of
   its platform class; another path stands as it is. Result as iPLACE. */
int iCLIENT_PATH(const HOST& host, const char* cpPath, std::string& sPath, std::string& sReason);
