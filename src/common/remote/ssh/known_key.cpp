#include "known_key.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>
#include <vector>

#include "../../base/descriptor.h"
#include "../../text/text.h"
#include "../../text/time_text.h"
#include "../../unix/cm_hal_pipe.h"

namespace {

constexpr int iLIMIT_MS = 3000;

/* What ssh-keygen calls a line of known hosts: the comment behind the key, where there is
   one, else the name in front. */
std::string sCALLED(const std::string& sLine, std::string& sName)
{
    std::istringstream words(sLine);
    std::string        sType;
    std::string        sKey;
    std::string        sComment;
    words >> sName >> sType >> sKey;
    std::getline(words >> std::ws, sComment);
    return sComment.empty() ? sName : sComment;
}

/* Of what cannot be read, nothing. */
std::string sCONTENT(const std::string& sFile)
{
    std::string sText;
    iREAD_FILE(sFile, sText);
    return sText;
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

/* ssh-keygen prints a line per key: "256 SHA256:... NAME (ED25519)". */
KNOWN_KEY sctKNOWN_KEY(const std::string& sFile, const std::string& sLine,
                       const std::string& sOffered)
{
    KNOWN_KEY known;
    if (sFile.empty() || sOffered.empty()) return known;
    // ssh-keygen numbers no line, and leaves out what is no key.
    std::istringstream                 file(sCONTENT(sFile));
    std::map<std::string, std::string> names;  // by what ssh-keygen calls the line
    std::string                        sCalled;
    long                               lLine = std::strtol(sLine.c_str(), nullptr, 10);
    for (std::string sText; std::getline(file, sText); lLine--) {
        std::string       sName;
        const std::string sThis = sCALLED(sText, sName);
        names.emplace(sThis, sName);
        if (lLine == 1) sCalled = sThis;
    }
    const std::string sAll = sKEYGEN({"-l", "-f", sFile});
    for (const std::string_view svOne : asvPIECES(sAll)) {
        const std::string sOne(svOne);
        const size_t      uPrint = sOne.find("SHA256:");
        const size_t      uBehind = sOne.find(' ', uPrint == sOne.npos ? 0 : uPrint);
        if (uPrint == sOne.npos || uBehind == sOne.npos) continue;
        const std::string sPrint = sOne.substr(uPrint, uBehind - uPrint);
        const std::string sHost = sOne.substr(uBehind + 1, sOne.rfind(" (") - uBehind - 1);
        if (sHost == sCalled && known.sKept.empty()) known.sKept = sPrint;
        if (sPrint == "SHA256:" + sOffered && known.sOther.empty())
            known.sOther = sONE_LINE(names[sHost]);
    }
    if (known.sOther.starts_with("|")) known.sOther.clear();  // hashed
    return known;
}

std::string sKEPT_AT(const std::string& sFile, const std::string& sNames)
{
    std::istringstream file(sCONTENT(sFile));
    size_t             uLine = 0;
    std::string        sFound;
    for (std::string sText; std::getline(file, sText);) {
        uLine++;
        if (sText.starts_with(sNames + " ")) sFound = sFile + ":" + std::to_string(uLine);
    }
    return sFound;
}

std::vector<std::string> asSAME_KEY(const std::string& sWhere)
{
    struct ENTRY {
        std::string sNames;
        std::string sKey;
    };
    const size_t       uColon = sWhere.rfind(':');
    std::istringstream file(sCONTENT(sWhere.substr(0, uColon)));
    std::vector<ENTRY> entries;
    for (std::string sText; std::getline(file, sText);) {
        std::istringstream words(sText);
        ENTRY              entry;
        words >> entry.sNames >> entry.sKey >> entry.sKey;
        entries.push_back(std::move(entry));
    }
    std::vector<std::string> asName;
    const size_t             uOwn =
        uColon == sWhere.npos ? uColon : std::strtoul(sWhere.c_str() + uColon + 1, nullptr, 10) - 1;
    if (uOwn >= entries.size()) return asName;
    for (size_t u = 0; u < entries.size(); u++) {
        if (u == uOwn || entries[u].sKey.empty() || entries[u].sKey != entries[uOwn].sKey) continue;
        std::istringstream names(entries[u].sNames);
        for (std::string sName; std::getline(names, sName, ',');)
            if (sName != entries[uOwn].sNames && !sName.starts_with('|') && !sName.starts_with('@'))
                asName.push_back(sName);
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
    std::string sNow = sLOCAL_TIME(false);
    std::replace(sNow.begin(), sNow.end(), ' ', 'T');
    const std::string sFirst = sText.substr(uFrom + 12, 19);
    const std::string sLast = sText.substr(uTo + 4, 19);
    if (sNow >= sFirst && sNow <= sLast) return 0;
    sValid = "from " + sFirst + " to " + sLast;
    return 1;
}
