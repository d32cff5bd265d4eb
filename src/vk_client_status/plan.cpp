/* The plan of an update. A client's verdict follows the order in which its run decides:
   whether it is selected, whether another update is running, whether it answers, its name
   and system, its version. */
#include "plan.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "chosen.h"
#include "common/common.h"
#include "common/config/config.h"
#include "common/package/eligibility.h"
#include "common/text/command_line.h"
#include "wording.h"

namespace {

enum VERDICT {
    PLAN_UPDATE,
    PLAN_BACK,
    PLAN_RESTART,
    PLAN_SAME,
    PLAN_REFUSED,
    PLAN_FAILING,
    PLAN_RUNNING,
    PLAN_OFF,
    PLAN_COUNT
};
struct VERDICT_WORDS {
    const char* cpWord;
    COLOR       eColor;
    bool        bUpdated;  // the run carries the update out
};
constexpr VERDICT_WORDS asctVerdict[] = {
    {"update", COLOR_GREEN, true},           {"goes back", COLOR_YELLOW, true},
    {"restart pending", COLOR_YELLOW, true}, {"same version", COLOR_DIM, false},
    {"refused", COLOR_RED, false},           {"failing", COLOR_RED, false},
    {"update under way", COLOR_CYAN, false}, {"off", COLOR_DIM, false},
};
static_assert(std::size(asctVerdict) == PLAN_COUNT);

constexpr LISTING_COLUMN asctColumn[] = {
    {"name", "NAME"},
    {"verdict", "VERDICT"},
    {"cause", nullptr},
    {"why", nullptr},
    {"version", "NOW", 2},
    {"version_after", "AFTER", 2},
    {"servicepack", "SP NOW", 3},
    {"servicepack_after", "SP AFTER", 3},
    {"system", "SYSTEM", 5},
    {"mode", nullptr},
    {"location", "LOC", 6},
    {"pilot", "PILOT", 1},
};

struct PLANNED {
    VERDICT         eVerdict = PLAN_UPDATE;
    std::string     sCause, sWhy;
    PACKAGE_VERSION version;
};

/* An update would fail before it begins: of mode VIRTUAL, or by what the last check, or the
   last update before it began, has found. */
bool bUNREACHED(const CLIENT& client)
{
    constexpr std::string_view asvId[] = {"E002", "E007", "E009", "E010", "E011", "E020"};
    return client.eState == STATE_FAILED && client.sId != "0" &&
           (client.sMessage.starts_with("Error from alive test: ") ||
            std::any_of(std::begin(asvId), std::end(asvId),
                        [&](std::string_view sv) { return client.sMessageId.starts_with(sv); }));
}

bool bGOES_BACK(const CLIENT& client, const PACKAGE_VERSION& version, bool bServicepack)
{
    if (bServicepack)
        return version.lServicepack < std::strtol(client.sServicepack.c_str(), nullptr, 10);
    return version.lNumber < lINSTALLED(client);
}

PLANNED sctJUDGED(const CLIENT& client, const PLAN_WISH& wish)
{
    const char* cpPackage = wish.sPackage.c_str();
    const bool  bWindows = sctCLIENT_KIND(client.sOs).bWindows;
    PLANNED     planned;
    planned.version = sctPACKAGE_VERSION(cpPackage, wish.bServicepack, bWindows);
    const PACKAGE_VERSION& version = planned.version;
    planned.sWhy = sPACKAGE_REFUSED(cpPackage, version, client.sOs);
    if (!client.bTakesPart) return {PLAN_OFF, "", "exec is not '1'", {}};
    if (client.eUpdate == UPDATE_RUNNING) return {PLAN_RUNNING, "", "", {}};
    if (client.sMode == "VIRTUAL")
        return {PLAN_FAILING, "no-remote-access", "access mode VIRTUAL", {}};
    if (bUNREACHED(client)) return {PLAN_FAILING, sREASON(client), sWHY(client), {}};
    if (!planned.sWhy.empty()) {
        const bool bOther = version.lNumber == 0 && wish.bServicepack &&
                            sctPACKAGE_VERSION(cpPackage, true, !bWindows).lNumber != 0;
        planned.eVerdict = PLAN_REFUSED;
        planned.sCause = bOther ? "kind of package" : version.lNumber == 0 ? "version" : "system";
        return planned;
    }
    planned.eVerdict = bREFUSED_AS_SAME(version, client.lVersion, wish.bServicepack, false)
                           ? PLAN_SAME
                       : bGOES_BACK(client, version, wish.bServicepack) ? PLAN_BACK
                       : client.eUpdate == UPDATE_RESTART               ? PLAN_RESTART
                                                                        : PLAN_UPDATE;
    return planned;
}

LISTING_ROW sctROW(const CLIENT& client, const PLANNED& planned, bool bServicepack)
{
    const VERDICT_WORDS& words = asctVerdict[planned.eVerdict];
    const std::string    sAfter = words.bUpdated ? sVERSION_TEXT(planned.version.lNumber) : "";
    const std::string sNumber = words.bUpdated ? std::to_string(planned.version.lServicepack) : "";
    LISTING_ROW       row;
    row.asValue = {client.sName,
                   words.cpWord,
                   planned.sCause,
                   planned.sWhy,
                   client.sVersion,
                   bServicepack ? "" : sAfter,
                   bServicepack ? client.sServicepack : "",
                   bServicepack ? sNumber : "",
                   client.sOs,
                   client.sMode,
                   client.sLocation,
                   ""};
    row.sShown = words.cpWord + (planned.sCause.empty() ? "" : ": " + sONE_LINE(planned.sCause));
    row.eColor = words.eColor;
    row.bNamed = words.bUpdated;
    if (planned.eVerdict == PLAN_REFUSED || planned.eVerdict == PLAN_FAILING)
        row.below.push_back({sONE_LINE(planned.sWhy), COLOR_DIM});
    return row;
}

/* The first clients, one at a time. One that has the version, or is updated by another run,
   gives its place to the next; another one that is not updated ends the rollout. */
std::string sPILOT(LISTING& listing, const std::vector<VERDICT>& aeVerdict)
{
    int iPilot = 0;
    if (!iCONFIG_BRAKE("gv_update_pilot", iPilot))
        return "pilot: gv_update_pilot is invalid; the update would be refused\n";
    const auto               uPilot = static_cast<size_t>(std::max(iPilot, 0));
    std::vector<std::string> asPilot;
    std::string              sStops;
    for (size_t u = 0; u < aeVerdict.size() && asPilot.size() < uPilot && sStops.empty(); u++) {
        const VERDICT eVerdict = aeVerdict[u];
        if (eVerdict == PLAN_SAME || eVerdict == PLAN_RUNNING || eVerdict == PLAN_OFF) continue;
        asPilot.push_back(listing.rows[u].asValue[0]);
        listing.rows[u].asValue.back() = "pilot";
        if (!asctVerdict[eVerdict].bUpdated)
            sStops = "; the rollout stops at " + sONE_LINE(asPilot.back());
    }
    if (uPilot == 0) return "pilot: none (gv_update_pilot is 0)\n";
    return "pilot: " + sONE_LINE(sJOINED(asPilot, ", ")) + sStops + "\n";
}

/* What lies where the update takes the package from. */
std::string sFILES(const std::string& sPackage)
{
    std::string sPath;
    std::string sReason;
    if (!iCONFIG_SERVER_PATH(sPACKAGE_SOURCE(sPackage).c_str(), sPath, sReason)) sPath = sReason;
    std::string s = "package: " + sONE_LINE(sPath);
    if (access(sPath.c_str(), R_OK) != 0) {
        const std::string sWhy = std::strerror(errno);
        v_STDERR("cannot read \"%s\": %s", sPath.c_str(), sWhy.c_str());
        s += " (" + sWhy + ")";
    }
    std::string sFound;
    for (const char* cpSuffix : acpSIGNATURE_SUFFIX)
        if (file_exist((sPath + cpSuffix).c_str()))
            sFound += (sFound.empty() ? "" : ", ") + sPath + cpSuffix;
    return s + "\nsignature: " + (sFound.empty() ? "not found" : sONE_LINE(sFound)) + "\n";
}

std::string sCOUNTS(const std::vector<VERDICT>& aeVerdict)
{
    std::array<long, PLAN_COUNT> alCount{};
    for (const VERDICT eVerdict : aeVerdict) alCount[eVerdict]++;
    std::string s = sCOUNTED(static_cast<long>(aeVerdict.size()), "client") + ":";
    for (size_t u = 0; u < alCount.size(); u++)
        if (alCount[u] != 0)
            s += (s.ends_with(':') ? " " : ", ") + std::to_string(alCount[u]) + " " +
                 asctVerdict[u].cpWord;
    return s + "\n";
}

}  // namespace

LISTING sctPLAN(const CHOSEN& chosen, const PLAN_WISH& wish)
{
    CHOSEN ordered = chosen;
    std::sort(ordered.begin(), ordered.end(),
              [](const CLIENT* a, const CLIENT* b) { return a->lOrder < b->lOrder; });
    LISTING                  listing{asctColumn, {}, ""};
    std::vector<VERDICT>     aeVerdict;
    std::vector<std::string> asName;
    size_t                   uOther = 0;  // than the version that the service pack is for
    for (const CLIENT* p : ordered) {
        if (p->sId == "0" && !p->bTakesPart) continue;  // the server as most have it
        const PLANNED planned = sctJUDGED(*p, wish);
        aeVerdict.push_back(planned.eVerdict);
        listing.rows.push_back(sctROW(*p, planned, wish.bServicepack));
        if (!listing.rows.back().bNamed) continue;
        asName.push_back(p->sName);
        uOther += wish.bServicepack && p->lVersion != planned.version.lNumber ? 1 : 0;
    }
    listing.sSummary = sCOUNTS(aeVerdict);
    if (uOther != 0)
        listing.sSummary += sCOUNTED(static_cast<long>(uOther), "client") +
                            " with another version than the service pack is for\n";
    listing.sSummary += sPILOT(listing, aeVerdict) + sFILES(wish.sPackage);
    if (asName.empty()) return listing;
    listing.sSummary += "type: " +
                        sUPDATE_COMMAND({wish.bServicepack ? "-S" : "-U", "-P", wish.sPackage},
                                        asName, wish.asTyped) +
                        "\n";
    return listing;
}

std::string sUPDATE_COMMAND(const std::vector<std::string>& asTask,
                            const std::vector<std::string>& asName,
                            const std::vector<std::string>& asTyped)
{
    constexpr size_t         uFEW = 8;
    std::vector<std::string> asWord{"vk_config_client"};
    asWord.insert(asWord.end(), asTask.begin(), asTask.end());
    asWord.emplace_back("--");
    if (asName.size() <= uFEW) {
        asWord.insert(asWord.end(), asName.begin(), asName.end());
        return sONE_LINE(sTYPED(asWord));
    }
    std::vector<std::string> asView{"vk_client_status", "--names", "-0"};
    asView.insert(asView.end(), asTyped.begin(), asTyped.end());
    return sONE_LINE(sTYPED(asView)) + " | xargs -0r " + sONE_LINE(sTYPED(asWord));
}
