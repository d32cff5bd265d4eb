/* The client's row during an update: what is read from it, and how the update's
   progress and end are recorded there. */
#include "update_run.h"

#include <cstdlib>

#include "../common/log/outcome_log.h"
#include "run_outcome.h"

namespace {

/* The words and columns that differ between the two kinds of update. */
struct KIND_WORDS {
    const char* cpKind;
    const char* cpLowerKind;
    const char* cpNumberColumn;
    const char* cpDateColumn;
};
constexpr KIND_WORDS sctPackage = {"Update", "update", "version_number", "update_date"};
constexpr KIND_WORDS sctServicepack = {"Servicepack update", "servicepack update",
                                       "servicepack_number", "servicepack_date"};

const KIND_WORDS& sctWORDS(const UPDATE_RUN* pRun)
{
    return pRun->pArg->eUpdate == sp_update ? sctServicepack : sctPackage;
}

void v_EXECUTE(const UPDATE_RUN* pRun, const char* cpSql)
{
    if (iDB_EXECUTE(sNOT_STORED("result of the update", pRun->pArg), cpSql, strLog) >= 0) return;
    TRACE("Error during update of update_state, update_message, %s in clients table '%s'",
          sctWORDS(pRun).cpDateColumn, pRun->szMsg);
}

/* Warning and error write the run message; the installed version stays. */
void v_STATE_WITH_MESSAGE(const UPDATE_RUN* pRun, const char* cpFormat)
{
    const KIND_WORDS& words = sctWORDS(pRun);
    TRACE("Insert %s specific information update_state, update_message, %s in database",
          words.cpLowerKind, words.cpDateColumn);
    v_EXECUTE(pRun, SQL(cpFormat, FREE_TEXT{pRun->szMsg}, RAW_TEXT{words.cpDateColumn},
                        psz_now_iso(), pRun->pArg->szNodeName));
}

/* The run's message names no cause. cpRows is the number of rows that were read. */
void v_TELL_UNREAD(const SCT_ARGS* pArg, const char* cpRows)
{
    const std::string sWhat = std::string("row of ") + pArg->szNodeName + " not read";
    if (sctDB_ERROR().eKind != DB_FINE) {
        DB_TELL_FAILURE(sWhat, strLog);
        return;
    }
    const bool bGone = bIS(cpRows, "0");
    TELL("%s: %s", sWhat.c_str(), bGone ? "it is gone" : "table clients lacks a column");
    v_CAUSE(bGone ? "not-registered" : "column-missing");
}

}  // namespace

int iREAD_CLIENT(UPDATE_RUN* pRun)
{
    char      szReply[256];
    char      szUserName[256];
    char      szPassword[256];
    char      szServerType[256];
    char      szPackage[256];
    char      szVelkaVersion[256];
    const int iRead =
        iDB_VA(SQL("select * from clients where name='%s'", pRun->pArg->szNodeName), szReply,
               sizeof szReply, &strLog, "client_id", pRun->szClientId, "os", pRun->szOs,
               "user_name", szUserName, "password", szPassword, "vm_server_type", szServerType,
               "package", szPackage, "velka_version", szVelkaVersion, "version_number",
               pRun->szVersionNumber, "servicepack_number", pRun->szServicepackNumber, "d");
    if (iRead != 1) {
        v_TELL_UNREAD(pRun->pArg, szReply);
        return 0;
    }
    sctRUN_RECORD().sClientId = pRun->szClientId;
    // The backup server itself is not asked before its update.
    if (std::strtol(pRun->szClientId, nullptr, 10) == 0)
        sctRUN_RECORD().sVersionBefore = szVelkaVersion;
    return 1;
}

void v_STATE_IN_PROGRESS(const UPDATE_RUN* pRun)
{
    const KIND_WORDS& words = sctWORDS(pRun);
    TRACE("Insert %s specific information update_state, update_message in database",
          words.cpLowerKind);
    if (iDB_EXECUTE_SQL(sNOT_STORED("start of the update", pRun->pArg), strLog,
                        "update clients set update_state='a',update_message='%s in progress using "
                        "package %s' where name='%s'",
                        words.cpKind, FREE_TEXT{pRun->pArg->szPackage},
                        pRun->pArg->szNodeName) >= 0)
        return;
    TRACE("Error during update of update_state, update_message in clients table '%s'",
          sctDB_ERROR().sText.c_str());
}

void v_STATE_WARNING(const UPDATE_RUN* pRun)
{
    v_STATE_WITH_MESSAGE(pRun,
                         "update clients set update_state='1', update_message='WARNING %s', "
                         "%s='%s' where name='%s'");
}

void v_STATE_ERROR(const UPDATE_RUN* pRun)
{
    v_STATE_WITH_MESSAGE(pRun,
                         "update clients set update_state='2', update_message='ERROR %s', "
                         "%s='%s' where name='%s'");
}

void v_STATE_SUCCESS(const UPDATE_RUN* pRun)
{
    const KIND_WORDS& words = sctWORDS(pRun);
    const bool        bServicepack = pRun->pArg->eUpdate == sp_update;
    v_EXECUTE(pRun,
              SQL("update clients set update_state='0',update_message='%s finished successfully',"
                  "%s=%ld,%s='%s' where name='%s'",
                  words.cpKind, RAW_TEXT{words.cpNumberColumn},
                  bServicepack ? pRun->lServicepack : pRun->lVersion, RAW_TEXT{words.cpDateColumn},
                  psz_now_iso(), pRun->pArg->szNodeName));
}
