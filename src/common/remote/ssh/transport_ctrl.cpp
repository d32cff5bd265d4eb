/* Clients of mode CTRL, whose key leads to a gate (vk_ctrl) and to nothing else: what
   travels is a request of the gate's own (request.h). A key of that mode may also lead
   to a shell of the administrator's making; its "not found" (127) tells, and such a
   client is worked with as the ssh transport does, for the rest of the run. */
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <set>

#include "../../base/immortal.h"
#include "../../lines/secret.h"
#include "../../lines/standard_error.h"
#include "../command.h"
#include "../request.h"
#include "../transport.h"
#include "../wrapper.h"
#include "copy_progress.h"
#include "ssh_call.h"

namespace {

constexpr int         iNOT_FOUND = 127;
constexpr const char* cpLIST = "ls -a /";
constexpr mode_t      uPERMISSIONS = 0755;  // of the source, that a copy has by itself

std::set<std::string>& WITHOUT_GATE()
{
    static IMMORTAL<std::set<std::string>> names;
    return names.Get();
}

bool bGATE(const HOST& host)
{
    return !WITHOUT_GATE().contains(host.sName);
}

/* The request for a command line as the tool forms it. */
int iREQUEST_OF(const HOST& host, std::string_view svCommand, REQUEST& request, REFUSAL& refusal)
{
    std::string sCause;
    request.sMark = sRUN_MARK();
    if (svCommand == cpLIST) return 1;
    request.eVerb = REQUEST_RUN;
    const int iWords = iPOSIX_WORDS(svCommand, request.asWord, sCause);
    if (iWords && !request.asWord.empty()) return 1;
    return iREFUSE(refusal, "command-not-formed",
                   "the gate of " + host.sName +
                       " accepts only a program and its arguments; the command contains " +
                       (iWords ? "none" : sCause));
}

int iLINE(const HOST& host, const REQUEST& request, std::string& sLine, REFUSAL& refusal)
{
    if (iREQUEST_FORM(request, sLine)) return 1;
    return iREFUSE(refusal, "command-not-formed",
                   "the request to the gate of " + host.sName + " would be longer than " +
                       std::to_string(uREQUEST_MAX) + " bytes");
}

struct CTRL : OVER_SSH {
    int iFORM(const HOST& host, const std::string& sPort, std::string_view svCommand,
              int iConnectTimeout, CHILD_SPEC& sctSpec, REFUSAL& refusal) override
    {
        REQUEST     request;
        std::string sLine;
        if (!bGATE(host))
            return SSH_TRANSPORT().iFORM(host, sPort, svCommand, iConnectTimeout, sctSpec, refusal);
        if (!iREQUEST_OF(host, svCommand, request, refusal) ||
            !iLINE(host, request, sLine, refusal))
            return 0;
        sctSpec.bPipeIn = true;
        // Whoever is on this machine may read an argument vector.
        if (sFOREIGN(svCommand) != svCommand) {
            sctSpec.sFirstInput = sLine + "\n";
            sLine = svREQUEST_FOLLOWS;
        }
        return iSSH_CALL(host, sPort, sLine, iConnectTimeout, sctSpec, refusal);
    }

    std::string sBY_HAND(const HOST& host, std::string_view svCommand) override
    {
        REQUEST     request;
        std::string sLine;
        REFUSAL     refusal;
        if (!bGATE(host)) return SSH_TRANSPORT().sBY_HAND(host, svCommand);
        if (!iREQUEST_OF(host, svCommand, request, refusal) ||
            !iLINE(host, request, sLine, refusal))
            return "";
        return sSSH_BY_HAND(host, sLine, false);
    }

    bool bLEARNT(const HOST& host, int iExit) override
    {
        if (!bGATE(host)) return SSH_TRANSPORT().bLEARNT(host, iExit);
        return iExit == iNOT_FOUND && WITHOUT_GATE().insert(host.sName).second;
    }

    /* The gate resolves symbolic paths by the client's own configuration. */
    int iPLACE(const HOST& host, const char* cpPath, std::string& sPath,
               std::string& sReason) override
    {
        if (!bGATE(host)) return SSH_TRANSPORT().iPLACE(host, cpPath, sPath, sReason);
        sPath = cpPath;
        return 1;
    }

    COPY_END sctPUT(const HOST& host, const std::string& sSource, const std::string& sTarget,
                    const char* cpMode) override
    {
        if (!bGATE(host)) return SSH_TRANSPORT().sctPUT(host, sSource, sTarget, cpMode);
        struct stat sctSource {};
        if (stat(sSource.c_str(), &sctSource) == 0 && !S_ISREG(sctSource.st_mode)) errno = EISDIR;
        if (!S_ISREG(sctSource.st_mode)) return {false, sCANNOT("read", sSource), {}, {}};
        REQUEST request;
        request.eVerb = REQUEST_PUT;
        request.sMark = sRUN_MARK();
        request.sPath = sTarget;
        request.lSize = sctSource.st_size;
        request.uMode = cpMode != nullptr ? static_cast<unsigned>(std::strtoul(cpMode, nullptr, 8))
                                          : sctSource.st_mode & uPERMISSIONS;
        return sctSEND(host, sSource, request);
    }

private:
    /* The file itself is ssh's standard input: its end is the end of what travels. */
    COPY_END sctSEND(const HOST& host, const std::string& sSource, const REQUEST& request)
    {
        CHILD_SPEC   sctSpec;
        std::string  sLine;
        REFUSAL      refusal;
        const LIMITS limits = sctLIMITS(0, 0);
        if (!iLINE(host, request, sLine, refusal) ||
            !iSSH_CALL(host, "", sLine, limits.iConnect, sctSpec, refusal))
            return {false, refusal.sReason, {refusal.sCause, STAGE_SERVER, {refusal.sReason}}, {}};
        sctSpec.sInFile = sSource;
        OUTPUT            output;
        COPY_PROGRESS     progress(sSource, request.lSize);
        const COMMAND_END outcome =
            sctRUN_CHILD(host, *this, sctSpec, limits, output, TIME_COMMAND,
                         [&](pid_t iPid) { return iPROGRESS_SHOW(progress, iPid) != 0; });
        if (!outcome.bRan())
            return {false, outcome.sReason, outcome.way.finding, outcome.way.places};
        COPY_END end{outcome.lStatus == 0, output.sLastLine, {}, {}};
        // The gate's own words; the end is the system's.
        for (const auto& [cpSays, cpCause] :
             {std::pair{"takes no packages from the backup server", "packages-refused"},
              std::pair{": No space left on device", "disk-full"},
              std::pair{"no space left", "disk-full"},
              std::pair{": Read-only file system", "disk-read-only"},
              std::pair{": Permission denied", "copy-not-permitted"}})
            if (end.sReason.find(cpSays) != end.sReason.npos) end.finding.sCause = cpCause;
        return end;
    }
};

}  // namespace

TRANSPORT& CTRL_TRANSPORT()
{
    static IMMORTAL<CTRL> transport;
    return transport.Get();
}
