/* The selection of a run over many clients. */
#include "client_selection.h"

#include <set>

namespace {

constexpr size_t uLIST_LIMIT = 2048;  // selection with a name list, terminator included

/* "where name in ('a','b') and " */
std::string sNAME_LIST(t_LL LL_ClientList)
{
    std::string sWhere = "where name in (";
    for (void* pName = FirstElmLL(LL_ClientList); IsElmLL(pName); pName = NextElmLL(pName)) {
        char szQuoted[1024];
        iSQL(szQuoted, "'%s',", static_cast<const char*>(pName));
        sWhere += szQuoted;
    }
    sWhere.pop_back();
    return sWhere + ") and ";
}

bool bNO_CLIENT(const char* cpName)
{
    return bIS(cpName, cpALL_CLIENTS);
}

}  // namespace

SELECTION sctSELECTION(const SCT_ARGS* pArg, t_LL LL_ClientList)
{
    SELECTION sctSelection = {};
    char      szWhere[4096] = "where ";
    if (SizeLL(LL_ClientList) > 0) {
        const std::string sList = sNAME_LIST(LL_ClientList);
        sctSelection.bTooLong = sList.size() >= uLIST_LIMIT;
        sctSelection.bByName = true;
        iTEXT_SET(szWhere, sList);
    }
    if (bIS(pArg->szNodeName, cpALL_CLIENTS)) {
        const bool bLocation = bGIVEN(pArg->szLocationId);
        const bool bSystem = bGIVEN(pArg->szOpersys);
        if (bLocation) iSQL(szWhere, "where location='%s' and ", pArg->szLocationId);
        if (bSystem) iSQL(szWhere, "where os like '%s%%' and ", LIKE_TEXT{pArg->szOpersys});
        if (bLocation || bSystem) sctSelection.bTooLong = sctSelection.bByName = false;
    }
    iSQL(sctSelection.szStatement, "select * from clients %s(exec='1') order by name",
         RAW_TEXT{szWhere});
    return sctSelection;
}

bool bCLIENT_NAME(const char* cpName)
{
    if (!bNO_CLIENT(cpName)) return true;
    v_STDERR_ONCE(cpALL_CLIENTS, "%s is left out: it is no client's name", cpALL_CLIENTS);
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
                        nullptr, strLog))
            return;
        if (szReply[0] == '0')
            TELL("no such client: %s", cpName);
        else
            TELL("%s is left out: exec is not '1'", cpName);
    }
}
