#include "permit.h"

#include <algorithm>

namespace {

struct LINE {
    std::string              sText;  // with its line end, if it has one
    std::vector<std::string> asWord;
    int                      iKey = -1;  // place of the key's type
    std::string              sServer;    // whom vk_setup wrote it for, "" it did not

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

constexpr std::string_view svMARK = "vk_setup:";

std::vector<LINE> LINES(std::string_view svText)
{
    std::vector<LINE> lines;
    while (!svText.empty()) {
        const size_t           uEnd = std::min(svText.find('\n'), svText.size() - 1) + 1;
        const std::string_view svLine = svText.substr(0, uEnd);
        LINE                   line;
        line.sText = svLine;
        line.asWord = asKEY_LINE_WORDS(svLine.substr(0, svLine.find_first_of("\r\n")));
        line.iKey = iKEY_PLACE(line.asWord);
        if (line.iKey >= 0 && line.asWord.back().starts_with(svMARK))
            line.sServer = line.asWord.back().substr(svMARK.size());
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
    return sLine + std::string(svMARK) + permit.sServer + "\n";
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
        const bool bSame = line.sServer == permit.sServer && line.svMode() == permit.sMode;
        if (line.sServer.empty() || (!bSame && !bGIVEN(line, permit))) return false;
        const bool bWanted =
            std::find(asWanted.begin(), asWanted.end(), line.sText) != asWanted.end() &&
            std::find(asSeen.begin(), asSeen.end(), line.sText) == asSeen.end();
        asSeen.push_back(line.sText);
        if (line.sServer != permit.sServer) change.asRenamed.push_back(line.sServer);
        if (!bWanted)
            change.asDone.push_back((line.sServer == permit.sServer
                                         ? "removed an earlier line of " + permit.sServer
                                         : "removed the line of " + line.sServer + ", which is " +
                                               permit.sServer + " now: it has the same key") +
                                    ", mode " + std::string(line.svMode()));
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
        lines.insert(at, LINES(sWanted)[0]);
        change.asDone.push_back("admitted the " + key.sType + " key of " + permit.sServer +
                                ", mode " + permit.sMode +
                                (permit.sPackages.empty() ? "" : ", packages " + permit.sPackages));
    }
    const auto other = std::find_if(lines.begin(), lines.end(), [&](const LINE& line) {
        return line.bHolds(key) && line.sText != sWanted;
    });
    if (other == lines.end()) return;
    change.asWarning.push_back("line " + std::to_string(other - lines.begin() + 1) +
                               " holds the same key and was not written for " + permit.sServer +
                               "; remove it if it is not needed");
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
    std::vector<LINE> lines = LINES(svText);
    MAKE_WAY(lines, permit, asWanted, change);
    for (size_t u = 0; u < permit.keys.size(); ++u)
        ADMIT_KEY(lines, permit, permit.keys[u], asWanted[u], change);
    for (const LINE& line : lines)
        if (permit.sMode == svMODE_CTRL && line.sServer == permit.sServer &&
            line.svMode() == svMODE_VKSSH)
            change.asWarning.push_back(
                permit.sServer +
                " has a key of mode VKSSH here as well, "
                "which bypasses the gate; vk_setup unset_client removes both");
    JOIN(lines, change);
    return change;
}

PERMIT_CHANGE sctTAKE_BACK(std::string_view svText, const std::string& sServer,
                           std::string_view svMode)
{
    PERMIT_CHANGE     change;
    std::vector<LINE> lines = LINES(svText);
    std::erase_if(lines, [&](const LINE& line) {
        if (line.sServer != sServer || (!svMode.empty() && line.svMode() != svMode)) return false;
        change.asDone.push_back("removed a line of " + sServer + ", mode " +
                                std::string(line.svMode()));
        return true;
    });
    JOIN(lines, change);
    return change;
}
