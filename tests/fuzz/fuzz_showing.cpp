/* What a client or a library says, shown by a run that knows passwords: no line holds
   one, a control character or broken text, and the status line stays one line whose
   last quote closes the whole text. */
#include <algorithm>

#include "common/lines/secret.h"
#include "common/lines/standard_error.h"
#include "common/text/text.h"
#include "must.h"

namespace {

/* Characters that cleaning leaves, so that it cannot make a password of what was none. */
std::string sPASSWORD(std::string_view sv)
{
    std::string s;
    for (const char c : sv)
        if (c > ' ' && c < '\177' && c != '*') s += c;
    return s;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t uSize)
{
    if (uSize < 2) return 0;
    const std::string_view svInput(reinterpret_cast<const char*>(pData), uSize);
    const size_t           uPassword = std::min<size_t>(pData[0] % 40U, uSize - 2);
    const std::string      sSecret = sPASSWORD(svInput.substr(2, uPassword));
    const SECRETS_HERE     secrets{sSecret};
    std::string            sText(svInput.substr(2 + uPassword));
    sText.insert(sText.empty() ? 0 : pData[1] % sText.size(), sSecret);

    const std::string sShown = sSAFE_LINE(sText);
    MUST(!bHAS_CONTROLS(sShown) && sVALID_UTF8(sShown) == sShown);
    if (sSecret.size() >= 4) MUST(sShown.find(sSecret) == sShown.npos);
    const std::string sForeign = sFOREIGN(sText);
    if (!sSecret.empty()) MUST(sForeign.find(sSecret) == sForeign.npos);

    const std::string sBegin = "STATUS=ERROR MSG=\"";
    const std::string sLine = sBegin + sShown + "\"\n";
    MUST(sLine.find('\n') == sLine.size() - 1 && sLine.find("STATUS=") == 0);
    MUST(sLine.substr(sBegin.size(), sLine.rfind('"') - sBegin.size()) == sShown);
    return 0;
}
