#include "known_key.h"

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <vector>

#include "../../base/descriptor.h"
#include "../../text/text.h"
#include "../../text/time_text.h"
#include "../../unix/cm_hal_pipe.h"

namespace {

constexpr int iLIMIT_MS = 3000;

/* A line of known hosts that holds a key. */
struct ENTRY {
    std::string sWhere;  // FILE:LINE
    std::string sNames;
    std::string sKey;
};

/* Of a file that cannot be read, none. */
std::vector<ENTRY> asctENTRIES(const std::string& sFile)
{
    std::string        sText;
    std::vector<ENTRY> asctEntry;
    size_t             uLine = 0;
    iREAD_FILE(sFile, sText);
    for (const std::string_view svLine : asvPIECES(sText)) {
        std::istringstream words{std::string(svLine)};
        std::string        sType;
        ENTRY              entry{sFile + ":" + std::to_string(++uLine), "", ""};
        words >> entry.sNames >> sType >> entry.sKey;
        const bool bComment = entry.sNames.starts_with('#');
        if (!bComment && entry.sKey.starts_with("AAAA")) asctEntry.push_back(entry);
    }
    return asctEntry;
}

/* What ssh-keygen prints, "" when it fails. */
std::string sKEYGEN(const std::vector<std::string>& asArgument)
{
    std::vector<std::string> asWord{"ssh-keygen"};
    asWord.insert(asWord.end(), asArgument.begin(), asArgument.end());
    int               iStatus = -1;
    const std::string sOut = sSAID_BY(asWord, iLIMIT_MS, &iStatus);
    return iStatus == 0 ? sOut : "";
}

}  // namespace

int iKEY_ENCRYPTED(const std::string& sKey)
{
    constexpr std::string_view svSays = "incorrect passphrase supplied to decrypt private key";
    int                        iStatus = 0;
    const std::string          sSaid =
        sSAID_BY({"ssh-keygen", "-y", "-P", "", "-f", sKey}, iLIMIT_MS, &iStatus);
    return iStatus > 0 && sSaid.find(svSays) != sSaid.npos;
}

/* ssh-keygen prints "256 SHA256:... NAME (ED25519)" for each key, but no line numbers. */
KNOWN_KEY sctKNOWN_KEY(const std::string& sFile, const std::string& sLine,
                       const std::string& sOffered)
{
    KNOWN_KEY                           known;
    const std::string                   sAt = sFile + ":" + sLine;
    const std::string                   sAll = sKEYGEN({"-l", "-f", sFile});
    const std::vector<std::string_view> asvPrint = asvPIECES(sAll);
    const std::vector<ENTRY>            asctEntry = asctENTRIES(sFile);
    if (asvPrint.size() != asctEntry.size()) return known;
    for (size_t u = 0; u < asctEntry.size(); u++) {
        const ENTRY& entry = asctEntry[u];
        std::string  sPrint;
        std::istringstream(std::string(asvPrint[u])) >> sPrint >> sPrint;
        if (entry.sWhere == sAt) known.sKept = sPrint;
        const bool bHashed = entry.sNames.starts_with('|');
        if (sPrint == sOffered && known.sOther.empty() && !bHashed)
            known.sOther = sONE_LINE(entry.sNames);
    }
    return known;
}

std::string sKEPT_AT(const std::string& sFile, const std::string& sNames)
{
    std::string sFound;
    for (const ENTRY& entry : asctENTRIES(sFile))
        if (entry.sNames == sNames) sFound = entry.sWhere;
    return sFound;
}

std::vector<std::string> asSAME_KEY(const std::string& sWhere)
{
    const std::vector<ENTRY> asctEntry = asctENTRIES(sWhere.substr(0, sWhere.rfind(':')));
    const auto               own = std::find_if(asctEntry.begin(), asctEntry.end(),
                                                [&](const ENTRY& entry) { return entry.sWhere == sWhere; });
    std::vector<std::string> asName;
    for (const ENTRY& entry : asctEntry) {
        if (own == asctEntry.end() || &entry == &*own || entry.sKey != own->sKey) continue;
        for (const std::string_view svName : asvPIECES(entry.sNames, ','))
            if (svName != own->sNames && !svName.starts_with('|')) asName.emplace_back(svName);
    }
    return asName;
}

/* "        Valid: from 2020-01-01T00:00:00 to 2020-01-02T00:00:00" */
int iCERTIFICATE_INVALID(const std::string& sKey, std::string& sValid)
{
    const std::string sFile = sKey + "-cert.pub";
    std::error_code   error;
    if (sKey.empty() || !std::filesystem::exists(sFile, error)) return 0;
    const std::string sText = sKEYGEN({"-L", "-f", sFile});
    const size_t      uFrom = sText.find("Valid: from ");
    const size_t      uTo = sText.find(" to ", uFrom == sText.npos ? 0 : uFrom);
    if (uFrom == sText.npos || uTo == sText.npos) return 0;
    const std::string sNow = sLOCAL_TIME_AS("%Y-%m-%dT%H:%M:%S", time(nullptr));
    const std::string sFirst = sText.substr(uFrom + 12, 19);
    const std::string sLast = sText.substr(uTo + 4, 19);
    if (sNow >= sFirst && sNow <= sLast) return 0;
    sValid = "from " + sFirst + " to " + sLast;
    return 1;
}
