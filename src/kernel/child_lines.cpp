/* Lines of the clients' runs on standard error. */
#include "child_lines.h"

#include <string_view>

#include "../common/base/program.h"
#include "vk_config_client.h"

namespace {

constexpr size_t uMOST_BYTES = size_t{1} << 20;

/* What a line says, without the name of this program and of the client in front. */
std::string_view svSAID(std::string_view svLine, const std::string& sClient)
{
    for (const std::string& sName : {std::string(cpPROGRAM_NAME()), sClient}) {
        const std::string sFront = sName + ": ";
        if (svLine.starts_with(sFront)) svLine.remove_prefix(sFront.size());
    }
    return svLine;
}

}  // namespace

void v_TAKE_CHILD_LINES(CHILD_LINES* pLines, const std::string& sClient, const std::string& sText)
{
    for (size_t uAt = 0; uAt < sText.size();) {
        const size_t      uEnd = std::min(sText.find('\n', uAt), sText.size());
        const std::string sLine(svSAID(std::string_view(sText).substr(uAt, uEnd - uAt), sClient));
        uAt = uEnd + 1;
        if (sLine.empty()) continue;
        std::vector<std::string>& asClient = pLines->asClient[sLine];
        if (asClient.empty()) {
            pLines->asText.push_back(sLine);
            pLines->uBytes += sLine.size();
        }
        if (asClient.empty() || asClient.back() != sClient) asClient.push_back(sClient);
    }
    if (pLines->uBytes > uMOST_BYTES) v_TELL_CHILD_LINES(pLines);
}

void v_TELL_CHILD_LINES(CHILD_LINES* pLines)
{
    for (const std::string& sText : pLines->asText) {
        const std::vector<std::string>& asClient = pLines->asClient[sText];
        if (asClient.size() == 1 && sText.starts_with(asClient.front() + " "))
            v_STDERR("%s", sText.c_str());
        else if (asClient.size() == 1)
            v_STDERR("%s: %s", asClient.front().c_str(), sText.c_str());
        else
            v_STDERR("%zu clients: %s", asClient.size(), sText.c_str());
    }
    *pLines = {};
}
