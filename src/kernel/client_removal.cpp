/* Removes a client from the database: its interfaces first, then its row. */
#include "vk_config_client.h"

int iDELETE_FROM_DATABASE(SCT_ARGS* pArg, char* cpRet)
{
    TRACE("+++ iDELETE_FROM_DATABASE");
    const std::string sWhat = std::string(pArg->szNodeName) + " not removed";
    iDB_EXECUTE_SQL("interfaces of " + sWhat, strLog, "delete from interfaces where client_id='%s'",
                    pArg->szNodeId);
    iDB_EXECUTE_SQL(sWhat, strLog, "delete from clients where client_id='%s'", pArg->szNodeId);
    MESSAGE(cpRet, 256, MSG_I008, pArg->szNodeName, pArg->szNodeId);
    TRACE("--- iDELETE_FROM_DATABASE returns 1  %s", cpRet);
    return 1;
}
