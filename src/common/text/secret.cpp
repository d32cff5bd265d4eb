/* The passwords that this run knows, and their masking. */
#include "secret.h"

#include <algorithm>
#include <utility>

#include "command_line.h"
#include "immortal.h"
#include "program.h"
#include "text.h"

namespace {

constexpr size_t uSEARCHED = 4;  // characters of a password that is searched for

bool abShort[2] = {};  // a shorter one is known, by SECRET_PLACE

/* The known passwords in the forms in which they may stand in a text, longest
   first, so that a form is never half replaced by a shorter one. */
std::vector<std::string>& SECRETS()
{
    static IMMORTAL<std::vector<std::string>> secrets;
    return secrets.Get();
}

std::string sDOUBLED(std::string_view sv, char c)
{
    std::string s;
    for (const char cOne : sv) s.append(cOne == c ? 2 : 1, cOne);
    return s;
}

void ADD_SECRET(const std::string& s)
{
    auto& secrets = SECRETS();
    if (s.empty() || std::find(secrets.begin(), secrets.end(), s) != secrets.end()) return;
    secrets.insert(std::find_if(secrets.begin(), secrets.end(),
                                [&s](const std::string& sOld) { return sOld.size() <= s.size(); }),
                   s);
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
        abShort[ePlace] = true;
        return;
    }
    /* The same text as statements and command lines carry it. */
    ADD_SECRET(std::string(svPassword));
    ADD_SECRET(sVALID_UTF8(svPassword));
    ADD_SECRET(sDOUBLED(svPassword, '\''));
    ADD_SECRET(sDOUBLED(svPassword, '"'));
    for (const SHELL eShell : {SHELL_POSIX, SHELL_WINDOWS}) {
        ADD_SECRET(sSHELL_WORD(eShell, svPassword));
        ADD_SECRET(sSHELL_INSIDE_QUOTES(eShell, svPassword));
    }
}

std::string sFOREIGN(std::string_view svText, SECRET_PLACE ePlace)
{
    return abShort[ePlace] && !svText.empty() ? "***" : sREPLACED(svText);
}

std::string sMASKED(std::string_view svText)
{
    if (SECRETS().empty() && !abShort[SECRET_OF_CLIENT]) return std::string(svText);
    size_t uBegin = 0;  // of what came from elsewhere
    size_t uEnd = svText.size();
    if (sctPROGRAM.pForeign != nullptr && sctPROGRAM.pForeign(svText, uBegin, uEnd))
        return std::string(svText.substr(0, uBegin)) +
               sFOREIGN(svText.substr(uBegin, uEnd - uBegin)).append(svText.substr(uEnd));
    return sREPLACED(svText);
}

SECRETS_HERE::SECRETS_HERE(std::initializer_list<std::string_view> passwords)
    : m_asBefore(SECRETS()), m_bShortBefore(abShort[SECRET_OF_CLIENT])
{
    for (const std::string_view svPassword : passwords) v_SECRET(svPassword);
}

SECRETS_HERE::~SECRETS_HERE()
{
    SECRETS() = std::move(m_asBefore);
    abShort[SECRET_OF_CLIENT] = m_bShortBefore;
}
