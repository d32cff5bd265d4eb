/* Database operations: result lists and the values taken from them. */
#include "../cm_db_access.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <string>

#include "../base/immortal.h"
#include "../lines/secret.h"
#include "../lines/standard_error.h"
#include "connection.h"

namespace {

constexpr size_t uBLOCK_FIRST = 1024;
constexpr size_t uBLOCK_MAX = 65536;

/* Rows of one result. Column names stand here once; the values of a row stand
   one after the other, zero-terminated, in blocks that many rows share. */
class RECORDS {
public:
    void Add(const PGresult* pRow)
    {
        if (m_asColumn.empty())
            for (int i = 0; i < PQnfields(pRow); i++) m_asColumn.emplace_back(PQfname(pRow, i));
        size_t uRow = 1;  // a result may have rows without columns
        for (int i = 0; i < PQnfields(pRow); i++) uRow += uVALUE(pRow, i) + 1;
        char* cpData = cpSPACE(uRow);
        m_records.push_back({static_cast<int>(m_records.size()) + 1, cpData, nullptr});
        if (m_records.size() > 1) m_records[m_records.size() - 2].pstrNextRec = &m_records.back();
        for (int i = 0; i < PQnfields(pRow); i++) {
            std::memcpy(cpData, PQgetvalue(pRow, 0, i), uVALUE(pRow, i) + 1);
            cpData += uVALUE(pRow, i) + 1;
        }
        *cpData = '\0';
        m_uBytes += uRow;
    }

    std::deque<DB_REC_LIS_ELEMENT>& Records() { return m_records; }
    const std::vector<std::string>& Columns() const { return m_asColumn; }
    size_t                          Bytes() const { return m_uBytes; }

    /* Value of a column of a record, null when the result lacks it. */
    const char* Value(const DB_REC_LIS_ELEMENT& record, const char* cpColumn) const
    {
        const char* cpValue = record.cpData;
        if (cpValue == nullptr) return nullptr;
        for (const std::string& sColumn : m_asColumn) {
            if (strcasecmp(sColumn.c_str(), cpColumn) == 0) return cpValue;
            cpValue += std::strlen(cpValue) + 1;
        }
        return nullptr;
    }

private:
    static size_t uVALUE(const PGresult* pRow, int iColumn)
    {
        return static_cast<size_t>(PQgetlength(pRow, 0, iColumn));
    }

    char* cpSPACE(size_t uWanted)
    {
        if (m_cpFree == nullptr || uWanted > m_uFree) {
            m_uBlock = std::min(m_uBlock == 0 ? uBLOCK_FIRST : 2 * m_uBlock, uBLOCK_MAX);
            m_uFree = std::max(m_uBlock, uWanted);
            m_blocks.push_back(std::make_unique_for_overwrite<char[]>(m_uFree));
            m_cpFree = m_blocks.back().get();
        }
        char* cp = m_cpFree;
        m_cpFree += uWanted;
        m_uFree -= uWanted;
        return cp;
    }

    std::vector<std::string>             m_asColumn;
    std::deque<DB_REC_LIS_ELEMENT>       m_records;
    std::vector<std::unique_ptr<char[]>> m_blocks;
    char*                                m_cpFree = nullptr;
    size_t                               m_uFree = 0;
    size_t                               m_uBlock = 0;
    size_t                               m_uBytes = 0;
};

/* The filled lists, by their first record. */
std::map<const DB_REC_LIS_ELEMENT*, RECORDS>& LISTS()
{
    static IMMORTAL<std::map<const DB_REC_LIS_ELEMENT*, RECORDS>> lists;
    return lists.Get();
}

DB_ERROR& LAST_ERROR()
{
    static IMMORTAL<DB_ERROR> error;
    return error.Get();
}

/* Trace context of the last operation that was traced, for the one that gets none. */
str_log& LAST_LOG()
{
    static IMMORTAL<str_log> log;
    return log.Get();
}

bool bTRACED(const str_log& sctLog)
{
    LAST_LOG().iLogLevel = 0;
    if (sctLog.iLogLevel > 0) LAST_LOG() = sctLog;
    return sctLog.iLogLevel > 0;
}

/* Runs a statement and keeps its first uKeep rows. */
DB_OUTCOME sctRUN(const char* cpSql, const str_log& sctLog, size_t uKeep, RECORDS& records)
{
    const bool bTrace = bTRACED(sctLog);
    if (bTrace) WRITE_TRACE(&sctLog, "statement: %s", sFOREIGN(cpSql).c_str());
    DB_OUTCOME outcome = sctDB_RUN(cpSql, [&](const PGresult* pRow) {
        if (pRow == nullptr)
            records = {};
        else if (records.Records().size() < uKeep)
            records.Add(pRow);
    });
    LAST_ERROR() = outcome.error;
    if (!bTrace) return outcome;
    if (!outcome.sNote.empty()) WRITE_TRACE(&sctLog, "%s", outcome.sNote.c_str());
    if (outcome.bOk)
        WRITE_TRACE(&sctLog, "statement done, rows: %ld", outcome.lRows);
    else
        WRITE_TRACE(&sctLog, "statement failed: %s", sFOREIGN(outcome.error.sText).c_str());
    return outcome;
}

void FILL_LIST(DB_REC_LIS& list, RECORDS records)
{
    if (records.Records().empty()) return;
    list.iRows = static_cast<int>(records.Records().size());
    list.iSize = records.Bytes();
    list.pstrFirstRec = &records.Records().front();
    list.pstrLastRec = &records.Records().back();
    LISTS().emplace(list.pstrFirstRec, std::move(records));
}

int iCOPY_COLUMNS(const RECORDS& records, const DB_REC_LIS_ELEMENT& record,
                  const std::vector<DB_DEST>& dest)
{
    int iAll = 1;
    for (const DB_DEST& one : dest) {
        const char* cpValue = records.Value(record, one.cpColumn);
        if (cpValue == nullptr)
            iAll = 0;
        else
            iTEXT_COPY(one.cpValue, one.uValue, cpValue);
    }
    return iAll;
}

/* One record for people; what a column of passwords holds is nobody's business. */
std::string sRECORD(const RECORDS& records, const DB_REC_LIS_ELEMENT& record)
{
    std::string s;
    const char* cpValue = record.cpData;
    for (const std::string& sColumn : records.Columns()) {
        const bool bSecret = sColumn.find("passw") != std::string::npos && *cpValue != '\0';
        s += (s.empty() ? "" : " ") + sColumn + "=" + (bSecret ? "***" : cpValue);
        cpValue += std::strlen(cpValue) + 1;
    }
    return s;
}

constexpr int iMOST_TRIES = 5;  // of a transaction

/* What another run, or a broken connection, has done to a transaction: all of it may
   be run again. */
bool bIN_THE_WAY(DB_KIND eKind)
{
    return eKind == DB_KEY_TAKEN || eKind == DB_IN_THE_WAY || eKind == DB_LOST;
}

/* One try. After a failure LAST_ERROR is that of the statement that failed first. */
int iTRY_TRANSACTION(const str_log& sctLog, const DB_BODY& pBody)
{
    if (iDB_RUN("begin", sctLog) < 0) return 0;
    v_DB_IN_TRANSACTION(true);
    const int iDone = pBody() && iDB_RUN("commit", sctLog) >= 0;
    if (!iDone) {
        const DB_ERROR first = LAST_ERROR();
        iDB_RUN("rollback", sctLog);
        LAST_ERROR() = first;
    }
    v_DB_IN_TRANSACTION(false);
    return iDone;
}

}  // namespace

int iDB_ACCESS_N(const char* cpSql, char* cpReply, size_t uReply, DB_REC_LIS* pList,
                 const str_log& sctLog)
{
    if (pList != nullptr) DB_LET_GO(pList);
    RECORDS          records;
    const size_t     uKeep = pList != nullptr ? std::string::npos : 1;
    const DB_OUTCOME outcome = sctRUN(cpSql, sctLog, uKeep, records);
    if (!outcome.bOk) {
        iTEXT_COPY(cpReply, uReply, outcome.error.sText);
        return 0;
    }
    if (pList == nullptr && outcome.bColumns)
        iTEXT_COPY(cpReply, uReply,
                   outcome.lRows > 0 ? sONE_LINE(records.Records().front().cpData) : "");
    else
        iTEXT_COPY(cpReply, uReply, std::to_string(outcome.lRows));
    if (pList != nullptr) FILL_LIST(*pList, std::move(records));
    return 1;
}

const DB_ERROR& sctDB_ERROR()
{
    return LAST_ERROR();
}

void DB_TELL_FAILURE(const std::string& sWhat, const str_log& sctLog)
{
    const std::string& sReason = LAST_ERROR().sText;
    if (sReason.empty()) return;
    if (bTRACED(sctLog)) WRITE_TRACE(&sctLog, "%s: %s", sWhat.c_str(), sReason.c_str());
    if (bDB_CONNECTED_ONCE())
        v_STDERR_ONCE(sWhat.c_str(), "%s: %s", sWhat.c_str(), sReason.c_str());
}

int iDB_RUN(const char* cpSql, const str_log& sctLog)
{
    RECORDS          records;
    const DB_OUTCOME outcome = sctRUN(cpSql, sctLog, 0, records);
    return outcome.bOk ? static_cast<int>(outcome.lRows) : -1;
}

int iDB_EXECUTE(const std::string& sWhat, const char* cpSql, const str_log& sctLog)
{
    const int iRows = iDB_RUN(cpSql, sctLog);
    if (iRows < 0) DB_TELL_FAILURE(sWhat, sctLog);
    return iRows;
}

int iDB_TRANSACTION(const std::string& sWhat, const str_log& sctLog, const DB_BODY& pBody)
{
    int iDone = iTRY_TRANSACTION(sctLog, pBody);
    for (int iTry = 1; iTry < iMOST_TRIES && !iDone && bIN_THE_WAY(LAST_ERROR().eKind); iTry++)
        iDone = iTRY_TRANSACTION(sctLog, pBody);
    if (!iDone) DB_TELL_FAILURE(sWhat, sctLog);
    return iDone;
}

void DB_LET_GO(DB_REC_LIS* pList)
{
    LISTS().erase(pList->pstrFirstRec);
    pList->iRows = 0;
    pList->iSize = 0;
    pList->pstrFirstRec = nullptr;
    pList->pstrLastRec = nullptr;
}

int iDB_SEL_GETVALUE_N(const char* cpSql, const char* cpColumn, char* cpValue, size_t uValue,
                       const str_log& sctLog)
{
    RECORDS          records;
    const DB_OUTCOME outcome = sctRUN(cpSql, sctLog, 1, records);
    if (!outcome.bOk || records.Records().empty()) return 0;
    return iCOPY_COLUMNS(records, records.Records().front(), {{cpColumn, cpValue, uValue}});
}

int iDB_SEL_GET_DEST(const DB_REC_LIS* pList, int iRow, const str_log& sctLog,
                     const std::vector<DB_DEST>& dest)
{
    const auto list = LISTS().find(pList->pstrFirstRec);
    if (list == LISTS().end() || iRow < 1 || iRow > pList->iRows) {
        if (bTRACED(sctLog)) WRITE_TRACE(&sctLog, "list %s has no record %d", pList->szId, iRow);
        return 0;
    }
    RECORDS& records = list->second;
    return iCOPY_COLUMNS(records, records.Records()[static_cast<size_t>(iRow) - 1], dest);
}

int iDB_VA_DEST(const char* cpSql, char* cpReply, size_t uReply, const str_log& sctLog,
                const std::vector<DB_DEST>& dest)
{
    RECORDS          records;
    const DB_OUTCOME outcome = sctRUN(cpSql, sctLog, 1, records);
    iTEXT_COPY(cpReply, uReply, outcome.bOk ? std::to_string(outcome.lRows) : outcome.error.sText);
    if (!outcome.bOk || records.Records().empty()) return 0;
    return iCOPY_COLUMNS(records, records.Records().front(), dest);
}

void DB_SEL_LOOP_RECORDS(const DB_REC_LIS* pList, int iCount)
{
    const auto list = LISTS().find(pList->pstrFirstRec);
    if (LAST_LOG().iLogLevel <= 0 || list == LISTS().end()) return;
    for (const DB_REC_LIS_ELEMENT& record : list->second.Records()) {
        if (record.iRow > iCount) break;
        WRITE_TRACE(&LAST_LOG(), "record %d: %s", record.iRow,
                    sRECORD(list->second, record).c_str());
    }
}
