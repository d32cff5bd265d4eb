/* Clients, connections, databases and runs that fail in the middle: each run ends
   in bounded time with the right message, and nothing of it stays behind. */
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "sandbox_fixture.h"

using namespace testing;

namespace {

std::string sNO_ACCESS(const std::string& sClient, const std::string& sLine)
{
    return "E002-HOSTS   There is no access to computer " + sClient + ": " + sLine;
}

class FAILURES : public SANDBOX {
protected:
    /* From now on qtc on the client waits, once it has noted its start, until the
       gate is opened; it answers well then. */
    void GATE(const std::string& sClient)
    {
        ASSERT_EQ(mkfifo(CLIENT_PATH(sClient, "gate").c_str(), 0600), 0);
        PROGRAM(sClient,
                "base=${0%/velka/bin/*}\necho qtc >>$base/log/commands\nread x <$base/gate");
    }
    /* From now on that is the client's qtc; it answers well in the end. */
    void PROGRAM(const std::string& sClient, const std::string& sScript)
    {
        WRITE_PROGRAM(
            CLIENT_PATH(sClient, "velka/bin/qtc"),
            sScript + "\nprintf 'QTC_VERSION=9.9\\nVELKA_VERSION=1.2.3-4\\nPACKAGE=p\\n'");
    }
    /* Open as long as the descriptor is held. */
    FD OPEN_GATE(const std::string& sClient)
    {
        FD fdGate(open(CLIENT_PATH(sClient, "gate").c_str(), O_RDWR));
        EXPECT_EQ(write(fdGate.iGet(), "go\n", 3), 3);
        return fdGate;
    }
    STARTED_RUN START_CHECK(const std::string& sClient)
    {
        return START({"-c", sClient, "-C", "r"});
    }
    /* Starts a run whose command waits at the gate of alpha. */
    STARTED_RUN START_AT_GATE(const TEXTS& asArgument = {"-c", "alpha", "-C", "r"})
    {
        const size_t uBefore = CLIENT_LOG("alpha").size();
        STARTED_RUN  run = START(asArgument);
        EXPECT_TRUE(bWAIT_UNTIL(20000, [&] { return CLIENT_LOG("alpha").size() > uBefore; }));
        return run;
    }
    void NOTHING_LEFT(int iWaitMs)
    {
        EXPECT_EQ(iCHILDREN_LEFT(iWaitMs), 0);
        EXPECT_EQ(iCLIENT_PROCESSES("alpha", iWaitMs), 0);
    }
};

TEST_F(FAILURES, a_client_that_says_nothing_or_never_stops_ends_the_check_in_time)
{
    // Name, mode, seconds from and to, message.
    const std::tuple<const char*, const char*, long, long, std::string> asRow[] = {
        // in the order in which they end
        {"mutepx", "PROXY", 2, 12, sNO_ACCESS("mutepx", "")},
        {"silent", "VKSSH", 15, 25,
         sNO_ACCESS("silent", "Timeout: no answer from silent within 15 seconds")},
        {"mute", "VKSSH", 15, 25,
         sNO_ACCESS("mute", "Connection timed out during banner exchange")},
        {"flood", "VKSSH", 45, 57,
         sNO_ACCESS("flood", "Timeout: flood did not come to an end within 45 seconds")},
    };
    INI("remote", "connect_timeout", "2");
    for (const auto& row : asRow) ADD_CLIENT(std::get<0>(row), std::get<1>(row));
    std::vector<STARTED_RUN> runs;
    for (const auto& row : asRow) runs.push_back(START_CHECK(std::get<0>(row)));
    for (size_t u = 0; u < runs.size(); u++) {
        const auto& [cpName, cpMode, lFrom, lTo, sMessage] = asRow[u];
        SCOPED_TRACE(std::string(cpName) + cpMode);
        const RUN run = WAIT(runs[u], 70000);
        EXPECT_EQ(run.iExit, 1);
        EXPECT_EQ(run.sErr, "");
        EXPECT_EQ(COLUMN(cpName, "msg"), sMessage);
        EXPECT_THAT(run.iMilliseconds, AllOf(Ge(lFrom * 1000), Le(lTo * 1000)));
        EXPECT_EQ(iCLIENT_PROCESSES(cpName, 10000), 0);
    }
    EXPECT_EQ(iCHILDREN_LEFT(), 0);
}

TEST_F(FAILURES, a_connection_cut_under_the_command_ends_the_check_and_a_leftover_holds_none)
{
    ADD_CLIENT("cut");
    EXPECT_EQ(CONFIG_CLIENT({"-c", "cut", "-C", "r"}, {}, 20000).iExit, 1);
    EXPECT_THAT(COLUMN("cut", "msg"), StartsWith(sNO_ACCESS("cut", "Connection to ")));
    ADD_CLIENT("alpha");
    GATE("alpha");
    STARTED_RUN run = START_AT_GATE();
    STOP_CLIENT("alpha");
    const RUN ended = WAIT(run, 20000);
    EXPECT_EQ(ended.iExit, 1);
    EXPECT_THAT(COLUMN("alpha", "msg"), StartsWith(sNO_ACCESS("alpha", "Connection to ")));
    EXPECT_EQ(COLUMN("alpha", "qtc_version"), "NULL");
    NOTHING_LEFT(10000);

    RESTART_CLIENT("alpha");
    PROGRAM("alpha", "sleep 60 &");
    EXPECT_EQ(CONFIG_CLIENT({"-c", "alpha", "-C", "r"}, {}, 30000).iExit, 0);
    EXPECT_EQ(COLUMN("alpha", "qtc_version"), "9.9");
    EXPECT_EQ(iCHILDREN_LEFT(), 0);
}

TEST_F(FAILURES, a_table_locked_by_another_program_ends_the_run_in_time)
{
    INI("database", "statement_timeout", "2");
    ADD_CLIENT("alpha");
    GATE("alpha");
    SQL("begin");
    SQL("lock table oper_systems");
    EXPECT_EQ(CONFIG_CLIENT({"-c", "alpha", "-C", "r"}, {}, 15000).iExit, 1);
    EXPECT_EQ(COLUMN("alpha", "msg"),
              "E004-HOSTS   Error during access to database  (ERROR: canceling statement due to "
              "statement timeout)");
    SQL("lock table clients");
    EXPECT_EQ(CONFIG_CLIENT({"-c", "alpha", "-C", "r"}, {}, 15000).iExit, 2);
    SQL("rollback");

    // In the middle of a check that goes well: the verdict stays.
    STARTED_RUN run = START_AT_GATE();
    SQL("begin");
    SQL("lock table clients");
    const FD  fdGate = OPEN_GATE("alpha");
    const RUN ended = WAIT(run, 15000);
    SQL("rollback");
    EXPECT_EQ(ended.iExit, 0);
    EXPECT_THAT(ended.sOut, StartsWith("STATUS=SUCCESS MSG=\"I005"));
    EXPECT_EQ(COLUMN("alpha", "qtc_version"), "NULL");
    NOTHING_LEFT(5000);
}

TEST_F(FAILURES, a_database_server_that_freezes_is_given_up)
{
    INI("database", "statement_timeout", "3");
    ADD_CLIENT("virt1", "VIRTUAL");
    SQL("begin");
    SQL("lock table oper_systems");
    STARTED_RUN run = START_CHECK("virt1");
    pid_t       iServer = 0;
    ASSERT_TRUE(bWAIT_UNTIL(10000, [&] { return (iServer = iWAITING_BACKEND()) > 0; }));
    kill(iServer, SIGSTOP);
    SQL("commit");
    const RUN ended = WAIT(run, 20000);
    kill(iServer, SIGCONT);
    EXPECT_EQ(ended.iExit, 1);
    const std::string sReason = "no answer from the database within 8 seconds";
    EXPECT_EQ(COLUMN("virt1", "msg"),
              "E004-HOSTS   Error during access to database  (" + sReason + ")");
    EXPECT_THAT(asLINES(ended.sErr), ElementsAre(HasSubstr(sReason)));
}

TEST_F(FAILURES, a_database_that_is_not_there_is_told_once)
{
    // One that takes connections and says nothing.
    const std::string sFolder = sDIR() + "/mute";
    fs::create_directory(sFolder);
    const FD                                  fdServer = fdLISTENER(sFolder + "/.s.PGSQL.5432");
    const std::string                         sEnd = " dbname=velka connect_timeout=2";
    const std::pair<std::string, const char*> asRow[] = {
        {"host=" + sFolder + sEnd, "timeout expired"},
        {"host=" + sDIR() + "/none" + sEnd, "No such file or directory"},
        {"hst=here" + sEnd, "invalid connection option \"hst\""}};
    INI("database", "retry_time", "1");
    for (const auto& [sConninfo, cpTold] : asRow) {
        INI("database", "conninfo", sConninfo);
        const RUN check = CONFIG_CLIENT({"-c", "alpha", "-C", "r"}, {}, 15000);
        const RUN registration = CONFIG_CLIENT({"-c", "alpha"}, {}, 15000);
        EXPECT_EQ(check.iExit, 2);
        EXPECT_THAT(check.sOut, StartsWith("STATUS=ERROR MSG=\"E006-HOSTS"));
        EXPECT_EQ(registration.iExit, 1);
        EXPECT_THAT(registration.sOut, StartsWith("STATUS=ERROR MSG=\"E004-HOSTS"));
        for (const RUN& run : {check, registration})
            EXPECT_THAT(asLINES(run.sErr), ElementsAre(HasSubstr(cpTold)));
        const RUN many =
            CONFIG_CLIENT({"-U", "-P", "x.deb", "-e", "1", "alpha", "beta"}, {}, 15000);
        EXPECT_THAT(asLINES(many.sErr),
                    ElementsAre(HasSubstr(cpTold), EndsWith("of the clients not started: the run "
                                                            "ended before an update")));
    }
}

TEST_F(FAILURES, a_database_that_goes_away_under_a_run_keeps_its_verdict)
{
    ADD_CLIENT("alpha");
    GATE("alpha");
    ADD_CLIENT("virt1", "VIRTUAL");
    // A part of it first: the columns that a run needs.
    SQL("alter table clients rename data_mover to dm");
    EXPECT_EQ(CHECK("virt1").iExit, 1);
    EXPECT_EQ(COLUMN("virt1", "msg"),
              "E004-HOSTS   Error during access to database  (ERROR: column \"data_mover\" does "
              "not exist at character 23)");
    SQL("alter table clients rename dm to data_mover");
    SQL("alter table clients rename os_user to ou");
    EXPECT_EQ(CHECK("alpha").iExit, 1);
    EXPECT_THAT(COLUMN("alpha", "msg"), HasSubstr("cannot read what the database knows of alpha"));
    EXPECT_THAT(OUTCOMES().back(), HasSubstr("\"cause\":\"column-missing"));
    EXPECT_THAT(CLIENT_LOG("alpha"), ElementsAre());
    SQL("alter table clients rename ou to os_user");

    // A connection that the server has closed meanwhile costs nothing.
    STARTED_RUN blinked = START_AT_GATE();
    SQL("select pg_terminate_backend(pid) from pg_stat_activity where "
        "application_name='vk_config_client' and datname=current_database()");
    {
        const FD  fdOpen = OPEN_GATE("alpha");
        const RUN well = WAIT(blinked, 15000);
        EXPECT_EQ(well.iExit, 0);
        EXPECT_EQ(well.sErr, "");
    }
    EXPECT_THAT(COLUMN("alpha", "qtc_version||msg"), StartsWith("9.9I005"));

    STARTED_RUN run = START_AT_GATE();
    DATABASE_GONE();
    const FD  fdGate = OPEN_GATE("alpha");
    const RUN ended = WAIT(run, 15000);
    EXPECT_EQ(ended.iExit, 0);
    EXPECT_THAT(ended.sOut, StartsWith("STATUS=SUCCESS MSG=\"I005"));
    EXPECT_THAT(asLINES(ended.sErr), ElementsAre(HasSubstr("cannot use the database: "),
                                                 HasSubstr(": inventory of alpha not stored: "),
                                                 HasSubstr(": outcome of alpha not stored: ")));
    EXPECT_THAT(PROTOCOL().back(), StartsWith("I003-HOSTS"));
    NOTHING_LEFT(5000);
}

class ENDED_RUNS : public FAILURES {
protected:
    void SetUp() override
    {
        FAILURES::SetUp();
        INI("general", "trace_level", "9");
        ADD_CLIENT("alpha");
        GATE("alpha");
    }
    bool bUPDATE_RUNS()
    {
        const FD fd(open((sRW() + "sema/update_client_alpha").c_str(), O_RDONLY));
        return fd.bOpen() && flock(fd.iGet(), LOCK_EX | LOCK_NB) != 0;
    }
    /* A private folder of a run. */
    bool bFOLDER_LEFT()
    {
        const fs::directory_iterator files{sDIR()};
        return std::any_of(begin(files), end(files), [](const auto& entry) {
            return entry.path().filename().native().starts_with("vk-");
        });
    }
    /* Every line of every file that runs append to is whole. */
    void LINES_ARE_WHOLE()
    {
        for (const char* cpFolder : {"prot", "lgc", "work/answ"})
            for (const auto& entry : fs::recursive_directory_iterator{sRW() + cpFolder}) {
                const std::string sText = sREAD_FILE(entry.path());
                EXPECT_TRUE(sText.empty() || sText.back() == '\n') << entry.path();
            }
        PROTOCOL();  // fails on a line without its beginning
    }
};

TEST_F(ENDED_RUNS, killed_at_any_moment_leave_no_process_no_semaphore_and_whole_lines)
{
    ADD_CLIENTS({"mute", "beta"});
    ADD_CLIENT("virt1", "VIRTUAL");
    STARTED_RUN commanding = START_AT_GATE();
    STARTED_RUN updating = START_AT_GATE({"-U", "-c", "alpha"});
    STARTED_RUN connecting = START_CHECK("mute");
    const auto  bHAS_CHILD = [&] {
        const std::string sPid = std::to_string(connecting.iPid);
        return !sREAD_FILE("/proc/" + sPid + "/task/" + sPid + "/children").empty();
    };
    EXPECT_TRUE(bWAIT_UNTIL(10000, bHAS_CHILD));
    EXPECT_TRUE(bUPDATE_RUNS());
    SQL("begin");
    SQL("lock table oper_systems");
    STARTED_RUN asking = START_CHECK("virt1");
    EXPECT_TRUE(bWAIT_UNTIL(10000, [&] { return iWAITING_BACKEND() > 0; }));
    for (STARTED_RUN* pRun : {&commanding, &updating, &connecting, &asking}) {
        KILL(*pRun, SIGKILL);
        EXPECT_EQ(WAIT(*pRun).iSignal, SIGKILL);
    }
    SQL("commit");
    EXPECT_FALSE(bUPDATE_RUNS());
    // Later runs end their connections and take their folders away, however close they follow.
    EXPECT_TRUE(bWAIT_UNTIL(28000, [&] {
        EXPECT_EQ(CHECK("beta").iExit, 0);
        return !bFOLDER_LEFT();
    }));
    // A run of its own for each stretch of the trace.
    for (size_t u = 0; u < 12; u++) {
        const size_t uGoal = TRACE_TEXT().size() + 150 * u;
        STARTED_RUN  run = START_CHECK("virt1");
        bWAIT_UNTIL(200, [&] { return TRACE_TEXT().size() > uGoal; });
        KILL(run, SIGKILL);
        WAIT(run);
    }
    LINES_ARE_WHOLE();
    NOTHING_LEFT(30000);
    EXPECT_EQ(CHECK("virt1").iExit, 0);
}

TEST_F(ENDED_RUNS, by_a_signal_give_everything_back_first)
{
    const std::pair<int, TEXTS> asRow[] = {
        {SIGTERM, {"-c", "alpha", "-C", "r"}},
        {-SIGINT, {"-c", "alpha", "-C", "r"}},  // to the group
        {SIGTERM, {"-U", "-c", "alpha"}},
        {-SIGHUP, {"-S", "-c", "alpha"}},
    };
    size_t uOutcomes = 0;
    for (const auto& [iSignal, asArgument] : asRow) {
        SCOPED_TRACE(asArgument[0] + " " + strsignal(abs(iSignal)));
        STARTED_RUN run = START_AT_GATE(asArgument);
        EXPECT_EQ(bUPDATE_RUNS(), asArgument[0] != "-c");
        iSignal < 0 ? KILL_GROUP(run, -iSignal) : KILL(run, iSignal);
        const RUN ended = WAIT(run, 10000);
        EXPECT_EQ(ended.iSignal, abs(iSignal));
        EXPECT_EQ(ended.sOut, "");
        EXPECT_EQ(iCHILDREN_LEFT(), 0);
        EXPECT_FALSE(bUPDATE_RUNS());
        EXPECT_FALSE(bFOLDER_LEFT());
        EXPECT_EQ(OUTCOMES().size(), ++uOutcomes);
        EXPECT_THAT(OUTCOMES().back(),
                    AllOf(HasSubstr("\"exit\":" + std::to_string(128 + abs(iSignal)) + ","),
                          HasSubstr(R"("stage":"answer","cause":"interrupted")"),
                          HasSubstr(asArgument[0] == "-c" ? "\"ended by signal"
                                                          : "before the update script began\"")));
    }
    EXPECT_EQ(iCLIENT_PROCESSES("alpha", 10000), 0);
    EXPECT_EQ(COLUMN("alpha", "msg"), "NULL");
    LINES_ARE_WHOLE();
}

TEST_F(ENDED_RUNS, by_a_signal_wherever_they_wait)
{
    ADD_CLIENT("mute");
    const std::string sSetup = fs::path(VK_PROGRAM).parent_path() / "vk_setup";
    // 3 takes nothing more, and from 4 nothing comes.
    const std::string sPipes = "cd " + sDIR() +
                               "; rm -f full empty; mkfifo full empty; "
                               "exec 3<>full 4<>empty; head -c 65536 /dev/zero >&3; exec ";
    const TEXTS asRow = {
        std::string(VK_PROGRAM) + " -c mute -C r -Z >&3 2>&3",
        std::string(VK_PROGRAM) + " --help >&3",
        std::string(VK_PROGRAM) + " -C r mute alpha -Z >&3 2>&3",
        sSetup + " set_client srv --file " + sDIR() + "/keys <&4",
    };
    for (const std::string& sCommand : asRow) {
        SCOPED_TRACE(sCommand);
        STARTED_RUN run = START_COMMAND({"/bin/sh", "-c", sPipes + sCommand});
        iSLEEP_MS(1000);
        KILL(run, SIGTERM);
        const RUN ended = WAIT(run, 6000);
        EXPECT_EQ(ended.iSignal, SIGTERM);
        EXPECT_EQ(iCHILDREN_LEFT(3000), 0);
    }
}

TEST_F(FAILURES, directories_that_cannot_be_written_are_told_once_and_hinder_no_check)
{
    ADD_CLIENT("alpha");
    ADD_CLIENT("px1", "PROXY");
    INI("general", "trace_level", "9");
    const TEXTS asRun = {"-c", "alpha", "-C", "r", "-i", "run", "-s", "ui"};
    CONFIG_CLIENT(asRun);                     // makes the files
    for (const bool bPipe : {true, false}) {  // a pipe for each, that nobody reads
        for (const char* cpFolder : {"prot", "lgc", "work/answ"}) {
            for (const fs::path& file : fs::directory_iterator(sRW() + cpFolder)) {
                fs::remove(file);
                ASSERT_TRUE(!bPipe || mkfifo(file.c_str(), 0600) == 0);
            }
            if (bPipe) continue;
            fs::remove(sRW() + cpFolder);
            WRITE_FILE(sRW() + cpFolder, "in the way");
        }
        const RUN run = CONFIG_CLIENT(asRun);
        EXPECT_EQ(run.iExit, 0);
        EXPECT_THAT(run.sOut, StartsWith("STATUS=SUCCESS MSG=\"I005"));
        EXPECT_THAT(COLUMN("alpha", "msg"), StartsWith("I005"));
        EXPECT_THAT(asLINES(run.sErr),
                    UnorderedElementsAre(HasSubstr("cannot write the trace \""),
                                         HasSubstr("cannot write the day protocol \""),
                                         HasSubstr("cannot write the info output \"")));
    }
    // Without a place for the shared connection each command connects by itself.
    CONFIG_CLIENT({"-c", "px1", "-C", "r"}, {{"TMPDIR", sRW() + "prot"}});
    EXPECT_THAT(COLUMN("px1", "msg"), StartsWith("I014"));
}

}  // namespace
