/* Refreshes the client's inventory columns from what the client reports. */
#include "inventory.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "restart_status.h"

namespace {

/* The client reports the status that its update script ended with; the column
   holds one digit. */
void v_MAP_UPDATE_STATE(char (&szState)[256])
{
    const long lState = std::strtol(szState, nullptr, 10);
    if (bRESTART_STATUS(lState))
        iTEXT_SET(szState, "1");
    else if (lState > 2)
        iTEXT_SET(szState, "2");
}

/* Queries a line "key=value" of the client's vk.ini. Returns the value, or null
   when the client answered none. */
const char* cpQUERY_CLIENT(const SCT_ARGS* pArg, const char* cpCommand, const char* cpTrace,
                           char (&szAnswer)[512])
{
    const bool bOnMover = std::strcmp(pArg->szPlatform, "NETWARE") == 0;
    szAnswer[0] = '\0';
    i_RCMD_EXEC(bOnMover ? pArg->szDataMover : pArg->szNodeName, cpCommand, szAnswer,
                sizeof szAnswer, strLog);
    TRACE("%s: %s", cpTrace, szAnswer);
    const char* cpEqual = std::strchr(szAnswer, '=');
    return cpEqual != nullptr ? cpEqual + 1 : nullptr;
}

void v_ASK_VERSION(const SCT_ARGS* pArg)
{
    char        szAnswer[512];
    const char* cpVersion = cpQUERY_CLIENT(
        pArg, "vk_client -r -f usefile -n gv_rw_ini:vk.ini -m f -s \"version=^\" -v 1",
        "Velka version", szAnswer);
    if (cpVersion == nullptr) return;
    iDB_EXECUTE_SQL(sNOT_STORED("version", pArg), strLog,
                    "update clients set velka_version='%s',version_number=%ld where name='%s'",
                    cpVersion, l_cli_version(cpVersion), pArg->szNodeName);
}

void v_ASK_PACKAGE(const SCT_ARGS* pArg)
{
    TRACE("Velka package name not found in qtc output");
    char        szAnswer[512];
    const char* cpPackage = cpQUERY_CLIENT(
        pArg, "vk_client -r -f usefile -n gv_rw_ini:vk.ini -m f -s \"package_name=^\" -v 1",
        "Velka package", szAnswer);
    if (cpPackage == nullptr) return;
    iDB_EXECUTE_SQL(sNOT_STORED("package", pArg), strLog,
                    "update clients set package='%s' where name='%s'", cpPackage, pArg->szNodeName);
}

/* Systems whose backup client runs elsewhere, or reports a system of its own. */
bool bOS_DIFFERS(const SCT_ARGS* pArg, const char* cpReported)
{
    const char* cpStored = pArg->szOpersys;
    if (cpReported[0] == '\0') return false;
    for (const char* cpKept : {"NetWare", "ESX-Server", "Citrix XenServer"})
        if (std::strcmp(cpStored, cpKept) == 0) return false;
    if (std::strcmp(cpStored, "OES-Linux") == 0 && std::strcmp(cpReported, "LINUX") == 0)
        return false;
    return std::strcmp(cpStored, cpReported) != 0;
}

void v_CORRECT_OS(SCT_ARGS* pArg, const char* cpReported)
{
    TRACE("OS in DB [%s] does not match client OS [%s].", pArg->szOpersys, cpReported);
    char szSql[2048];
    iSQL(szSql, "select platform from oper_systems where os='%s'", cpReported);
    if (!iDB_SEL_GETVALUE(szSql, "platform", pArg->szPlatform, strLog)) {
        DB_TELL_FAILURE(sNOT_STORED("operating system", pArg), strLog);
        return;
    }
    iDB_EXECUTE_SQL(sNOT_STORED("operating system", pArg), strLog,
                    "update clients set os='%s' where name='%s'", cpReported, pArg->szNodeName);
}

}  // namespace

void v_READ_REPORT(t_LL LL_Output, CLIENT_REPORT* pReport)
{
    *pReport = {};
    iTEXT_SET(pReport->szCores, "1");
    i_search_client_info(LL_Output, pReport->szQtcVersion, pReport->szVersion, pReport->szCores,
                         pReport->szOs, pReport->szHw, pReport->szPackage, pReport->szExType,
                         pReport->szInstallationDate, pReport->szUpdateDate, pReport->szUpdateState,
                         pReport->szUpdateMessage, pReport->szServicepackNumber,
                         pReport->szServicepackPackage, pReport->szServicepackDate,
                         pReport->szModuleVer, strLog);
}

void v_INVENTORY_STATEMENT(const SCT_ARGS* pArg, CLIENT_REPORT* pReport, char (&szSql)[2048])
{
    szSql[0] = '\0';
    char szStored[256] = "";
    char szQuery[2048];
    iSQL(szQuery, "select update_date from clients where name='%s'", pArg->szNodeName);
    if (!iDB_SEL_GETVALUE(szQuery, "update_date", szStored, strLog)) {
        DB_TELL_FAILURE(sNOT_STORED("inventory", pArg), strLog);
        return;
    }

    v_MAP_UPDATE_STATE(pReport->szUpdateState);
    cm_time_stamp2iso(pReport->szInstallationDate);
    cm_time_stamp2iso(pReport->szServicepackDate);
    // An update that is stored already keeps the state and message stored with it.
    const bool bNewUpdate = std::strcmp(szStored, pReport->szUpdateDate) != 0;
    cm_time_stamp2iso(pReport->szUpdateDate);

    const long        lVersion = l_cli_version(pReport->szVersion);
    const long        lNumber = std::strtol(pReport->szServicepackNumber, nullptr, 10);
    const std::string sNumber = std::to_string(std::max(lNumber, 0L));
    const RAW_TEXT    installed{pDBNULL(pReport->szInstallationDate)};
    const RAW_TEXT    updated{pDBNULL(pReport->szUpdateDate)};
    const RAW_TEXT    packed{pDBNULL(pReport->szServicepackDate)};
    const FREE_TEXT   modules{pReport->szModuleVer};
    if (bNewUpdate)
        iSQL(szSql,
             "update clients set qtc_version='%s',velka_version='%s',version_number=%ld,"
             "hw_platform='%s',package='%s',installation_date=%s,update_date=%s,update_state='%s',"
             "update_message='%s',servicepack_number=%s,servicepack_package='%s',"
             "servicepack_date=%s,module_versions='%s' where name='%s'",
             pReport->szQtcVersion, pReport->szVersion, lVersion, pReport->szHw, pReport->szPackage,
             installed, updated, pReport->szUpdateState, FREE_TEXT{pReport->szUpdateMessage},
             RAW_TEXT{sNumber}, pReport->szServicepackPackage, packed, modules, pArg->szNodeName);
    else
        iSQL(szSql,
             "update clients set qtc_version='%s',velka_version='%s',version_number=%ld,"
             "hw_platform='%s',package='%s',installation_date=%s,update_date=%s,"
             "servicepack_number=%s,servicepack_package='%s',servicepack_date=%s,"
             "module_versions='%s' where name='%s'",
             pReport->szQtcVersion, pReport->szVersion, lVersion, pReport->szHw, pReport->szPackage,
             installed, updated, RAW_TEXT{sNumber}, pReport->szServicepackPackage, packed, modules,
             pArg->szNodeName);
}

void v_INVENTORY_FOLLOW_UP(SCT_ARGS* pArg, const CLIENT_REPORT* pReport)
{
    if (pReport->szVersion[0] == '\0') v_ASK_VERSION(pArg);
    if (pReport->szPackage[0] == '\0') v_ASK_PACKAGE(pArg);
    if (bOS_DIFFERS(pArg, pReport->szOs)) v_CORRECT_OS(pArg, pReport->szOs);
}
