/* The view of the fleet: what is read, how a client is judged, every form. Time stands
   still at noon of 20 May 2026, so that the forms can be compared whole. */
#include <fcntl.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>

#include "common/cm_db_access.h"
#include "common/common.h"
#include "sandbox_fixture.h"
#include "vk_client_status/changes.h"
#include "vk_client_status/moment.h"
#include "vk_client_status/options.h"

using namespace testing;

namespace {

/* Line of an outcome log. JSON by hand: it is what the reader is tested with. */
std::string sLINE(const std::string& sEnd, const std::string& sClient, const std::string& sExit,
                  const std::string& sMore = "", const std::string& sTask = "check")
{
    return R"({"begin":")" + sEnd + R"(","end":")" + sEnd + R"(","client":")" + sClient +
           R"(","task":")" + sTask + R"(","exit":)" + sExit + (sMore.empty() ? "" : ",") + sMore +
           "}\n";
}

class STATUS : public SANDBOX {
protected:
    void SetUp() override
    {
        SANDBOX::SetUp();
        setenv("TZ", "UTC", 1);
        tzset();
        m_sProgram = VK_STATUS_PROGRAM;
        iMAKE_DIRECTORY(sRW() + "prot");
        char szReply[64];  // another test of this process has lost its database
        iDB_ACCESS("select 1", szReply, nullptr, str_log{});
    }

    void LOG(const std::string& sDay, const std::string& sLines)
    {
        const std::string sFile = sRW() + "prot/" + sDay + ".jsonl";
        WRITE_FILE(sFile, sREAD_FILE(sFile) + sLines);
    }
    /* A line in the file of its day. */
    void LINE(const std::string& sEnd, const std::string& sClient, const std::string& sExit,
              const std::string& sMore = "", const std::string& sTask = "check")
    {
        std::string sDay = sEnd.substr(0, 10);
        std::erase(sDay, '-');
        LOG(sDay, sLINE(sEnd, sClient, sExit, sMore, sTask));
    }
    /* A row, columns and values as SQL has them. */
    void ROW(const std::string& sName, const std::string& sColumns, const std::string& sValues)
    {
        SQL("insert into clients (client_id, name, " + sColumns + ") select max(client_id) + 1, " +
            sName + ", " + sValues + " from clients");
    }
    /* The lock file of a client's update, two hours old; held as long as the descriptor. */
    FD LOCK(const std::string& sName)
    {
        iMAKE_DIRECTORY(sRW() + "sema");
        const std::string sFile =
            sRW() + "sema/" + szFILE_NAME(sSHORT_NAME("update_client_" + sName, 127));
        WRITE_FILE(sFile, "vk_config_client 1\n");
        const timespec asctTime[] = {{lNOW - 7200, 0}, {lNOW - 7200, 0}};
        utimensat(AT_FDCWD, sFile.c_str(), asctTime, 0);
        FD fd(open(sFile.c_str(), O_RDONLY | O_CLOEXEC));
        flock(fd.iGet(), LOCK_EX);
        return fd;
    }
    FLEET READ(const std::string& sRunsOf = "")
    {
        FLEET fleet;
        m_runs.clear();
        iREAD_FLEET({lNOW, iSTRIP_DAYS, 3, sRunsOf, 10}, fleet, m_runs);
        return fleet;
    }
    static constexpr long lNOW = 1779278400;  // 2026-05-20 12:00:00
    std::vector<OUTCOME>  m_runs;
};

/* A fleet of every state. */
class STATUS_FLEET : public STATUS {
protected:
    void SetUp() override
    {
        STATUS::SetUp();
        // An update has stored alpha's version as a number; the text is that of the last report.
        SQL(R"(insert into clients (client_id, name, os, accessmode, location, velka_version,
            version_number, servicepack_number, update_state, update_message, update_date,
            access_state, access_time, access_success, msg, exec) values
            (1, 'alpha', 'Linux', 'VKSSH', '1', '5.1.0-3', 5000020000000001, 0, '0',
             'Update finished successfully', '2026-05-01 20:00:00', 0,
             '2026-05-20 03:00:00', '2026-05-20 03:00:00', 'I005-HOSTS   well', '1'),
            (2, 'beta', 'Linux', 'VKSSH', '2', '5.1.0-3', 5000010000000003, 12, '0', '', null, 1,
             '2026-05-20 03:00:01', '2026-05-17 03:00:00', 'E011-HOSTS   no permit', '1'),
            (3, 'gamma', 'Windows Server 2022', 'VKSSH', '2', '5.1.0-3', 5000010000000003, 12, '0',
             '', null, 0, '2026-05-10 03:00:00', '2026-05-10 03:00:00', 'I005-HOSTS   well', '1'),
            (4, 'delta', 'Solaris', 'VKSSH', '2', '5.1.0-3', 5000010000000003, 12, '0', '', null,
             null, null, null, null, '1'),
            (5, 'omega', 'Linux', 'VKSSH', '2', '5.1.0-3', 5000010000000003, 12, '0', '', null, 1,
             '2026-01-01 03:00:00', null, 'E002-HOSTS   away', '0'),
            (6, 'winbox', 'Windows Server 2022', 'VKSSH', '1', '5.1.0-3', 5000010000000003, null,
             '1', 'WARNING W004-HOSTS   A restart', '2026-05-19 20:00:00', 1,
             '2026-05-19 20:00:00', '2026-05-19 03:00:00', 'W004-HOSTS   A restart', '1'),
            (7, '=<b>"x",|&\', 'L<i>nux', '<s>', '''', '@5"', 0, 0, null, null, null, 1,
             '2026-05-20 03:00:02', null,
             E'E002-HOSTS   No <i>access</i> | "quoted"\n\x1b[31mred', '1'))");
        // Updates last night: failed, left out, interrupted, and one that is under way.
        SQL(R"(insert into clients (client_id, name, update_state, update_message, os, accessmode,
            location, velka_version, version_number, access_state, access_time, access_success,
            msg, exec) select v.*, 'Linux', 'VKSSH', '3', '5.1.0-3', 5000010000000003, 0,
            '2026-05-20 03:00:00', '2026-05-20 03:00:00', 'I005-HOSTS   well', '1' from (values
            (8, 'u-cut', 'a', 'Update in progress'), (9, 'u-fail', '0', ''),
            (10, 'u-left', '0', ''), (11, 'u-run', 'a', 'Update in progress')) v)");
        LINE("2026-05-19T20:00:00Z", "u-fail", "2", R"("id":"E021-HOSTS","cause":"disk-full")",
             "update");
        LINE("2026-05-19T20:00:01Z", "u-left", "null", R"("msg":"not started")", "update");
        LOCK("u-cut");
        m_held.push_back(LOCK("u-run"));
        const char* cpHostile = R"(=<b>\"x\",|\u0026\\)";
        LINE("2026-05-07T03:00:00Z", cpHostile, "1");
        LINE("2026-05-17T03:00:00Z", "beta", "0");
        LINE("2026-05-17T05:00:00+02:00", "alpha", "0");
        LINE("2026-05-18T03:00:00Z", "beta", "1", R"("cause":"old")");
        LINE("2026-05-18T03:00:00Z", "alpha", "1");
        LINE("2026-05-18T04:00:00Z", "alpha", "0");
        LINE("2026-05-20T03:00:00Z", "alpha", "0", R"("host_key":"SHA256:k")");
        LINE("2026-05-20T03:00:01Z", "beta", "1",
             R"("stage":"login","cause":"key-not-accepted","words":["root@beta: denied"],)"
             R"("cure":"Admit this server.","command":"vk_setup permit VKSSH",)"
             R"("host_key":"SHA256:k")");
        LINE("2026-05-20T03:00:02Z", cpHostile, "1",
             R"("cause":"<u>|\"","words":["</table><script>alert(1)</script>","a\u001b[1m}]"],)"
             R"("cure":"type \"<a>\"")");
        setlocale(LC_CTYPE, "C.UTF-8");
    }
    std::vector<FD> m_held;
};

/* Escapes of colours as carets. */
std::string CARETS(std::string sText)
{
    std::replace(sText.begin(), sText.end(), '\033', '^');
    return sText;
}

// clang-format off
TEST_F(STATUS_FLEET, every_form)
{
    FLEET        fleet = READ();
    const CHOSEN all = CHOOSE(fleet, {});
    const CHOSEN some{all[0], all[2], all[7]};  // hostile, beta, u-fail
    EXPECT_EQ(CARETS(sFORM_TABLE(fleet, all, {100, true})), R"~(^[1mNAME         STATE   SINCE  CHECKED  SUCCESS  VERSION  SP  UPDATE            SYSTEM^[0m
=<b>"x",|&\  ^[31;1mfailed^[0m  13 d+  8 h               @5"                            L<i>nux
   ^[2m<u>|": </table><script>alert(1)</script>; a [1m}]^[0m
   ^[36mcure: type "<a>"^[0m
beta         ^[31;1mfailed^[0m  2 d    8 h      3 d      5.1.0-3  12  done              Linux
   ^[2mkey-not-accepted (login): root@beta: denied^[0m
   ^[36mcure: Admit this server.^[0m
   ^[36mtype: vk_setup permit VKSSH^[0m
winbox       ^[33mwarned^[0m         16 h     33 h     5.1.0-3      restart 16 h      Windows Server 2022
gamma        ^[33mstale^[0m          10 d     10 d     5.1.0-3  12  done              Windows Server 2022
delta        ^[36mnever^[0m                            5.1.0-3  12  done              Solaris
alpha        ^[32mwell^[0m           9 h      9 h      5.2.0-1      done 18 d         Linux
u-cut        ^[32mwell^[0m           9 h      9 h      5.1.0-3      interrupted 2 h   Linux
u-fail       ^[32mwell^[0m           9 h      9 h      5.1.0-3      failed 16 h       Linux
   ^[2mupdate: disk-full^[0m
u-left       ^[32mwell^[0m           9 h      9 h      5.1.0-3      not started 15 h  Linux
   ^[2mupdate: not started^[0m
u-run        ^[32mwell^[0m           9 h      9 h      5.1.0-3      running 2 h       Linux
omega        ^[2moff^[0m            139 d             5.1.0-3  12  done              Linux

11 clients: 5 well, 2 failing, 1 with a warning, 1 stale, 1 never checked, 1 off; updates: 1 running, 1 interrupted, 1 failed, 1 not started, 1 waiting for a restart
)~");
    EXPECT_THAT(sFORM_TABLE(fleet, all, {45, false}), StartsWith(
R"(NAME         STATE   SINCE  CHECKED  VERSION
=<b>"x",|&\  failed  13 d+  8 h      @5"
   <u>|": </table><script>alert(1)</script>;…
   cure: type "<a>"
)"));
    EXPECT_EQ(sFORM_NAMES({all[1], all[2]}, true), std::string("alpha\0beta\0", 11));
    EXPECT_EQ(sFORM_JSON(fleet, some), R"~({"name":"=<b>\"x\",|&\\","client_id":"7","system":"L<i>nux","mode":"<s>","location":"'","version":"@5\"","state":"failed","since":"2026-05-07T03:00:00+00:00","since_exact":false,"last_check":"2026-05-20T03:00:02+00:00","id":"E002-HOSTS","msg":"E002-HOSTS   No <i>access</i> | \"quoted\"\n\u001b[31mred","cause":"<u>|\"","words":["</table><script>alert(1)</script>","a\u001b[1m}]"],"cure":"type \"<a>\"","days":"x------------x","source":"database"}
{"name":"beta","client_id":"2","system":"Linux","mode":"VKSSH","location":"2","version":"5.1.0-3","servicepack":"12","state":"failed","since":"2026-05-18T03:00:00+00:00","since_exact":true,"last_check":"2026-05-20T03:00:01+00:00","last_success":"2026-05-17T03:00:00+00:00","update_state":"done","id":"E011-HOSTS","msg":"E011-HOSTS   no permit","stage":"login","cause":"key-not-accepted","words":["root@beta: denied"],"cure":"Admit this server.","command":"vk_setup permit VKSSH","host_key":"SHA256:k","same_host_key_as":"alpha","days":"----------+x-x","source":"database"}
{"name":"u-fail","client_id":"9","system":"Linux","mode":"VKSSH","location":"3","version":"5.1.0-3","state":"well","last_check":"2026-05-20T03:00:00+00:00","last_success":"2026-05-20T03:00:00+00:00","last_update":"2026-05-19T20:00:00+00:00","update_state":"failed","update_cause":"disk-full","update_why":"disk-full","id":"I005-HOSTS","msg":"I005-HOSTS   well","days":"------------x-","source":"database"}
)~");
    EXPECT_EQ(sFORM_CSV(fleet, some), "name,system,mode,location,version,servicepack,state,since,last_check,last_success,last_update,update_state,id,cause,cure,msg,command,update_cause,update_why\r\n"
R"~("'=<b>""x"",|&\",L<i>nux,<s>,',"'@5""",,failed,2026-05-07 03:00:00,2026-05-20 03:00:02,,,,E002-HOSTS,"<u>|""","type ""<a>""","E002-HOSTS   No <i>access</i> | ""quoted""  [31mred",,,)~" "\r\n"
R"~(beta,Linux,VKSSH,2,5.1.0-3,12,failed,2026-05-18 03:00:00,2026-05-20 03:00:01,2026-05-17 03:00:00,,done,E011-HOSTS,key-not-accepted,Admit this server.,E011-HOSTS   no permit,vk_setup permit VKSSH,,)~" "\r\n"
R"~(u-fail,Linux,VKSSH,3,5.1.0-3,,well,,2026-05-20 03:00:00,2026-05-20 03:00:00,2026-05-19 20:00:00,failed,I005-HOSTS,,,I005-HOSTS   well,,disk-full,disk-full)~" "\r\n");
    int iExit = 0;
    EXPECT_EQ(sFORM_NAGIOS(fleet, all, {}, iExit), R"~(CLIENTS CRITICAL - 2 of 10 clients failing: =<b>"x",/&\ (<u>/"), beta (key-not-accepted); 1 not checked for 3 days; 1 never checked; 3 updates failed | failing=2;0;0;0;10 unchecked=2;0;;0;10 updates_failed=3;0;;0;10 stale=1 never=1 well=5 updating=1
)~");
    EXPECT_EQ(iExit, 2);
    const std::string sMetrics = sFORM_PROMETHEUS(fleet, some);
    for (const char* cp : {"\nvk_clients{state=\"failed\"} 2\n", "\nvk_client_failing{client=\"=<b>\\\"x\\\",|&\\\\\"} 1\n",
                           "\nvk_client_last_update_timestamp_seconds{client=\"u-fail\"} 1779220800\n"})
        EXPECT_THAT(sMetrics, HasSubstr(cp));
    const std::string sPage = sFORM_PAGE(fleet, all, 10);
    for (const char* cp : {
        "datetime=\"2026-05-20T12:10:00+00:00\">12:10<", "data-state=\"n\"><span><b>1</b> never checked<",
        "<h3>&lt;u&gt;|&quot; <b>1 client</b></h3><p>&lt;/table&gt;&lt;script&gt;alert(1)&lt;/script&gt;<br>a [1m}]</p><p class=\"cure\">type &quot;&lt;a&gt;&quot;</p>",
        "<p class=\"run\"><code>vk_setup permit VKSSH</code></p><ul>\n<li id=\"c1\"><b>beta</b> since 2026-05-18 03:00 (2 d), last success 2026-05-17 03:00\n",
        "<dt>Solaris</dt><dd><div><hr class=\"failed\" style=\"--w:0%\"><hr style=\"--w:14%\"></div><b>1</b><i>&nbsp;",
        "<td>@5&quot;<td><td>L&lt;i&gt;nux<td>&lt;s&gt;<td>&#39;\n",
        "<li><span>2</span><hr style=\"--h:0%\" class=\"mixed\"><hr style=\"--h:100%\"><small>20<br>May</small></li>"})
        EXPECT_THAT(sPage, HasSubstr(cp));
    EXPECT_THAT(sPage, Not(HasSubstr("<script>alert")));
    SQL("update clients set package='p.deb' where name='beta'");
    fleet = READ("beta");
    EXPECT_THAT(sFORM_CLIENT(fleet, *CHOOSE(fleet, {})[2], READ_DETAILS("beta"), m_runs, {0, false}), AllOf(StartsWith("beta  failed since 2026-05-18 03:00:00 (2 d)\n"), HasSubstr("\n  type            vk_setup permit VKSSH\n"), HasSubstr("\n  package         p.deb\n"), EndsWith(R"~(
Last runs
  2026-05-20 03:00:01  check       1           key-not-accepted: 
  2026-05-18 03:00:00  check       1           old: 
  2026-05-17 03:00:00  check       0           
)~")));
    // What would steer a terminal or turn a line goes to programs alone.
    fleet.clients.resize(2);
    fleet.clients[0].sName = "a\u202eb";
    fleet.clients[1].sName = "c\033d";
    EXPECT_EQ(sFORM_NAMES(CHOOSE(fleet, {}), false), "");
    EXPECT_EQ(sFORM_NAMES(CHOOSE(fleet, {}), true), std::string("a\u202eb\0c\033d\0", 10));
    EXPECT_THAT(sFORM_CSV(fleet, CHOOSE(fleet, {})), AllOf(HasSubstr("\na b,"), HasSubstr("\nc d,")));
}
// clang-format on

/* Names that an option line chooses. */
TEXTS CHOSEN_BY(const FLEET& fleet, TEXTS asArgument)
{
    OPTIONS            options;
    std::vector<char*> argv{const_cast<char*>("x")};
    for (std::string& s : asArgument) argv.push_back(s.data());
    argv.push_back(nullptr);
    EXPECT_EQ(iREAD_OPTIONS(static_cast<int>(argv.size()) - 1, argv.data(), options), -1);
    TEXTS asName;
    for (const CLIENT* p : CHOOSE(fleet, options.choice)) asName.push_back(p->sName);
    return asName;
}

TEST_F(STATUS_FLEET, choices_narrow_and_one_option_takes_any_of_its_values)
{
    FLEET fleet = READ();
    fleet.clients.emplace_back().sName = "text-only";
    fleet.clients.back().sVersion = "4.4.1-2";
    const std::string             sHostile = R"(=<b>"x",|&\)";
    const std::pair<TEXTS, TEXTS> asRow[] = {
        {{"--failed"}, {sHostile, "beta"}},
        {{"--cause", "key-*"}, {"beta"}},
        {{"--cause", "e011", "--cause", "E002"}, {sHostile, "beta"}},
        {{"--stale", "3", "?????"}, {"delta", "gamma"}},
        {{"--stale", "9", "?????"}, {"delta", "gamma"}},
        {{"--stale", "11", "?????"}, {"delta"}},
        {{"--never", "?????"}, {"delta"}},
        {{"--location", "1"}, {"alpha", "winbox"}},
        {{"--location", "1", "--location", "2", "--os", "windows"}, {"gamma", "winbox"}},
        {{"--os", "*server*", "--stale", "3"}, {"gamma"}},
        {{"--version-below", "5.2", "[!tu]*"}, {"beta", "delta", "gamma", "omega", "winbox"}},
        {{"--version-below", "5.1.0-3"}, {"text-only"}},
        {{"--restart-pending"}, {"winbox"}},
        {{"--same-host-key"}, {"alpha", "beta"}},
        {{"--updating"}, {"u-run"}},
        {{"--update-failed"}, {"u-cut", "u-fail", "u-left"}},
        {{"*a", "--failed"}, {"beta"}},
        {{"alpha", "omeg?"}, {"alpha", "omega"}},
    };
    for (const auto& [asArgument, asName] : asRow)
        EXPECT_EQ(CHOSEN_BY(fleet, asArgument), asName) << PrintToString(asArgument);
}

/* What of an update is known: the row, the newest line of the log, the lock. Times are of
   May 2026, those of the log 20 May, 01:00. */
TEST_F(STATUS, state_of_the_last_update)
{
    const std::string sRestart = "WARNING W004-HOSTS   A restart", sNight = "20 01:00";
    const std::string sSame =
        R"("msg":"Old and new Velka versions on client x are identical: 5. Do not run update.")";
    const struct {
        const char* cpWhat;
        std::string sState, sMessage, sDate, sSuccess;  // of the row
        std::string sExit, sMore;                       // of the log's line; "": none
        std::string sWanted, sTime;
        char        cLock = ' ';  // h held, f a file that nobody holds
    } asctRow[] = {
        // clang-format off
        {"none", "", "", "", "", "", "", "", ""},
        {"done", "0", "", "19 20:00", "", "", "", "done", "19 20:00"},
        {"failed in the row", "2", "", "19 20:00", "", "", "", "failed", "19 20:00"},
        {"the row has forgotten it", "0", "", "01 20:00", "20 03:00", "2", "", "failed", sNight},
        {"a later one of another", "0", "", "20 02:00", "", "2", "", "done", "20 02:00"},
        {"same version", "0", "", "01 20:00", "", "1", sSame, "done", sNight},
        {"left out", "0", "", "01 20:00", "", "null", "", "not started", sNight},
        {"a second run beside it", "0", "", "19 20:00", "", "0",
         R"("msg":"Update already running. Semaphore")", "done", "19 20:00"},
        {"not reachable afterwards", "1", "WARNING W006", sNight, "", "1", R"("id":"W006-HOSTS")",
         "warned", sNight},
        {"restart wanted", "1", sRestart, sNight, "19 03:00", "1", R"("id":"W004-HOSTS")", "restart",
         sNight},
        {"and no log of it", "1", sRestart, sNight, "19 03:00", "", "", "restart", sNight},
        {"the report still says so", "1", "reboot", "20 00:59", "20 03:00", "1",
         R"("id":"W005-HOSTS")", "restart", sNight},
        {"a report without it", "0", "installed", "20 00:59", "20 03:00", "1",
         R"("id":"W004-HOSTS")", "done", sNight},
        {"under way", "a", "", "01 20:00", "", "", "", "running", "20 10:00", 'h'},
        {"copying, the row not told yet", "0", "", "01 20:00", "", "", "", "running", "20 10:00", 'h'},
        {"killed", "a", "", "01 20:00", "", "", "", "interrupted", "20 10:00", 'f'},
        {"killed, its file gone", "a", "", "01 20:00", "", "", "", "interrupted", ""},
        {"killed before its script", "0", "", "19 20:00", "", "", "", "interrupted", "20 10:00", 'f'},
        {"ended since", "0", "", "20 11:00", "", "", "", "done", "20 11:00", 'f'},
        // clang-format on
    };
    ROW("'b'", "update_state", "'a'");
    fs::remove_all(sRW() + "sema");
    WRITE_FILE(sRW() + "sema", "");  // locks that cannot be read
    EXPECT_EQ(READ().clients[0].eUpdate, UPDATE_RUNNING);
    fs::remove(sRW() + "sema");
    SQL("delete from clients where name = 'b'");
    iMAKE_DIRECTORY(sRW() + "sema");
    std::vector<FD> held;
    int             iNumber = 100;
    const auto      TIME = [](const std::string& s) { return "2026-05-" + s + ":00"; };
    for (const auto& row : asctRow) {
        const std::string sName =
            "c" + std::to_string(iNumber++) + (row.cLock == 'h' ? std::string(200, 'x') : "");
        const auto DATE = [&](const std::string& s) {
            return s.empty() ? "null" : "'" + TIME(s) + "'";
        };
        ROW("'" + sName + "'", "update_state, update_message, update_date, access_success",
            "'" + row.sState + "', '" + row.sMessage + "', " + DATE(row.sDate) + ", " +
                DATE(row.sSuccess));
        if (!row.sExit.empty()) LINE("2026-05-20T01:00:00Z", sName, row.sExit, row.sMore, "update");
        if (row.cLock == ' ') continue;
        FD fd = LOCK(sName);
        if (row.cLock == 'h') held.push_back(std::move(fd));
    }
    const FLEET fleet = READ();
    for (size_t u = 0; u < std::size(asctRow); u++) {
        SCOPED_TRACE(asctRow[u].cpWhat);
        EXPECT_EQ(svUPDATE(fleet.clients[u].eUpdate), asctRow[u].sWanted);
        const std::string& sTime = asctRow[u].sTime;
        EXPECT_EQ(sTIME_TEXT(fleet.clients[u].lUpdate), sTime.empty() ? "" : TIME(sTime));
    }
}

TEST_F(STATUS, run_that_could_not_be_stored_counts_by_its_line)
{
    const char* cpColumns = "access_state, access_time, access_success";
    for (const char* cpName : {"'away'", "'back'", "'late'"})
        ROW(cpName, cpColumns, "0, '2026-05-19 03:00:00', '2026-05-19 03:00:00'");
    ROW("'sick'", cpColumns, "1, '2026-05-19 03:00:00', null");
    ROW("'unlogged'", cpColumns, "1, '2026-05-20 06:00:00', '2026-05-18 03:00:00'");
    const std::string sNot = R"("stored":false,"cause":"program-missing")";
    LINE("2026-05-20T03:00:00Z", "away", "1", sNot);
    LINE("2026-05-20T03:00:00Z", "back", "1", sNot);
    LINE("2026-05-20T04:00:00Z", "back", "0", R"("stored":true)");
    LINE("2026-05-20T03:00:00Z", "unlogged", "1", R"("cause":"another")");
    LINE("2026-05-20T03:00:00Z", "sick", "0", R"("stored":false)");
    const FLEET fleet = READ();
    TEXTS       asSeen;
    for (const CLIENT& client : fleet.clients)
        asSeen.push_back(client.sName + " " + std::string(svSTATE(client.eState)) + " " +
                         client.sCause + sTIME_TEXT(client.lSince));
    EXPECT_THAT(asSeen,
                ElementsAre("away failed program-missing2026-05-20 03:00:00", "back well ",
                            "late well ", "sick well ", "unlogged failed 2026-05-20 03:00:00"));
}

TEST_F(STATUS, lines_of_the_log_that_are_none_are_passed_over_and_the_others_read_in_any_form)
{
    ROW("'a'", "access_state, access_time", "1, '2026-05-20 11:00:00'");
    LOG("20260520",
        "\nnot json\n[1]\n{}\n{\"client\":\"a\"\n"
        "{\"end\":\"2026-05-20T10:00:00Z\",\"task\":\"register\",\"exit\":2}\n" +
            sLINE("never", "a", "0") +
            R"({"client":"a","exit":"0","end":"2026-05-20T10:00:00Z"})"
            "\n"
            R"( { "words" : [ "}\"" , {"client":"b"} ] , "new" : { "exit" : 0 } , "cause" : "c\\" ,)"
            R"( "exit" : 1 , "client" : "\u0061" , "end" : "2026-05-20T12:30:00.25+01:30" } )"
            "\n" +
            sLINE("2026-05-20T11:30:00Z", "a", "0").substr(0, 60));
    const FLEET fleet = READ("a");
    ASSERT_EQ(fleet.clients.size(), 1U);
    EXPECT_EQ(sTIME_TEXT(fleet.clients[0].lSince), "2026-05-20 11:00:00");
    EXPECT_EQ(fleet.clients[0].sCause, "c\\");
    EXPECT_THAT(fleet.clients[0].asWords, ElementsAre("}\""));
    EXPECT_EQ(m_runs.size(), 1U);
    EXPECT_EQ(fleet.lBadLines, 4);
}

TEST_F(STATUS_FLEET, program_answers_from_the_logs_when_the_database_is_gone)
{
    const RUN nagios =
        CONFIG_CLIENT({"--nagios", "--days", "36000", "--critical", "0", "--stale-after", "36500"});
    EXPECT_EQ(nagios.sOut.substr(0, 44), "CLIENTS WARNING - 2 of 10 clients failing: =");
    EXPECT_EQ(nagios.iExit, 1);
    const std::string sFile = sDIR() + "/names";
    WRITE_FILE(sFile + ".new", "left by a run that was killed");
    EXPECT_EQ(CONFIG_CLIENT({"--names", "--failed", "--output", sFile, "b*"}).iExit, 0);
    EXPECT_EQ(sREAD_FILE(sFile), "beta\n");
    EXPECT_FALSE(fs::exists(sFile + ".new"));
    // Names are read without the logs; where those are needed, a folder that cannot be read is told.
    fs::rename(sRW() + "prot", sRW() + "kept");
    WRITE_FILE(sRW() + "prot", "");
    EXPECT_EQ(CONFIG_CLIENT({"--names", "b*"}).sErr, "");
    EXPECT_EQ(CONFIG_CLIENT({"--names", "--failed"}).sErr,
              "vk_client_status: cannot read the outcome logs in \"" + sRW() +
                  "prot/\": Not a directory\n");
    fs::remove(sRW() + "prot");
    fs::rename(sRW() + "kept", sRW() + "prot");

    LINE("2026-05-20T09:00:00Z", "gone", "0", "", "remove");
    LINE("2026-05-20T09:00:00Z", "alhpa", "2", R"("id":"E006-HOSTS")");
    LINE("2026-05-20T09:00:00Z", "velkasrv", "0", R"("client_id":0)");
    INI("database", "conninfo", "host=" + sDIR() + "/none dbname=velka user=velka");
    const RUN down = CONFIG_CLIENT({"--nagios", "--days", "36000"});
    EXPECT_EQ(down.iExit, 3);
    EXPECT_LT(down.iMilliseconds, 5000);  // whatever retry_time says
    INI("database", "retry_time", "0");
    EXPECT_THAT(down.sOut, StartsWith("CLIENTS UNKNOWN - cannot read the database: connection to"));
    EXPECT_THAT(down.sOut, HasSubstr("/none/.s.PGSQL"));
    const RUN names = CONFIG_CLIENT({"--names", "--days", "36000", "--failed"});
    EXPECT_EQ(names.sOut, "=<b>\"x\",|&\\\nbeta\nu-fail\n");
    EXPECT_EQ(names.iExit, 0);
    EXPECT_THAT(names.sErr, HasSubstr("what follows is from the outcome logs alone\n"));
    EXPECT_EQ(CONFIG_CLIENT({"--names", "--days", "36000"}).sOut,
              "=<b>\"x\",|&\\\nalpha\nbeta\nu-fail\nu-left\n");
    // What is no terminal gets whole values, as --width 0 does.
    EXPECT_EQ(CONFIG_CLIENT({"--days", "36000"}).sOut,
              CONFIG_CLIENT({"--days", "36000", "--width", "0"}).sOut);
    EXPECT_THAT(CONFIG_CLIENT({"--json", "--days", "36000", "beta"}).sOut,
                HasSubstr(R"("cause":"key-not-accepted")"));

    const RUN senseless = CONFIG_CLIENT({"--nagios", "--warning", "x"});
    EXPECT_EQ(senseless.iExit, 3);
    EXPECT_EQ(senseless.sOut, "CLIENTS UNKNOWN - invalid command line\n");

    // A pipe is neither waited for nor renamed away.
    const std::string sPipe = sRW() + "prot/pipe.jsonl";
    mkfifo(sPipe.c_str(), 0600);
    const std::tuple<TEXTS, int, std::string> asRow[] = {
        // clang-format off
        {{"--days", "36000", "--html", sPipe}, 2, "not a regular file; name one that may be replaced\n"},
        {{"--days", "36000", "alhpa"}, 1, "vk_client_status: no such client: alhpa\n"},
        {{"--days", "36000", "alpha", "--failed"}, 1, "logs alone\n"},
        {{"--days", "36000", "--cause", "port-*"}, 1, "logs alone\n"},
        {{"--days", "1"}, 2, "logs of 1 day below \"" + sRW() + "prot/\" name no client\n"},
        {{"--stale", "x"}, 2, "vk_client_status: option --stale: \"x\" is not a number of days\n"},
        {{"--version-below", "5."}, 2, "\"5.\" is not a version such as 5.2 or 5.2.0-1\n"},
        {{"--warning", "-1"}, 2, "\"-1\" is not a number or a percentage such as 10%\n"},
        {{"--days", "36000", "--html", sDIR() + "/no/x"}, 2, "No such file or directory\n"},
        {{"--json", "--names"}, 2, "options --json and --names exclude each other\n"},
        {{"--plan", "p", "--nagios"}, 3, "option --plan has no form --nagios\n"},
        {{"--plan", "p"}, 2, "/pipe.jsonl\": Invalid argument\n"},
        {{"--days", "36000", "--csv", "--color", "never", "alpha"}, 0, "logs alone\n"},
        // clang-format on
    };
    for (const auto& [asArgument, iExit, sErr] : asRow) {
        const RUN run = CONFIG_CLIENT(asArgument);
        EXPECT_EQ(run.iExit, iExit) << PrintToString(asArgument);
        EXPECT_THAT(run.sErr, EndsWith(sErr));
    }
}

/* The plan of an update, and what the update then does. */
TEST_F(STATUS, the_plan_says_what_the_update_does_over_a_fleet_of_every_kind)
{
    ADD_CLIENTS(
        {"back", "busy", "fresh", "nokey", "off", "old", "refused", "rest", "same", "tkc1", "w7"});
    ADD_CLIENT("x1", "VIRTUAL");
    const std::string sPackage = "velka-cli_5.2.0-4_amd64.deb";
    PACKAGE(sPackage);
    PACKAGE(sPackage + ".asc");
    SQL("update clients set exec='1', version_number=5000010000000003 where client_id > 0");
    SQL("update clients set version_number=5000030000000000 where name='back'");
    SQL("update clients set version_number=5000020000000004 where name='same'");
    SQL("update clients set version_number=null where name='fresh'");
    SQL("update clients set exec='0' where name='off'");
    SQL("update clients set os='Windows 7' where name='w7'");
    SQL("update clients set update_state='1', update_message='WARNING W004-HOSTS   A restart', "
        "update_date=now(), access_time=now() where name='rest'");
    m_sProgram = VK_PROGRAM;
    for (const char* cpSick : {"nokey", "refused", "tkc1"}) CHECK(cpSick);
    const auto RUN_STATUS = [&](const TEXTS& asArgument) {
        STARTED_RUN run = START_COMMAND(TEXTS{VK_STATUS_PROGRAM} + asArgument);
        return WAIT(run);
    };
    iMAKE_DIRECTORY(sRW() + "sema");
    FD                fdBusy = LOCK("busy");
    const TEXTS       asPlan{"--plan", sPackage, "[!v]*"};
    const std::string sPlan = RUN_STATUS(asPlan + TEXTS{"--csv"}).sOut;
    // clang-format off
    const struct {
        const char *cpName, *cpVerdict, *cpMessage;  // of the run; null: it does not select it
        int iExit;
    } asctRow[] = {
        {"back", "goes back", "I013", 0},
        {"busy", "update under way", "Update already running", 0},
        {"fresh", "update", "I013", 0},
        {"nokey", "failing", "Error from alive test: ", 2},
        {"off", "off", nullptr, 0},
        {"old", "update", "I013", 0},
        {"refused", "failing", "Error from alive test: ", 2},
        {"rest", "restart pending", "I013", 0},
        {"same", "same version", "Old and new Velka versions on client same are identical", 1},
        {"tkc1", "failing", "Error from alive test: ", 2},
        {"w7", "refused", "Update of Windows 7 with QIR velka version 5.2.0.0 is not supported", 2},
        {"x1", "failing", "Error from alive test: ", 2},
    };
    // clang-format on
    TEXTS asUpdated;
    for (const auto& row : asctRow) {
        EXPECT_THAT(sPlan, HasSubstr("\n" + std::string(row.cpName) + "," + row.cpVerdict + ","));
        if (row.cpMessage != nullptr && std::string(row.cpMessage) == "I013")
            asUpdated.emplace_back(row.cpName);
    }
    EXPECT_EQ(asLINES(RUN_STATUS(asPlan + TEXTS{"--names"}).sOut), asUpdated);
    INI("variables", "gv_update_pilot", "2");
    EXPECT_THAT(RUN_STATUS(asPlan).sOut,
                EndsWith("12 clients: 2 update, 1 goes back, 1 restart pending, 1 same version, 1 "
                         "refused, 4 failing, 1 update under way, 1 off\npilot: back, fresh\n"
                         "package: " +
                         sRW() + "work/packages/" + sPackage + "\nsignature: " + sRW() +
                         "work/packages/" + sPackage +
                         ".asc\n"
                         "type: vk_config_client -U -P " +
                         sPackage + " -- back fresh old rest\n"));
    INI("variables", "gv_update_pilot", "0");

    TEXTS asName;
    for (const auto& row : asctRow) asName.emplace_back(row.cpName);
    CONFIG_CLIENT(TEXTS{"-U", "-P", sPackage} + asName);
    EXPECT_THAT(RUN_STATUS({"--rollout"}).sOut,
                AllOf(HasSubstr("\n11 clients: 4 done, 1 same version, 1 under way, 5 failed\n"),
                      EndsWith(" -- nokey refused tkc1 w7 x1\n")));
    const std::string sLog = sALL_FILES(sRW() + "prot", ".jsonl");
    for (const auto& row : asctRow) {
        SCOPED_TRACE(row.cpName);
        std::string sLine;
        for (const std::string& s : asLINES(sLog))
            if (s.find("\"client\":\"" + std::string(row.cpName) + "\"") != s.npos &&
                s.find("\"task\":\"update\"") != s.npos)
                sLine = s;
        if (row.cpMessage == nullptr)
            EXPECT_EQ(sLine, "");
        else
            EXPECT_THAT(sLine, AllOf(HasSubstr("\"msg\":\"" + std::string(row.cpMessage)),
                                     HasSubstr("\"exit\":" + std::to_string(row.iExit) + ",")));
    }
}

/* What a mail in the morning says. */
TEST_F(STATUS, changes_are_told_once_and_nothing_when_there_are_none)
{
    const char* cpColumns = "access_state, access_time, velka_version";
    ROW("'fails'", cpColumns, "1, '2026-05-20 03:00:00', '5.1.0-3'");
    ROW("'heals'", cpColumns, "0, '2026-05-20 03:00:00', '5.2.0-1'");
    ROW("'other'", cpColumns, "1, '2026-05-20 03:00:00', '5.1.0-3'");
    ROW("'fresh'", cpColumns, "0, '2026-05-20 03:00:00', '5.1.0-3'");
    ROW("'quiet'", cpColumns, "1, '2026-05-18 03:00:00', '5.1.0-3'");
    for (const char* cp : {"heals", "other", "quiet"})
        LINE("2026-05-18T03:00:00Z", cp, "1", R"("cause":"port-closed")");
    LINE("2026-05-18T03:00:00Z", "fails", "0");
    LINE("2026-05-18T03:00:00Z", "gone", "0");
    LINE("2026-05-20T02:00:00Z", "gone", "0", "", "remove");
    LINE("2026-05-20T02:00:00Z", "fresh", "0", "", "register");
    LINE("2026-05-20T02:00:00Z", "velkasrv", "0", R"("client_id":0)");
    LINE("2026-05-20T02:00:00Z", "never", "1", R"("id":"E004-HOSTS")", "register");
    LINE("2026-05-20T03:00:00Z", "fails", "1", R"("cause":"login","command":"x y")");
    LINE("2026-05-20T03:00:00Z", "other", "1", R"("cause":"disk-full")");
    LINE("2026-05-20T01:00:00Z", "heals", "0", R"("version_before":"5.1.0-3")", "update");
    LINE("2026-05-20T03:00:00Z", "heals", "0", R"("version_before":"5.2.0-1")");
    FLEET                fleet;
    std::vector<OUTCOME> runs;
    READ_WISH            wish{lNOW, iSTRIP_DAYS, 3, "", 10};
    wish.lSince = lNOW - 86400;
    iREAD_FLEET(wish, fleet, runs);
    EXPECT_EQ(sFORM_CHANGES(fleet, {}, fleet.priors, false, wish.lSince, FORM_TABLE),
              "fails: began to fail: login; type: x y\nfresh: new 5.1.0-3\n"
              "heals: well again, was port-closed\nheals: update done\n"
              "heals: version 5.2.0-1, was 5.1.0-3\nother: other cause: disk-full, was "
              "port-closed\ngone: removed\n");
    CHOICE named;
    named.asName = {"[!fho]*"};
    EXPECT_EQ(sFORM_CHANGES(fleet, named, fleet.priors, false, wish.lSince, FORM_TABLE),
              "gone: removed\n");
    named.bFailed = true;
    EXPECT_EQ(sFORM_CHANGES(fleet, named, fleet.priors, false, wish.lSince, FORM_TABLE), "");

    // By the program, which remembers.
    const TEXTS asChanged{"--changed", "--days", "36000", "--remember", sDIR() + "/state"};
    RUN         run = CONFIG_CLIENT(asChanged);
    EXPECT_EQ(run.sOut + run.sErr, "");  // the first call has nothing of the last day
    EXPECT_EQ(run.iExit, 0);
    SQL("update clients set access_state = 1 - access_state where name in ('fails', 'heals')");
    SQL("delete from clients where name = 'quiet'");
    ROW("'late'", cpColumns, "0, now(), '5.1.0-3'");
    EXPECT_EQ(CONFIG_CLIENT(asChanged + TEXTS{"[!h]*"}).sOut,
              "fails: well again, was login\nlate: new 5.1.0-3\nquiet: removed\n");
    run = CONFIG_CLIENT(asChanged);
    EXPECT_EQ(run.sOut + run.sErr, "");
    EXPECT_EQ(run.iExit, 0);
    WRITE_FILE(sDIR() + "/state", "mine");
    EXPECT_EQ(CONFIG_CLIENT(asChanged).iExit, 2);
    EXPECT_EQ(sREAD_FILE(sDIR() + "/state"), "mine");
}

TEST_F(STATUS, a_rollout_shows_who_is_done_who_is_left_and_how_it_goes_on)
{
    for (const char* cp : {"'done'", "'fail'", "'kill'", "'left'", "'same'", "'work'"})
        ROW(cp, "os", "'Linux'");
    const std::string sRollout = R"("rollout":"R7")";
    LOG("20260520",
        R"({"begin":"2026-05-20T09:00:00Z","end":"2026-05-20T09:00:00Z","task":"update",)"
        R"("package":"p 1.deb","arguments":["-U","-P","p 1.deb","-F"],"clients":["done","fail","kill","left","same","work"],"pilot":1,)"
        R"("stop_after":2,)" +
            sRollout + "}\n");
    LINE("2026-05-20T09:01:00Z", "done", "0", sRollout, "update");
    LINE("2026-05-20T09:02:00Z", "fail", "2", R"("cause":"disk-full",)" + sRollout, "update");
    LINE("2026-05-20T09:02:00Z", "left", "0", R"("rollout":"R6")", "update");
    LINE("2026-05-20T09:03:00Z", "same", "1",
         R"("msg":"Old and new Velka versions on client same are identical: 5.",)" + sRollout,
         "update");
    LOCK("kill");
    const FD   fdWork = LOCK("work");
    const auto VIEW = [&] { return CONFIG_CLIENT({"--rollout", "--days", "36000"}).sOut; };
    EXPECT_THAT(VIEW(),
                AllOf(HasSubstr("failed        2026-05-20 09:02:00\n   disk-full\n"),
                      HasSubstr("6 clients: 1 done, 1 same version, 1 under way, 1 failed, 1 "
                                "interrupted, 1 not started\n"),
                      EndsWith("type: vk_config_client -U -P 'p 1.deb' -F -- fail kill left\n")));
    fs::rename(sRW() + "sema/" + szFILE_NAME("update_client_kill"), sRW() + "sema/kept");
    WRITE_FILE(sRW() + "sema/" + szFILE_NAME("rollout_R7"), "");
    const FD fdParent(open((sRW() + "sema/" + szFILE_NAME("rollout_R7")).c_str(), O_RDONLY));
    flock(fdParent.iGet(), LOCK_EX);
    EXPECT_THAT(VIEW(), AllOf(HasSubstr(", goes on; pilot 1, stop after 2\n"),
                              EndsWith("1 under way, 2 left, 1 failed\n")));
}

TEST_F(STATUS_FLEET, the_page_is_valid)
{
    const FLEET       fleet = READ();
    const std::string sPage = sDIR() + "/page.html";
    WRITE_FILE(sPage, sFORM_PAGE(fleet, CHOOSE(fleet, {}), 60));
    EXPECT_EQ(sctSHELL("tidy -eq " + sPage + " 2>&1").sOut, "");
}

}  // namespace
