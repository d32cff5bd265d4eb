/* The six database operations, by name, on a real server. */
#include "common/cm_db_access.h"

#include <cstring>

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
        setenv("VK_INI", (sDIR() + "/vk.ini").c_str(), 1);
        v_CONFIG_FORGET();
        NEW_CONNECTION();
    }
    void TearDown() override
    {
        SANDBOX::TearDown();
        unsetenv("VK_INI");
        v_CONFIG_FORGET();
    }
    /* The process keeps one connection, also from test to test. */
    void NEW_CONNECTION()
    {
        CaptureStderr();
        iDB_ACCESS("select pg_terminate_backend(pg_backend_pid())", m_szReply, nullptr, m_log);
        EXPECT_EQ(iDB_ACCESS("select 1", m_szReply, nullptr, m_log), 1) << m_szReply;
        GetCapturedStderr();
    }
    std::string sVALUE(const char* cpSql)
    {
        return iDB_ACCESS(cpSql, m_szReply, nullptr, m_log) ? m_szReply
                                                            : std::string("! ") + m_szReply;
    }

    char    m_szReply[256] = "";
    str_log m_log = {};
};

TEST_F(DATABASE, access_replies_with_value_number_or_error)
{
    constexpr struct {
        const char *cpSql, *cpReply;
    } asctRow[] = {
        {"select MAX(client_id) from clients where client_id>0", ""},
        {"select E'two\\nlines'", "two lines"},
        {"insert into interfaces values (1,'a',0),(1,'b',1)", "2"},
        {"delete from interfaces", "2"},
        {"", "! the statement does not fit its buffer"},
        {"selec 1", "! ERROR: syntax error at or near \"selec\" at character 1"},
        {"copy clients to stdout", "! the statement opens a copy"},
        {"select 1; drop table interfaces",
         "! ERROR: cannot insert multiple commands into a prepared statement"},
        {"insert into clients (client_id,name) values (0,'x')",
         "! ERROR: duplicate key value violates unique constraint \"clients_pkey\""},
    };
    for (const auto& row : asctRow) {
        SCOPED_TRACE(row.cpSql);
        EXPECT_EQ(sVALUE(row.cpSql), row.cpReply);
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
    EXPECT_EQ(sVALUE("select pg_sleep(60)"),
              "! ERROR: canceling statement due to statement timeout");
    EXPECT_EQ(sVALUE("select 'goes on'"), "goes on");

    // Of several hosts, one that answers is used.
    INI("database", "conninfo", sBase + " host=/nowhere," + SQL("show unix_socket_directories"));
    v_CONFIG_FORGET();
    NEW_CONNECTION();
    EXPECT_EQ(sVALUE("select count(*) from clients"), "1");
}

TEST_F(DATABASE, a_lost_connection_fails_its_statement_and_the_next_one_connects_anew)
{
    CaptureStderr();
    EXPECT_THAT(sVALUE("select pg_terminate_backend(pg_backend_pid())"),
                HasSubstr("terminating connection due to administrator command"));
    EXPECT_EQ(sctDB_ERROR().sSqlState, "");
    EXPECT_EQ(sVALUE("select 'again'"), "again");
    SQL("select pg_terminate_backend(pid) from pg_stat_activity where "
        "application_name='vk_config_client' and datname=current_database()");
    EXPECT_THAT(sVALUE("select 'lost'"), testing::StartsWith("! "));
    EXPECT_EQ(sVALUE("select 'again'"), "again");
    // Told once in a run; the other tests of this process may have told it.
    EXPECT_LE(asLINES(GetCapturedStderr()).size(), 1U);
}

}  // namespace
