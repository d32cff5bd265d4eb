/* Reports an operating system that the server does not know, and which may be meant. */
#include <string>
#include <vector>

#include "../common/text/likeness.h"
#include "vk_config_client.h"

namespace {

/* The stored name that is nearest to cpGiven, "" when none is near. */
std::string sNEAREST(const char* cpGiven)
{
    DB_REC_LIS               sctList = {"CONFIG_CLIENT", 0, 0, nullptr, nullptr};
    char                     szReply[256] = "";
    std::vector<std::string> asKnown;
    iDB_ACCESS("select os from oper_systems order by os", szReply, &sctList, strLog);
    DB_TELL_FAILURE("known operating systems not read", strLog);
    for (int iRow = 1; iRow <= sctList.iRows; iRow++) {
        char szOs[256] = "";
        iDB_SEL_GET(&sctList, iRow, szReply, &strLog, "os", szOs, "d");
        asKnown.emplace_back(szOs);
    }
    return std::string(svNEAREST(cpGiven, {asKnown.begin(), asKnown.end()}));
}

}  // namespace

void v_TELL_UNKNOWN_SYSTEM(const SCT_ARGS* pArg)
{
    if (pArg->szPlatform[0] != '\0') return;
    if (pArg->szOpersys[0] == '\0') {
        TELL("%s is stored without an operating system; give it one with -o", pArg->szNodeName);
        return;
    }
    const std::string sNearest = sNEAREST(pArg->szOpersys);
    if (sNearest == pArg->szOpersys) return;  // known, and its class was not looked up
    const std::string sHint = sNearest.empty() ? "" : "; did you mean \"" + sNearest + "\"?";
    TELL("operating system \"%s\" is not in oper_systems%s", pArg->szOpersys, sHint.c_str());
}
