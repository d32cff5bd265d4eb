/* The clients' rows in the database. The statements name the columns: passwords are
   not even read. */
#include "database_rows.h"

#include <cstdlib>
#include <cstring>

#include "common/cm_db_access.h"
#include "common/common.h"
#include "moment.h"

namespace {

/* Where a column's value goes. */
using TAKE = void (*)(CLIENT& client, const char* cpValue);

struct COLUMN {
    const char* cpSql;
    TAKE        pTake;
};

// clang-format off
constexpr COLUMN asctColumn[] = {
    {"client_id", [](CLIENT& c, const char* cp) { c.sId = cp; }},
    {"name", [](CLIENT& c, const char* cp) { c.sName = cp; }},
    {"os", [](CLIENT& c, const char* cp) { c.sOs = cp; }},
    {"accessmode", [](CLIENT& c, const char* cp) { c.sMode = cp; }},
    {"location", [](CLIENT& c, const char* cp) { c.sLocation = cp; }},
    {"coalesce(nullif(velka_version,''),qtc_version)", [](CLIENT& c, const char* cp) { c.sVersion = cp; }},
    {"version_number", [](CLIENT& c, const char* cp) { c.lVersion = std::strtol(cp, nullptr, 10); }},
    {"nullif(servicepack_number,0)", [](CLIENT& c, const char* cp) { c.sServicepack = cp; }},
    {"exec", [](CLIENT& c, const char* cp) { c.bTakesPart = *cp == '1'; }},
    {"access_state", [](CLIENT& c, const char* cp) { c.iAccessState = static_cast<int>(std::strtol(cp, nullptr, 10)); }},
    {"access_time", [](CLIENT& c, const char* cp) { c.lChecked = lSECONDS_OF(cp); }},
    {"access_success", [](CLIENT& c, const char* cp) { c.lSucceeded = lSECONDS_OF(cp); }},
    {"msg", [](CLIENT& c, const char* cp) { c.sMessage = cp; }},
    {"update_state", [](CLIENT& c, const char* cp) { c.sUpdateColumn = cp; }},
    {"update_message", [](CLIENT& c, const char* cp) { c.sUpdateMessage = cp; }},
    {"greatest(update_date,servicepack_date)", [](CLIENT& c, const char* cp) { c.lUpdateColumn = lSECONDS_OF(cp); }},
    {"data_mover", [](CLIENT& c, const char* cp) { c.sDataMover = cp; }},
    {"row_number() over (order by name)", [](CLIENT& c, const char* cp) { c.lOrder = std::strtol(cp, nullptr, 10); }},
};

// clang-format on

struct LABEL {
    const char* cpLabel;
    const char* cpSql;
};
constexpr LABEL asctDetail[] = {
    {"hardware", "hw_platform"},
    {"data mover", "data_mover"},
    {"server type", "vm_server_type"},
    {"system's user", "os_user"},
    {"access options", "access_options"},
    {"comment", "user_comment"},
    {"qtc version", "qtc_version"},
    {"package", "package"},
    {"modules", "module_versions"},
    {"installed", "installation_date"},
    {"updated", "update_date"},
    {"its package", "servicepack_package"},
    {"its date", "servicepack_date"},
    {"addresses",
     "(select string_agg(i_name, ', ' order by i_order) from interfaces i where "
     "i.client_id=clients.client_id)"},
};

/* An update stores the version as a number only; its text follows with the client's
   next report. */
void v_AGREE_ON_VERSION(CLIENT& client)
{
    constexpr long lPART = 100'000;
    const long     l = client.lVersion;
    if (l <= 0 || l_cli_version(client.sVersion.c_str()) == l) return;
    client.sVersion = std::to_string(l / lPART / lPART / lPART) + "." +
                      std::to_string(l / lPART / lPART % lPART) + "." +
                      std::to_string(l / lPART % lPART) + "-" + std::to_string(l % lPART);
}

template<class ROWS>
std::string sCOLUMNS(const ROWS& rows)
{
    std::string s;
    for (const auto& row : rows) s.append(s.empty() ? "" : ",").append(row.cpSql);
    return s;
}

/* Values of a record stand one after the other, each with its end. */
template<class F>
void v_VALUES(const DB_REC_LIS_ELEMENT& record, size_t uColumns, F pTake)
{
    const char* cpValue = record.cpData;
    for (size_t u = 0; u < uColumns; u++, cpValue += std::strlen(cpValue) + 1) pTake(u, cpValue);
}

}  // namespace

int iREAD_ROWS(bool bServer, std::vector<CLIENT>& clients, std::string& sError)
{
    DB_REC_LIS        list{"CLIENT_STATUS", 0, 0, nullptr, nullptr};
    char              szReply[1024];
    const std::string sSql = "select " + sCOLUMNS(asctColumn) + " from clients" +
                             (bServer ? "" : " where client_id<>0") +
                             " order by name collate \"C\"";
    if (!iDB_ACCESS(sSql.c_str(), szReply, &list, str_log{})) return iREASON(sError, szReply);
    clients.reserve(static_cast<size_t>(list.iRows));
    for (const auto* p = list.pstrFirstRec; p != nullptr; p = p->pstrNextRec) {
        CLIENT& client = clients.emplace_back();
        v_VALUES(*p, std::size(asctColumn),
                 [&](size_t u, const char* cpValue) { asctColumn[u].pTake(client, cpValue); });
        v_AGREE_ON_VERSION(client);
    }
    return 1;
}

std::vector<std::string> READ_SYSTEMS()
{
    std::vector<std::string> asSystem;
    DB_REC_LIS               list{"CLIENT_STATUS", 0, 0, nullptr, nullptr};
    char                     szReply[1024];
    if (iDB_ACCESS("select os from oper_systems", szReply, &list, str_log{}))
        for (const auto* p = list.pstrFirstRec; p != nullptr; p = p->pstrNextRec)
            asSystem.emplace_back(p->cpData);
    return asSystem;
}

std::vector<DETAIL> READ_DETAILS(const std::string& sName)
{
    std::vector<DETAIL> details;
    DB_REC_LIS          list{"CLIENT_STATUS", 0, 0, nullptr, nullptr};
    char                szReply[1024];
    char                szSql[4096];
    iSQL(szSql, "select %s from clients where name='%s'", RAW_TEXT{sCOLUMNS(asctDetail)}, sName);
    if (!iDB_ACCESS(szSql, szReply, &list, str_log{}) || list.pstrFirstRec == nullptr)
        return details;
    v_VALUES(*list.pstrFirstRec, std::size(asctDetail), [&](size_t u, const char* cpValue) {
        if (*cpValue != '\0') details.push_back({asctDetail[u].cpLabel, cpValue});
    });
    return details;
}
