/* Looks a client up in the database, by its name. A client whose operating system
   is not in oper_systems counts as not registered. */
#include "vk_config_client.h"

namespace {

[[noreturn]] void v_DATABASE_FAILED(SCT_ARGS* pArg, const char* cpDetail)
{
    v_END_RUN(pArg, VK_WARNING, MSG_E004, cpDetail, 2048, "iTEST_IF_ALREADY_IN_DATABASE DB-error");
}

/* The platform class of the backup server itself. Its query leaves no error text for
   the message, so what is missing is told beside it. */
void v_READ_SERVER_PLATFORM(SCT_ARGS* pArg)
{
    // A database that could not be reached a moment ago may answer now.
    const bool bNamed = pArg->szVelkaNode[0] != '\0' ||
                        iDB_SEL_GETVALUE("select name from clients where client_id=0", "name",
                                         pArg->szVelkaNode, strLog) != 0;
    if (bNamed &&
        iDB_SEL_GETVALUE(SQL("select oper_systems.platform from clients,oper_systems where "
                             "clients.name='%s' and clients.client_id=0 and "
                             "oper_systems.os=clients.os",
                             pArg->szVelkaNode),
                         "platform", pArg->szVelkaPlatf, strLog))
        return;
    if (sctDB_ERROR().eKind == DB_FINE)
        TELL("the backup server has no row with client_id 0 and a known operating system");
    DB_TELL_FAILURE("platform of the backup server not read", strLog);
    v_DATABASE_FAILED(pArg, "");
}

}  // namespace

void v_TELL_NO_ROW(const std::string& sWhat, const SCT_ARGS* pArg)
{
    char        szId[32] = "";
    std::string sWhy = "another run has removed the client";
    if (iDB_SEL_GETVALUE(SQL("select client_id from clients where name='%s'", pArg->szNodeName),
                         "client_id", szId, strLog)) {
        if (std::strlen(szId) >= sizeof pArg->szNodeId)
            sWhy = std::string("its identifier ") + szId + " has more than 7 digits";
        else if (pArg->szNodeId[0] != '\0' && !bIS(szId, pArg->szNodeId))
            sWhy = "another run has registered the client again";
        else
            sWhy = "a trigger or a policy of the database prevents changes of its row";
    } else if (sctDB_ERROR().eKind != DB_FINE) {
        sWhy = sctDB_ERROR().sText;
    }
    TELL("%s: %s", sWhat.c_str(), sWhy.c_str());
}

int iTEST_IF_ALREADY_IN_DATABASE(SCT_ARGS* pArg, const char* szAccessMode)
{
    TRACE("+++ iTEST_IF_ALREADY_IN_DATABASE ");
    TRACE("Check database entry of QIRvelka node: %s", pArg->szVelkaNode);
    v_READ_SERVER_PLATFORM(pArg);
    TRACE("Velka platform:   %s", pArg->szVelkaPlatf);
    TRACE("Check given node: %s", pArg->szNodeName);

    DB_REC_LIS sctList = {"CONFIG_CLIENT", 0, 0, nullptr, nullptr};
    char       szReply[256] = "";
    if (!iDB_ACCESS(SQL("select name,client_id,data_mover,accessmode,clients.os,platform from "
                        "clients,oper_systems where name='%s' and oper_systems.os=clients.os",
                        pArg->szNodeName),
                    szReply, &sctList, strLog))
        v_DATABASE_FAILED(pArg, szReply);

    // The reply is the number of rows; its first digit alone decides.
    if (szReply[0] != '1') {
        DB_SEL_LOOP_RECORDS(&sctList, 100);
        TRACE("--- iTEST_IF_ALREADY_IN_DATABASE returns 0 - client not in database");
        return 0;
    }
    iDB_SEL_GET(&sctList, 1, szReply, &strLog, "client_id", pArg->szNodeId, "data_mover",
                pArg->szDataMover, "os", pArg->szOpersys, "platform", pArg->szPlatform,
                "accessmode", pArg->szAccessMode, "d");
    if (bIS(szAccessMode, "CTRL") || bIS(szAccessMode, "VKSSH")) {
        TRACE("Use access mode %s given via command line parameter -m", szAccessMode);
        iTEXT_SET(pArg->szAccessMode, szAccessMode);
    }
    TRACE("--- iTEST_IF_ALREADY_IN_DATABASE returns 1 - client in database");
    return 1;
}
