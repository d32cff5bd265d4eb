/* The passwords that this run knows, and their masking. */
#include "secret.h"

#include <algorithm>
#include <array>
#include <utility>

#include "../base/immortal.h"
#include "../base/program.h"
#include "../text/command_line.h"
#include "../text/text.h"

namespace {

constexpr size_t uSEARCHED = 4;  // characters of a password that is searched for

/* A shorter one is known, by SECRET_PLACE. */
std::array<bool, 2>& SHORT()
{
    static IMMORTAL<std::array<bool, 2>> known;
    return known.Get();
}

/* The known passwords in the forms in which they may stand in a text, longest
   first, so that a form is never half replaced by a shorter one. */
std::vector<std::string>& SECRETS()
{
    static IMMORTAL<std::vector<std::string>> secrets;
    return secrets.Get();
}

void ADD_SECRET(const std::string& s)
{
    auto& secrets = SECRETS();
    if (s.empty() || std::find(secrets.begin(), secrets.end(), s) != secrets.end()) return;
    secrets.insert(std::find_if(secrets.begin(), secrets.end(),
                                [&s](const std::string& sOld) { return sOld.size() <= s.size(); }),
                   s);
}

/* Control characters are gone, or blanks, where a text comes from or is shown. */
void ADD_CLEANED(std::string_view svPassword)
{
    if (!bHAS_CONTROLS(svPassword)) return;
    if (sONE_LINE(svPassword).find_first_not_of(' ') == std::string::npos) return;
    ADD_SECRET(sONE_LINE(svPassword));
    for (const std::string_view svLine : asvPIECES(svPassword)) {
        std::string sLine;
        for (const char c : svLine)
            if (c == '\t' || !bHAS_CONTROLS({&c, 1})) sLine += c == '\t' ? ' ' : c;
        for (size_t u = sLine.find('\xC2'); u != sLine.npos; u = sLine.find('\xC2', u))
            if (bHAS_CONTROLS(std::string_view(sLine).substr(u, 2)))
                sLine.erase(u, 2);  // C2 80 to C2 9F
            else
                u++;
        if (sLine.size() >= uSEARCHED && sLine.find_first_not_of(' ') != sLine.npos)
            ADD_SECRET(sLine);
    }
}

std::string sREPLACED(std::string_view svText)
{
    std::string s(svText);
    for (const std::string& sSecret : SECRETS())
        for (size_t u = s.find(sSecret); u != std::string::npos; u = s.find(sSecret, u + 3))
            s.replace(u, sSecret.size(), "***");
    return s;
}

}  // namespace

void v_SECRET(std::string_view svPassword, SECRET_PLACE ePlace)
{
    if (svPassword.empty()) return;
    if (svPassword.size() < uSEARCHED) {
        SHORT()[ePlace] = true;
        return;
    }
    /* The same text as statements and command lines carry it. */
    ADD_SECRET(std::string(svPassword));
    ADD_SECRET(sVALID_UTF8(svPassword));
    ADD_CLEANED(svPassword);
    ADD_SECRET(sMARKED(svPassword, "'", '\''));
    ADD_SECRET(sMARKED(svPassword, "\"", '"'));
    for (const SHELL eShell : {SHELL_POSIX, SHELL_WINDOWS}) {
        ADD_SECRET(sSHELL_WORD(eShell, svPassword));
        ADD_SECRET(sSHELL_INSIDE_QUOTES(eShell, svPassword));
    }
}

void v_SECRET_SEEN(std::string_view svPassword)
{
    if (svPassword.size() >= uSEARCHED) v_SECRET(svPassword);
}

std::string sFOREIGN(std::string_view svText, SECRET_PLACE ePlace)
{
    return SHORT()[ePlace] && !svText.empty() ? "***" : sREPLACED(svText);
}

std::string sMASKED(std::string_view svText)
{
    if (SECRETS().empty() && !SHORT()[SECRET_OF_CLIENT]) return std::string(svText);
    size_t uBegin = 0;  // of what came from elsewhere
    size_t uEnd = svText.size();
    if (sctPROGRAM.pForeign != nullptr && sctPROGRAM.pForeign(svText, uBegin, uEnd))
        return std::string(svText.substr(0, uBegin)) +
               sFOREIGN(svText.substr(uBegin, uEnd - uBegin)).append(svText.substr(uEnd));
    return sREPLACED(svText);
}

SECRETS_HERE::SECRETS_HERE(std::initializer_list<std::string_view> passwords)
    : m_asBefore(SECRETS()), m_bShortBefore(SHORT()[SECRET_OF_CLIENT])
{
    for (const std::string_view svPassword : passwords) v_SECRET(svPassword);
}

SECRETS_HERE::~SECRETS_HERE()
{
    SECRETS() = std::move(m_asBefore);
    SHORT()[SECRET_OF_CLIENT] = m_bShortBefore;
}
