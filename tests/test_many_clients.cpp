/* Checks and updates of several clients by one run. */
#include <algorithm>
#include <filesystem>

#include "sandbox_fixture.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAreArray;

namespace {

namespace fs = std::filesystem;

std::string sI015(const std::string& sName)
{
    return "I015-HOSTS   Client " + sName +
           " configured with access mode 'VIRTUAL'. Remote access not possible.";
}

std::string sREPORT(const std::string& sName, const std::string& sSystem,
                    const std::string& sMessage)
{
    return "Client: " + sName + std::string(sName.size() < 64 ? 64 - sName.size() : 0, ' ') + " " +
           sSystem + "  Message: " + sMessage;
}

std::string sSUMMARY(int iClients, int iOk, int iFailed)
{
    return std::string{"STATUS="} + (iFailed ? "ERROR" : "SUCCESS") + " MSG=Checked " +
           std::to_string(iClients) + " clients: " + std::to_string(iOk) + " OK and " +
           std::to_string(iFailed) + " failed.";
}

class MANY : public SANDBOX {
protected:
    void VIRTUAL_CLIENTS(const TEXTS& asName)
    {
        for (const std::string& sName : asName) ADD_CLIENT(sName, "VIRTUAL");
    }
    /* Names in the report, in order. */
    TEXTS REPORTED(const RUN& run)
    {
        TEXTS asName;
        for (const std::string& sLine : asLINES(run.sOut))
            if (sLine.starts_with("Client: "))
                asName.push_back(sLine.substr(8, sLine.find(' ', 8) - 8));
        return asName;
    }
    /* The child that a run has started. */
    pid_t iCHILD_OF(const STARTED_RUN& run)
    {
        const std::string sPid = std::to_string(run.iPid);
        return std::atoi(sREAD_FILE("/proc/" + sPid + "/task/" + sPid + "/children").c_str());
    }
    bool bAT_WORK(const std::string& sClient)
    {
        return bWAIT_UNTIL(20000, [&] { return !CLIENT_LOG(sClient).empty(); });
    }
};

TEST_F(MANY, a_list_is_checked_in_order_of_name_without_those_switched_off)
{
    VIRTUAL_CLIENTS({"c", "a", "off", "b", "unasked"});
    SQL("update clients set exec='0' where name='off'");
    SQL("update clients set hw_platform='vm' where name='b'");
    const RUN run = CONFIG_CLIENT({"-C", "r", "c", "off", "a", "b", "missing"});
    EXPECT_EQ(run.iExit, 0);
    EXPECT_EQ(run.sErr, "");
    TEXTS asExpected;
    for (const char* cpName : {"a", "b", "c"})
        asExpected.push_back("STATUS=SUCCESS MSG=\"" + sI015(cpName) + "\"");
    asExpected.push_back(sREPORT("a", "Linux ", sI015("a")));
    asExpected.push_back(sREPORT("b", "Linux vm", sI015("b")));
    asExpected.push_back(sREPORT("c", "Linux ", sI015("c")));
    asExpected.push_back(sSUMMARY(3, 3, 0));
    EXPECT_EQ(asLINES(run.sOut), asExpected);
    EXPECT_THAT(STATEMENTS(), Contains("select * from clients where name in "
                                       "('c','off','a','b','missing') and (exec='1') order by name")
                                  .Times(2));
    EXPECT_EQ(COLUMN("off", "access_state"), "NULL");
    EXPECT_EQ(COLUMN("unasked", "access_state"), "NULL");
}

TEST_F(MANY, location_and_system_choose_among_all_clients)
{
    VIRTUAL_CLIENTS({"lin0", "lin2", "win0", "win2", "wild"});
    SQL("update clients set os='Windows 11' where name like 'win_'");
    SQL("update clients set os='W_ndows' where name='wild'");
    SQL("update clients set location='2' where name like '%2'");
    SQL("update clients set exec='0' where client_id=0");
    SQL("insert into oper_systems values ('W_ndows','WNT')");
    const TEXTS asAll{"lin0", "lin2", "wild", "win0", "win2"};
    const struct {
        TEXTS       asOption;
        const char* cpWhere;
        TEXTS       asName;
    } aRow[] = {
        {{}, "", asAll},
        {{"-l", "2"}, "location='2' and ", {"lin2", "win2"}},
        {{"-l", "NULL", "-o", "NULL"}, "", asAll},
        {{"-l", "2", "-o", "Win"}, "os like 'Win%' and ", {"win0", "win2"}},
        {{"-o", "W_n"}, "os like 'W\\_n%' and ", {"wild"}},
        {{"lin0", "win0"}, "name in ('lin0','win0') and ", {"lin0", "win0"}},
        {{"-l", "2", "lin0"}, "location='2' and ", {"lin2", "win2"}},
        {{"-c", "lin2", "-o", "Win", "lin0"}, "name in ('lin0') and ", {"lin0"}},
        {{"-o", "None"}, "os like 'None%' and ", {}},
    };
    for (const auto& row : aRow) {
        SCOPED_TRACE(testing::PrintToString(row.asOption));
        TEXTS asArgument{"-C", "r", "-c", "ALL_CLIENTS"};
        asArgument.insert(asArgument.end(), row.asOption.begin(), row.asOption.end());
        const RUN run = CONFIG_CLIENT(asArgument);
        EXPECT_EQ(run.iExit, 0);
        EXPECT_EQ(REPORTED(run), row.asName);
        const int iClients = static_cast<int>(row.asName.size());
        EXPECT_EQ(asLINES(run.sOut).back(), sSUMMARY(iClients, iClients, 0));
        EXPECT_THAT(STATEMENTS(), Contains("select * from clients where " +
                                           std::string{row.cpWhere} + "(exec='1') order by name"));
    }
}

TEST_F(MANY, side_by_side_gives_the_same_rows_report_and_summary)
{
    for (const char* cpName : {"alpha", "beta", "noversion", "nohost.invalid", "refused"})
        ADD_CLIENT(cpName);
    VIRTUAL_CLIENTS({"v1", "v2", "v3"});
    SQL("update clients set exec='0' where client_id=0");
    TEXTS asFirst, asFirstRows;
    for (const char* cpParallel : {"1", "8"}) {
        SCOPED_TRACE(cpParallel);
        INI("general", "parallel", cpParallel);
        const RUN run = CONFIG_CLIENT({"-c", "ALL_CLIENTS", "-C", "r"});
        EXPECT_EQ(run.iExit, 2);
        EXPECT_EQ(run.sErr, "");
        TEXTS asLine = asLINES(run.sOut);
        ASSERT_EQ(asLine.size(), 17u);
        EXPECT_EQ(asLine.back(), sSUMMARY(8, 5, 3));
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

TEST_F(MANY, a_child_that_is_killed_or_cannot_start_counts_as_failed)
{
    ADD_CLIENT("silent");
    VIRTUAL_CLIENTS({"a", "z"});
    STARTED_RUN started = START({"-C", "r", "a", "silent", "z"});
    ASSERT_TRUE(bAT_WORK("silent"));
    const pid_t iChild = iCHILD_OF(started);
    ASSERT_GT(iChild, 0);
    kill(iChild, SIGKILL);
    const RUN run = WAIT(started);
    EXPECT_EQ(run.iExit, 2);
    EXPECT_THAT(REPORTED(run), ElementsAre("a", "silent", "z"));
    EXPECT_EQ(asLINES(run.sOut).back(), sSUMMARY(3, 2, 1));
    EXPECT_EQ(iCHILDREN_LEFT(5000), 0);
    EXPECT_EQ(iCLIENT_PROCESSES("silent", 30000), 0);

    // No child can be found: the tool runs under another name.
    const std::string sOther = sDIR() + "/other";
    fs::copy_file(VK_PROGRAM, sOther);
    STARTED_RUN other = START_PROGRAM({sOther, "-C", "r", "a", "z"}, {{"PATH", "/usr/bin:/bin"}});
    const RUN   none = WAIT(other);
    EXPECT_EQ(none.iExit, 2);
    EXPECT_EQ(asLINES(none.sOut).back(), sSUMMARY(2, 0, 2));
    EXPECT_THAT(none.sErr, HasSubstr("vk_config_client"));
}

TEST_F(MANY, Ctrl_C_ends_children_and_remote_commands_and_counts_those_done)
{
    for (const char* cpParallel : {"1", "8"}) {
        SCOPED_TRACE(cpParallel);
        const std::string sSilent = "silent" + std::string{cpParallel};
        const std::string sDone = "a" + std::string{cpParallel};
        INI("general", "parallel", cpParallel);
        ADD_CLIENT(sSilent);
        VIRTUAL_CLIENTS({sDone});
        STARTED_RUN started = START({"-C", "r", sSilent, sDone});
        ASSERT_TRUE(bAT_WORK(sSilent));
        ASSERT_TRUE(bWAIT_UNTIL(20000, [&] { return !sREAD_FILE(started.sOutFile).empty(); }));
        KILL_GROUP(started, SIGINT);
        const RUN run = WAIT(started, 20000);
        EXPECT_EQ(run.iSignal, SIGINT);
        EXPECT_EQ(asLINES(run.sOut).back(),
                  "STATUS=ERROR MSG=Checked 1 clients: 1 OK and 0 failed.");
        EXPECT_THAT(REPORTED(run), IsEmpty());
        EXPECT_EQ(iCHILDREN_LEFT(2000), 0);
        EXPECT_EQ(iCLIENT_PROCESSES(sSilent, 10000), 0);
    }
}

TEST_F(MANY, a_list_that_does_not_fit_ends_with_E004_and_checks_nobody)
{
    VIRTUAL_CLIENTS({"zz"});
    TEXTS asArgument{"-C", "r", "zz"};  // "where name in ('zz'," and ") and " take 25
    for (int i = 0; i < 7; i++) asArgument.push_back(std::string(255, static_cast<char>('a' + i)));
    asArgument.push_back(std::string(2047 - 25 - 7 * 258 - 3, 'x'));
    const RUN fits = CONFIG_CLIENT(asArgument);
    EXPECT_EQ(fits.iExit, 0);
    EXPECT_EQ(asLINES(fits.sOut).back(), sSUMMARY(1, 1, 0));

    SQL("update clients set access_state=null");
    asArgument.back() += "x";
    const RUN run = CONFIG_CLIENT(asArgument);
    EXPECT_EQ(run.iExit, 1);
    EXPECT_EQ(run.sOut,
              "STATUS=ERROR MSG=\"E004-HOSTS   Error during access to database  (list of "
              "clients longer than 2047 characters)\"\n");
    EXPECT_EQ(COLUMN("zz", "access_state"), "NULL");
    int iSelections = 0;
    for (const std::string& s : STATEMENTS())
        if (s.starts_with("select * from clients where name in")) iSelections++;
    EXPECT_EQ(iSelections, 2);  // of the run that fitted
}

TEST_F(MANY, a_lost_database_ends_with_E004)
{
    ADD_CLIENT("silent");
    STARTED_RUN started = START({"-C", "r", "silent"});
    ASSERT_TRUE(bAT_WORK("silent"));
    DATABASE_GONE();
    kill(iCHILD_OF(started), SIGTERM);
    const RUN run = WAIT(started);
    EXPECT_EQ(run.iExit, 1);
    EXPECT_THAT(
        asLINES(run.sOut).back(),
        testing::StartsWith("STATUS=ERROR MSG=\"E004-HOSTS   Error during access to database  ("));
    EXPECT_EQ(iCLIENT_PROCESSES("silent", 30000), 0);
}

TEST_F(MANY, hostile_names_go_through_as_names_and_run_nothing)
{
    const TEXTS asName{"a b  c", "o'brien",  "$(touch made)", "`touch made`;touch made|",
                       "-Cd",    "a\"b\\c%s"};
    ADD_CLIENT("dm1");
    TEXTS asArgument{"-C", "r", "--"};
    for (const std::string& sName : asName) {
        SCOPED_TRACE(sName);
        const RUN run = CONFIG_CLIENT({"-c", sName, "-o", "NetWare", "-m", "VIRTUAL"});
        EXPECT_EQ(run.sOut, "STATUS=SUCCESS MSG=\"I012-HOSTS   Client " + sName + " added\"\n");
        asArgument.push_back(sName);
    }
    SQL("update clients set data_mover='dm1' where client_id>1");
    const RUN run = CONFIG_CLIENT(asArgument);
    EXPECT_EQ(asLINES(run.sOut).back(), sSUMMARY(6, 6, 0));
    for (const std::string& sName : asName) {
        EXPECT_EQ(COLUMN(sName, "access_state"), "0");
        SWITCH("dm1", "qtc_smdr", {"backup=none"});
        EXPECT_EQ(CONFIG_CLIENT({"-c", sName, "-C", "s"}).iExit, 1);
        EXPECT_THAT(CLIENT_LOG("dm1").back(), HasSubstr("<" + sName + ":" + sName +
                                                        ".NetWare File System:" + sName + ":::0>"));
        EXPECT_THAT(CLIENT_LOG("dm1").back(), HasSubstr("bck_test_" + sName + ".tmp"));
    }
    // The same names as hosts of their own.
    SQL("update clients set os='Linux',data_mover=null where client_id>1");
    const RUN refused = CONFIG_CLIENT(asArgument);
    EXPECT_EQ(refused.iExit, 2);
    EXPECT_EQ(asLINES(refused.sOut).back(), sSUMMARY(6, 0, 6));
    for (const std::string& sName : asName) {
        const RUN gone = CONFIG_CLIENT({"-c", sName, "-C", "d"});
        EXPECT_THAT(gone.sOut, HasSubstr("I008-HOSTS   User deleted client " + sName + " (id="));
    }
    EXPECT_THAT(ROWS("select name from clients order by 1"), ElementsAre("dm1", "velkasrv"));
    for (const auto& entry : fs::recursive_directory_iterator{sDIR()})
        EXPECT_NE(entry.path().filename(), "made") << entry.path();
    EXPECT_FALSE(fs::exists("made"));
}

TEST_F(MANY, an_update_hands_its_options_to_every_client_and_prints_no_report)
{
    const std::string sPackage = "velka-cli_5.2.0-4_amd64.deb";
    WRITE_FILE(sRW() + "work/packages/" + sPackage, "package");
    for (const char* cpName : {"alpha", "beta"}) ADD_CLIENT(cpName);
    ADD_CLIENT("winbox", "VKSSH", "Windows Server 2022");
    SQL("update clients set exec='0' where client_id=0");
    const RUN run = CONFIG_CLIENT(
        {"-U", "-P", sPackage, "-F", "-O", "x y", "-e", "1", "-v", "1", "-c", "ALL_CLIENTS"});
    EXPECT_EQ(run.iExit, 0);
    EXPECT_EQ(asLINES(run.sOut).size(), 4u);
    EXPECT_EQ(asLINES(run.sOut).back(), sSUMMARY(3, 3, 0));
    EXPECT_THAT(TRACE_TEXT(), HasSubstr("Call: vk_config_client -c alpha -U -P " + sPackage +
                                        " -F -O 'x y' -e 1\n"));
    EXPECT_THAT(CLIENT_LOG("beta"), Contains("vk_execute_update " + sPackage + " -f"));
    EXPECT_THAT(CLIENT_LOG("winbox"),
                Contains("vk_execute_update " + sPackage + " -f -v 1 -o <x y>"));
    EXPECT_THAT(CLIENT_LOG("velkasrv"), ElementsAre("vk_update_client sp_update -c alpha",
                                                    "vk_update_client sp_update -c beta",
                                                    "vk_update_client sp_update -c winbox"));

    const RUN pack = CONFIG_CLIENT({"-S", "-P", "none.deb", "-v", "1", "alpha", "beta"});
    EXPECT_EQ(pack.iExit, 2);
    EXPECT_EQ(asLINES(pack.sOut).back(), sSUMMARY(2, 0, 2));
    EXPECT_THAT(TRACE_TEXT(), HasSubstr("Call: vk_config_client -c beta -S -P none.deb\n"));

    // With a check the children check.
    const RUN check = CONFIG_CLIENT({"-U", "-C", "r", "-P", sPackage, "alpha"});
    EXPECT_THAT(REPORTED(check), ElementsAre("alpha"));
    EXPECT_EQ(CLIENT_LOG("alpha").back(), "qtc -h");
}

}  // namespace
