/* Removes a client from the database: its interfaces first, then its row, under the
   identifier and the name that were looked up. An identifier that another removal has
   freed may belong to another client by now: then there is no such row, and the
   interfaces stay with it. */
#include "vk_config_client.h"

namespace {

/* Result 0: a statement failed, or no row went; nothing has changed. */
int iDELETE_BOTH(const SCT_ARGS* pArg)
{
    if (iDB_RUN_SQL(strLog, "delete from interfaces where client_id='%s'", pArg->szNodeId) < 0)
        return 0;
    return iDB_RUN_SQL(strLog, "delete from clients where client_id='%s' and name='%s'",
                       pArg->szNodeId, pArg->szNodeName) > 0;
}

/* Interfaces that cannot be removed do not keep the client. Result 1: its row is gone. */
int iREMOVE(const SCT_ARGS* pArg)
{
    const std::string sWhat = std::string(pArg->szNodeName) + " not removed";
    int               iRows = 0;
    if (iDB_TRANSACTION("interfaces of " + sWhat, strLog, [&] { return iDELETE_BOTH(pArg); }))
        return 1;
    if (sctDB_ERROR().eKind != DB_FINE)
        iRows =
            iDB_EXECUTE_SQL(sWhat, strLog, "delete from clients where client_id='%s' and name='%s'",
                            pArg->szNodeId, pArg->szNodeName);
    if (iRows == 0) v_TELL_NO_ROW(sWhat, pArg);
    return iRows > 0;
}

}  // namespace

int iDELETE_FROM_DATABASE(SCT_ARGS* pArg, char* cpRet)
{
    TRACE("+++ iDELETE_FROM_DATABASE");
    if (bIS(pArg->szNodeId, "0")) {
        TELL("%s is the backup server itself (client_id 0), its row is not removed",
             pArg->szNodeName);
        MESSAGE(cpRet, 256, MSG_E001, pArg->szPlatform, pArg->szNodeName);
        TRACE("--- iDELETE_FROM_DATABASE returns 0  %s", cpRet);
        return 0;
    }
    pArg->iRemoved = iREMOVE(pArg) ? 1 : -1;
    MESSAGE(cpRet, 256, MSG_I008, pArg->szNodeName, pArg->szNodeId);
    TRACE("--- iDELETE_FROM_DATABASE returns 1  %s", cpRet);
    return 1;
}
