/* The view of the fleet: what is read, how a client is judged, every form. Time stands
   still at noon of 20 May 2026, so that the forms can be compared whole. */
#include <fcntl.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <regex>

#include "common/cm_db_access.h"
#include "common/common.h"
#include "sandbox_fixture.h"
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
             R"("cure":"vk_setup set_client velkasrv","host_key":"SHA256:k")");
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
TEST_F(STATUS_FLEET, every_form_whole)
{
    FLEET        fleet = READ();
    const CHOSEN all = CHOOSE(fleet, {});
    const CHOSEN some{all[0], all[1], all[2], all[3], all[7], all[10]};  // each branch of a line once
    EXPECT_EQ(CARETS(sFORM_TABLE(fleet, all, {100, true})), R"~(^[1mNAME         STATE   SINCE  CHECKED  SUCCESS  VERSION  SP  UPDATE            SYSTEM^[0m
=<b>"x",|&\  ^[31;1mfailed^[0m  13 d+  8 h               @5"                            L<i>nux
   ^[2m<u>|": </table><script>alert(1)</script>; a [1m}]^[0m
   ^[36mcure: type "<a>"^[0m
beta         ^[31;1mfailed^[0m  2 d    8 h      3 d      5.1.0-3  12  done              Linux
   ^[2mkey-not-accepted (login): root@beta: denied^[0m
   ^[36mcure: vk_setup set_client velkasrv^[0m
winbox       ^[33mwarned^[0m         16 h     33 h     5.1.0-3      restart 16 h      Windows Server 2022
gamma        ^[33mstale^[0m          10 d     10 d     5.1.0-3  12  done              Windows Server 2022
delta        ^[36mnever^[0m                            5.1.0-3  12  done              Solaris
alpha        ^[32mwell^[0m           9 h      9 h      5.2.0-1      done 18 d         Linux
u-cut        ^[32mwell^[0m           9 h      9 h      5.1.0-3      interrupted 2 h   Linux
u-fail       ^[32mwell^[0m           9 h      9 h      5.1.0-3      failed 16 h       Linux
u-left       ^[32mwell^[0m           9 h      9 h      5.1.0-3      not started 15 h  Linux
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
    EXPECT_EQ(sFORM_TABLE(fleet, some, {0, false}), R"~(NAME         STATE   SINCE                 CHECKED              SUCCESS              VERSION  SP  UPDATE                       SYSTEM               MODE   LOC
=<b>"x",|&\  failed  2026-05-07 03:00:00+  2026-05-20 03:00:02                       @5"                                       L<i>nux              <s>    '
   <u>|": </table><script>alert(1)</script>; a [1m}]
   cure: type "<a>"
beta         failed  2026-05-18 03:00:00   2026-05-20 03:00:01  2026-05-17 03:00:00  5.1.0-3  12  done                         Linux                VKSSH  2
   key-not-accepted (login): root@beta: denied
   cure: vk_setup set_client velkasrv
winbox       warned                        2026-05-19 20:00:00  2026-05-19 03:00:00  5.1.0-3      restart 2026-05-19 20:00:00  Windows Server 2022  VKSSH  1
delta        never                                                                   5.1.0-3  12  done                         Solaris              VKSSH  2
alpha        well                          2026-05-20 03:00:00  2026-05-20 03:00:00  5.2.0-1      done 2026-05-01 20:00:00     Linux                VKSSH  1
u-fail       well                          2026-05-20 03:00:00  2026-05-20 03:00:00  5.1.0-3      failed 2026-05-19 20:00:00   Linux                VKSSH  3

6 clients: 2 well, 2 failing, 1 with a warning, 1 never checked; updates: 1 failed, 1 waiting for a restart
)~");
    EXPECT_EQ(sFORM_NAMES(all, false), "=<b>\"x\",|&\\\nalpha\nbeta\ndelta\ngamma\nomega\nu-cut\nu-fail\nu-left\nu-run\nwinbox\n");
    EXPECT_EQ(sFORM_NAMES({all[1], all[2]}, true), std::string("alpha\0beta\0", 11));
    EXPECT_EQ(sFORM_JSON(fleet, some), R"~({"name":"=<b>\"x\",|&\\","client_id":"7","system":"L<i>nux","mode":"<s>","location":"'","version":"@5\"","state":"failed","since":"2026-05-07T03:00:00+00:00","since_exact":false,"last_check":"2026-05-20T03:00:02+00:00","id":"E002-HOSTS","msg":"E002-HOSTS   No <i>access</i> | \"quoted\"\n\u001b[31mred","cause":"<u>|\"","words":["</table><script>alert(1)</script>","a\u001b[1m}]"],"cure":"type \"<a>\"","days":"x------------x","source":"database"}
{"name":"alpha","client_id":"1","system":"Linux","mode":"VKSSH","location":"1","version":"5.2.0-1","state":"well","last_check":"2026-05-20T03:00:00+00:00","last_success":"2026-05-20T03:00:00+00:00","last_update":"2026-05-01T20:00:00+00:00","update_state":"done","update_message":"Update finished successfully","id":"I005-HOSTS","msg":"I005-HOSTS   well","host_key":"SHA256:k","same_host_key_as":"beta","days":"----------+~-+","source":"database"}
{"name":"beta","client_id":"2","system":"Linux","mode":"VKSSH","location":"2","version":"5.1.0-3","servicepack":"12","state":"failed","since":"2026-05-18T03:00:00+00:00","since_exact":true,"last_check":"2026-05-20T03:00:01+00:00","last_success":"2026-05-17T03:00:00+00:00","update_state":"done","id":"E011-HOSTS","msg":"E011-HOSTS   no permit","stage":"login","cause":"key-not-accepted","words":["root@beta: denied"],"cure":"vk_setup set_client velkasrv","host_key":"SHA256:k","same_host_key_as":"alpha","days":"----------+x-x","source":"database"}
{"name":"delta","client_id":"4","system":"Solaris","mode":"VKSSH","location":"2","version":"5.1.0-3","servicepack":"12","state":"never","update_state":"done","days":"--------------","source":"database"}
{"name":"u-fail","client_id":"9","system":"Linux","mode":"VKSSH","location":"3","version":"5.1.0-3","state":"well","last_check":"2026-05-20T03:00:00+00:00","last_success":"2026-05-20T03:00:00+00:00","last_update":"2026-05-19T20:00:00+00:00","update_state":"failed","id":"I005-HOSTS","msg":"I005-HOSTS   well","days":"------------x-","source":"database"}
{"name":"winbox","client_id":"6","system":"Windows Server 2022","mode":"VKSSH","location":"1","version":"5.1.0-3","state":"warned","last_check":"2026-05-19T20:00:00+00:00","last_success":"2026-05-19T03:00:00+00:00","last_update":"2026-05-19T20:00:00+00:00","update_state":"restart","update_message":"WARNING W004-HOSTS   A restart","id":"W004-HOSTS","msg":"W004-HOSTS   A restart","days":"--------------","source":"database"}
)~");
    std::string sCsv = sFORM_CSV(fleet, some);
    sCsv.erase(std::remove(sCsv.begin(), sCsv.end(), '\r'), sCsv.end());
    EXPECT_EQ(CARETS(sCsv), R"~(name,system,mode,location,version,servicepack,state,since,last_check,last_success,last_update,update_state,id,cause,cure,msg
"'=<b>""x"",|&\",L<i>nux,<s>,',"'@5""",,failed,2026-05-07 03:00:00,2026-05-20 03:00:02,,,,E002-HOSTS,"<u>|""","type ""<a>""","E002-HOSTS   No <i>access</i> | ""quoted""
^[31mred"
alpha,Linux,VKSSH,1,5.2.0-1,,well,,2026-05-20 03:00:00,2026-05-20 03:00:00,2026-05-01 20:00:00,done,I005-HOSTS,,,I005-HOSTS   well
beta,Linux,VKSSH,2,5.1.0-3,12,failed,2026-05-18 03:00:00,2026-05-20 03:00:01,2026-05-17 03:00:00,,done,E011-HOSTS,key-not-accepted,vk_setup set_client velkasrv,E011-HOSTS   no permit
delta,Solaris,VKSSH,2,5.1.0-3,12,never,,,,,done,,,,
u-fail,Linux,VKSSH,3,5.1.0-3,,well,,2026-05-20 03:00:00,2026-05-20 03:00:00,2026-05-19 20:00:00,failed,I005-HOSTS,,,I005-HOSTS   well
winbox,Windows Server 2022,VKSSH,1,5.1.0-3,,warned,,2026-05-19 20:00:00,2026-05-19 03:00:00,2026-05-19 20:00:00,restart,W004-HOSTS,,,W004-HOSTS   A restart
)~");
    int iExit = 0;
    EXPECT_EQ(sFORM_NAGIOS(fleet, all, {}, iExit), R"~(CLIENTS CRITICAL - 2 of 10 clients failing: =<b>"x",/&\ (<u>/"), beta (key-not-accepted); 2 not checked for 3 days | failing=2;0;0;0;10 stale=2;0;;0;10 well=5 updating=1
)~");
    EXPECT_EQ(iExit, 2);
    const std::string sMetrics = sFORM_PROMETHEUS(fleet, some);
    const std::regex comment("# (HELP|TYPE) [^\n]+\n");
    EXPECT_THAT(sMetrics, StartsWith("# HELP vk_database_up Whether the database could be read.\n"
                                     "# TYPE vk_database_up gauge\n"));
    EXPECT_EQ(std::distance(std::sregex_iterator(sMetrics.begin(), sMetrics.end(), comment), {}), 20);
    EXPECT_EQ(std::regex_replace(sMetrics, comment, ""), R"~(vk_database_up 1
vk_clients{state="failed"} 2
vk_clients{state="warned"} 1
vk_clients{state="stale"} 0
vk_clients{state="never"} 1
vk_clients{state="well"} 2
vk_clients{state="off"} 0
vk_clients_update{update_state="none"} 1
vk_clients_update{update_state="done"} 3
vk_clients_update{update_state="warned"} 0
vk_clients_update{update_state="restart"} 1
vk_clients_update{update_state="failed"} 1
vk_clients_update{update_state="not started"} 0
vk_clients_update{update_state="interrupted"} 0
vk_clients_update{update_state="running"} 0
vk_client_info{client="=<b>\"x\",|&\\",system="L<i>nux",mode="<s>",location="'",version="@5\"",servicepack="",state="failed",update_state="",cause="<u>|\""} 1
vk_client_info{client="alpha",system="Linux",mode="VKSSH",location="1",version="5.2.0-1",servicepack="",state="well",update_state="done",cause=""} 1
vk_client_info{client="beta",system="Linux",mode="VKSSH",location="2",version="5.1.0-3",servicepack="12",state="failed",update_state="done",cause="key-not-accepted"} 1
vk_client_info{client="delta",system="Solaris",mode="VKSSH",location="2",version="5.1.0-3",servicepack="12",state="never",update_state="done",cause=""} 1
vk_client_info{client="u-fail",system="Linux",mode="VKSSH",location="3",version="5.1.0-3",servicepack="",state="well",update_state="failed",cause=""} 1
vk_client_info{client="winbox",system="Windows Server 2022",mode="VKSSH",location="1",version="5.1.0-3",servicepack="",state="warned",update_state="restart",cause=""} 1
vk_client_failing{client="=<b>\"x\",|&\\"} 1
vk_client_failing{client="alpha"} 0
vk_client_failing{client="beta"} 1
vk_client_failing{client="delta"} 0
vk_client_failing{client="u-fail"} 0
vk_client_failing{client="winbox"} 0
vk_client_last_check_timestamp_seconds{client="=<b>\"x\",|&\\"} 1779246002
vk_client_last_check_timestamp_seconds{client="alpha"} 1779246000
vk_client_last_check_timestamp_seconds{client="beta"} 1779246001
vk_client_last_check_timestamp_seconds{client="u-fail"} 1779246000
vk_client_last_check_timestamp_seconds{client="winbox"} 1779220800
vk_client_last_success_timestamp_seconds{client="alpha"} 1779246000
vk_client_last_success_timestamp_seconds{client="beta"} 1778986800
vk_client_last_success_timestamp_seconds{client="u-fail"} 1779246000
vk_client_last_success_timestamp_seconds{client="winbox"} 1779159600
vk_client_failing_since_timestamp_seconds{client="=<b>\"x\",|&\\"} 1778122800
vk_client_failing_since_timestamp_seconds{client="beta"} 1779073200
vk_client_last_update_timestamp_seconds{client="alpha"} 1777665600
vk_client_last_update_timestamp_seconds{client="u-fail"} 1779220800
vk_client_last_update_timestamp_seconds{client="winbox"} 1779220800
vk_status_timestamp_seconds 1779278400
)~");
    std::string sPage = sFORM_PAGE(fleet, all);
    sPage = sPage.substr(sPage.find("<header>"), sPage.find("<footer>") - sPage.find("<header>"));
    EXPECT_EQ(sPage, R"~(<header>
<h1>Backup clients</h1>
<p>10 clients, as of <time datetime="2026-05-20T12:00:00+00:00">20 May 2026, 12:00 UTC</time></p>
<ul class="tiles">
<li class="failed" data-states="f"><span><b>2</b> failing</span></li>
<li class="warned" data-states="r"><span><b>1</b> waiting for a restart</span></li>
<li class="stale" data-states="sn"><span><b>2</b> stale</span></li>
<li class="well" data-states="w"><span><b>5</b> well</span></li>
<li class="updating" data-states="u"><span><b>1</b> updating</span></li>
<li class="failed" data-states="e"><span><b>3</b> updates failed</span></li>
<li class="off" data-states="o"><span><b>1</b> off</span></li>
</ul>
<div class="share" aria-hidden="true"><hr class="failed" style="--n:2"><hr class="warned" style="--n:1"><hr class="stale" style="--n:1"><hr class="never" style="--n:1"><hr class="well" style="--n:5"></div>
</header>
<main>
<section id="failing">
<h2>What fails, and what to do</h2>
<details open><summary><strong>&lt;u&gt;|&quot;</strong> · 1 client</summary>
<div class="sick" id="c0"><h3>=&lt;b&gt;&quot;x&quot;,|&amp;\<small>failing since before 2026-05-07 03:00 (13 d)</small></h3><div><p>&lt;/table&gt;&lt;script&gt;alert(1)&lt;/script&gt;<br>a [1m}]</p><p class="cure"><code>type &quot;&lt;a&gt;&quot;</code></p></div></div>
</details>
<details open><summary><strong>key-not-accepted</strong> (login) · 1 client</summary>
<div class="sick" id="c1"><h3>beta<small>failing since 2026-05-18 03:00 (2 d)</small><small>last success 2026-05-17 03:00</small></h3><div><p>root@beta: denied</p><p class="cure"><code>vk_setup set_client velkasrv</code></p></div></div>
</details>
</section>
<section id="versions">
<h2>Versions</h2>
<dl class="bars">
<dt>5.2.0-1</dt><dd><hr style="--w:11%"><span>1</span></dd>
<dt>5.1.0-3</dt><dd><hr style="--w:100%"><span>9</span></dd>
<dt>@5&quot;</dt><dd><hr style="--w:11%"><span>1</span></dd>
</dl>
</section>
<section id="all">
<h2>All clients</h2>
<div class="find"><input id="filter" type="search" autocomplete="off" spellcheck="false" placeholder="Filter: a name, a system, a version …  ( / )" aria-label="Filter the clients"><output id="told" for="filter"></output></div>
<div class="wide"><table><caption>Every client: how it stands, its last days, when it was checked, what runs on it</caption>
<thead><tr><th scope="col">Client</th><th scope="col">State</th><th scope="col" data-fixed> 7 May – today</th><th scope="col">Failing since</th><th scope="col">Checked</th><th scope="col">Version</th><th scope="col">SP</th><th scope="col">Last update</th><th scope="col">System</th><th scope="col">Mode</th><th scope="col">Loc</th></tr></thead>
<tbody>
<tr class="f"><th scope="row"><a href="#c0">=&lt;b&gt;&quot;x&quot;,|&amp;\</a><td>failed<td><i>x</i><s>------------</s><i>x</i><td>2026-05-07 03:00<td>2026-05-20 03:00<td>@5&quot;<td><td><td>L&lt;i&gt;nux<td>&lt;s&gt;<td>&#39;
<tr class="f"><th scope="row"><a href="#c1">beta</a><td>failed<td><s>----------</s><b>+</b><i>x</i><s>-</s><i>x</i><td>2026-05-18 03:00<td>2026-05-20 03:00<td>5.1.0-3<td>12<td>done<td>Linux<td>VKSSH<td>2
<tr class="r"><th scope="row">winbox<td>warned<td><s>--------------</s><td><td>2026-05-19 20:00<td>5.1.0-3<td><td>restart 2026-05-19 20:00<td>Windows Server 2022<td>VKSSH<td>1
<tr class="s"><th scope="row">gamma<td>stale<td><s>--------------</s><td><td>2026-05-10 03:00<td>5.1.0-3<td>12<td>done<td>Windows Server 2022<td>VKSSH<td>2
<tr class="n"><th scope="row">delta<td>never<td><s>--------------</s><td><td><td>5.1.0-3<td>12<td>done<td>Solaris<td>VKSSH<td>2
<tr class="w"><th scope="row">alpha<td>well<td><s>----------</s><b>+</b><u>~</u><s>-</s><b>+</b><td><td>2026-05-20 03:00<td>5.2.0-1<td><td>done 2026-05-01 20:00<td>Linux<td>VKSSH<td>1
<tr class="w e"><th scope="row">u-cut<td>well<td><s>--------------</s><td><td>2026-05-20 03:00<td>5.1.0-3<td><td><em>interrupted 2026-05-20 10:00</em><td>Linux<td>VKSSH<td>3
<tr class="w e"><th scope="row">u-fail<td>well<td><s>------------</s><i>x</i><s>-</s><td><td>2026-05-20 03:00<td>5.1.0-3<td><td><em>failed 2026-05-19 20:00</em><td>Linux<td>VKSSH<td>3
<tr class="w e"><th scope="row">u-left<td>well<td><s>--------------</s><td><td>2026-05-20 03:00<td>5.1.0-3<td><td><em>not started 2026-05-19 20:00</em><td>Linux<td>VKSSH<td>3
<tr class="w u"><th scope="row">u-run<td>well<td><s>--------------</s><td><td>2026-05-20 03:00<td>5.1.0-3<td><td>running 2026-05-20 10:00<td>Linux<td>VKSSH<td>3
<tr class="o"><th scope="row">omega<td>off<td><s>--------------</s><td><td>2026-01-01 03:00<td>5.1.0-3<td>12<td>done<td>Linux<td>VKSSH<td>2
</tbody></table></div>
</section>
</main>
)~");
    EXPECT_THAT(sFORM_PAGE(fleet, {all[0]}), HasSubstr("--w:100%\"><span>1<"));
    fleet = READ("beta");
    EXPECT_EQ(sFORM_CLIENT(fleet, *CHOOSE(fleet, {})[2], READ_DETAILS("beta"), m_runs, {0, false}), R"~(beta  failed since 2026-05-18 03:00:00 (2 d)
  message         E011-HOSTS   no permit
  cause           key-not-accepted (login)
  words           root@beta: denied
  cure            vk_setup set_client velkasrv
  last check      2026-05-20 03:00:01 (8 h)
  last success    2026-05-17 03:00:00 (3 d)
  version         5.1.0-3
  service pack    12
  last update     done
  client id       2
  system          Linux
  access mode     VKSSH
  location        2
  host key        SHA256:k
  same key as     alpha

Last runs
  2026-05-20 03:00:01  check       1           key-not-accepted: 
  2026-05-18 03:00:00  check       1           old: 
  2026-05-17 03:00:00  check       0           
)~");
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
    const FLEET                   fleet = READ();
    const std::string             sHostile = R"(=<b>"x",|&\)";
    const std::pair<TEXTS, TEXTS> asRow[] = {
        {{"--failed"}, {sHostile, "beta"}},
        {{"--cause", "key-*"}, {"beta"}},
        {{"--cause", "e011", "--cause", "E002"}, {sHostile, "beta"}},
        {{"--stale", "3"}, {"delta", "gamma"}},
        {{"--stale", "9"}, {"delta", "gamma"}},
        {{"--stale", "11"}, {"delta"}},
        {{"--never"}, {"delta"}},
        {{"--location", "1"}, {"alpha", "winbox"}},
        {{"--location", "1", "--location", "2", "--os", "windows"}, {"gamma", "winbox"}},
        {{"--os", "*server*", "--stale", "3"}, {"gamma"}},
        {{"--version-below", "5.2", "[!u]*"}, {"beta", "delta", "gamma", "omega", "winbox"}},
        {{"--version-below", "5.1.0-3"}, {}},
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
        {"ended well, its file left", "0", "", "19 20:00", "", "", "", "done", "19 20:00", 'f'},
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
    EXPECT_EQ(CONFIG_CLIENT({"--names", "--failed", "--output", sFile, "b*"}).iExit, 0);
    EXPECT_EQ(sREAD_FILE(sFile), "beta\n");

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
    EXPECT_EQ(senseless.sOut, "CLIENTS UNKNOWN - the command line makes no sense\n");

    // A pipe is neither waited for nor renamed away.
    const std::string sPipe = sRW() + "prot/pipe.jsonl";
    mkfifo(sPipe.c_str(), 0600);
    const std::tuple<TEXTS, int, std::string> asRow[] = {
        // clang-format off
        {{"--days", "36000", "--html", sPipe}, 2, "no regular file; name one that may be replaced\n"},
        {{"--days", "36000", "alhpa"}, 1, "vk_client_status: no such client: alhpa\n"},
        {{"--days", "36000", "alpha", "--failed"}, 1, "logs alone\n"},
        {{"--days", "36000", "--cause", "port-*"}, 1, "logs alone\n"},
        {{"--days", "1"}, 2, "logs of 1 days below \"" + sRW() + "prot/\" name no client\n"},
        {{"--stale", "x"}, 2, "vk_client_status: option --stale: \"x\" is not a number of days\n"},
        {{"--version-below", "5."}, 2, "\"5.\" is not a version such as 5.2 or 5.2.0-1\n"},
        {{"--warning", "-1"}, 2, "\"-1\" is not a number, or one of per cent such as 10%\n"},
        {{"--days", "36000", "--html", sDIR() + "/no/x"}, 2, "No such file or directory\n"},
        // clang-format on
    };
    for (const auto& [asArgument, iExit, sErr] : asRow) {
        const RUN run = CONFIG_CLIENT(asArgument);
        EXPECT_EQ(run.iExit, iExit) << PrintToString(asArgument);
        EXPECT_THAT(run.sErr, EndsWith(sErr));
    }
}

/* Opens the page with a filter in its address, as a link does. */
void EXPECT_FILTERED(const std::string& sPage)
{
    const std::string sDir = sPage.substr(0, sPage.rfind('/'));
    const auto        dom = [&](const char* cpHash) {
        return sctSHELL("cd " + sDir + " && HOME=" + sDir +
                               " timeout 60 chromium --headless --no-sandbox --disable-gpu "
                                      "--enable-logging=stderr --dump-dom 'file://" +
                               sPage + cpHash + "' 2>log; grep CONSOLE log")
            .sOut;
    };
    const std::string sBeta = dom("#q=BETA+5.1");
    EXPECT_THAT(sBeta, HasSubstr("1 of 11 clients</output>"));
    EXPECT_THAT(sBeta, HasSubstr("<tr class=\"f\"><th scope=\"row\"><a href=\"#c1\">beta</a>"));
    EXPECT_THAT(sBeta, HasSubstr("<tr class=\"w\" hidden=\"\">"));
    EXPECT_THAT(sBeta, HasSubstr("<div class=\"sick\" id=\"c0\" hidden=\"\">"));
    EXPECT_THAT(sBeta, Not(HasSubstr("CONSOLE")));
    EXPECT_THAT(dom("#state=sn"), HasSubstr("2 of 11 clients</output>"));
    EXPECT_THAT(dom("#q=alpha"), HasSubstr("<section id=\"failing\" hidden=\"\">"));
}

TEST_F(STATUS_FLEET, page_filters_in_a_browser_and_checkers_take_page_and_metrics)
{
    const FLEET       fleet = READ();
    const std::string sPage = sDIR() + "/page.html", sMetrics = sDIR() + "/metrics";
    WRITE_FILE(sPage, sFORM_PAGE(fleet, CHOOSE(fleet, {})));
    WRITE_FILE(sMetrics, sFORM_PROMETHEUS(fleet, CHOOSE(fleet, {})));
    std::string sMissing;
    const auto  has = [&](const std::string& s) {
        const bool bHas = sctSHELL("command -v " + s).iExit == 0;
        if (!bHas) sMissing += " " + s;
        return bHas;
    };
    const std::string sTidy = has("tidy") ? sctSHELL("tidy -eq " + sPage + " 2>&1").sOut : "";
    EXPECT_EQ(sTidy, "");
    const std::string sCheck = "promtool check metrics <" + sMetrics + " 2>&1";
    EXPECT_EQ(has("promtool") ? sctSHELL(sCheck).sOut : "", "");
    if (has("chromium")) EXPECT_FILTERED(sPage);
    if (!sMissing.empty()) GTEST_SKIP() << "not installed:" << sMissing;
}

}  // namespace
