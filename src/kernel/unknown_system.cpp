/* Tells an operating system that the server does not know, and which one may be meant. */
#include <algorithm>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "vk_config_client.h"

namespace {

/* Letters to change, add or leave out that turn one text into the other. */
size_t uDISTANCE(const std::string& sOne, const std::string& sOther)
{
    std::vector<size_t> row(sOther.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t u = 1; u <= sOne.size(); u++) {
        size_t uDiagonal = row[0]++;
        for (size_t v = 1; v <= sOther.size(); v++) {
            const size_t uChange = uDiagonal + (sOne[u - 1] != sOther[v - 1] ? 1 : 0);
            uDiagonal = row[v];
            row[v] = std::min({uChange, row[v] + 1, row[v - 1] + 1});
        }
    }
    return row.back();
}

std::string sLOWER(std::string s)
{
    lowercase(s.data());
    return s;
}

/* The stored name that is nearest to sGiven, "" when none is near: at most a third of
   its letters may differ. Letter case decides between two that are as near. */
std::string sNEAREST(const std::string& sGiven)
{
    DB_REC_LIS  sctList = {"CONFIG_CLIENT", 0, 0, nullptr, nullptr};
    char        szReply[256] = "";
    std::string sBest;
    std::pair   best{sGiven.size() / 3 + 1, size_t{0}};
    iDB_ACCESS("select os from oper_systems order by os", szReply, &sctList, strLog);
    for (int iRow = 1; iRow <= sctList.iRows; iRow++) {
        char szOs[256] = "";
        iDB_SEL_GET(&sctList, iRow, szReply, &strLog, "os", szOs, "d");
        const std::pair now{uDISTANCE(sLOWER(sGiven), sLOWER(szOs)), uDISTANCE(sGiven, szOs)};
        if (now >= best) continue;
        best = now;
        sBest = szOs;
    }
    return sBest;
}

}  // namespace

void v_TELL_UNKNOWN_SYSTEM(const SCT_ARGS* pArg)
{
    if (pArg->szPlatform[0] != '\0') return;
    const std::string sNearest = sNEAREST(pArg->szOpersys);
    const std::string sHint = sNearest.empty() ? "" : "; did you mean \"" + sNearest + "\"?";
    TELL("operating system \"%s\" is not in oper_systems%s", pArg->szOpersys, sHint.c_str());
}
