/* vk_client_status: the whole fleet at a glance, for people and for machines. Reads the
   database and the outcome logs; writes nothing but the form that is asked for, and the
   file of --remember.

   Exit codes: 0; 1 no client matches names and choices; 2 the command line or the
   configuration is invalid, nothing can be read, or the form cannot be written.
   With --nagios: 0 to 3 as monitoring plugins have it. */
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <set>

#include "changes.h"
#include "common/base/program.h"
#include "common/base/replace.h"
#include "common/cm_db_access.h"
#include "common/common.h"
#include "common/config/config.h"
#include "common/remote/cause.h"
#include "common/unix/cm_hal_pipe.h"
#include "moment.h"
#include "options.h"
#include "plan.h"
#include "rollout_view.h"

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
    return options.eView == VIEW_FLEET && options.eForm == FORM_TABLE &&
           options.choice.asName.size() == 1 &&
           options.choice.asName[0].find_first_of("*?[") == std::string::npos;
}

/* Forms for programs hold values as they are; on a terminal none may steer it. */
std::string sFOR_TERMINAL(std::string_view svText)
{
    std::string s;
    for (size_t uEnd = 0; (uEnd = svText.find('\n')) != svText.npos; svText.remove_prefix(uEnd + 1))
        s.append(sONE_LINE(svText.substr(0, uEnd))).push_back('\n');
    return s + sONE_LINE(svText);
}

/* What is renamed over a device, such as /dev/null, takes it away from the whole machine. */
bool bREPLACEABLE(const std::string& sFile)
{
    struct stat sctStat {};
    return !sFile.starts_with("/dev/") &&
           (stat(sFile.c_str(), &sctStat) != 0 || S_ISREG(sctStat.st_mode) ||
            S_ISDIR(sctStat.st_mode));  // the system refuses a folder
}

/* Result  0: it cannot be written, as told on standard error */
int iREPLACE_FILE(const std::string& sFile, const std::string& sText)
{
    constexpr mode_t uMode = 0644;  // what web servers and collectors read
    if (!bREPLACEABLE(sFile))
        v_STDERR("cannot write \"%s\": it is not a regular file; name one that may be replaced",
                 sFile.c_str());
    else if (iREPLACE({sFile, sFile + ".new", uMode}, sText))
        return 1;
    else
        v_STDERR("cannot write \"%s\": %s", sFile.c_str(), std::strerror(errno));
    return 0;
}

int iWRITE(const OPTIONS& options, const std::string& sText)
{
    const std::string& sFile = options.eForm == FORM_PAGE ? options.sPage : options.sOutput;
    if (!sFile.empty()) return iREPLACE_FILE(sFile, sText);
    const bool bRaw = options.eForm != FORM_TABLE && isatty(STDOUT_FILENO) == 1;
    if (iWRITE_ALL(STDOUT_FILENO, bRaw ? sFOR_TERMINAL(sText) : sText)) return 1;
    v_STDERR("cannot write to standard output: %s", std::strerror(errno));
    return 0;
}

/* How the clients are. */
std::string sFLEET(const OPTIONS& options, const FLEET& fleet, const CHOSEN& chosen,
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
            return sFORM_PAGE(fleet, chosen, options.iEvery);
        default:
            break;
    }
    if (!bIN_FULL(options) || chosen.empty()) return sFORM_TABLE(fleet, chosen, sctLOOK(options));
    return sFORM_CLIENT(fleet, *chosen[0],
                        fleet.bDatabase ? READ_DETAILS(chosen[0]->sName) : std::vector<DETAIL>{},
                        runs, sctLOOK(options));
}

/* What a completion offers. Systems are also those that clients may be entered with. */
std::string sLIST(const std::string& sWhat, const FLEET& fleet)
{
    std::set<std::string> values;
    if (sWhat == "causes")
        for (const CAUSE& cause : actCAUSES()) values.insert(cause.cpId);
    if (sWhat == "systems")
        for (const std::string& sSystem : READ_SYSTEMS()) values.insert(sONE_LINE(sSystem));
    for (const CLIENT& client : fleet.clients)
        if (sWhat != "causes")
            values.insert(sONE_LINE(sWhat == "systems"     ? client.sOs
                                    : sWhat == "locations" ? client.sLocation
                                                           : client.sVersion));
    values.erase("");
    std::string s;
    for (const std::string& sValue : values) s += sValue + "\n";
    return s;
}

/* The state at the last call. Result 0: the file is there and cannot be used, as told; bThere
   false: it is not there yet. */
int iREAD_REMEMBERED(const std::string& sFile, PRIORS& priors, bool& bThere)
{
    std::string sText;
    errno = 0;
    bThere = iREAD_FILE(sFile, sText) == 1;
    if (!bThere && errno == ENOENT) return 1;
    if (!bThere)
        v_STDERR("cannot read \"%s\": %s", sFile.c_str(), cpERRNO(errno));
    else if (iREAD_REMEMBERED(sText, priors))
        return 1;
    else
        v_STDERR("cannot use \"%s\": not written by --remember; name another file", sFile.c_str());
    return 0;
}

READ_WISH sctWISH(const OPTIONS& options)
{
    READ_WISH wish{time(nullptr), options.iDays, options.iStaleDays, "", 10};
    if (bIN_FULL(options)) wish.sRunsOf = options.choice.asName[0];
    wish.bLogs = !(options.eView == VIEW_LIST ||
                   (options.eView == VIEW_FLEET && options.eForm == FORM_NAMES &&
                    !bNEEDS_LOGS(options.choice)));
    wish.bServer = options.eView == VIEW_PLAN || options.eView == VIEW_ROLLOUT;
    wish.bRollout = options.eView == VIEW_ROLLOUT;
    if (options.eView == VIEW_CHANGED)
        wish.lSince = options.lSince != 0 ? options.lSince : wish.lNow - lDAY;
    return wish;
}

/* Result 0: what the view needs is not there, as told. */
int iTELL_UNREAD(const OPTIONS& options, const FLEET& fleet, bool bRead)
{
    const bool bRows = options.eView == VIEW_PLAN || options.eView == VIEW_CHANGED;
    if (!fleet.bDatabase) {
        DB_TELL_FAILURE("the clients' rows not read", str_log{});
        if (bRows) return 0;
        v_STDERR("what follows is from the outcome logs alone");
    }
    if (!fleet.sLogError.empty()) v_STDERR("%s", fleet.sLogError.c_str());
    const bool bLogs = options.eView == VIEW_ROLLOUT ||
                       (options.eView == VIEW_CHANGED && options.sRemember.empty());
    if (bLogs && !fleet.sLogError.empty()) return 0;
    if (bRead) return 1;
    v_STDERR("the outcome logs of %s below \"%s\" name no client",
             sCOUNTED(options.iDays, "day").c_str(), read_glbv("gv_rw_prot"));
    return 0;
}

/* Names that are none are easily mistyped. */
void v_TELL_UNFITTING(const OPTIONS& options, const FLEET& fleet)
{
    if (fleet.clients.empty()) return;
    for (const std::string& sName : asUNFITTING(fleet, options.choice))
        v_STDERR("no such client: %s", sName.c_str());
}

int iSHOW(const OPTIONS& options)
{
    const bool bNagios = options.eForm == FORM_NAGIOS;
    v_DB_WAIT_AT_MOST(bNagios ? sctNAGIOS : sctPEOPLE);
    READ_WISH wish = sctWISH(options);
    PRIORS    priors;
    bool      bWhole = false;  // priors are those of the whole fleet
    if (!options.sRemember.empty()) {
        if (!iREAD_REMEMBERED(options.sRemember, priors, bWhole)) return iEXIT_TROUBLE;
        if (bWhole) wish.lSince = 0;
    }
    if (wish.lSince != 0)
        wish.iDays = std::max(wish.iDays, static_cast<int>((wish.lNow - wish.lSince) / lDAY) + 2);
    FLEET                fleet;
    std::vector<OUTCOME> runs;
    const bool           bRead = iREAD_FLEET(wish, fleet, runs) == 1;
    if (!bNagios && !iTELL_UNREAD(options, fleet, bRead)) return iEXIT_TROUBLE;
    if (fleet.lBadLines != 0)
        v_STDERR("skipped %s of the outcome logs",
                 sCOUNTED(fleet.lBadLines, "invalid line").c_str());
    const CHOSEN chosen = CHOOSE(fleet, options.choice);
    if (!bNagios && options.eView != VIEW_LIST) v_TELL_UNFITTING(options, fleet);
    if (options.eView == VIEW_ROLLOUT && fleet.rollout.sRun.empty()) {
        v_STDERR("the outcome logs of %s contain no update of many clients",
                 sCOUNTED(wish.iDays, "day").c_str());
        return iEXIT_NONE;
    }
    int         iExit = chosen.empty() && !bNagios && options.eForm <= FORM_CSV ? iEXIT_NONE : 0;
    std::string sText;
    const auto  sLISTED = [&](const LISTING& listing) {
        return sFORM_LISTING(listing, options.eForm, fleet.lNow, sctLOOK(options), options.bZero);
    };
    switch (options.eView) {
        case VIEW_FLEET:
            sText = sFLEET(options, fleet, chosen, runs, iExit);
            break;
        case VIEW_PLAN:
            sText =
                sLISTED(sctPLAN(chosen, {options.sPackage, options.bServicepack, options.asTyped}));
            break;
        case VIEW_ROLLOUT:
            sText = sLISTED(sctROLLOUT_VIEW(fleet, chosen, options.asTyped));
            break;
        case VIEW_CHANGED:
            sText = sFORM_CHANGES(fleet, options.choice, bWhole ? priors : fleet.priors, bWhole,
                                  wish.lSince, options.eForm);
            iExit = 0;
            break;
        case VIEW_LIST:
            sText = sLIST(options.sList, fleet);
            iExit = 0;
            break;
    }
    if (!iWRITE(options, sText)) return bNagios ? iEXIT_UNKNOWN : iEXIT_TROUBLE;
    if (!options.sRemember.empty() && !iREPLACE_FILE(options.sRemember, sREMEMBERED(fleet)))
        return iEXIT_TROUBLE;
    return iExit;
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
        return iExit == 0 ? 0 : iNO_SENSE(bNagios, "invalid command line");
    if (!iCONFIG_VALID()) return iNO_SENSE(bNagios, "invalid configuration");
    return iSHOW(options);
}
