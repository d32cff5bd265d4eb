/* Updates of clients, with a stand-in for the update script on the client. */
#include <algorithm>

#include "sandbox_fixture.h"

using namespace testing;

namespace {

const std::string sDEB = "velka-cli_5.2.0-4_amd64.deb";
const std::string sSP = "velka_sp-201909171332_1_5.1.0-3.deb";
const std::string sSP_EXE = "velka_sp_srv-201909171332_2665822_4.4.3.73_windows_x64.exe";
const std::string sBIG = "big-5.2.0-4.deb";
const std::string sSCRIPT = "vk_execute_update";
const std::string sALREADY =
    "Update already running. Semaphore update_client_alpha already exists. Nothing to be done.";
const std::string sBEFORE = "x|before|f|f|1|2";
const std::string sUPDATED = "0|Update finished successfully|t|f|5000020000000004|2";
const std::string sFAILED = "E021-HOSTS   Update of client alpha failed: ";

std::string sI013(const std::string& sClient)
{
    return "I013-HOSTS   Client " + sClient + " successfully updated: " + sDEB;
}

class UPDATE : public SANDBOX {
protected:
    void SetUp() override
    {
        SANDBOX::SetUp();
        for (const std::string& sName : {sDEB, sSP, sSP_EXE}) PACKAGE(sName, "package");
    }
    /* Before each update: the row as no update has left it. */
    void RESET(const std::string& sClient, const TEXTS& asScript = {})
    {
        SQL("update clients set update_state='x',update_message='before',update_date=null,"
            "servicepack_date=null,version_number=1,servicepack_number=2");
        WRITE_FILE(CLIENT_PATH(sClient, "log/commands"), "");
        SWITCH(sClient, sSCRIPT, asScript);
    }
    void EXPECT_COPY_FAILED(const RUN& run)
    {
        EXPECT_EQ(run.iExit, 2);
        EXPECT_THAT(run.sOut,
                    StartsWith("STATUS=ERROR MSG=\"" + sFAILED + "Copy of package file failed: "));
    }
    /* State, message, whether update_date and servicepack_date are now, numbers. */
    std::string sSTATE(const std::string& sClient)
    {
        const std::string sSince = "coalesce(abs(extract(epoch from localtimestamp-";
        return ROWS("select update_state,update_message," + sSince + "update_date))<100,false)," +
                    sSince + "servicepack_date))<100,false),version_number,servicepack_number " +
                    "from clients where name='" + sClient + "'")[0];
    }
    RUN CLIENT_UPDATE(const std::string& sClient, const TEXTS& asMore = {"-U", "-P", sDEB})
    {
        return CONFIG_CLIENT(TEXTS{"-c", sClient} + asMore);
    }
    /* Files below the client's work directory but the keys. */
    TEXTS WORK_FILES(const std::string& sClient)
    {
        TEXTS asName;
        for (const auto& entry : fs::directory_iterator{CLIENT_PATH(sClient, "velka/work")})
            if (entry.path().extension() != ".key") asName.push_back(entry.path().filename());
        return asName;
    }
    bool bLOGGED(const std::string& sCommand)
    {
        return bWAIT_UNTIL(
            20000, [&] { return Matches(Contains(StartsWith(sCommand)))(CLIENT_LOG("alpha")); });
    }
    /* Starts an update whose package is large, and waits until its copy grows. */
    STARTED_RUN START_COPY()
    {
        PACKAGE(sBIG, "");
        fs::resize_file(sRW() + "work/packages/" + sBIG, 4LL << 30);
        STARTED_RUN run = START({"-c", "alpha", "-U", "-P", sBIG});
        EXPECT_TRUE(bWAIT_UNTIL(20000, [&] { return !WORK_FILES("alpha").empty(); }));
        return run;
    }
};

TEST_F(UPDATE, a_package_is_copied_run_cleaned_up_and_recorded_in_that_order)
{
    ADD_CLIENT("alpha");
    RESET("alpha");
    EXPECT_ENDED(CLIENT_UPDATE("alpha"), 0, sI013("alpha"));
    EXPECT_THAT(OUTCOMES().back(),
                HasSubstr("\"version_before\":\"5.1.0-3\",\"version_after\":\"5.2.0-4\""));
    const std::string sRun = sSCRIPT + " " + sDEB;
    const std::string sClean = "vk_client -r -f usefile -n gv_rw_work:" + sDEB + " -m d";
    EXPECT_THAT(CLIENT_LOG("alpha"), ElementsAre("qtc -h", sRun, sClean, "qtc -h"));
    EXPECT_EQ(sSTATE("alpha"), sUPDATED);
    EXPECT_THAT(STATEMENTS(),
                Contains("update clients set update_state='a',update_message='Update in progress "
                         "using package " +
                         sDEB + "' where name='alpha'"));
    for (const char* cp : {"bin/vk_execute_update", "work/qir-gpg.key", "work/qir-gpg-2026.key"})
        EXPECT_EQ(iMODE(CLIENT_PATH("alpha", std::string{"velka/"} + cp)), 0755U);
    EXPECT_THAT(WORK_FILES("alpha"), IsEmpty());

    const std::string sPath = sDIR() + "/velka-cli_5.2.0-5_amd64.deb";  // not among packages
    WRITE_FILE(sPath, "package");
    EXPECT_EQ(CLIENT_UPDATE("alpha", {"-U", "-P", sPath}).iExit, 0);
    EXPECT_EQ(CLIENT_LOG("alpha")[5], sSCRIPT + " " + sPath);
    EXPECT_THAT(WORK_FILES("alpha"), IsEmpty());  // no folder of that path

    // The script starts after a pause.
    const RUN back = CONFIG_CLIENT({"-c", "alpha", "-U", "-P", sDEB}, {{"gv_update_wait", "2"}});
    EXPECT_GE(back.iMilliseconds, 2000);
    EXPECT_EQ(back.sErr, "vk_config_client: alpha goes back from 5.2.0-5 to 5.2.0-4\n");

    // The server itself is not asked before.
    RESET("velkasrv");
    OUTPUT("velkasrv", sSCRIPT, "STATUS=SUCCESS\n");
    SQL("update clients set velka_version='4.9' where client_id=0");
    EXPECT_EQ(CLIENT_UPDATE("velkasrv").iExit, 0);
    EXPECT_THAT(OUTCOMES().back(), HasSubstr("\"version_before\":\"4.9\",\"version_after\":"));
    EXPECT_THAT(CLIENT_LOG("velkasrv"), ElementsAre(sRun, sClean, "qtc -h"));
    const RUN missing = CLIENT_UPDATE("velkasrv", {"-U", "-P", "missing_5.2.0-9.deb"});
    EXPECT_EQ(missing.iExit, 2);
    EXPECT_THAT(missing.sOut, HasSubstr("missing_5.2.0-9.deb\": No such file or directory"));
    EXPECT_THAT(OUTCOMES().back(), HasSubstr("\"cause\":\"package-missing\""));
    EXPECT_EQ(iCHILDREN_LEFT(2000), 0);
}

TEST_F(UPDATE, the_command_follows_system_and_options)
{
    // clang-format off
    const struct {
        const char* cpClient; TEXTS asOption; const char* cpMore; /* of the command */
    } aRow[] = {
        {"alpha", {"-U", "-F", "-O", "abc"}, " -f"}, {"alpha", {"-S"}, ""},
        {"alpha", {"-S", "-F"}, " -f"}, {"winbox", {"-U"}, " -v 1"},
        {"winbox", {"-U", "-F", "-O", "abc"}, " -f -v 1 -o \"abc\""},
        {"winbox", {"-U", "-O", "/x & y"}, " -v 1 -o \"/x & y\""},
        {"winbox", {"-U", "-O", "force"}, " -f -v 1"},
        {"winbox", {"-S"}, " -s -v 1"}, {"winbox", {"-S", "-F", "-O", "abc"}, " -f -s -v 1"},
    };
    // clang-format on
    ADD_CLIENT("alpha");
    ADD_CLIENT("winbox", "VKSSH", "Windows Server 2022");
    for (const auto& row : aRow) {
        const std::string sClient = row.cpClient;
        SCOPED_TRACE(sClient + PrintToString(row.asOption));
        const bool        bWindows = sClient == "winbox", bPackage = row.asOption[0] == "-U";
        const std::string sPackage = bPackage ? sDEB : bWindows ? sSP_EXE : sSP;
        const std::string sLines = CLIENT_PATH(sClient, "log/lines");
        WRITE_FILE(sLines, "");
        RESET(sClient);
        EXPECT_EQ(CLIENT_UPDATE(sClient, row.asOption + TEXTS{"-P", sPackage, "-e", "0"}).iExit, 0);
        const std::string sCommand = sSCRIPT + (bWindows ? ".cmd " : " ") + sPackage + row.cpMore;
        const std::string sRemove = "vk_client -r -f usefile -n \"";
        TEXTS             asCommand{bWindows ? "& " + sCommand + " <NUL" : "'" + sCommand + "'"};
        if (bWindows)
            for (const std::string sKey : {"gv_ro_bin", "gv_rw_work"})
                asCommand.push_back(sRemove + sKey + ":velka_update\" -m D <NUL");
        asCommand.push_back(sRemove + "gv_rw_work:" + sPackage + "\" -m d");
        size_t uAt = 0;
        for (const std::string& sPart : asCommand)
            EXPECT_NE(uAt = sREAD_FILE(sLines).find(sPart, uAt), std::string::npos) << sPart;
    }
    EXPECT_THAT(CLIENT_LOG("velkasrv"), IsEmpty());  // none asked for the service pack
    PACKAGE("..\\x_5.2.0-5.deb", "package");
    EXPECT_THAT(CLIENT_UPDATE("winbox", {"-U", "-P", "..\\x_5.2.0-5.deb"}).sOut,
                HasSubstr("is outside its folder"));
    // Of a path with a drive what follows it counts, as the script takes it.
    RESET("winbox", {"before=ls $base/velka/work >$base/log/saw"});
    PACKAGE("C:\\x_5.2.0-5.exe", "package");
    EXPECT_EQ(CLIENT_UPDATE("winbox", {"-U", "-P", "C:\\x_5.2.0-5.exe"}).iExit, 0);
    EXPECT_THAT(asLINES(sREAD_FILE(CLIENT_PATH("winbox", "log/saw"))), Contains("x_5.2.0-5.exe"));
}

TEST_F(UPDATE, the_status_of_the_script_decides_message_exit_code_state_and_chaining)
{
    const std::string sUpdate = "-HOSTS   Update of client winbox ";
    const std::string sServicepack = "-HOSTS   Servicepack update of client winbox ";
    const std::string sRestart = "-HOSTS   A restart is required to complete the ";
    const std::string sCheck = "finished successfully, but access check failed: ";
    const std::string sE21 = "E021" + sUpdate + "failed: ";
    // clang-format off
    const struct { TEXTS asScript; char cKind; int iExit; std::string sMessage; } aRow[] = {
        {{"exit=3010", "text=do it"}, 'U', 1, "W004" + sRestart + "update of client winbox. do it"},
        {{"exit=1641", "text=do it"}, 'S', 1,
         "W005" + sRestart + "servicepack update of client winbox. do it"},
        {{"exit=1603", "text=it's bad"}, 'U', 1, sE21 + "it's bad"},
        {{"exit=1603", "text=bad"}, 'S', 1, "E022" + sServicepack + "failed: bad"},
        {{"exit=2", "text=bad", "status=WARNING"}, 'U', 2, sE21 + "bad"},
        {{"exit=9", "mode=fail", "text=last words"}, 'U', 9, sE21 + "last words"},
        {{"exit=10", "text=say \"no\" twice"}, 'U', 1, sE21 + "say \"no\" twice"},
        {{"exit=3010", "status=SUCCESS"}, 'U', 0, sI013("winbox")},
        {{}, 'S', 0, "I016-HOSTS   Servicepack successfully applied to Client winbox: " + sSP_EXE},
        {{"before=echo mode=fail > $base/state/qtc"}, 'U', 1,
         "W006" + sUpdate + sCheck + "command failed"},
        {{"before=echo mode=noversion > $base/state/qtc"}, 'S', 1,
         "W007" + sServicepack + sCheck + "No version in the report of qtc -h"},
    };
    // clang-format on
    ADD_CLIENT("winbox", "VKSSH", "Windows Server 2022");
    SWITCH("velkasrv", "vk_update_client", {"exit=7"});  // of no account
    for (const auto& row : aRow) {
        SCOPED_TRACE(PrintToString(row.asScript));
        RESET("winbox", row.asScript);
        SWITCH("winbox", "qtc", {});
        const bool  bPackage = row.cKind == 'U';
        const TEXTS asOption{bPackage ? "-U" : "-S", "-P", bPackage ? sDEB : sSP_EXE, "-e", "1"};
        WRITE_FILE(CLIENT_PATH("velkasrv", "log/commands"), "");
        EXPECT_ENDED(CLIENT_UPDATE("winbox", asOption), row.iExit, row.sMessage);
        EXPECT_EQ(COLUMN("winbox", "msg"), row.sMessage);
        const std::string sState = row.sMessage[0] == 'W' ? "1|WARNING " : "2|ERROR ";
        const std::string sDates = bPackage ? "|t|f|1|2" : "|f|t|1|2";
        const std::string sDone =
            bPackage ? sUPDATED : "0|Servicepack update finished successfully|f|t|1|201909171332";
        EXPECT_EQ(sSTATE("winbox"), row.iExit ? sState + row.sMessage + sDates : sDone);
        const TEXTS asChain{"vk_update_client sp_update -c winbox"};
        EXPECT_EQ(CLIENT_LOG("velkasrv"), bPackage && row.iExit <= 1 ? asChain : TEXTS{});
        EXPECT_EQ(OUTCOMES().back().find("restart-needed") != std::string::npos,
                  row.sMessage.find(sRestart) != std::string::npos);
        const bool bAgain = row.sMessage[0] == 'I' || row.sMessage[3] >= '6';  // after success
        EXPECT_THAT(CLIENT_LOG("winbox"), Contains("qtc -h").Times(bAgain ? 2 : 1));
        EXPECT_THAT(WORK_FILES("winbox"), IsEmpty());
    }
    // A text that is longer than the statement may be.
    SWITCH("winbox", "qtc", {});
    for (const std::string& sText : {std::string(100000, 'y'), std::string(5000, '\'')}) {
        RESET("winbox", {"exit=3", "fills=100000", "text=it's" + sText});
        EXPECT_EQ(CLIENT_UPDATE("winbox").iExit, 3);
        const std::string sBegin = "2|ERROR " + sE21 + "it's" + sText.substr(0, 900);
        EXPECT_THAT(sSTATE("winbox"), AllOf(StartsWith(sBegin), EndsWith("|t|f|1|2")));
        EXPECT_THAT(COLUMN("winbox", "msg"), StartsWith(sE21));
        EXPECT_EQ(sSTATE("velkasrv"), sBEFORE);
    }
    for (const std::string& sStatement : STATEMENTS()) EXPECT_LT(sStatement.size(), 2048u);
}

TEST_F(UPDATE, what_may_not_be_updated_is_refused_before_anything_is_copied)
{
    const std::string sNone = "Could not determine Velka version from package name: ";
    const std::string sNew = "velka_cli-4.4.1-14.exe", sSame = "velka-cli_4.2.2-99_all.deb";
    const std::string sOld = " with QIR velka version 4.4.1.0 is not supported";
    // clang-format off
    struct ROW {
        const char* cpOs; TEXTS asOption; std::string sMessage; /* none: passes, no such package */
    };
    std::vector<ROW> rows{
        {"Linux", {"-U"}, sE006}, {"Linux", {"-S", "-F"}, sE006},
        {"Linux", {"-S", "-P", sSP_EXE}, sNone + sSP_EXE},
        {"Linux", {"-U", "-P", "it's none"}, sNone + "it's none"},
        {"Linux", {"-U", "-P", sSame}, "Old and new Velka versions on client alpha are identical: "
                                       "4000020000200099. Do not run update."},
        {"Linux", {"-U", "-F", "-P", sSame}, ""},
        {"Linux", {"-S", "-P", "velka_sp-17_1_4.2.2-99.deb"}, ""},
        {"Windows 7", {"-U", "-F", "-P", "velka_cli-4.2.2-99.exe"}, ""},
        {"Windows Server 2012", {"-U", "-P", sNew}, ""},
        {"Linux", {"-U", "-P", sDEB}, "Error from alive test: No version in the report of qtc -h"},
    };
    // clang-format on
    for (const char* cpOs :
         {"Windows Server 2008", "Windows Server 2008 R2", "Windows 7", "Windows NT", "Windows XP",
          "Windows 2000", "Windows Server 2003", "Windows Server 2003 R2", "Storage Server 2003",
          "Home Server", "Windows Vista"})
        rows.insert(rows.begin(),
                    {cpOs, {"-U", "-F", "-P", sNew}, "Update of " + std::string(cpOs) + sOld});
    ADD_CLIENT("alpha");
    // Its interpreter is POSIX, whatever the system's name.
    SQL("update oper_systems set platform='LINUX'");
    for (const ROW& row : rows) {
        SCOPED_TRACE(row.cpOs + PrintToString(row.asOption));
        RESET("alpha");
        SQL(std::string{"update clients set os='"} + row.cpOs +
            "',version_number=4000020000200099 where name='alpha'");
        if (row.sMessage.starts_with("Error")) SWITCH("alpha", "qtc", {"mode=noversion"});
        const RUN run = CLIENT_UPDATE("alpha", row.asOption);
        if (row.sMessage.empty())
            EXPECT_COPY_FAILED(run);
        else
            EXPECT_ENDED(run, row.sMessage.starts_with("Old") ? 1 : 2, row.sMessage);
        EXPECT_EQ(OUTCOMES().back().find("\"cause\":\"package-not-given\"") < 1000,
                  row.sMessage == sE006);
        EXPECT_THAT(CLIENT_LOG("alpha"), ElementsAre("qtc -h"));
        EXPECT_EQ(fs::remove(CLIENT_PATH("alpha", "velka/work/qir-gpg.key")), row.sMessage.empty());
        EXPECT_EQ(sSTATE("alpha"), "x|before|f|f|4000020000200099|2");
    }
    EXPECT_THAT(OUTCOMES().back(), HasSubstr("\"cause\":\"no-version\""));

    // A name that its place on the client cannot hold; and the version is no bar to a
    // service pack.
    RESET("alpha");
    SWITCH("alpha", "qtc", {});
    const std::string sLong = "/" + std::string(500, 'x') + "_5.2.0-4.deb";
    EXPECT_COPY_FAILED(CLIENT_UPDATE("alpha", {"-U", "-P", sLong}));
    SWITCH("velkasrv", "vk_update_client", {"exit=7"});
    SQL("update clients set os='Linux',version_number=4000020000200099 where name='alpha'");
    const RUN same = CLIENT_UPDATE("alpha", {"-U", "-e", "1", "-P", sSame});
    EXPECT_EQ(same.iExit, 1);
    const std::string sChain = "vk_update_client sp_update -c alpha";
    EXPECT_THAT(CLIENT_LOG("velkasrv"), ElementsAre(sChain));
    EXPECT_EQ(same.sErr, "vk_config_client: service pack update of alpha failed: \"" + sChain +
                             "\" ended with status 7\n");
    EXPECT_THAT(CLIENT_LOG("alpha"), Each("qtc -h"));
    EXPECT_THAT(WORK_FILES("alpha"), IsEmpty());
}

TEST_F(UPDATE, a_signature_goes_before_the_package_and_what_stays_away_is_told)
{
    ADD_CLIENT("alpha");
    RESET("alpha", {"before=ls -Atr $base/velka/work | grep deb >$base/log/saw"});
    PACKAGE(sDEB + ".sig", "signature");
    fs::create_directory(sRW() + "work/packages/" + sDEB + ".asc");  // no file
    const std::string sSkel = sDIR() + "/server/velka/skel/";
    fs::remove(sSkel + "qir-gpg.key");
    const RUN run = CLIENT_UPDATE("alpha", {"-U", "-v", "1", "-P", sDEB});
    EXPECT_ENDED(run, 0, sI013("alpha"));
    EXPECT_THAT(TRACE_TEXT(), HasSubstr("command line: sftp -F "));
    EXPECT_THAT(asLINES(sREAD_FILE(CLIENT_PATH("alpha", "log/saw"))),
                ElementsAre(sDEB + ".sig", sDEB));
    EXPECT_THAT(WORK_FILES("alpha"), IsEmpty());
    EXPECT_THAT(run.sErr, HasSubstr("vk_config_client: cannot read \"" + sSkel +
                                    "qir-gpg.key\"; the client checks signatures with the keys "));
    EXPECT_THAT(run.sErr, HasSubstr(sDEB + ".asc\"; the package is sent without it: "));
    EXPECT_THAT(run.sErr, Not(HasSubstr(" reports ")));

    // A package that does not arrive takes its signature with it.
    fs::remove(sRW() + "work/packages/" + sDEB);
    EXPECT_COPY_FAILED(CLIENT_UPDATE("alpha", {"-U", "-F", "-P", sDEB}));
    EXPECT_THAT(WORK_FILES("alpha"), IsEmpty());
    EXPECT_COPY_FAILED(CLIENT_UPDATE("alpha", {"-U", "-P", "../keys/x_5.1.9-1.deb"}));

    // A script that says success and installs nothing.
    OUTPUT("alpha", sSCRIPT, "STATUS=SUCCESS\n");
    RESET("alpha");
    const RUN unchanged = CLIENT_UPDATE("alpha", {"-U", "-P", sSP});
    EXPECT_THAT(unchanged.sErr, HasSubstr("alpha reports 5.2.0-4, not 5.1.0-3\n"));

    // A name that no command to remove it holds; and a client that goes meanwhile.
    const std::string sLong = "velka-cli_5.2.0-4." + std::string(220, 'x');
    PACKAGE(sLong, "package");
    SQL("create function gone() returns trigger language plpgsql as "
        "$$begin delete from clients where name=old.name; return null; end$$");
    SQL("create trigger gone before update of version_number on clients for each row execute "
        "function gone()");
    const RUN gone = CLIENT_UPDATE("alpha", {"-U", "-P", sLong});
    EXPECT_THAT(gone.sErr, HasSubstr("cannot remove \"" + sLong + "\" from alpha: "));
    EXPECT_THAT(gone.sErr, HasSubstr("outcome of alpha not stored: another run has removed "));
}

TEST_F(UPDATE, a_script_goes_on_by_itself_when_its_run_is_ended_or_its_connection_breaks)
{
    ADD_CLIENT("alpha");
    const std::string sGo = CLIENT_PATH("alpha", "go"),
                      sIni = CLIENT_PATH("alpha", "velka/ini/vk.ini");
    const std::string sHeld = "until [ -e " + sGo + " ]; do sleep 0.02; done";
    for (const int iSignal : {SIGTERM, SIGINT, SIGHUP, 0}) {
        SCOPED_TRACE(iSignal);
        fs::remove(sGo);
        WRITE_FILE(sIni, "version=5.1.0-3\npackage_name=old\nupdate_date=2025-03-01 08:15:00\n");
        RESET("alpha",
              {"before=" + std::string(iSignal ? "" : "kill -KILL $VK_SESSION_PID; ") + sHeld});
        SQL("update clients set update_date='2025-03-01 08:15:00' where name='alpha'");
        STARTED_RUN started = START({"-c", "alpha", "-U", "-P", sDEB});
        ASSERT_TRUE(bLOGGED(sSCRIPT));
        if (iSignal) {
            // A check beside it leaves the state alone.
            EXPECT_EQ(CHECK("alpha").iExit, 0);
            EXPECT_THAT(sSTATE("alpha"), StartsWith("a|Update in progress using package "));
            KILL(started, iSignal);
        }
        const RUN run = WAIT(started);
        EXPECT_EQ(run.iSignal, iSignal);
        const std::string sLeft =
            "vk_config_client: alpha: the update script keeps running; check the client "
            "later\n";
        EXPECT_EQ(run.sErr.find(sLeft) != std::string::npos, iSignal != 0) << run.sErr;
        // Nobody owns the "a" that is left: the next check takes what the client says.
        EXPECT_EQ(CHECK("alpha").iExit, 0);
        EXPECT_THAT(sSTATE("alpha"), StartsWith("0|installed|"));
        WRITE_FILE(sGo, "");
        EXPECT_TRUE(
            bWAIT_UNTIL(20000, [&] { return sREAD_FILE(sIni).starts_with("version=5.2.0-4\n"); }));
        EXPECT_THAT(CLIENT_LOG("alpha"), Contains(StartsWith(sSCRIPT)).Times(1));
    }
}

TEST_F(UPDATE, of_twenty_at_one_moment_one_runs)
{
    ADD_CLIENT("alpha");
    const std::string sGo = CLIENT_PATH("alpha", "go");
    RESET("alpha", {"before=until [ -e " + sGo + " ]; do sleep 0.02; done"});
    std::vector<STARTED_RUN> runs;
    for (int i = 0; i < 20; i++) runs.push_back(START({"-c", "alpha", "-U", "-P", sDEB}));
    const auto iTOLD = [&] {  // that have said something
        return std::count_if(runs.begin(), runs.end(), [](const STARTED_RUN& run) {
            return sREAD_FILE(run.sOutFile).ends_with("\n");
        });
    };
    EXPECT_TRUE(bWAIT_UNTIL(60000, [&] { return iTOLD() >= 19; }));
    EXPECT_TRUE(bLOGGED(sSCRIPT));
    EXPECT_EQ(iTOLD(), 19);
    WRITE_FILE(sGo, "");
    TEXTS asOut;
    for (STARTED_RUN& started : runs) {
        const RUN run = WAIT(started);
        EXPECT_EQ(run.iExit, 0);
        if (run.sOut != sSTATUS(0, sALREADY)) asOut.push_back(run.sOut);
    }
    EXPECT_THAT(asOut, ElementsAre(sSTATUS(0, sI013("alpha"))));
    EXPECT_THAT(CLIENT_LOG("alpha"), Contains(StartsWith(sSCRIPT)).Times(1));
    EXPECT_EQ(sSTATE("alpha"), sUPDATED);
}

TEST_F(UPDATE, after_KILL_at_any_step_the_next_run_succeeds_at_once)
{
    ADD_CLIENT("alpha");
    for (const std::string sProgram : {"qtc", "vk_client", "vk_execute_update"}) {  // that hangs
        SCOPED_TRACE(sProgram);
        RESET("alpha");
        SWITCH("alpha", sProgram, {"mode=silent"});
        STARTED_RUN run = START({"-c", "alpha", "-U", "-P", sDEB});
        ASSERT_TRUE(bLOGGED(sProgram));
        const RUN second = CLIENT_UPDATE("alpha", {"-U", "-P", sDEB, "-e", "1"});
        EXPECT_ENDED(second, 0, sALREADY);
        EXPECT_THAT(second.sErr, HasSubstr("of alpha not started: another run is updating"));
        KILL(run, SIGKILL);
        EXPECT_EQ(WAIT(run).iSignal, SIGKILL);
        SWITCH("alpha", sProgram, {});
        EXPECT_EQ(CLIENT_UPDATE("alpha").iExit, 0);
        EXPECT_EQ(sSTATE("alpha"), sUPDATED);
        EXPECT_EQ(iCHILDREN_LEFT(5000), 0);
        // Of the client's programs only the update script is left to finish.
        EXPECT_TRUE(sProgram == sSCRIPT || iCLIENT_PROCESSES("alpha", 30000) == 0);
    }
    EXPECT_THAT(CLIENT_LOG("velkasrv"), IsEmpty());  // no service pack after somebody else's update
    // In the middle of the copy.
    RESET("alpha");
    STARTED_RUN run = START_COPY();
    KILL(run, SIGKILL);
    EXPECT_EQ(WAIT(run).iSignal, SIGKILL);
    EXPECT_EQ(iCHILDREN_LEFT(5000), 0);
    EXPECT_THAT(WORK_FILES("alpha"), Not(Contains(sBIG)));
    EXPECT_EQ(sSTATE("alpha"), sBEFORE);
    EXPECT_EQ(CLIENT_UPDATE("alpha").iExit, 0);
}

TEST_F(UPDATE, a_session_or_copy_that_breaks_or_finds_no_room_ends_with_E021_and_no_file)
{
    ADD_CLIENT("alpha");
    RESET("alpha", {"before=kill -KILL $VK_SESSION_PID"});
    const RUN restarted = CLIENT_UPDATE("alpha");
    EXPECT_EQ(restarted.iExit, 1);
    EXPECT_LT(restarted.iMilliseconds, 30000);
    EXPECT_THAT(restarted.sOut, StartsWith("STATUS=ERROR MSG=\"" + sFAILED));
    EXPECT_THAT(sSTATE("alpha"), AllOf(StartsWith("2|ERROR " + sFAILED), EndsWith("|t|f|1|2")));
    EXPECT_EQ(iCHILDREN_LEFT(5000), 0);

    RESET("alpha");
    STARTED_RUN run = START_COPY();
    STOP_CLIENT("alpha");
    EXPECT_COPY_FAILED(WAIT(run, 60000));
    EXPECT_THAT(WORK_FILES("alpha"), Not(Contains(sBIG)));

    // Its files may grow to 512 KiB, as on a full disk.
    const std::string sService = sDIR() + "/services/alpha/run";
    const std::string sText = sREAD_FILE(sService);
    WRITE_FILE(sService,
               "#!/bin/sh\ntrap '' XFSZ\nulimit -f 1024\n" + sText.substr(sText.find('\n') + 1));
    RESTART_CLIENT("alpha");
    for (const std::string& sPackage : {sDEB, sSP}) {
        PACKAGE(sPackage, std::string(1 << 20, 'x'));
        const RUN full = CLIENT_UPDATE("alpha", {sPackage == sDEB ? "-U" : "-S", "-P", sPackage});
        EXPECT_COPY_FAILED(full);
        EXPECT_THAT(full.sOut, Not(HasSubstr("failed: \"")));
        EXPECT_THAT(WORK_FILES("alpha"), Each(StartsWith("big")));
    }
    // What is needed and what is free are told where there is less than that.
    const fs::space_info space = fs::space(sDIR());
    fs::resize_file(sRW() + "work/packages/" + sDEB, space.available + (1U << 30));
    const std::string sTold = CLIENT_UPDATE("alpha").sOut, sNeeded = " bytes needed, ";
    ASSERT_THAT(sTold, ContainsRegex("no space left on alpha: [0-9]+" + sNeeded + "[0-9]+ free"));
    EXPECT_NEAR(std::stod(sTold.substr(sTold.find(sNeeded) + sNeeded.size())),
                static_cast<double>(space.available), 1e9);
    // Whether the script began is not known then; it is not begun again.
    WRITE_FILE(CLIENT_PATH("alpha", "cut"), "");
    WRITE_FILE(CLIENT_PATH("alpha", "log/lines"), "");
    PACKAGE(sDEB, "x");
    EXPECT_THAT(CLIENT_UPDATE("alpha").sOut, HasSubstr("lost before the command began"));
    EXPECT_THAT(asLINES(sREAD_FILE(CLIENT_PATH("alpha", "log/lines"))),
                Contains(HasSubstr("eval 'vk_execute_update")).Times(1));
    RESET("alpha");
    // Nor does it run what came and could not be given its name.
    fs::create_directories(CLIENT_PATH("alpha", "velka/work/" + sDEB + "/folder"));
    PACKAGE(sDEB, "x");
    EXPECT_COPY_FAILED(CLIENT_UPDATE("alpha"));
    EXPECT_EQ(sSTATE("alpha"), sBEFORE);
    EXPECT_THAT(CLIENT_LOG("alpha"), Each("qtc -h"));
}

}  // namespace
