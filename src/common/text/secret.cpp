/* The passwords that this run knows, and their masking. */
#include "secret.h"

#include <algorithm>
#include <vector>

#include "command_line.h"
#include "immortal.h"
#include "text.h"

namespace {

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

}  // namespace

void v_SECRET(std::string_view svPassword)
{
    if (svPassword.empty()) return;
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

std::string sMASKED(std::string_view svText)
{
    std::string s(svText);
    for (const std::string& sSecret : SECRETS())
        for (size_t u = s.find(sSecret); u != std::string::npos; u = s.find(sSecret, u + 3))
            s.replace(u, sSecret.size(), "***");
    return s;
}
