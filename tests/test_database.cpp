/* The six database operations, by name, on a real server. */
#include "common/cm_db_access.h"

#include <sys/wait.h>

#include <cstring>
#include <thread>

#include "common/config/config.h"
#include "sandbox_fixture.h"

using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

class DATABASE : public SANDBOX {
protected:
    void SetUp() override
    {
        SANDBOX::SetUp();
        NEW_CONNECTION();
    }
    /* The process keeps one connection, also from test to test. */
    void NEW_CONNECTION()
    {
        CaptureStderr();
        iDB_ACCESS("select pg_terminate_backend(pg_backend_pid())", m_szReply, nullptr, m_log);
        EXPECT_EQ(iDB_ACCESS("select 1", m_szReply, nullptr, m_log), 1) << m_szReply;
        GetCapturedStderr();
    }
    /* Connects anew by the sandbox's connection text with more behind it. */
    void CONNECT_BY(const char* cpAdded)
    {
        if (m_sBase.empty()) m_sBase = sCONFIG_TEXT("database", "conninfo", "");
        CaptureStderr();
        iDB_ACCESS("copy clients to stdout", m_szReply, nullptr, m_log);  // drops the old one
        GetCapturedStderr();
        INI("database", "conninfo", m_sBase + cpAdded);
        v_CONFIG_FORGET();
    }
    std::string sVALUE(const char* cpSql)
    {
        return iDB_ACCESS(cpSql, m_szReply, nullptr, m_log) ? m_szReply
                                                            : std::string("! ") + m_szReply;
    }

    char        m_szReply[256] = "";
    str_log     m_log = {};
    std::string m_sBase;
};

TEST_F(DATABASE, access_replies_with_value_number_or_error_and_its_cause)
{
    INI("database", "statement_timeout", "1");
    CONNECT_BY("");
    constexpr struct {
        const char *cpSql, *cpReply;
        const char* cpCause = "";
    } asctRow[] = {
        {"select MAX(client_id) from clients where client_id>0", ""},
        {"select E'two\\nlines'", "two lines"},
        {"insert into interfaces values (0,'a',0),(0,'b',1)", "2"},
        {"delete from interfaces", "2"},
        {"", "! the statement does not fit its buffer", "not-recognised"},
        {"selec 1", "! ERROR: syntax error at or near \"selec\" at character 1", "database-failed"},
        {"copy clients to stdout", "! the statement opens a copy", "not-recognised"},
        {"select 1; drop table interfaces",
         "! ERROR: cannot insert multiple commands into a prepared statement", "database-failed"},
        {"select x from clients", "! ERROR: column \"x\" does not exist at character 8",
         "column-missing"},
        {"select 1 from x", "! ERROR: relation \"x\" does not exist at character 15",
         "table-missing"},
        {"select pg_sleep(30)", "! ERROR: canceling statement due to statement timeout",
         "statement-ended"},
        {"insert into clients (client_id,name) values (0,'x')",
         "! ERROR: duplicate key value violates unique constraint \"clients_pkey\"",
         "database-constraint"},
    };
    for (const auto& row : asctRow) {
        SCOPED_TRACE(row.cpSql);
        EXPECT_EQ(sVALUE(row.cpSql), row.cpReply);
        EXPECT_STREQ(sctDB_ERROR().cpCause, row.cpCause);
    }
    EXPECT_EQ(sctDB_ERROR().sSqlState, "23505");
    char szSmall[8];
    EXPECT_EQ(iDB_ACCESS("selec", szSmall, nullptr, m_log), 0);
    EXPECT_STREQ(szSmall, "ERROR: ");
}

TEST_F(DATABASE, a_list_holds_every_row_and_is_filled_anew)
{
    DB_REC_LIS sctList = {"CONFIG_CLIENT", 0, 0, nullptr, nullptr};
    EXPECT_EQ(iDB_ACCESS("select 1 where false", m_szReply, &sctList, m_log), 1);
    EXPECT_STREQ(m_szReply, "0");
    EXPECT_EQ(sctList.pstrFirstRec, nullptr);

    EXPECT_EQ(iDB_ACCESS("select i as n,'v'||i as \"Os\",null as gap,repeat('x',1000) as clip from "
                         "generate_series(1,20000) i order by i",
                         m_szReply, &sctList, m_log),
              1);
    EXPECT_STREQ(m_szReply, "20000");
    EXPECT_EQ(sctList.iRows, 20000);
    EXPECT_EQ(sctList.pstrFirstRec->pstrNextRec->iRow, 2);
    EXPECT_EQ(sctList.pstrLastRec->pstrNextRec, nullptr);
    char szNumber[8] = "", szOs[4] = "", szGap[8] = "old", szNone[8] = "old", szClip[11] = "";
    EXPECT_EQ(iDB_SEL_GET(&sctList, 20000, m_szReply, &m_log, "n", szNumber, "os", szOs, "gap",
                          szGap, "clip", szClip, "d"),
              1);
    EXPECT_STREQ(szNumber, "20000");
    EXPECT_STREQ(szOs, "v20");
    EXPECT_STREQ(szGap, "");
    EXPECT_STREQ(szClip, "xxxxxxxxxx");
    EXPECT_EQ(iDB_SEL_GET(&sctList, 1, m_szReply, &m_log, "none", szNone, "n", szNumber, "x"), 0);
    EXPECT_STREQ(szNone, "old");
    EXPECT_STREQ(szNumber, "1");
    for (const int iRow : {0, 20001})
        EXPECT_EQ(iDB_SEL_GET(&sctList, iRow, m_szReply, &m_log, "n", szNumber, "d"), 0);
    EXPECT_EQ(iDB_ACCESS("selec", m_szReply, &sctList, m_log), 0);
    EXPECT_EQ(sctList.iRows, 0);
}

TEST_F(DATABASE, single_values_leave_what_they_do_not_find)
{
    char szValue[6] = "old", szOther[6] = "old";
    for (const char* cpSql :
         {"select name from clients where client_id=7", "selec", "select 1 as other"}) {
        EXPECT_EQ(iDB_SEL_GETVALUE(cpSql, "name", szValue, m_log), 0) << cpSql;
        EXPECT_STREQ(szValue, "old");
        EXPECT_NE(iDB_VA(cpSql, m_szReply, 256, &m_log, "name", szValue, "d"), 1) << cpSql;
        EXPECT_STREQ(szValue, "old");
    }
    EXPECT_EQ(iDB_VA("select null as one,'ä€ä' as two union all select 'z','z'", m_szReply, 256,
                     &m_log, "one", szValue, "two", szOther, "x"),
              1);
    EXPECT_STREQ(szValue, "");
    EXPECT_STREQ(szOther, "ä€");  // cut between characters
    const std::string sDate = pDBNULL("2024-05-01 10:00:00");
    EXPECT_STREQ(pDBNULL(""), "NULL");
    EXPECT_STREQ(pDBNULL("x'y"), "'x''y'");
    EXPECT_EQ(sDate, "'2024-05-01 10:00:00'");
}

TEST_F(DATABASE, the_session_has_the_settings_that_the_operations_rely_on)
{
    const std::string sBase = sCONFIG_TEXT("database", "conninfo", "");
    INI("database", "statement_timeout", "1");
    INI("database", "conninfo",
        sBase +
            " options='-c datestyle=German -c standard_conforming_strings=off -c "
            "lock_timeout=7'");
    v_CONFIG_FORGET();
    NEW_CONNECTION();
    constexpr const char* aacpSetting[][2] = {
        {"DateStyle", "ISO, DMY"},   {"standard_conforming_strings", "on"},
        {"lock_timeout", "7ms"},     {"client_encoding", "UTF8"},
        {"statement_timeout", "1s"}, {"application_name", "vk_config_client"}};
    for (const auto& acpSetting : aacpSetting)
        EXPECT_EQ(sVALUE((std::string("show ") + acpSetting[0]).c_str()), acpSetting[1]);

    // Of several hosts, one that answers is used.
    INI("database", "conninfo", sBase + " host=/nowhere," + SQL("show unix_socket_directories"));
    v_CONFIG_FORGET();
    NEW_CONNECTION();
    EXPECT_EQ(sVALUE("select count(*) from clients"), "1");
    // One that takes no changes is none of them.
    SQL("alter role velka in database " + SQL("select current_database()") +
        " set default_transaction_read_only=on");
    INI("database", "retry_time", "0");
    CONNECT_BY("");
    EXPECT_EQ(sVALUE("select 1")[0], '!');
    EXPECT_THAT(sctDB_ERROR().sText, HasSubstr("session is read-only"));
}

TEST_F(DATABASE, a_connection_that_fails_has_a_cause)
{
    const std::pair<const char*, const char*> acpConnect[] = {
        {" dbname=nope", "database-missing"},
        {" user=nope", "database-login"},
        {" host=/nowhere", "database-no-socket"},
        {" host=nowhere.invalid", "database-name-unknown"},
        {" sslmode=require host=127.0.0.1 port=1", "database-down"},
        {" sslmode=x", "database-conninfo"}};
    INI("database", "retry_time", "0");
    for (const auto& [cpAdded, cpCause] : acpConnect) {
        CONNECT_BY(cpAdded);
        EXPECT_EQ(sVALUE("select 1").substr(0, 2), "! ");
        EXPECT_STREQ(sctDB_ERROR().cpCause, cpCause) << sctDB_ERROR().sText;
    }
}

TEST_F(DATABASE, a_closed_connection_is_replaced_and_a_lost_one_too_where_it_does_no_harm)
{
    const std::string sClose =
        "select pg_terminate_backend(pid) from pg_stat_activity where "
        "application_name='vk_config_client' and datname=current_database()";
    // Ends its own session the first time, and answers then.
    const std::string sOnce =
        "case when nextval('once')=1 then pg_terminate_backend("
        "pg_backend_pid()) end";
    SQL("create sequence once");
    SQL("insert into interfaces values (0,'a',0)");
    CaptureStderr();
    for (const char* cpSql : {"select 'open'", "insert into interfaces values (0,'b',1)"}) {
        SQL(sClose);
        ASSERT_TRUE(bWAIT_UNTIL(9000, [&] { return ROWS(sClose).empty(); }));
        EXPECT_EQ(sVALUE(cpSql)[0], cpSql[0] == 's' ? 'o' : '1') << m_szReply;
    }
    const std::pair<std::string, bool> asRow[] = {
        {"select i_name," + sOnce + " from interfaces order by i_name", true},
        {"update interfaces set i_order=5 where " + sOnce + " is null", true},
        {"delete from interfaces where i_name='a' and " + sOnce + " is null", true},
        {"insert into interfaces select 0,'c',0 where " + sOnce + " is null", false}};
    for (const auto& [sSql, bAgain] : asRow) {
        SCOPED_TRACE(sSql);
        EXPECT_EQ(GetCapturedStderr(), "");
        CaptureStderr();
        SQL("alter sequence once restart");
        DB_REC_LIS sctList = {"CONFIG_CLIENT", 0, 0, nullptr, nullptr};
        EXPECT_EQ(iDB_ACCESS(sSql.c_str(), m_szReply, &sctList, m_log), bAgain) << m_szReply;
        EXPECT_EQ(sctList.iRows, sSql[0] == 's' ? 2 : 0);
        EXPECT_EQ(sctDB_ERROR().eKind, bAgain ? DB_FINE : DB_LOST);
    }
    EXPECT_LE(asLINES(GetCapturedStderr()).size(), 1U);  // once in a run, maybe by another test
    EXPECT_THAT(ROWS("select i_name,i_order from interfaces"), testing::ElementsAre("b|5"));

    // A transaction is begun anew as a whole, or takes no effect at all.
    SQL("alter sequence once restart");
    int        iBegun = 0;
    const auto iBOTH = [&](const std::string& sSecond) {
        return iDB_TRANSACTION("both not stored", m_log, [&] {
            iBegun++;
            return iDB_RUN("insert into interfaces values (0,'d',0)", m_log) > 0 &&
                   iDB_RUN(sSecond.c_str(), m_log) >= 0;
        });
    };
    EXPECT_EQ(iBOTH("select " + sOnce), 1);
    EXPECT_EQ(iBegun, 2);
    SQL("delete from interfaces where i_name='d'");
    CaptureStderr();
    EXPECT_EQ(iBOTH("selec"), 0);
    EXPECT_THAT(GetCapturedStderr(), HasSubstr(": both not stored: ERROR: syntax error"));
    EXPECT_THAT(ROWS("select i_name from interfaces"), testing::ElementsAre("b"));
    EXPECT_EQ(sVALUE("select 'goes on'"), "goes on");
}

TEST_F(DATABASE, a_forked_process_leaves_to_its_parent_what_is_its_parents)
{
    const std::string sSession = sVALUE("select pg_backend_pid()");
    CHILD             child;
    CHILD_SPEC        sctSpec;
    std::string       sReason;
    sctSpec.asArgument = {"sleep", "60"};
    ASSERT_TRUE(iCHILD_START(child, sctSpec, sReason)) << sReason;
    for (const bool bAsks : {false, true}) {
        const pid_t iPid = fork();
        if (iPid == 0) {
            const bool bShared = bAsks && sVALUE("select pg_backend_pid()") == sSession;
            exit(bShared ? 1 : 0);  // with all that is registered for the end
        }
        int iStatus = -1;
        waitpid(iPid, &iStatus, 0);
        EXPECT_EQ(iStatus, 0);
    }
    EXPECT_EQ(iCHILD_ENDED(child), 0);
    EXPECT_EQ(sVALUE("select pg_backend_pid()"), sSession);
}

TEST_F(DATABASE, a_full_server_is_tried_again_for_retry_time)
{
    const std::string sRole = "limited_" + SQL("select current_database()");
    SQL("create role " + sRole + " login connection limit 0");
    INI("database", "retry_time", "1");
    CONNECT_BY((" user=" + sRole).c_str());
    long lStart = lNOW_MS();
    EXPECT_THAT(sVALUE("select 1"), HasSubstr("too many connections for role"));
    EXPECT_EQ(sctDB_ERROR().eKind, DB_BUSY);
    EXPECT_THAT(lNOW_MS() - lStart, testing::AllOf(testing::Ge(950), testing::Le(6000)));
    lStart = lNOW_MS();
    EXPECT_THAT(sVALUE("select 1"), HasSubstr("too many connections for role"));
    EXPECT_LE(lNOW_MS() - lStart, 900);  // once in vain, it is asked only once

    INI("database", "retry_time", "20");
    SQL("alter role " + sRole + " connection limit -1");
    CONNECT_BY((" user=" + sRole).c_str());
    EXPECT_EQ(sVALUE("select 1"), "1");
    SQL("alter role " + sRole + " connection limit 0");
    SQL("select pg_terminate_backend(pid) from pg_stat_activity where usename='" + sRole + "'");
    std::thread later([&] {
        iSLEEP_MS(300);
        SQL("alter role " + sRole + " connection limit -1");
    });
    EXPECT_EQ(sVALUE("select 1"), "1");
    later.join();
    CONNECT_BY("");
    SQL("drop role " + sRole);
}

}  // namespace
