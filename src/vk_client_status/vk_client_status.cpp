/* vk_client_status: the whole fleet at a glance, for people and for machines. Reads the
   database and the outcome logs; writes nothing but the form that is asked for.

   Exit codes: 0; 1 no client fits names and choices; 2 the command line or the
   configuration makes no sense, nothing can be read, or the form cannot be written.
   With --nagios: 0 to 3 as monitoring plugins have it. */
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "common/base/program.h"
#include "common/cm_db_access.h"
#include "common/common.h"
#include "common/config/config.h"
#include "common/unix/cm_hal_pipe.h"
#include "options.h"

constinit const PROGRAM sctPROGRAM{"vk_client_status", "", '\0', {}};

namespace {

constexpr int iEXIT_NONE = 1;
constexpr int iEXIT_TROUBLE = 2;
constexpr int iEXIT_UNKNOWN = 3;
constexpr int iUSUAL_WIDTH = 80;

/* Whoever asks waits, and the logs know most of it; a monitoring system gives a plugin
   ten seconds, often. */
constexpr DB_WAITS sctPEOPLE{3, 5, -1};
constexpr DB_WAITS sctNAGIOS{1, 3, 4};

/* A terminal gets ages and its own width, anything else whole values. */
TABLE_LOOK sctLOOK(const OPTIONS& options)
{
    const bool bTerminal = options.sOutput.empty() && isatty(STDOUT_FILENO) == 1;
    TABLE_LOOK look;
    winsize    sctSize{};
    if (bTerminal) {
        const bool bKnown = ioctl(STDOUT_FILENO, TIOCGWINSZ, &sctSize) == 0 && sctSize.ws_col != 0;
        look.iWidth = bKnown ? sctSize.ws_col : iUSUAL_WIDTH;
    }
    if (options.iWidth >= 0) look.iWidth = options.iWidth;
    const std::string sTerm = sENVIRONMENT("TERM");
    look.bColor =
        bTerminal && sENVIRONMENT("NO_COLOR").empty() && !sTerm.empty() && sTerm != "dumb";
    if (options.sColor != "auto") look.bColor = options.sColor == "always";
    return look;
}

/* One name without a pattern asks for the client in full. */
bool bIN_FULL(const OPTIONS& options)
{
    return options.eForm == FORM_TABLE && options.choice.asName.size() == 1 &&
           options.choice.asName[0].find_first_of("*?[") == std::string::npos;
}

int iCANNOT_WRITE(const std::string& sFile)
{
    v_STDERR("cannot write \"%s\": %s", sFile.c_str(), std::strerror(errno));
    return 0;
}

/* What is renamed over a device, such as /dev/null, takes it away from the whole machine. */
bool bREPLACEABLE(const std::string& sFile)
{
    struct stat sctStat {};
    return !sFile.starts_with("/dev/") &&
           (stat(sFile.c_str(), &sctStat) != 0 || S_ISREG(sctStat.st_mode) ||
            S_ISDIR(sctStat.st_mode));  // the system refuses a folder
}

/* Readers of the file see the old text or the new one, never a part. */
int iREPLACE(const std::string& sFile, const std::string& sText)
{
    if (!bREPLACEABLE(sFile)) {
        v_STDERR("cannot write \"%s\": it is no regular file; name one that may be replaced",
                 sFile.c_str());
        return 0;
    }
    std::string sNew = sFile + ".XXXXXX";
    FD          fd(mkostemp(sNew.data(), O_CLOEXEC));
    if (!fd.bOpen()) return iCANNOT_WRITE(sFile);
    constexpr mode_t uMode = 0644;  // what web servers and collectors read
    if (iWRITE_ALL(fd.iGet(), sText) && fchmod(fd.iGet(), uMode) == 0 && fsync(fd.iGet()) == 0 &&
        rename(sNew.c_str(), sFile.c_str()) == 0)
        return 1;
    const int iErrno = errno;
    unlink(sNew.c_str());
    errno = iErrno;
    return iCANNOT_WRITE(sFile);
}

/* Forms for programs hold values as they are; on a terminal none may steer it. */
std::string sFOR_TERMINAL(std::string_view svText)
{
    std::string s;
    for (size_t uEnd = 0; (uEnd = svText.find('\n')) != svText.npos; svText.remove_prefix(uEnd + 1))
        s.append(sONE_LINE(svText.substr(0, uEnd))).push_back('\n');
    return s + sONE_LINE(svText);
}

int iWRITE(const OPTIONS& options, const std::string& sText)
{
    if (!options.sOutput.empty()) return iREPLACE(options.sOutput, sText);
    const bool bRaw = options.eForm != FORM_TABLE && isatty(STDOUT_FILENO) == 1;
    return iWRITE_ALL(STDOUT_FILENO, bRaw ? sFOR_TERMINAL(sText) : sText) ||
           iCANNOT_WRITE("standard output");
}

std::string sFORM(const OPTIONS& options, const FLEET& fleet, const CHOSEN& chosen,
                  const std::vector<OUTCOME>& runs, int& iExit)
{
    switch (options.eForm) {
        case FORM_NAMES:
            return sFORM_NAMES(chosen, options.bZero);
        case FORM_JSON:
            return sFORM_JSON(fleet, chosen);
        case FORM_CSV:
            return sFORM_CSV(fleet, chosen);
        case FORM_NAGIOS:
            return sFORM_NAGIOS(fleet, chosen, options.limits, iExit);
        case FORM_PROMETHEUS:
            return sFORM_PROMETHEUS(fleet, chosen);
        case FORM_PAGE:
            return sFORM_PAGE(fleet, chosen);
        default:
            break;
    }
    if (!bIN_FULL(options) || chosen.empty()) return sFORM_TABLE(fleet, chosen, sctLOOK(options));
    return sFORM_CLIENT(fleet, *chosen[0],
                        fleet.bDatabase ? READ_DETAILS(chosen[0]->sName) : std::vector<DETAIL>{},
                        runs, sctLOOK(options));
}

/* No client: told for a name that is none, since it is easily mistyped. */
int iNOBODY(const OPTIONS& options, const FLEET& fleet)
{
    if (bIN_FULL(options) && !fleet.clients.empty()) {
        bool bKnown = false;
        for (const CLIENT& client : fleet.clients)
            bKnown = bKnown || client.sName == options.choice.asName[0];
        if (!bKnown) v_STDERR("no such client: %s", options.choice.asName[0].c_str());
    }
    return iEXIT_NONE;
}

int iSHOW(const OPTIONS& options)
{
    const bool bNagios = options.eForm == FORM_NAGIOS;
    v_DB_WAIT_AT_MOST(bNagios ? sctNAGIOS : sctPEOPLE);
    READ_WISH wish{time(nullptr), options.iDays, options.iStaleDays, "", 10};
    if (bIN_FULL(options)) wish.sRunsOf = options.choice.asName[0];
    FLEET                fleet;
    std::vector<OUTCOME> runs;
    const bool           bRead = iREAD_FLEET(wish, fleet, runs) == 1;
    if (!fleet.bDatabase && !bNagios) {
        DB_TELL_FAILURE("the clients' rows not read", str_log{});
        v_STDERR("what follows is from the outcome logs alone");
    }
    if (fleet.lBadLines != 0)
        v_STDERR("the outcome logs hold %ld lines that are none; passed over", fleet.lBadLines);
    if (!bRead && !bNagios) {
        v_STDERR("the outcome logs of %d days below \"%s\" name no client", options.iDays,
                 read_glbv("gv_rw_prot"));
        return iEXIT_TROUBLE;
    }
    const CHOSEN chosen = CHOOSE(fleet, options.choice);
    int          iExit = 0;
    if (!iWRITE(options, sFORM(options, fleet, chosen, runs, iExit)))
        return bNagios ? iEXIT_UNKNOWN : iEXIT_TROUBLE;
    return chosen.empty() && !bNagios && options.eForm <= FORM_CSV ? iNOBODY(options, fleet)
                                                                   : iExit;
}

/* What makes no sense, told on standard error already. A monitoring system shows the line
   of standard output, and takes 2 for critical. */
int iNO_SENSE(bool bNagios, const char* cpWhat)
{
    if (!bNagios) return iEXIT_TROUBLE;
    std::printf("CLIENTS UNKNOWN - %s\n", cpWhat);
    return iEXIT_UNKNOWN;
}

}  // namespace

int main(int argc, char** argv)
{
    v_STANDARD_DESCRIPTORS();
    v_MEMORY_SETUP();
    std::setlocale(LC_CTYPE, "C.UTF-8");
    bool bNagios = false;  // also where the command line cannot be read to its end
    for (int i = 1; i < argc; i++) bNagios = bNagios || std::strcmp(argv[i], "--nagios") == 0;
    OPTIONS options;
    if (const int iExit = iREAD_OPTIONS(argc, argv, options); iExit != -1)
        return iExit == 0 ? 0 : iNO_SENSE(bNagios, "the command line makes no sense");
    if (!iCONFIG_VALID()) return iNO_SENSE(bNagios, "the configuration makes no sense");
    return iSHOW(options);
}
