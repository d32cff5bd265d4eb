/* Removes a client from the database: its interfaces first, then its row. */
#include "vk_config_client.h"

int iDELETE_FROM_DATABASE(SCT_ARGS* pArg, char* cpRet)
{
    TRACE("+++ iDELETE_FROM_DATABASE");
    char szReply[256];
    char szSql[2048];
    iSQL(szSql, "delete from interfaces where client_id='%s'", pArg->szNodeId);
    iDB_ACCESS(szSql, szReply, nullptr, strLog);
    iSQL(szSql, "delete from clients where client_id='%s'", pArg->szNodeId);
    iDB_ACCESS(szSql, szReply, nullptr, strLog);
    MESSAGE(cpRet, 256, MSG_I008, pArg->szNodeName, pArg->szNodeId);
    TRACE("--- iDELETE_FROM_DATABASE returns 1  %s", cpRet);
    return 1;
}
