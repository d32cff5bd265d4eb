/* The command line, option by option from one table. */
#include "options.h"

#include <getopt.h>

#include <charconv>
#include <cstdio>
#include <ctime>

#include "common/common.h"
#include "moment.h"

extern const char gszGitId[];

namespace {

constexpr int iEXIT_USAGE = 2;

constexpr char szUSAGE[] = R"(usage: vk_client_status [VIEW] [CHOICE...] [FORM] [NAME...]

Shows how the clients of this backup server are: which are not well, since when, why,
and what to do. NAME may be a pattern ('web*'); one name alone is shown in full.

Views (without one: how the clients are)
  --plan PACKAGE         what an update to PACKAGE would do with each client
  --servicepack          PACKAGE is a service pack
  --rollout              the last update of many clients: who is done, who is left
  --changed              what has changed in the last day; nothing when nothing has
  --since TIME           or since TIME ("2026-11-25 06:00") or so long ago (12h, 3d)
  --remember FILE        or since the last call with FILE, which is written anew
  --list WHAT            each once: systems, locations, versions or causes
Choices (all must match; of several NAME, --cause, --location or --os, one)
  --failed               whose last run failed
  --cause CAUSE          failing for that cause ('host-key-*'), or with that message (E011)
  --stale DAYS           not checked for more than DAYS days
  --never                never checked
  --location PLACE       at that location
  --os SYSTEM            of that operating system, or one that begins so
  --version-below V      whose installed version is lower
  --updating             whose update is under way
  --update-failed        whose last update failed, was interrupted or was not started
  --restart-pending      whose update waits for a restart
  --same-host-key        that show the same host key as another client
Forms (without one: a table; --plan and --rollout have the first three, --changed --json)
  --names [-0]           names, one a line, or each closed by a zero byte
  --json                 a JSON object a line
  --csv                  comma-separated values
  --nagios               one line for a monitoring system, exit code 0 to 3
  --prometheus           metrics for the text file collector
  --html FILE            a page, written to FILE
Further options
  --output FILE          writes any form to FILE, which is replaced as a whole
  --every MINUTES        how often --html is written anew (1440); the page tells when it is late
  --days N               reads the outcome logs of the last N days (14)
  --stale-after DAYS     from when on a client counts as stale (3)
  --warning N[%]         failing clients from which on --nagios warns (1)
  --critical N[%]        and from which on it is critical (10%)
  --stale-warning N[%]   the same for clients that are stale or were never checked (1)
  --stale-critical N[%]  (0: never)
  --update-warning N[%]  the same for failed updates (1)
  --update-critical N[%] (0: never)
  --color WHEN           auto, always or never
  --width N              columns of the table; 0: whole values
  --help, --version

vk_client_status --failed --names | xargs -rd '\n' vk_config_client -C r --
checks once more what failed.
)";

/* Sets of forms and views, a bit each. */
constexpr unsigned uBIT(int i)
{
    return 1U << static_cast<unsigned>(i);
}
constexpr unsigned uANY = ~0U;
constexpr unsigned uLISTS = uBIT(FORM_TABLE) | uBIT(FORM_NAMES) | uBIT(FORM_JSON) | uBIT(FORM_CSV);

/* The forms that each view has. */
constexpr unsigned auFORMS[] = {uANY, uLISTS, uBIT(FORM_TABLE) | uBIT(FORM_JSON), uLISTS,
                                uBIT(FORM_TABLE)};

/* How an option's value is taken. Result of pTake false: it makes no sense. */
struct OPTION {
    const char* cpName = "";
    const char* cpWants = nullptr;  // what a value must be; null: it takes none
    bool (*pTake)(OPTIONS& options, const std::string& sValue) = nullptr;
    unsigned uForms = uANY;  // with which it is used
    unsigned uViews = uANY;
    char     cKind = ' ';  // f a form, v a view: one of each at most
};

constexpr char szDAYS[] = "a number of days";
constexpr char szLIMIT[] = "a number or a percentage such as 10%";
constexpr int  iMOST_DAYS = 36'500;

bool bLIMIT(std::string sValue, LIMIT& limit)
{
    limit.bPercent = sValue.ends_with('%');
    if (limit.bPercent) sValue.pop_back();
    const char* cpEnd = sValue.data() + sValue.size();
    const auto  result = std::from_chars(sValue.data(), cpEnd, limit.dNumber);
    return result.ec == std::errc() && result.ptr == cpEnd && limit.dNumber >= 0;
}

template<FORM eForm>
bool bFORM(OPTIONS& o, const std::string& /*sValue*/)
{
    o.eForm = eForm;
    return true;
}

template<VIEW eView>
bool bVIEW(OPTIONS& o, const std::string& /*sValue*/)
{
    o.eView = eView;
    return true;
}

/* "12h", "3d", or a date, with or without a time. */
bool bSINCE(OPTIONS& o, const std::string& sGiven)
{
    std::string sValue = sGiven;
    const long  lNow = time(nullptr);
    int         iNumber = 0;
    const char  cUnit = sValue.empty() ? ' ' : sValue.back();
    if ((cUnit == 'h' || cUnit == 'd') &&
        bNUMBER(std::string_view(sValue).substr(0, sValue.size() - 1), 0, iMOST_DAYS, iNumber)) {
        o.lSince = lNow - iNumber * (cUnit == 'h' ? lDAY / 24 : lDAY);
        return true;
    }
    constexpr std::string_view svFull = "2026-01-01 00:00:00";
    if (sValue.size() < svFull.size() && (sValue.size() == 10 || sValue.size() == 16))
        sValue += std::string_view(" 00:00:00").substr(sValue.size() == 10 ? 0 : 6);
    o.lSince = lSECONDS_OF(sValue);
    return o.lSince != 0 && o.lSince <= lNow;
}

template<bool CHOICE::*pFlag>
bool bFLAG(OPTIONS& o, const std::string& /*sValue*/)
{
    o.choice.*pFlag = true;
    return true;
}

template<std::vector<std::string> CHOICE::*pTexts>
bool bTEXTS(OPTIONS& o, const std::string& sValue)
{
    (o.choice.*pTexts).push_back(sValue);
    return true;
}

template<LIMIT NAGIOS_LIMITS::*pLimit>
bool bTAKE_LIMIT(OPTIONS& o, const std::string& sValue)
{
    return bLIMIT(sValue, o.limits.*pLimit);
}

// clang-format off
constexpr unsigned uNAGIOS = uBIT(FORM_NAGIOS), uPLAN = uBIT(VIEW_PLAN), uCHANGED = uBIT(VIEW_CHANGED);
// clang-format on

constexpr OPTION asctOption[] = {
    {"plan", "a package",
     [](OPTIONS& o, const std::string& s) {
         o.sPackage = s;
         return bVIEW<VIEW_PLAN>(o, s) && !s.empty();
     },
     uANY, uANY, 'v'},
    {"servicepack", nullptr, [](OPTIONS& o, const std::string&) { return o.bServicepack = true; },
     uANY, uPLAN},
    {"rollout", nullptr, bVIEW<VIEW_ROLLOUT>, uANY, uANY, 'v'},
    {"changed", nullptr, bVIEW<VIEW_CHANGED>, uANY, uANY, 'v'},
    {"since", "a past time such as 2026-11-25 or 12h", bSINCE, uANY, uCHANGED},
    {"remember", "a file",
     [](OPTIONS& o, const std::string& s) { return !(o.sRemember = s).empty(); }, uANY, uCHANGED},
    {"list", "systems, locations, versions or causes",
     [](OPTIONS& o, const std::string& s) {
         o.sList = s;
         return bVIEW<VIEW_LIST>(o, s) &&
                (s == "systems" || s == "locations" || s == "versions" || s == "causes");
     },
     uANY, uANY, 'v'},
    {"failed", nullptr, bFLAG<&CHOICE::bFailed>},
    {"cause", "a cause", bTEXTS<&CHOICE::asCause>},
    {"stale", szDAYS,
     [](OPTIONS& o, const std::string& s) {
         return bNUMBER(s, 0, iMOST_DAYS, o.choice.iStaleDays);
     }},
    {"never", nullptr, bFLAG<&CHOICE::bNever>},
    {"location", "a location", bTEXTS<&CHOICE::asLocation>},
    {"os", "an operating system", bTEXTS<&CHOICE::asSystem>},
    {"version-below", "a version such as 5.2 or 5.2.0-1",
     [](OPTIONS& o, const std::string& s) {
         return (o.choice.lVersionBelow = lVERSION_OF(s)) != 0;
     }},
    {"updating", nullptr, bFLAG<&CHOICE::bUpdating>},
    {"update-failed", nullptr, bFLAG<&CHOICE::bUpdateFailed>},
    {"restart-pending", nullptr, bFLAG<&CHOICE::bRestartPending>},
    {"same-host-key", nullptr, bFLAG<&CHOICE::bSameHostKey>},
    {"names", nullptr, bFORM<FORM_NAMES>, uANY, uANY, 'f'},
    {"json", nullptr, bFORM<FORM_JSON>, uANY, uANY, 'f'},
    {"csv", nullptr, bFORM<FORM_CSV>, uANY, uANY, 'f'},
    {"nagios", nullptr, bFORM<FORM_NAGIOS>, uANY, uANY, 'f'},
    {"prometheus", nullptr, bFORM<FORM_PROMETHEUS>, uANY, uANY, 'f'},
    {"html", "a file",
     [](OPTIONS& o, const std::string& s) {
         o.sPage = s;
         return bFORM<FORM_PAGE>(o, s) && !s.empty();
     },
     uANY, uANY, 'f'},
    {"every", "a number of minutes",
     [](OPTIONS& o, const std::string& s) { return bNUMBER(s, 1, 1'000'000, o.iEvery); },
     uBIT(FORM_PAGE)},
    {"output", "a file", [](OPTIONS& o, const std::string& s) { return !(o.sOutput = s).empty(); },
     ~uBIT(FORM_PAGE)},
    {"days", szDAYS,
     [](OPTIONS& o, const std::string& s) { return bNUMBER(s, 1, iMOST_DAYS, o.iDays); }},
    {"stale-after", szDAYS,
     [](OPTIONS& o, const std::string& s) { return bNUMBER(s, 1, iMOST_DAYS, o.iStaleDays); }},
    {"warning", szLIMIT, bTAKE_LIMIT<&NAGIOS_LIMITS::warning>, uNAGIOS},
    {"critical", szLIMIT, bTAKE_LIMIT<&NAGIOS_LIMITS::critical>, uNAGIOS},
    {"stale-warning", szLIMIT, bTAKE_LIMIT<&NAGIOS_LIMITS::staleWarning>, uNAGIOS},
    {"stale-critical", szLIMIT, bTAKE_LIMIT<&NAGIOS_LIMITS::staleCritical>, uNAGIOS},
    {"update-warning", szLIMIT, bTAKE_LIMIT<&NAGIOS_LIMITS::updateWarning>, uNAGIOS},
    {"update-critical", szLIMIT, bTAKE_LIMIT<&NAGIOS_LIMITS::updateCritical>, uNAGIOS},
    {"color", "auto, always or never",
     [](OPTIONS& o, const std::string& s) {
         o.sColor = s;
         return s == "auto" || s == "always" || s == "never";
     },
     uBIT(FORM_TABLE)},
    {"width", "a number of columns",
     [](OPTIONS& o, const std::string& s) { return bNUMBER(s, 0, 10'000, o.iWidth); },
     uBIT(FORM_TABLE)},
};
constexpr int iFIRST = 256;  // above every letter
constexpr int iHELP = 'h';
constexpr int iVERSION = 'V';

std::vector<option> LONG_OPTIONS()
{
    std::vector<option> options;
    for (const OPTION& o : asctOption)
        options.push_back({o.cpName, o.cpWants != nullptr ? required_argument : no_argument,
                           nullptr, iFIRST + static_cast<int>(&o - asctOption)});
    options.push_back({"help", no_argument, nullptr, iHELP});
    options.push_back({"version", no_argument, nullptr, iVERSION});
    options.push_back({});
    return options;
}

using GIVEN = std::vector<const OPTION*>;

int iTAKE(OPTIONS& options, int iOption, GIVEN& given)
{
    const OPTION&     option = asctOption[iOption - iFIRST];
    const std::string sValue = option.cpWants != nullptr ? optarg : "";
    given.push_back(&option);
    if (option.pTake(options, sValue)) return -1;
    v_STDERR("option --%s: \"%s\" is not %s", option.cpName, sValue.c_str(), option.cpWants);
    return iEXIT_USAGE;
}

const OPTION* pGIVEN(const GIVEN& given, char cKind)
{
    for (const OPTION* p : given)
        if (p->cKind == cKind) return p;
    return nullptr;
}

/* Two forms, two views, a form that the view does not have. */
int iEXCLUDE(const OPTIONS& options, const GIVEN& given)
{
    const OPTION* pForm = pGIVEN(given, 'f');
    const OPTION* pView = pGIVEN(given, 'v');
    for (const OPTION* p : given)
        for (const OPTION* pFirst : {pForm, pView})
            if (pFirst != nullptr && p->cKind == pFirst->cKind && p != pFirst) {
                v_STDERR("options --%s and --%s exclude each other", pFirst->cpName, p->cpName);
                return iEXIT_USAGE;
            }
    if (pForm == nullptr || pView == nullptr || (auFORMS[options.eView] & uBIT(options.eForm)) != 0)
        return -1;
    v_STDERR("option --%s has no form --%s", pView->cpName, pForm->cpName);
    return iEXIT_USAGE;
}

void v_TELL_UNUSED(const OPTIONS& options, const GIVEN& given)
{
    for (const OPTION* p : given)
        if ((p->uForms & uBIT(options.eForm)) == 0 || (p->uViews & uBIT(options.eView)) == 0)
            v_STDERR("option --%s is not used here", p->cpName);
    if (options.bZero && options.eForm != FORM_NAMES)
        v_STDERR("option -0 is not used without --names");
    if (options.eView == VIEW_LIST && options.choice != CHOICE{})
        v_STDERR("names and choices are not used with --list");
}

}  // namespace

int iREAD_OPTIONS(int argc, char** argv, OPTIONS& options)
{
    const std::vector<option> longOptions = LONG_OPTIONS();
    options.asTyped.assign(argv + 1, argv + argc);
    GIVEN given;
    optind = 0;
    for (int iOption = 0;
         (iOption = getopt_long(argc, argv, "0h", longOptions.data(), nullptr)) != -1;) {
        switch (iOption) {
            case iHELP:
                std::fputs(szUSAGE, stdout);
                return 0;
            case iVERSION:
                std::printf("vk_client_status of %s\n", gszGitId);
                return 0;
            case '0':
                options.bZero = true;
                break;
            case '?':
                v_STDERR("vk_client_status --help lists the options");
                return iEXIT_USAGE;
            default:
                if (const int iExit = iTAKE(options, iOption, given); iExit != -1) return iExit;
        }
    }
    options.choice.asName.assign(argv + optind, argv + argc);
    if (const int iExit = iEXCLUDE(options, given); iExit != -1) return iExit;
    v_TELL_UNUSED(options, given);
    return -1;
}
