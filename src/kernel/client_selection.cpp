/* The selection of a run over many clients. */
#include "client_selection.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

namespace {

constexpr size_t uLIST_LIMIT = 2048;  // selection with a name list, terminator included

std::string sSTATEMENT(const std::string& sWhere)
{
    return "select * from clients " + sWhere + "(exec='1') order by name";
}

std::string sQUOTED(const char* cpName)
{
    char szQuoted[1024];
    iSQL(szQuoted, "'%s',", cpName);
    return szQuoted;
}

/* "where name in ('a','b') and " */
std::string sNAME_LIST(std::string sQuoted)
{
    sQuoted.pop_back();
    return "where name in (" + sQuoted + ") and ";
}

/* The list as it stands, where it fits; else each name once, in as many statements as it
   takes. */
std::vector<std::string> asBY_NAME(t_LL LL_ClientList)
{
    std::string              sAll;
    std::string              sPart;
    std::set<std::string>    known;
    std::vector<std::string> asPart;
    for (void* pName = FirstElmLL(LL_ClientList); IsElmLL(pName); pName = NextElmLL(pName)) {
        const std::string sName = sQUOTED(static_cast<const char*>(pName));
        sAll += sName;
        if (!known.insert(sName).second) continue;
        if (!sPart.empty() && sNAME_LIST(sPart + sName).size() >= uLIST_LIMIT)
            asPart.push_back(std::exchange(sPart, ""));
        sPart += sName;
    }
    asPart.push_back(sPart);
    if (sNAME_LIST(sAll).size() < uLIST_LIMIT) asPart = {sAll};
    for (std::string& s : asPart) s = sSTATEMENT(sNAME_LIST(s));
    return asPart;
}

std::string sROW_NAME(const SELECTED::ROW& row)
{
    char szReply[256];
    char szName[256] = "";
    iDB_SEL_GET(row.pList, row.iRow, szReply, &strLog, "name", szName, "d");
    return szName;
}

/* Brings the rows of several statements into the order of name, which is the database's
   own. */
int iSORT(SELECTED* pSelected, char (&szReply)[256])
{
    DB_REC_LIS sctOrder = {"CONFIG_CLIENT", 0, 0, nullptr, nullptr};
    if (!iDB_ACCESS("select name from clients where (exec='1') order by name", szReply, &sctOrder,
                    strLog))
        return 0;
    std::map<std::string, int> place;
    for (int iRow = 1; iRow <= sctOrder.iRows; ++iRow) place[sROW_NAME({&sctOrder, iRow})] = iRow;
    DB_LET_GO(&sctOrder);
    std::stable_sort(pSelected->rows.begin(), pSelected->rows.end(),
                     [&](const SELECTED::ROW& one, const SELECTED::ROW& other) {
                         return place[sROW_NAME(one)] < place[sROW_NAME(other)];
                     });
    return 1;
}

bool bNO_CLIENT(const char* cpName)
{
    return bIS(cpName, cpALL_CLIENTS);
}

}  // namespace

SELECTION sctSELECTION(const SCT_ARGS* pArg, t_LL LL_ClientList)
{
    const bool bAll = bIS(pArg->szNodeName, cpALL_CLIENTS);
    char       szWhere[1024] = "where ";
    if (bAll && bGIVEN(pArg->szOpersys))
        iSQL(szWhere, "where os like '%s%%' and ", LIKE_TEXT{pArg->szOpersys});
    else if (bAll && bGIVEN(pArg->szLocationId))
        iSQL(szWhere, "where location='%s' and ", pArg->szLocationId);
    else if (SizeLL(LL_ClientList) > 0)
        return {asBY_NAME(LL_ClientList), true};
    return {{sSTATEMENT(szWhere)}};
}

int iSELECT(const SELECTION& selection, SELECTED* pSelected, char (&szReply)[256])
{
    v_LET_GO(pSelected);
    for (const std::string& sStatement : selection.asStatement) {
        DB_REC_LIS& list =
            pSelected->lists.emplace_back(DB_REC_LIS{"CONFIG_CLIENT", 0, 0, nullptr, nullptr});
        if (!iDB_ACCESS(sStatement.c_str(), szReply, &list, strLog)) return 0;
        for (int iRow = 1; iRow <= list.iRows; ++iRow) pSelected->rows.push_back({&list, iRow});
    }
    return selection.asStatement.size() == 1 || iSORT(pSelected, szReply);
}

void v_LET_GO(SELECTED* pSelected)
{
    for (DB_REC_LIS& list : pSelected->lists) DB_LET_GO(&list);
    pSelected->lists.clear();
    pSelected->rows.clear();
}

bool bCLIENT_NAME(const char* cpName)
{
    if (!bNO_CLIENT(cpName)) return true;
    v_STDERR_ONCE(cpALL_CLIENTS, "%s is skipped: it is not a client's name", cpALL_CLIENTS);
    return false;
}

void v_TELL_LEFT_OUT(const std::vector<std::string>& asSelected, t_LL LL_ClientList)
{
    std::set<std::string> known(asSelected.begin(), asSelected.end());
    for (void* pName = FirstElmLL(LL_ClientList); IsElmLL(pName); pName = NextElmLL(pName)) {
        const char* cpName = static_cast<const char*>(pName);
        char        szReply[256] = "";
        if (!known.insert(cpName).second || !bCLIENT_NAME(cpName)) continue;
        if (!iDB_ACCESS(SQL("select count(*) from clients where name='%s'", cpName), szReply,
                        nullptr, strLog)) {
            DB_TELL_FAILURE("skipped clients not read", strLog);
            return;
        }
        if (szReply[0] == '0')
            TELL("no such client: %s", cpName);
        else
            TELL("%s is skipped: exec is not '1'", cpName);
    }
}
