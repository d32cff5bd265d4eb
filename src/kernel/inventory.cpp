/* Refreshes the client's inventory columns from what the client reports. */
#include "inventory.h"

#include "run_outcome.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "restart_status.h"

namespace {

constexpr const char* cpTOO_LONG = "22001";  // SQLSTATE: a text does not fit its column

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
    const bool bOnMover = bIS(pArg->szPlatform, "NETWARE");
    szAnswer[0] = '\0';
    i_RCMD_EXEC(bOnMover ? pArg->szDataMover : pArg->szNodeName, cpCommand, szAnswer,
                sizeof szAnswer, strLog);
    TRACE("%s: %s", cpTrace, sFOREIGN(szAnswer).c_str());
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
        if (bIS(cpStored, cpKept)) return false;
    if (bIS(cpStored, "OES-Linux") && bIS(cpReported, "LINUX")) return false;
    return !bIS(cpStored, cpReported);
}

void v_CORRECT_OS(SCT_ARGS* pArg, const char* cpReported)
{
    TRACE("OS in DB [%s] does not match client OS [%s].", pArg->szOpersys,
          sFOREIGN(cpReported).c_str());
    if (!iDB_SEL_GETVALUE(SQL("select platform from oper_systems where os='%s'", cpReported),
                          "platform", pArg->szPlatform, strLog)) {
        DB_TELL_FAILURE(sNOT_STORED("operating system", pArg), strLog);
        return;
    }
    iDB_EXECUTE_SQL(sNOT_STORED("operating system", pArg), strLog,
                    "update clients set os='%s' where name='%s'", cpReported, pArg->szNodeName);
    // What follows in this run asks the data mover, which may be this server.
    if (bIS(pArg->szPlatform, "NETWARE") && !bGIVEN(pArg->szDataMover))
        iTEXT_SET(pArg->szDataMover, pArg->szVelkaNode);
}

UPDATE_PART eUPDATE_PART(const SCT_ARGS* pArg, bool bSameDate, bool bUpdating)
{
    if (bUpdating || iUPDATE_RUNS(pArg) == 1) return UPDATE_NONE;
    if (!bSameDate) return UPDATE_ALL;
    char szState[256] = "";
    iDB_SEL_GETVALUE(SQL("select update_state from clients where name='%s'", pArg->szNodeName),
                     "update_state", szState, strLog);
    DB_TELL_FAILURE(std::string("update state of ") + pArg->szNodeName + " not read", strLog);
    if (!bIS(szState, "a")) return UPDATE_DATE;
    TRACE("an update of %s was broken off; its state is the client's own", pArg->szNodeName);
    return UPDATE_ALL;
}

void v_FORM_INVENTORY(const SCT_ARGS* pArg, const CLIENT_REPORT& report, UPDATE_PART ePart,
                      char (&szSql)[2048])
{
    const long        lVersion = l_cli_version(report.szVersion);
    const long        lNumber = std::strtol(report.szServicepackNumber, nullptr, 10);
    const std::string sNumber = std::to_string(std::max(lNumber, 0L));
    const std::string sUpdated =
        ePart == UPDATE_NONE ? "update_date" : pDBNULL(report.szUpdateDate);
    const RAW_TEXT  installed{pDBNULL(report.szInstallationDate)};
    const RAW_TEXT  packed{pDBNULL(report.szServicepackDate)};
    const FREE_TEXT modules{report.szModuleVer};
    const FREE_TEXT hardware{report.szHw};
    const FREE_TEXT package{report.szPackage};
    const FREE_TEXT packedAs{report.szServicepackPackage};
    if (ePart == UPDATE_ALL)
        iSQL(szSql,
             "update clients set qtc_version='%s',velka_version='%s',version_number=%ld,"
             "hw_platform='%s',package='%s',installation_date=%s,update_date=%s,update_state='%s',"
             "update_message='%s',servicepack_number=%s,servicepack_package='%s',"
             "servicepack_date=%s,module_versions='%s' where name='%s'",
             report.szQtcVersion, report.szVersion, lVersion, hardware, package, installed,
             RAW_TEXT{sUpdated}, report.szUpdateState, FREE_TEXT{report.szUpdateMessage},
             RAW_TEXT{sNumber}, packedAs, packed, modules, pArg->szNodeName);
    else
        iSQL(szSql,
             "update clients set qtc_version='%s',velka_version='%s',version_number=%ld,"
             "hw_platform='%s',package='%s',installation_date=%s,update_date=%s,"
             "servicepack_number=%s,servicepack_package='%s',servicepack_date=%s,"
             "module_versions='%s' where name='%s'",
             report.szQtcVersion, report.szVersion, lVersion, hardware, package, installed,
             RAW_TEXT{sUpdated}, RAW_TEXT{sNumber}, packedAs, packed, modules, pArg->szNodeName);
}

/* Cuts a text to the characters that its column holds. */
void v_CUT_TO_COLUMN(const char* cpColumn, char (&szText)[256])
{
    char szWidth[32] = "";
    if (!iDB_SEL_GETVALUE(SQL("select atttypmod-4 as width from pg_attribute where "
                              "attrelid='clients'::regclass and attname='%s' and atttypmod>4",
                              cpColumn),
                          "width", szWidth, strLog))
        return;
    long  lLeft = std::strtol(szWidth, nullptr, 10);
    char* cpEnd = szText;
    while (*cpEnd != '\0' && ((*cpEnd & 0xC0) == 0x80 || lLeft-- > 0)) ++cpEnd;
    if (*cpEnd == '\0') return;
    TRACE("report of the client: %s is longer than %s characters and cut: %s", cpColumn, szWidth,
          sFOREIGN(szText).c_str());
    *cpEnd = '\0';
}

void v_CUT_TO_COLUMNS(CLIENT_REPORT* pReport)
{
    v_CUT_TO_COLUMN("qtc_version", pReport->szQtcVersion);
    v_CUT_TO_COLUMN("velka_version", pReport->szVersion);
    v_CUT_TO_COLUMN("hw_platform", pReport->szHw);
    v_CUT_TO_COLUMN("package", pReport->szPackage);
    v_CUT_TO_COLUMN("update_state", pReport->szUpdateState);
    v_CUT_TO_COLUMN("update_message", pReport->szUpdateMessage);
    v_CUT_TO_COLUMN("servicepack_package", pReport->szServicepackPackage);
    v_CUT_TO_COLUMN("module_versions", pReport->szModuleVer);
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
    v_VERSION_SEEN(pReport->szQtcVersion, pReport->szVersion);
}

int iPREPARE_INVENTORY(const SCT_ARGS* pArg, CLIENT_REPORT* pReport, bool bUpdating,
                       INVENTORY* pInventory)
{
    char szStored[256] = "";
    if (!iDB_SEL_GETVALUE(SQL("select update_date from clients where name='%s'", pArg->szNodeName),
                          "update_date", szStored, strLog)) {
        DB_TELL_FAILURE(sNOT_STORED("inventory", pArg), strLog);
        return 0;
    }
    pInventory->ePart = eUPDATE_PART(pArg, bIS(szStored, pReport->szUpdateDate), bUpdating);
    v_MAP_UPDATE_STATE(pReport->szUpdateState);
    cm_time_stamp2iso(pReport->szInstallationDate);
    cm_time_stamp2iso(pReport->szServicepackDate);
    cm_time_stamp2iso(pReport->szUpdateDate);
    v_FORM_INVENTORY(pArg, *pReport, pInventory->ePart, pInventory->szSql);
    return 1;
}

void v_STORE_INVENTORY(const SCT_ARGS* pArg, CLIENT_REPORT* pReport, INVENTORY* pInventory)
{
    if (iDB_RUN(pInventory->szSql, strLog) >= 0) return;
    if (sctDB_ERROR().sSqlState == cpTOO_LONG) {
        v_CUT_TO_COLUMNS(pReport);
        v_FORM_INVENTORY(pArg, *pReport, pInventory->ePart, pInventory->szSql);
        iDB_RUN(pInventory->szSql, strLog);
    }
    DB_TELL_FAILURE(sNOT_STORED("inventory", pArg), strLog);
}

void v_INVENTORY_FOLLOW_UP(SCT_ARGS* pArg, const CLIENT_REPORT* pReport)
{
    if (pReport->szVersion[0] == '\0') v_ASK_VERSION(pArg);
    if (pReport->szPackage[0] == '\0') v_ASK_PACKAGE(pArg);
    if (bOS_DIFFERS(pArg, pReport->szOs)) v_CORRECT_OS(pArg, pReport->szOs);
}
