/* Wording. */
#include "wording.h"

#include "cells.h"
#include "common/text/text.h"
#include "log_records.h"

namespace {

void v_ADD(std::string& s, int iCount, const char* cpWords)
{
    if (iCount == 0) return;
    s += (s.ends_with(": ") ? "" : ", ") + std::to_string(iCount) + " " + cpWords;
}

}  // namespace

std::string sMESSAGE_TEXT(std::string_view sv)
{
    sv.remove_prefix(svMESSAGE_ID(sv).size());
    sv.remove_prefix(std::min(sv.find_first_not_of(' '), sv.size()));
    return sONE_LINE(sv);
}

std::string sWHY_OF(const std::string& sCause, const std::string& sStage,
                    const std::vector<std::string>& asWords, const std::string& sMessage)
{
    std::string s = sCause;
    if (!sStage.empty() && !s.empty()) s += " (" + sStage + ")";
    const std::string sWords = asWords.empty() ? sMESSAGE_TEXT(sMessage) : sJOINED(asWords, "; ");
    return sONE_LINE(s + (s.empty() || sWords.empty() ? "" : ": ") + sWords);
}

std::string sWHY(const CLIENT& client)
{
    return sWHY_OF(client.sCause, client.sStage, client.asWords, client.sMessage);
}

std::string sSUMMARY(const COUNTS& counts, size_t uClients)
{
    std::string s = sCOUNTED(static_cast<long>(uClients), "client") + ": ";
    v_ADD(s, counts.aiState[STATE_WELL], "well");
    v_ADD(s, counts.aiState[STATE_FAILED], "failing");
    v_ADD(s, counts.aiState[STATE_WARNED], "with a warning");
    v_ADD(s, counts.aiState[STATE_STALE], "stale");
    v_ADD(s, counts.aiState[STATE_NEVER], "never checked");
    v_ADD(s, counts.aiState[STATE_OFF], "off");
    std::string sUpdates = "; updates: ";
    v_ADD(sUpdates, counts.aiUpdate[UPDATE_RUNNING], "running");
    v_ADD(sUpdates, counts.aiUpdate[UPDATE_INTERRUPTED], "interrupted");
    v_ADD(sUpdates, counts.aiUpdate[UPDATE_FAILED], "failed");
    v_ADD(sUpdates, counts.aiUpdate[UPDATE_NOT_STARTED], "not started");
    v_ADD(sUpdates, counts.aiUpdate[UPDATE_RESTART], "waiting for a restart");
    if (s.ends_with(": ")) s.resize(s.size() - 2);
    return sUpdates.ends_with(": ") ? s : s + sUpdates;
}

std::string sNOTICE(const FLEET& fleet)
{
    std::string s;
    if (!fleet.bDatabase)
        s = "cannot read the database: " + sONE_LINE(fleet.sDatabaseError) +
            "; what follows is from the outcome logs alone";
    if (!fleet.sLogError.empty())
        s += (s.empty() ? "" : "; ") + sONE_LINE(fleet.sLogError) +
             "; causes, updates and the last days are missing";
    return s;
}
