/* The schema of sql/, part by part, and what a database lacks of it. The files are the
   product's own: a column or an index a line, comments after "--". */
#include <cstdlib>
#include <set>

#include "common/cm_db_access.h"
#include "common/common.h"
#include "database.h"
#include "files.h"

namespace {

/* A line of a table: the column, and the key that its definition has. */
void TAKE_COLUMN(const std::string& sTable, std::string sDefinition, SCHEMA& schema)
{
    if (sDefinition.ends_with(',')) sDefinition.pop_back();
    const std::string sColumn = sDefinition.substr(0, sDefinition.find(' '));
    const std::string sPlace = " (" + sIDENTIFIER(sColumn) + ")";
    const std::string sAdd = "alter table " + sIDENTIFIER(sTable) + " add ";
    const std::string sName = sTable + "." + sColumn;
    schema.parts.push_back({"column", sTable, sName, sAdd + "column " + sDefinition, ""});
    for (const char* cpKey : {" primary key", " unique", " references "}) {
        const size_t uKey = sDefinition.find(cpKey);
        if (uKey == sDefinition.npos) continue;
        SCHEMA_PART key{"key", sTable, sName, sAdd, sDefinition.substr(uKey + 1)};
        key.sSql.append(key.bRefers() ? "foreign key" : key.sRule).append(sPlace);
        if (key.bRefers()) key.sSql.append(" ").append(key.sRule);
        schema.parts.push_back(std::move(key));
    }
}

void TAKE_TABLES(const std::string& sText, SCHEMA& schema)
{
    size_t      uTable = 0;
    std::string sTable;  // whose lines these are
    for (const std::string_view svLine : asvPIECES(sText)) {
        const std::string s = sCONDENSED(svLine.substr(0, svLine.find("--")));
        const auto        asvWord = asvPIECES(s, ' ');
        const auto        sWORD = [&](size_t u) {
            return std::string(u < asvWord.size() ? asvWord[u] : "");
        };
        const size_t uName = sWORD(1) == "unique" ? 3 : 2;
        if (s.empty()) continue;
        if (s.starts_with("create table ")) {
            uTable = schema.parts.size();
            sTable = sWORD(2);
            schema.parts.push_back({"table", sTable, sTable, "", ""});
        } else if (sTable.empty()) {
            schema.parts.push_back({"index", sWORD(uName + 2), sWORD(uName), s, ""});
        } else if (s != ");") {
            TAKE_COLUMN(sTable, s, schema);
        }
        if (!sTable.empty()) schema.parts[uTable].sSql += s + "\n";
        if (s == ");") sTable.clear();
    }
}

/* The names of the parts of a kind, with a comma between. */
std::string sNAMES(const SCHEMA& schema, const char* cpKind)
{
    std::vector<std::string> asName;
    for (const SCHEMA_PART& part : schema.parts)
        if (part.sKind == cpKind) asName.push_back(part.sName);
    return sJOINED(asName, ",");
}

int iREAD_PRODUCT_FILE(const char* cpName, std::string& sText, std::string& sError)
{
    const std::string sFile = sPRODUCT_FILE(cpName);
    if (!sFile.empty() && iREAD_FILE(sFile, sText)) return 1;
    return iREASON(sError, std::string("the product's file ") + cpName + " is missing");
}

}  // namespace

int iREAD_SCHEMA(SCHEMA& schema, std::string& sError)
{
    std::string sTables;
    std::string sSystems;
    if (!iREAD_PRODUCT_FILE("sql/schema.sql", sTables, sError) ||
        !iREAD_PRODUCT_FILE("sql/oper_systems.sql", sSystems, sError))
        return 0;
    schema = {};
    TAKE_TABLES(sTables, schema);
    const size_t uValues = sSystems.find("values");
    if (uValues != std::string::npos)
        schema.sSystems = sSystems.substr(uValues + 6, sSystems.rfind(';') - uValues - 6);
    if (!schema.parts.empty() && !schema.sSystems.empty()) return 1;
    return iREASON(sError,
                   "the product's files sql/schema.sql and sql/oper_systems.sql are not usable");
}

DB_GAPS sctGAPS(PGconn* pConn, const SCHEMA& schema)
{
    DB_GAPS gaps;
    DB_ROWS rows;
    char    szSql[4096];
    iSQL(szSql,
         "with t as (select c.oid,c.relname from pg_class c "
         "join unnest(string_to_array('%s',',')) n on c.oid=to_regclass(n)),"
         "a as (select t.oid,a.attnum,t.relname||'.'||a.attname as name from t "
         "join pg_attribute a on a.attrelid=t.oid where a.attnum>0 and not a.attisdropped) "
         "select 'table '||relname from t "
         "union all select 'column '||name from a "
         "union all select 'index '||n from unnest(string_to_array('%s',',')) n "
         "where to_regclass(n) is not null "
         "union all select 'key '||name from a where exists (select from pg_index i where "
         "i.indrelid=a.oid and i.indisunique and i.indisvalid and i.indpred is null "
         "and i.indnkeyatts=1 and i.indkey[0]=a.attnum) "
         "union all select 'reference '||name from a where exists (select from pg_constraint c "
         "where c.conrelid=a.oid and c.contype='f' and c.conkey=array[a.attnum]) "
         "union all select 'rights '||relname from t where has_table_privilege(oid,'select') and "
         "has_table_privilege(oid,'insert') and has_table_privilege(oid,'update') and "
         "has_table_privilege(oid,'delete')",
         std::string_view(sNAMES(schema, "table")), std::string_view(sNAMES(schema, "index")));
    if (!iRUN(pConn, szSql, &rows, gaps.sError)) return gaps;
    std::set<std::string> there;
    for (const auto& asRow : rows) there.insert(asRow[0]);
    for (const SCHEMA_PART& part : schema.parts) {
        // A table is made with its columns, a column with its key.
        const bool bOwn =
            part.sKind == "table" || part.sKind == "index" ||
            there.contains(part.sKind == "key" ? "column " + part.sName : "table " + part.sTable);
        if (bOwn && !there.contains((part.bRefers() ? "reference" : part.sKind) + " " + part.sName))
            gaps.parts.push_back(part);
        if (part.sKind != "table" || !there.contains("table " + part.sName)) continue;
        if (!there.contains("rights " + part.sName)) gaps.asForbidden.push_back(part.sName);
    }
    if (!there.contains("rights oper_systems")) return gaps;
    const std::string sMissing =
        "select count(*) from (values " + schema.sSystems +
        ") v(os,platform) where not exists (select from oper_systems o where o.os=v.os)";
    if (iRUN(pConn, sMissing, &rows, gaps.sError))
        gaps.lSystems = std::strtol(rows[0][0].c_str(), nullptr, 10);
    return gaps;
}
