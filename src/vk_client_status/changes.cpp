/* What has changed. */
#include "changes.h"

#include <nlohmann/json.hpp>
#include <set>

#include "chosen.h"
#include "common/common.h"
#include "moment.h"
#include "wording.h"

namespace {

using JSON = nlohmann::ordered_json;

constexpr LISTING_COLUMN asctColumn[] = {
    {"name", ""}, {"change", ""}, {"was", ""},     {"now", ""},
    {"why", ""},  {"cure", ""},   {"command", ""},
};

PRIOR sctNOW(const CLIENT& client)
{
    PRIOR now;
    now.bFailing = client.eState == STATE_FAILED;
    if (now.bFailing) now.sCause = sREASON(client);
    now.sVersion = client.sVersion;
    now.eUpdate = client.eUpdate;
    now.lUpdate = client.lUpdate;
    return now;
}

bool bOTHER_VERSION(const std::string& sWas, const std::string& sNow)
{
    const long lNow = l_cli_version(sNow.c_str());
    return !sWas.empty() && !sNow.empty() && sWas != sNow &&
           (lNow == 0 || l_cli_version(sWas.c_str()) != lNow);
}

/* The changes of one client. */
struct CHANGES {
    LISTING& listing;
    void     Add(const CLIENT& client, const char* cpChange, const std::string& sWas,
                 const std::string& sNow, const std::string& sWhy = "", bool bCure = false)
    {
        LISTING_ROW& row = listing.rows.emplace_back();
        row.asValue = {client.sName,
                       cpChange,
                       sWas,
                       sNow,
                       sWhy,
                       bCure ? client.sCure : "",
                       bCure ? client.sCommand : ""};
    }
};

void v_COMPARE(const CLIENT& client, const PRIOR& was, long lSince, LISTING& listing)
{
    const PRIOR now = sctNOW(client);
    CHANGES     changes{listing};
    const bool  bEnded = now.eUpdate != UPDATE_NONE && now.eUpdate != UPDATE_RUNNING &&
                        now.lUpdate > lSince &&
                        (now.eUpdate != was.eUpdate || now.lUpdate != was.lUpdate);
    if (!was.bKnown) changes.Add(client, "new", "", now.sVersion);
    // An update that failed is told as that.
    const bool bByUpdate = bEnded && client.sUpdateWhy == sWHY(client);
    if (now.bFailing && !was.bFailing && !bByUpdate)
        changes.Add(client, "began to fail", "", now.sCause, sWHY(client), true);
    if (!now.bFailing && was.bFailing && client.eState != STATE_OFF)
        changes.Add(client, "well again", was.sCause, "");
    if (now.bFailing && was.bFailing && now.sCause != was.sCause)
        changes.Add(client, "other cause", was.sCause, now.sCause, sWHY(client), true);
    if (bEnded)
        changes.Add(client, "update", "", std::string(svUPDATE(now.eUpdate)), client.sUpdateWhy,
                    bByUpdate);
    if (was.bKnown && bOTHER_VERSION(was.sVersion, now.sVersion))
        changes.Add(client, "version", was.sVersion, now.sVersion);
}

/* "beta: began to fail: key-not-accepted (login): denied" */
std::string sLINE(const std::vector<std::string>& asValue)
{
    const std::string& sWas = asValue[2];
    const std::string& sNow = asValue[3];
    const std::string& sWhy = asValue[4];
    std::string        s = asValue[0] + ": " + asValue[1];
    if (sWhy.empty() && !sNow.empty()) s += " " + sNow;
    if (!sWhy.empty())
        s += (asValue[1] == "update" && !sWhy.starts_with(sNow) ? " " + sNow : "") + ": " + sWhy;
    if (!sWas.empty()) s += ", was " + sWas;
    if (s.ends_with('.') && !(asValue[5].empty() && asValue[6].empty())) s.pop_back();
    if (!asValue[6].empty())
        s += "; type: " + asValue[6];
    else if (!asValue[5].empty())
        s += "; cure: " + asValue[5];
    return sONE_LINE(s) + "\n";
}

}  // namespace

std::string sREMEMBERED(const FLEET& fleet)
{
    std::string s;
    for (const CLIENT& client : fleet.clients) {
        const PRIOR now = sctNOW(client);
        s +=
            JSON{{"name", client.sName},    {"failing", now.bFailing}, {"cause", now.sCause},
                 {"version", now.sVersion}, {"update", now.eUpdate},   {"update_time", now.lUpdate}}
                .dump(-1, ' ', false, JSON::error_handler_t::replace) +
            "\n";
    }
    return s;
}

int iREAD_REMEMBERED(const std::string& sText, PRIORS& priors)
{
    for (const std::string_view svLine : asvPIECES(sText)) {
        const JSON line = JSON::parse(svLine, nullptr, false);
        if (!line.is_object()) return 0;
        try {
            const int iUpdate = line.at("update").get<int>();
            if (iUpdate < 0 || iUpdate >= UPDATE_COUNT) return 0;
            priors[line.at("name").get<std::string>()] = {true,
                                                          line.at("failing").get<bool>(),
                                                          line.at("cause").get<std::string>(),
                                                          line.at("version").get<std::string>(),
                                                          static_cast<UPDATE_STATE>(iUpdate),
                                                          line.at("update_time").get<long>()};
        } catch (const JSON::exception&) {
            return 0;
        }
    }
    return 1;
}

std::string sFORM_CHANGES(const FLEET& fleet, const CHOICE& choice, const PRIORS& priors,
                          bool bWhole, long lSince, FORM eForm)
{
    LISTING                    listing{asctColumn, {}, ""};
    std::set<std::string_view> names;
    for (const CLIENT& client : fleet.clients) names.insert(client.sName);
    for (const CLIENT* p : CHOOSE(fleet, choice)) {
        const auto known = priors.find(p->sName);
        if (known != priors.end())
            v_COMPARE(*p, known->second, lSince, listing);
        else if (bWhole)
            v_COMPARE(*p, {false, false, "", "", UPDATE_NONE, 0}, lSince, listing);
    }
    for (const auto& [sName, prior] : priors)
        if (prior.bKnown && !names.contains(sName) && bCHOSEN_GONE(choice, sName))
            listing.rows.push_back(
                {{sName, "removed", "", "", "", "", ""}, "", COLOR_NONE, {}, true});
    if (eForm != FORM_TABLE) return sFORM_LISTING(listing, eForm, fleet.lNow, {}, false);
    std::string s;
    for (const LISTING_ROW& row : listing.rows) s += sLINE(row.asValue);
    return s;
}
