/* A rollout. Its parent logs the clients that it is about to update; then each client's run
   has a line, or the parent has one for a client that it did not start. For the others the
   locks tell whether a run is working on them. */
#include "rollout_view.h"

#include <array>
#include <set>

#include "common/common.h"
#include "common/package/eligibility.h"
#include "log_records.h"
#include "moment.h"
#include "plan.h"
#include "wording.h"

namespace {

enum STEP { STEP_DONE, STEP_SAME, STEP_RUNNING, STEP_LEFT, STEP_FAILED, STEP_CUT, STEP_NOT, STEPS };
struct STEP_WORDS {
    const char* cpWord;
    COLOR       eColor;
    bool        bGoesOn;  // a further run has to take it up
};
constexpr STEP_WORDS asctStep[] = {
    {"done", COLOR_GREEN, false},        {"same version", COLOR_DIM, false},
    {"under way", COLOR_CYAN, false},    {"left", COLOR_NONE, true},
    {"failed", COLOR_RED, true},         {"interrupted", COLOR_YELLOW, true},
    {"not started", COLOR_YELLOW, true},
};
static_assert(std::size(asctStep) == STEPS);

constexpr LISTING_COLUMN asctColumn[] = {
    {"name", "NAME"},
    {"step", "STEP"},
    {"end", "ENDED", 1, true},
    {"version_before", "BEFORE", 3},
    {"version_after", "AFTER", 2},
    {"cause", nullptr},
    {"why", nullptr},
    {"command", nullptr},
};

STEP eENDED(const OUTCOME& outcome)
{
    if (!outcome.bStarted) return STEP_NOT;
    if (bSAME_VERSION(outcome.sMessage)) return STEP_SAME;
    if (outcome.iExit == 0 || bRESTART_ID(outcome.sId)) return STEP_DONE;
    return outcome.sCause == "interrupted" ? STEP_CUT : STEP_FAILED;
}

/* A client without a line. */
STEP eOPEN(const std::string& sName, const ROLLOUT_RUN& rollout)
{
    long lTime = 0;
    if (iLOCKED(sName, lTime) == 1) return STEP_RUNNING;
    if (lTime >= rollout.lBegin) return STEP_CUT;
    return rollout.bParent ? STEP_LEFT : STEP_NOT;
}

LISTING_ROW sctROW(const std::string& sName, const ROLLOUT_RUN& rollout, STEP& eStep)
{
    const auto    end = rollout.ended.find(sName);
    const bool    bEnded = end != rollout.ended.end();
    const OUTCOME outcome = bEnded ? end->second : OUTCOME();
    // Another run was at it; that one's end is not this rollout's.
    const bool bOther = outcome.sMessage.starts_with("Update already running.");
    eStep = bEnded && !bOther ? eENDED(outcome) : eOPEN(sName, rollout);
    const STEP_WORDS& words = asctStep[eStep];
    const std::string sWhy =
        sWHY_OF(outcome.sCause, outcome.sStage, outcome.asWords, outcome.sMessage);
    LISTING_ROW row;
    row.asValue = {sName,
                   words.cpWord,
                   outcome.bStarted && bEnded ? std::to_string(outcome.lEnd) : "",
                   outcome.sVersionBefore,
                   outcome.sVersionAfter,
                   outcome.sCause,
                   words.bGoesOn ? sWhy : "",
                   outcome.sCommand};
    row.sShown = words.cpWord;
    row.eColor = words.eColor;
    row.bNamed = words.bGoesOn;
    if (words.bGoesOn && !sWhy.empty()) row.below.push_back({sWhy, COLOR_DIM});
    if (!outcome.sCommand.empty())
        row.below.push_back({"type: " + sONE_LINE(outcome.sCommand), COLOR_CYAN});
    return row;
}

std::string sSUMMARY_OF(const FLEET& fleet, const std::array<long, STEPS>& alCount, size_t uClients)
{
    const ROLLOUT_RUN& rollout = fleet.rollout;
    std::string        s = sONE_LINE(rollout.sPackage) + ", begun " + sTIME_TEXT(rollout.lBegin) +
                    (rollout.bParent ? ", goes on" : ", ended") + "; pilot " +
                    std::to_string(rollout.iPilot) + ", stop after " +
                    std::to_string(rollout.iStopAfter) + "\n" +
                    sCOUNTED(static_cast<long>(uClients), "client") + ":";
    for (size_t u = 0; u < STEPS; u++)
        if (alCount[u] != 0)
            s += (s.ends_with(':') ? " " : ", ") + std::to_string(alCount[u]) + " " +
                 asctStep[u].cpWord;
    return s + "\n";
}

}  // namespace

LISTING sctROLLOUT_VIEW(const FLEET& fleet, const CHOSEN& chosen,
                        const std::vector<std::string>& asTyped)
{
    std::set<std::string_view> names;
    for (const CLIENT* p : chosen) names.insert(p->sName);
    LISTING                  listing{asctColumn, {}, ""};
    std::array<long, STEPS>  alCount{};
    std::vector<std::string> asOpen;
    for (const std::string& sName : fleet.rollout.asClient) {
        if (!names.contains(sName)) continue;
        STEP eStep = STEP_LEFT;
        listing.rows.push_back(sctROW(sName, fleet.rollout, eStep));
        alCount[eStep]++;
        if (asctStep[eStep].bGoesOn) asOpen.push_back(sName);
    }
    listing.sSummary = sSUMMARY_OF(fleet, alCount, listing.rows.size());
    if (!asOpen.empty() && !fleet.rollout.bParent)
        listing.sSummary +=
            "to go on, type: " + sUPDATE_COMMAND(fleet.rollout.asArgument, asOpen, asTyped) + "\n";
    return listing;
}
