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
int iREQUEST_OF(const HOST& host, std::string_view svCommand, REQUEST& request,
                std::string& sReason)
{
    std::string sCause;
    request.sMark = sRUN_MARK();
    if (svCommand == cpLIST) return 1;
    request.eVerb = REQUEST_RUN;
    const int iWords = iPOSIX_WORDS(svCommand, request.asWord, sCause);
    if (iWords && !request.asWord.empty()) return 1;
    return iREASON(sReason, "the gate of " + host.sName +
                                " takes a program and its words only; the command holds " +
                                (iWords ? "none" : sCause));
}

int iLINE(const HOST& host, const REQUEST& request, std::string& sLine, std::string& sReason)
{
    if (iREQUEST_FORM(request, sLine)) return 1;
    return iREASON(sReason, "the request to the gate of " + host.sName + " would be longer than " +
                                std::to_string(uREQUEST_MAX) + " bytes");
}

struct CTRL : OVER_SSH {
    int iFORM(const HOST& host, const std::string& sPort, std::string_view svCommand,
              int iConnectTimeout, CHILD_SPEC& sctSpec, std::string& sReason) override
    {
        REQUEST     request;
        std::string sLine;
        if (!bGATE(host))
            return SSH_TRANSPORT().iFORM(host, sPort, svCommand, iConnectTimeout, sctSpec, sReason);
        if (!iREQUEST_OF(host, svCommand, request, sReason) ||
            !iLINE(host, request, sLine, sReason))
            return 0;
        sctSpec.bPipeIn = true;
        // Whoever is on this machine may read an argument vector.
        if (sFOREIGN(svCommand) != svCommand) {
            sctSpec.sFirstInput = sLine + "\n";
            sLine = svREQUEST_FOLLOWS;
        }
        return iSSH_CALL(host, sPort, sLine, iConnectTimeout, sctSpec, sReason);
    }

    std::string sBY_HAND(const HOST& host, std::string_view svCommand, bool bPath) override
    {
        REQUEST     request;
        std::string sLine;
        std::string sReason;
        if (!bGATE(host)) return SSH_TRANSPORT().sBY_HAND(host, svCommand, bPath);
        if (!iREQUEST_OF(host, svCommand, request, sReason) ||
            !iLINE(host, request, sLine, sReason))
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

    int iPUT(const HOST& host, const std::string& sSource, const std::string& sTarget,
             const char* cpMode, std::string& sReason, const str_log& sctLog) override
    {
        if (!bGATE(host))
            return SSH_TRANSPORT().iPUT(host, sSource, sTarget, cpMode, sReason, sctLog);
        struct stat sctSource {};
        if (stat(sSource.c_str(), &sctSource) == 0 && !S_ISREG(sctSource.st_mode)) errno = EISDIR;
        if (!S_ISREG(sctSource.st_mode)) return iCANNOT("read", sSource, sReason);
        REQUEST request;
        request.eVerb = REQUEST_PUT;
        request.sMark = sRUN_MARK();
        request.sPath = sTarget;
        request.lSize = sctSource.st_size;
        request.uMode = cpMode != nullptr ? static_cast<unsigned>(std::strtoul(cpMode, nullptr, 8))
                                          : sctSource.st_mode & uPERMISSIONS;
        return iSEND(host, sSource, request, sReason, sctLog);
    }

private:
    /* The file itself is ssh's standard input: its end is the end of what travels. */
    int iSEND(const HOST& host, const std::string& sSource, const REQUEST& request,
              std::string& sReason, const str_log& sctLog)
    {
        CHILD_SPEC   sctSpec;
        std::string  sLine;
        const LIMITS limits = sctLIMITS(0, 0);
        if (!iLINE(host, request, sLine, sReason) ||
            !iSSH_CALL(host, "", sLine, limits.iConnect, sctSpec, sReason))
            return 0;
        TRACE_COMMAND_LINE(sctSpec, sctLog);
        sctSpec.sInFile = sSource;
        OUTPUT            output;
        COPY_PROGRESS     progress(sSource, request.lSize);
        const COMMAND_END outcome =
            sctRUN_CHILD(host, *this, sctSpec, limits, output, TIME_COMMAND,
                         [&](pid_t iPid) { return iPROGRESS_SHOW(progress, iPid) != 0; });
        sReason = outcome.bRan() ? output.sLastLine : outcome.sReason;
        return outcome.bRan() && outcome.lStatus == 0;
    }
};

}  // namespace

TRANSPORT& CTRL_TRANSPORT()
{
    static IMMORTAL<CTRL> transport;
    return transport.Get();
}
