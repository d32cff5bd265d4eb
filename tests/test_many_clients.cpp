/* Checks and updates of several clients by one run. */
#include <sys/resource.h>

#include <algorithm>
#include <regex>

#include "sandbox_fixture.h"

using namespace testing;

namespace {

std::string sREPORT(std::string sName, const std::string& sSystem, const std::string& sMessage)
{
    sName.resize(std::max<size_t>(sName.size(), 64), ' ');
    return "Client: " + sName + " " + sSystem + "  Message: " + sMessage;
}

class MANY : public SANDBOX {
protected:
    void EXPECT_SUMMARY(const RUN& run, int iOk, int iFailed)
    {
        EXPECT_EQ(run.iExit, iFailed ? 2 : 0);
        EXPECT_EQ(asLINES(run.sOut).back(), sSUMMARY(iOk, iFailed));
    }
    /* Starts a check and waits until it is at work at a client that is silent. */
    STARTED_RUN START_HELD(const std::string& sSilent, const std::string& sOther)
    {
        ADD_CLIENT(sSilent);
        STARTED_RUN run = START({"-C", "r", sSilent, sOther});
        EXPECT_TRUE(bWAIT_UNTIL(20000, [&] { return !CLIENT_LOG(sSilent).empty(); }));
        return run;
    }
};

TEST_F(MANY, list_location_and_system_choose_and_the_report_is_in_order_of_name)
{
    ADD_CLIENTS({"win2", "lin0", "lin2", "off", "win0", "wild"}, "VIRTUAL");
    SQL("update clients set os='Windows 11',hw_platform='vm' where name like 'win_'");
    SQL("update clients set os='W_ndows' where name='wild'");
    SQL("update clients set location='2' where name like '%2'");
    SQL("update clients set exec='0' where client_id=0 or name='off'");
    SQL("insert into oper_systems values ('W_ndows','WNT')");
    // clang-format off
    const struct { TEXTS asOption; std::string sWhere; TEXTS asName; } aRow[] = {
        {{"win0", "off", "lin0", "missing"}, "name in ('win0','off','lin0','missing') and ",
         {"lin0", "win0"}},
        {{"-c", "ALL_CLIENTS", "-l", "NULL", "-o", "NULL"}, "",
         {"lin0", "lin2", "wild", "win0", "win2"}},
        {{"-c", "ALL_CLIENTS", "-l", "2", "-o", "Win"}, "os like 'Win%' and ", {"win0", "win2"}},
        {{"-c", "ALL_CLIENTS", "-o", "W_n"}, "os like 'W\\_n%' and ", {"wild"}},
        {{"-c", "ALL_CLIENTS", "-o", "None"}, "os like 'None%' and ", {}},
        {{"-c", "ALL_CLIENTS", "-l", "2", "lin0"}, "location='2' and ", {"lin2", "win2"}},
        {{"-c", "lin2", "-o", "Win", "lin0"}, "name in ('lin0') and ", {"lin0"}},
    };
    // clang-format on
    for (const auto& row : aRow) {
        SCOPED_TRACE(PrintToString(row.asOption));
        std::string sExpected, sReport;
        for (const std::string& sName : row.asName) {
            const std::string sMessage =
                "I015-HOSTS   Client " + sName +
                " configured with access mode 'VIRTUAL'. Remote access not possible.";
            sExpected += sSTATUS(0, sMessage);
            const std::string sSystem = SQL(
                "select os||' '||coalesce(hw_platform,'') from clients where name='" + sName + "'");
            sReport += sREPORT(sName, sSystem, sMessage) + "\n";
        }
        const int iClients = static_cast<int>(row.asName.size());
        const RUN run = CONFIG_CLIENT(TEXTS{"-C", "r"} + row.asOption);
        EXPECT_EQ(run.iExit, 0);
        EXPECT_EQ(run.sOut, sExpected + sReport + sSUMMARY(iClients, 0) + "\n");
        EXPECT_THAT(run.sErr, Not(HasSubstr("lin0 is skipped")));
        EXPECT_THAT(STATEMENTS(), Contains("select * from clients where " + row.sWhere +
                                           "(exec='1') order by name")
                                      .Times(2));
    }
    EXPECT_EQ(COLUMN("off", "access_state"), "NULL");
}

TEST_F(MANY, a_removal_counts_those_it_selected_and_takes_what_the_descriptors_allow)
{
    TEXTS asArgument{"-C", "d"};
    for (int i = 0; i < 30; ++i) asArgument.push_back("p" + std::to_string(i));
    for (size_t u = 2; u < asArgument.size(); ++u) ADD_CLIENT(asArgument[u], "VIRTUAL");
    INI("general", "parallel", "30");
    rlimit sctOld{};
    getrlimit(RLIMIT_NOFILE, &sctOld);
    const rlimit sctFew{24, sctOld.rlim_max};
    setrlimit(RLIMIT_NOFILE, &sctFew);
    STARTED_RUN started = START(asArgument);
    setrlimit(RLIMIT_NOFILE, &sctOld);
    const RUN run = WAIT(started);
    EXPECT_SUMMARY(run, 30, 0);
    EXPECT_THAT(run.sErr, MatchesRegex("(vk_config_client: cannot run \".*\": Too many open files; "
                                       "continuing with [0-9] clients at a time\n)+"));
    EXPECT_EQ(SQL("select count(*) from clients"), "1");
}

TEST_F(MANY, names_beyond_one_statement_are_one_list)
{
    SQL("insert into clients (client_id,name,os,accessmode,exec) select g,case g%3 when 0 then 'B' "
        "when 1 then 'a' else '_' end||g||repeat('x',60),'Linux','VIRTUAL','1' from "
        "generate_series(1,60) g");
    INI("general", "parallel", "8");
    const TEXTS asName = ROWS("select name from clients where client_id>0 order by name");
    TEXTS       asArgument{"-C", "r", "missing"};
    for (size_t u = asName.size(); u > 0; u--) asArgument.push_back(asName[u - 1]);
    asArgument.push_back(asName[0]);  // twice
    const RUN run = CONFIG_CLIENT(asArgument);
    EXPECT_SUMMARY(run, 60, 0);
    EXPECT_EQ(run.sErr, "vk_config_client: no such client: missing\n");
    TEXTS asReport;
    for (const std::string& sLine : asLINES(run.sOut))
        if (sLine.starts_with("Client: ")) asReport.push_back(sLine.substr(8, asName[0].size()));
    ASSERT_EQ(asReport.size(), asName.size());
    for (size_t u = 0; u < asName.size(); u++)
        EXPECT_THAT(asName[u] + " ", StartsWith(asReport[u].substr(0, asReport[u].find(' '))));
    int iParts = 0;
    for (const std::string& sStatement : STATEMENTS()) {
        iParts += sStatement.starts_with("select * from clients where name in ('");
        EXPECT_LT(sStatement.size(), 2150U);
    }
    EXPECT_EQ(iParts, 4);  // two, selected twice
}

TEST_F(MANY, an_update_that_cannot_go_on_as_it_was_asked_for_touches_nobody)
{
    ADD_CLIENTS({"a", "b"}, "VIRTUAL");
    const RUN mistyped = CONFIG_CLIENT(
        {"-S", "-e", "1", "-P", "velka_sp-1_1_5.1.0-3.deb", "a", "b"}, {{"gv_update_pilots", "1"}});
    EXPECT_SUMMARY(mistyped, 0, 2);
    EXPECT_THAT(asLINES(mistyped.sErr),
                ElementsAre("vk_config_client: environment: unknown variable gv_update_pilots; "
                            "did you mean \"gv_update_pilot\"?",
                            "vk_config_client: 2 clients: option -e is not used by this run"));
    EXPECT_EQ(
        COLUMN("a", "msg"),
        "Error from alive test: access mode \"VIRTUAL\" means that there is no remote access");
    const TEXTS       asRows = ROWS("select * from clients order by name");
    const TEXTS       asUpdate{"-U", "-P", "velka-cli_5.2.0-4_amd64.deb", "-c", "a", "a", "b"};
    const std::string sNobody =
        " is not a number from 0 to 9999999; updates of several clients are refused\n";
    // clang-format off
    const struct { TEXTS asArgument; SETTINGS environment; std::string sTold; } aRow[] = {
        {{"-U", "-c", "a", "a", "b"}, {}, "no package is given; name one with -P\n"},
        {{"-S", "-c", "ALL_CLIENTS"}, {}, "no package is given; name one with -P\n"},
        {asUpdate, {{"gv_update_pilot", "two"}}, "environment: gv_update_pilot = \"two\"" + sNobody},
        {asUpdate, {{"gv_update_stop_after", "-1"}},
         "environment: gv_update_stop_after = \"-1\"" + sNobody},
        {asUpdate, {}, "[variables] gv_update_pilot = \"1x\"" + sNobody},
    };
    // clang-format on
    for (const auto& row : aRow) {
        SCOPED_TRACE(row.sTold);
        if (row.sTold[0] == '[') INI("variables", "gv_update_pilot", "1x");
        const RUN run = CONFIG_CLIENT(row.asArgument, row.environment);
        EXPECT_ENDED(run, 2, sE006);
        EXPECT_THAT(run.sErr, EndsWith(row.sTold));
        EXPECT_EQ(asLINES(run.sErr).size(), 1U);
        EXPECT_THAT(OUTCOMES().back(), Not(HasSubstr("\"client\":")));  // whomever -c names
    }
    EXPECT_THAT(STATEMENTS(), Contains(StartsWith("select * from clients where name in")).Times(1));
    EXPECT_EQ(ROWS("select * from clients order by name"), asRows);
}

TEST_F(MANY, side_by_side_gives_the_same_rows_report_and_summary)
{
    for (const char* cpName : {"alpha", "beta", "noversion", "nohost.invalid", "refused"})
        ADD_CLIENT(cpName);
    ADD_CLIENTS({"v1", "v2", "v3"}, "VIRTUAL");
    SQL("update clients set exec='0' where client_id=0");
    SQL("create table note (pid integer)");
    SQL("create function note() returns trigger language plpgsql as "
        "$$begin insert into note values (pg_backend_pid()); return null; end$$");
    SQL("create trigger note after update on clients for each row execute function note()");
    TEXTS asFirst, asFirstRows;
    for (const char* cpParallel : {"1", "8"}) {
        SCOPED_TRACE(cpParallel);
        INI("general", "parallel", cpParallel);
        const RUN run = CHECK("ALL_CLIENTS");
        EXPECT_SUMMARY(run, 5, 3);
        EXPECT_EQ(run.sErr, "");
        EXPECT_LE(SQL("select count(distinct pid) from note"), cpParallel) << "connections";
        SQL("delete from note");
        TEXTS asLine = asLINES(run.sOut);
        ASSERT_EQ(asLine.size(), 17u);
        EXPECT_EQ(asLine[10], sREPORT("nohost.invalid", "Linux ",
                                      "E009-HOSTS   Could not resolve hostname [nohost.invalid]"));
        std::sort(asLine.begin(), asLine.begin() + 8);  // as the children ended
        const TEXTS asRows = ROWS(
            "select name,msg,comment,access_state,access_success is null,"
            "qtc_version,package from clients order by name");
        if (asFirst.empty()) asFirst = asLine, asFirstRows = asRows;
        EXPECT_EQ(asLine, asFirst);
        EXPECT_EQ(asRows, asFirstRows);
    }
    EXPECT_EQ(iCHILDREN_LEFT(2000), 0);
}

/* The lines, with times, process ids and random names put out of them. */
std::string sWITHOUT_CHANCE(const TEXTS& asLine)
{
    std::string sText;
    for (const std::string& sLine : asLine) sText += sLine + "\n";
    static const std::regex chance(
        "\\d{4}-\\d\\d-\\d\\d[T ][\\d:.+]+( \\d+ )?|\\d{14}_\\d+|\"pid\":\\d+|\"ms\":\\{[^}]*\\}|"
        " after \\d+ ms|/own/\\w+|/proc/\\d+/fd/\\d+|vk-[0-9a-f]{32}|vk-\\d+-\\w{6}");
    return std::regex_replace(sText, chance, "#");
}

TEST_F(MANY, a_forked_child_leaves_what_an_executed_one_does)
{
    ADD_CLIENTS({"alpha", "noversion", "nokey", "nohost.invalid", "refused", "tkc", "exit255"});
    ADD_CLIENT("v1", "VIRTUAL");
    ADD_CLIENT("v2", "NOMODE", "NoSystem", {{"password", "Secret-1"}, {"comment", "Secret-1"}});
    INI("general", "trace_level", "2");
    INI("general", "parallel", "1");  // the order of lines in shared files is compared, too
    CHECK("ALL_CLIENTS");             // the host keys are known from now on
    // Beside the second program lies another that its children run; the first is its own.
    fs::create_directory(sDIR() + "/own");
    for (const char* cpName : {"/own/vk_config_client", "/own/many"})
        fs::copy_file(VK_PROGRAM, sDIR() + cpName);
    SETTINGS seen;
    for (const char* cpProgram : {"/own/vk_config_client", "/own/many"}) {
        SQL("update clients set msg=null,comment=null,access_state=null,access_success=null");
        m_sProgram = sDIR() + cpProgram;
        for (const TEXTS& asTask :
             {TEXTS{"-C", "r"}, {"-C", "s"}, {"-U", "-P", "none.deb", "-v", "2"}}) {
            for (const char* cpFolder : {"lgc", "prot", "work/answ"})
                fs::remove_all(sRW() + cpFolder);
            const RUN run = CONFIG_CLIENT(asTask + TEXTS{"-c", "ALL_CLIENTS"});
            const std::map<std::string, TEXTS> left{
                {"output", asLINES(run.sOut)},
                {"error output", asLINES(run.sErr)},
                {"rows", ROWS("select name,msg,comment,access_state,qtc_version,package,"
                              "access_success is null from clients order by name")},
                {"outcomes", OUTCOMES()},
                {"day protocol", PROTOCOL()},
                {"info output", INFO()},
                {"traces", asLINES(TRACE_TEXT())}};
            for (const auto& [sWhat, asLine] : left) {
                std::string& sFirst = seen[asTask[0] + asTask[1] + " " + sWhat];
                const auto   sMasked = sWITHOUT_CHANCE(asLine);
                if (sFirst.empty()) sFirst = sMasked;
                EXPECT_NE(sMasked, "") << sWhat;
                const TEXTS asNow = asLINES(sMasked);
                const TEXTS asThen = asLINES(sFirst);
                const auto [itNow, itThen] =
                    std::mismatch(asNow.begin(), asNow.end(), asThen.begin(), asThen.end());
                EXPECT_EQ(itNow == asNow.end() ? "" : *itNow, itThen == asThen.end() ? "" : *itThen)
                    << asTask[0] << " " << asTask[1] << " " << sWhat;
            }
        }
    }
    EXPECT_EQ(iCHILDREN_LEFT(2000), 0);
}

TEST_F(MANY, a_child_that_is_killed_counts_as_failed)
{
    ADD_CLIENTS({"a"}, "VIRTUAL");
    STARTED_RUN       started = START_HELD("silent", "a");
    const std::string sPid = std::to_string(started.iPid);
    const std::string sChild = sREAD_FILE("/proc/" + sPid + "/task/" + sPid + "/children");
    ASSERT_GT(std::atoi(sChild.c_str()), 0);
    const std::string sShown =
        sREAD_FILE("/proc/" + std::to_string(std::atoi(sChild.c_str())) + "/cmdline");
    EXPECT_THAT(sShown, EndsWith(std::string("/vk_config_client\0-c\0silent\0-C\0r\0", 33)));
    kill(std::atoi(sChild.c_str()), SIGKILL);
    const RUN run = WAIT(started);
    EXPECT_THAT(run.sOut, AllOf(HasSubstr("\nClient: a "), HasSubstr("\nClient: silent ")));
    EXPECT_SUMMARY(run, 1, 1);
    EXPECT_EQ(iCHILDREN_LEFT(5000), 0);
    EXPECT_EQ(iCLIENT_PROCESSES("silent", 30000), 0);
}

TEST_F(MANY, Ctrl_C_ends_children_and_remote_commands_and_counts_those_done)
{
    for (const std::string sParallel : {"1", "8"}) {
        SCOPED_TRACE(sParallel);
        INI("general", "parallel", sParallel);
        ADD_CLIENTS({"a" + sParallel}, "VIRTUAL");
        STARTED_RUN started = START_HELD("silent" + sParallel, "a" + sParallel);
        ASSERT_TRUE(bWAIT_UNTIL(20000, [&] { return !sREAD_FILE(started.sOutFile).empty(); }));
        KILL_GROUP(started, SIGINT);
        const RUN run = WAIT(started, 20000);
        EXPECT_EQ(run.iSignal, SIGINT);
        EXPECT_THAT(run.sOut, EndsWith("STATUS=ERROR MSG=Checked 1 clients: 1 OK and 0 failed.\n"));
        EXPECT_THAT(run.sOut, Not(HasSubstr("Client: ")));
        EXPECT_THAT(run.sErr, EndsWith("1 of 2 clients done; to go on with the rest, type: "
                                       "vk_config_client -C r -- silent" +
                                       sParallel + "\n"));
        EXPECT_EQ(iCHILDREN_LEFT(2000), 0);
        EXPECT_EQ(iCLIENT_PROCESSES("silent" + sParallel, 10000), 0);
    }
}

TEST_F(MANY, hostile_names_go_through_as_names_and_run_nothing)
{
    // clang-format off
    const TEXTS asName{"a b  c", "o'brien", "$(touch made)", "`touch made`;touch made|", "-Cd",
                       "a\"b\\c%s", "-oProxyCommand=touch made", "../../made", "root@alpha"};
    // clang-format on
    ADD_CLIENT("dm1");
    TEXTS asArgument{"-C", "r", "--"};
    for (const std::string& sName : asName) {
        EXPECT_ENDED(CONFIG_CLIENT({"-c", sName, "-o", "NetWare", "-m", "VIRTUAL"}), 0,
                     "I012-HOSTS   Client " + sName + " added");
        asArgument.push_back(sName);
    }
    SQL("update clients set data_mover='dm1' where client_id>1");
    EXPECT_SUMMARY(CONFIG_CLIENT(asArgument), 9, 0);
    SWITCH("dm1", "qtc_smdr", {"backup=none"});
    for (const std::string& sName : asName) {
        EXPECT_EQ(COLUMN(sName, "access_state"), "0");
        EXPECT_EQ(CONFIG_CLIENT({"-c", sName, "-C", "s"}).iExit, 1);
        const std::string sServer = sName + ":" + sName + ".NetWare File System:" + sName;
        const std::string sFile = sName == "../../made" ? "_._.._made" : sName;
        EXPECT_THAT(CLIENT_LOG("dm1").back(), AllOf(HasSubstr("<" + sServer + ":::0>"),
                                                    HasSubstr("bck_test_" + sFile + ".tmp")));
    }
    // The same names as hosts of their own.
    SQL("update clients set os='Linux',data_mover=null where client_id>1");
    EXPECT_SUMMARY(CONFIG_CLIENT(asArgument), 0, 9);
    for (const std::string& sName : asName) {
        EXPECT_EQ(COLUMN(sName, "msg"), "E009-HOSTS   Could not resolve hostname [" + sName + "]");
        EXPECT_THAT(CONFIG_CLIENT({"-c", sName, "-C", "d"}).sOut,
                    HasSubstr("I008-HOSTS   User deleted client " + sName + " (id="));
    }
    EXPECT_EQ(CONFIG_CLIENT({"-C", "r", "-c", "al\xffpha"}).iExit, 2);
    EXPECT_THAT(ROWS("select name from clients order by 1"), ElementsAre("dm1", "velkasrv"));
    EXPECT_THAT(asFILES_NAMED(sDIR(), "made"), IsEmpty());
    EXPECT_FALSE(fs::exists("made"));
}

TEST_F(MANY, an_update_hands_its_options_to_every_client_and_prints_no_report)
{
    const std::string sPackage = "velka-cli_5.2.0-4_amd64.deb";
    PACKAGE(sPackage);
    ADD_CLIENT("winbox", "VKSSH", "Windows Server 2022");
    INI("general", "parallel", "3");
    for (const char* cpName : {"alpha", "beta"}) {  // each waits for the other
        ADD_CLIENT(cpName);
        const std::string sBegun = sDIR() + "/begun";
        SWITCH(cpName, "vk_execute_update",
               {"before=echo >>" + sBegun + "; until [ $(wc -l <" + sBegun +
                ") = 2 ]; do sleep 0.02; done"});
    }
    SQL("update clients set exec='0' where client_id=0");
    const RUN run = CONFIG_CLIENT(
        {"-U", "-P", sPackage, "-F", "-O", "x y", "-e", "1", "-v", "1", "-c", "ALL_CLIENTS"});
    EXPECT_SUMMARY(run, 3, 0);
    EXPECT_EQ(asLINES(run.sOut).size(), 4u);
    EXPECT_THAT(TRACE_TEXT(), HasSubstr("Call: vk_config_client -c alpha -U -P " + sPackage +
                                        " -F -O 'x y' -e 1\n"));
    const std::string sCommand = "vk_execute_update " + sPackage + " -f";
    EXPECT_THAT(CLIENT_LOG("beta"), Contains(sCommand));
    EXPECT_THAT(CLIENT_LOG("winbox"), Contains(sCommand + " -v 1 -o <x y>"));
    const std::string sChain = "vk_update_client sp_update -c ";
    EXPECT_THAT(CLIENT_LOG("velkasrv"),
                UnorderedElementsAre(sChain + "alpha", sChain + "beta", sChain + "winbox"));
}

}  // namespace
