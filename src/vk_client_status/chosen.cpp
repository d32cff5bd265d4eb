/* Choosing clients. */
#include "chosen.h"

#include <fnmatch.h>
#include <strings.h>

#include <algorithm>

#include "common/common.h"
#include "moment.h"

namespace {

/* Names are told apart by letter case; what people write of systems, places and causes
   is not. */
bool bNAME(const std::string& sPattern, const std::string& sName)
{
    return sPattern == sName || fnmatch(sPattern.c_str(), sName.c_str(), 0) == 0;
}

bool bTEXT(const std::string& sPattern, const std::string& sText)
{
    return fnmatch(sPattern.c_str(), sText.c_str(), FNM_CASEFOLD) == 0;
}

bool bBEGINS(const std::string& sPattern, const std::string& sText)
{
    return strncasecmp(sPattern.c_str(), sText.c_str(), sPattern.size()) == 0 ||
           bTEXT(sPattern, sText);
}

template<class F>
bool bANY(const std::vector<std::string>& asPattern, F bFits)
{
    return asPattern.empty() || std::any_of(asPattern.begin(), asPattern.end(), bFits);
}

bool bCAUSE(const std::string& sPattern, const CLIENT& client)
{
    return client.eState == STATE_FAILED &&
           (bTEXT(sPattern, client.sCause) ||
            (!sPattern.empty() && bBEGINS(sPattern, client.sMessageId)));
}

bool bFITS_WORDS(const CHOICE& choice, const CLIENT& client)
{
    return bANY(choice.asName, [&](const std::string& s) { return bNAME(s, client.sName); }) &&
           bANY(choice.asLocation,
                [&](const std::string& s) { return bTEXT(s, client.sLocation); }) &&
           bANY(choice.asSystem, [&](const std::string& s) { return bBEGINS(s, client.sOs); }) &&
           bANY(choice.asCause, [&](const std::string& s) { return bCAUSE(s, client); });
}

bool bFITS_STATE(const CHOICE& choice, const CLIENT& client, long lNow)
{
    if (choice.bFailed && client.eState != STATE_FAILED) return false;
    if (choice.bNever && client.lChecked != 0) return false;
    if (choice.iStaleDays >= 0 &&
        (!client.bTakesPart || lNow - client.lChecked <= choice.iStaleDays * lDAY))
        return false;
    const long lVersion = choice.lVersionBelow != 0 ? lINSTALLED(client) : 0;
    if (choice.lVersionBelow != 0 && (lVersion == 0 || lVersion >= choice.lVersionBelow))
        return false;
    if (choice.bUpdating && client.eUpdate != UPDATE_RUNNING) return false;
    if (choice.bUpdateFailed && !bUPDATE_FAILED(client)) return false;
    if (choice.bRestartPending && client.eUpdate != UPDATE_RESTART) return false;
    return !choice.bSameHostKey || !client.sSameKeyAs.empty();
}

}  // namespace

bool bUPDATE_FAILED(const CLIENT& client)
{
    return client.eUpdate == UPDATE_FAILED || client.eUpdate == UPDATE_NOT_STARTED ||
           client.eUpdate == UPDATE_INTERRUPTED;
}

std::vector<const CLIENT*> CHOOSE(const FLEET& fleet, const CHOICE& choice)
{
    std::vector<const CLIENT*> chosen;
    for (const CLIENT& client : fleet.clients)
        if (bFITS_WORDS(choice, client) && bFITS_STATE(choice, client, fleet.lNow))
            chosen.push_back(&client);
    return chosen;
}

bool bCHOSEN_GONE(const CHOICE& choice, const std::string& sName)
{
    CHOICE others = choice;
    others.asName.clear();
    return others == CHOICE{} &&
           bANY(choice.asName, [&](const std::string& s) { return bNAME(s, sName); });
}

std::vector<std::string> asUNFITTING(const FLEET& fleet, const CHOICE& choice)
{
    std::vector<std::string> asNobody;
    for (const std::string& sName : choice.asName)
        if (std::none_of(fleet.clients.begin(), fleet.clients.end(),
                         [&](const CLIENT& client) { return bNAME(sName, client.sName); }))
            asNobody.push_back(sName);
    return asNobody;
}

bool bNEEDS_LOGS(const CHOICE& c)
{
    return !c.asCause.empty() || c.iStaleDays >= 0 || c.bFailed || c.bNever || c.bUpdating ||
           c.bUpdateFailed || c.bRestartPending || c.bSameHostKey;
}

long lINSTALLED(const CLIENT& client)
{
    return client.lVersion != 0 ? client.lVersion : l_cli_version(client.sVersion.c_str());
}

long lVERSION_OF(const std::string& sVersion)
{
    if (sVersion.empty() || sVersion.back() == '.') return 0;
    std::string sFull = sVersion;
    for (int i = 0; i < 4; i++, sFull += ".0")
        if (const long lVersion = l_cli_version(sFull.c_str()); lVersion != 0) return lVersion;
    return 0;
}

void v_WORST_FIRST(std::vector<const CLIENT*>& chosen)
{
    std::stable_sort(chosen.begin(), chosen.end(),
                     [](const CLIENT* a, const CLIENT* b) { return a->eState < b->eState; });
}
