#include "permit.h"

#include <algorithm>

namespace {

struct LINE {
    std::string              sText;  // with its line end, if it has one
    std::vector<std::string> asWord;
    int                      iKey = -1;  // place of the key's type
    bool                     bOurs = false;

    bool bHolds(const PUBLIC_KEY& key) const
    {
        return iKey >= 0 && asWord[static_cast<size_t>(iKey)] == key.sType &&
               asWord[static_cast<size_t>(iKey) + 1] == key.sBlob;
    }
    std::string_view svMode() const
    {
        return iKey > 0 && asWord[0].find("command=") != std::string::npos ? svMODE_CTRL
                                                                           : svMODE_VKSSH;
    }
};

std::vector<LINE> LINES(std::string_view svText, const std::string& sServer)
{
    std::vector<LINE> lines;
    while (!svText.empty()) {
        const size_t           uEnd = std::min(svText.find('\n'), svText.size() - 1) + 1;
        const std::string_view svLine = svText.substr(0, uEnd);
        LINE                   line;
        line.sText = svLine;
        line.asWord = asKEY_LINE_WORDS(svLine.substr(0, svLine.find_first_of("\r\n")));
        line.iKey = iKEY_PLACE(line.asWord);
        line.bOurs = line.iKey >= 0 && line.asWord.back() == "vk_setup:" + sServer;
        lines.push_back(std::move(line));
        svText.remove_prefix(uEnd);
    }
    return lines;
}

std::string sNEW_LINE(const PERMIT& permit, const PUBLIC_KEY& key)
{
    const bool  bGate = permit.sMode == svMODE_CTRL;
    std::string sLine = bGate ? "restrict" : "";
    if (!permit.sFrom.empty())
        sLine += std::string(bGate ? "," : "") + "from=\"" + permit.sFrom + "\"";
    if (bGate) sLine += ",command=\"" + permit.sGate + "\"";
    if (!sLine.empty()) sLine += " ";
    sLine += key.sType + " " + key.sBlob + " ";
    if (!key.sComment.empty()) sLine += key.sComment + " ";
    return sLine + "vk_setup:" + permit.sServer + "\n";
}

bool bGIVEN(const LINE& line, const PERMIT& permit)
{
    return std::any_of(permit.keys.begin(), permit.keys.end(),
                       [&](const PUBLIC_KEY& key) { return line.bHolds(key); });
}

/* Removes what is to give way to the permit. */
void MAKE_WAY(std::vector<LINE>& lines, const PERMIT& permit,
              const std::vector<std::string>& asWanted, PERMIT_CHANGE& change)
{
    std::vector<std::string> asSeen;
    std::erase_if(lines, [&](const LINE& line) {
        if (!line.bOurs || (line.svMode() != permit.sMode && !bGIVEN(line, permit))) return false;
        const bool bWanted =
            std::find(asWanted.begin(), asWanted.end(), line.sText) != asWanted.end() &&
            std::find(asSeen.begin(), asSeen.end(), line.sText) == asSeen.end();
        asSeen.push_back(line.sText);
        if (!bWanted)
            change.asDone.push_back("removed an earlier line of " + permit.sServer + ", mode " +
                                    std::string(line.svMode()));
        return !bWanted;
    });
}

void ADMIT_KEY(std::vector<LINE>& lines, const PERMIT& permit, const PUBLIC_KEY& key,
               const std::string& sWanted, PERMIT_CHANGE& change)
{
    const auto bHOLDS = [&](const LINE& line) { return line.bHolds(key); };
    const auto first = std::find_if(lines.begin(), lines.end(), bHOLDS);
    const bool bPlain = permit.sMode == svMODE_VKSSH && permit.sFrom.empty();
    if (bPlain && first != lines.end() && first->iKey == 0) return;  // admitted already
    if (first == lines.end() || first->sText != sWanted) {
        std::erase_if(lines, [&](const LINE& line) { return line.sText == sWanted; });
        const auto at = std::find_if(lines.begin(), lines.end(), bHOLDS);
        if (at == lines.end() && !lines.empty() && !lines.back().sText.ends_with('\n'))
            lines.back().sText += '\n';
        lines.insert(at, LINES(sWanted, permit.sServer)[0]);
        change.asDone.push_back("admitted the " + key.sType + " key of " + permit.sServer +
                                ", mode " + permit.sMode);
    }
    const auto other = std::find_if(lines.begin(), lines.end(), [&](const LINE& line) {
        return line.bHolds(key) && line.sText != sWanted;
    });
    if (other == lines.end()) return;
    change.asWarning.push_back("line " + std::to_string(other - lines.begin() + 1) +
                               " holds the same key and was not written for " + permit.sServer +
                               "; remove it, unless it is wanted besides");
}

void JOIN(const std::vector<LINE>& lines, PERMIT_CHANGE& change)
{
    for (const LINE& line : lines) change.sText += line.sText;
}

}  // namespace

PERMIT_CHANGE sctADMIT(std::string_view svText, const PERMIT& permit)
{
    PERMIT_CHANGE            change;
    std::vector<std::string> asWanted;
    for (const PUBLIC_KEY& key : permit.keys) asWanted.push_back(sNEW_LINE(permit, key));
    std::vector<LINE> lines = LINES(svText, permit.sServer);
    MAKE_WAY(lines, permit, asWanted, change);
    for (size_t u = 0; u < permit.keys.size(); ++u)
        ADMIT_KEY(lines, permit, permit.keys[u], asWanted[u], change);
    JOIN(lines, change);
    return change;
}

PERMIT_CHANGE sctTAKE_BACK(std::string_view svText, const std::string& sServer)
{
    PERMIT_CHANGE     change;
    std::vector<LINE> lines = LINES(svText, sServer);
    std::erase_if(lines, [&](const LINE& line) {
        if (line.bOurs)
            change.asDone.push_back("removed a line of " + sServer + ", mode " +
                                    std::string(line.svMode()));
        return line.bOurs;
    });
    JOIN(lines, change);
    return change;
}
