/* The command line, option by option from one table. */
#include "options.h"

#include <getopt.h>

#include <charconv>
#include <cstdio>

#include "common/common.h"

extern const char gszGitId[];

namespace {

constexpr int iEXIT_USAGE = 2;

constexpr char szUSAGE[] = R"(usage: vk_client_status [CHOICE...] [FORM] [NAME...]

Shows how the clients of this backup server are: which are not well, since when, why,
and what to do. NAME may be a pattern ('web*'); one name alone is shown in full.

Choices (several narrow; one given several times takes any of its values)
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
Forms (without one: a table)
  --names [-0]           names, one a line, or each closed by a zero byte
  --json                 a JSON object a line
  --csv                  comma-separated values
  --nagios               one line for a monitoring system, exit code 0 to 3
  --prometheus           metrics for the text file collector
  --html FILE            a page, written to FILE
Further options
  --output FILE          writes any form to FILE, which is replaced as a whole
  --days N               reads the outcome logs of the last N days (14)
  --stale-after DAYS     from when on a client counts as stale (3)
  --warning N[%]         failing clients from which on --nagios warns (1)
  --critical N[%]        and from which on it is critical (10%)
  --stale-warning N[%]   the same for stale clients (1)
  --stale-critical N[%]  (0: never)
  --color WHEN           auto, always or never
  --width N              columns of the table; 0: whole values
  --help, --version

vk_client_status --failed --names | xargs -rd '\n' vk_config_client -C r --
checks once more what failed.
)";

/* How an option's value is taken. Result of pTake false: it makes no sense. */
struct OPTION {
    const char* cpName;
    const char* cpWants;  // what a value must be; null: it takes none
    bool (*pTake)(OPTIONS& options, const std::string& sValue);
};

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

template<LIMIT LIMITS::*pLimit>
bool bTAKE_LIMIT(OPTIONS& o, const std::string& sValue)
{
    return bLIMIT(sValue, o.limits.*pLimit);
}

constexpr char szDAYS[] = "a number of days";
constexpr char szLIMIT[] = "a number, or one of per cent such as 10%";
constexpr int  iMOST_DAYS = 36'500;

constexpr OPTION asctOption[] = {
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
    {"names", nullptr, bFORM<FORM_NAMES>},
    {"json", nullptr, bFORM<FORM_JSON>},
    {"csv", nullptr, bFORM<FORM_CSV>},
    {"nagios", nullptr, bFORM<FORM_NAGIOS>},
    {"prometheus", nullptr, bFORM<FORM_PROMETHEUS>},
    {"html", "a file",
     [](OPTIONS& o, const std::string& s) {
         o.sOutput = s;
         return bFORM<FORM_PAGE>(o, s) && !s.empty();
     }},
    {"output", "a file", [](OPTIONS& o, const std::string& s) { return !(o.sOutput = s).empty(); }},
    {"days", szDAYS,
     [](OPTIONS& o, const std::string& s) { return bNUMBER(s, 1, iMOST_DAYS, o.iDays); }},
    {"stale-after", szDAYS,
     [](OPTIONS& o, const std::string& s) { return bNUMBER(s, 1, iMOST_DAYS, o.iStaleDays); }},
    {"warning", szLIMIT, bTAKE_LIMIT<&LIMITS::warning>},
    {"critical", szLIMIT, bTAKE_LIMIT<&LIMITS::critical>},
    {"stale-warning", szLIMIT, bTAKE_LIMIT<&LIMITS::staleWarning>},
    {"stale-critical", szLIMIT, bTAKE_LIMIT<&LIMITS::staleCritical>},
    {"color", "auto, always or never",
     [](OPTIONS& o, const std::string& s) {
         o.sColor = s;
         return s == "auto" || s == "always" || s == "never";
     }},
    {"width", "a number of columns",
     [](OPTIONS& o, const std::string& s) { return bNUMBER(s, 0, 10'000, o.iWidth); }},
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

int iTAKE(OPTIONS& options, int iOption)
{
    const OPTION&     option = asctOption[iOption - iFIRST];
    const std::string sValue = option.cpWants != nullptr ? optarg : "";
    if (option.pTake(options, sValue)) return -1;
    v_STDERR("option --%s: \"%s\" is not %s", option.cpName, sValue.c_str(), option.cpWants);
    return iEXIT_USAGE;
}

}  // namespace

int iREAD_OPTIONS(int argc, char** argv, OPTIONS& options)
{
    const std::vector<option> longOptions = LONG_OPTIONS();
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
                v_STDERR("vk_client_status --help tells the options");
                return iEXIT_USAGE;
            default:
                if (const int iExit = iTAKE(options, iOption); iExit != -1) return iExit;
        }
    }
    options.choice.asName.assign(argv + optind, argv + argc);
    return -1;
}
