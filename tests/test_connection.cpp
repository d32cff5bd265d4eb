/* A check of one client ("-C r"), one test for each way to reach a client. */
#include "sandbox_fixture.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

std::string sSTATUS(const std::string& sWord, const std::string& sMessage)
{
    return "STATUS=" + sWord + " MSG=\"" + sMessage + "\"\n";
}

TEST_F(SANDBOX, check_of_a_Linux_client_stores_its_report_and_says_I005)
{
    ADD_CLIENT("alpha");
    const RUN         run = CONFIG_CLIENT({"-c", "alpha", "-C", "r"});
    const std::string sI005 =
        "I005-HOSTS   QIR velka client is already installed on alpha, "
        "access is valid";
    EXPECT_EQ(run.iExit, 0);
    EXPECT_EQ(run.sOut, sSTATUS("SUCCESS", sI005));
    EXPECT_EQ(run.sErr, "");
    EXPECT_THAT(CLIENT_LOG("alpha"), ElementsAre("qtc -h"));
    EXPECT_THAT(ROWS("select msg,comment,access_state,access_success=access_time,qtc_version,"
                     "velka_version,package,hw_platform,update_date,servicepack_number,os "
                     "from clients where name='alpha'"),
                ElementsAre(sI005 + "|" + sI005 +
                            "|0|t|5.1.0.7|5.1.0-3|velka-cli_5.1.0-3_amd64.deb|x86_64|"
                            "2025-03-01 08:15:00|0|Linux"));
    EXPECT_THAT(PROTOCOL(),
                testing::Contains("I009-HOSTS   Testing QTC-connection to client alpha."));
    EXPECT_EQ(iCHILDREN_LEFT(), 0);
    EXPECT_EQ(iCLIENT_PROCESSES("alpha", 2000), 0);
}

TEST_F(SANDBOX, check_of_a_Windows_client_goes_through_its_command_interpreter)
{
    ADD_CLIENT("winbox", "VKSSH", "Windows Server 2022");
    SWITCH("winbox", "qtc", {"os=Windows Server 2022", "velka_version="});
    const RUN run = CONFIG_CLIENT({"-c", "winbox", "-C", "r"});
    EXPECT_EQ(run.iExit, 0);
    EXPECT_THAT(CLIENT_LOG("winbox"),
                ElementsAre("qtc -h",
                            "vk_client -r -f usefile -n gv_rw_ini:vk.ini -m f -s "
                            "<version=^> -v 1"));
    EXPECT_EQ(COLUMN("winbox", "velka_version"), "5.1.0-3");
    EXPECT_EQ(COLUMN("winbox", "os"), "Windows Server 2022");
}

TEST_F(SANDBOX, check_of_a_proxy_client_runs_on_its_data_mover_and_stores_no_report)
{
    ADD_CLIENT("dm1");
    ADD_CLIENT("px1", "PROXY", "Linux", {{"data_mover", "dm1"}});
    const RUN run = CONFIG_CLIENT({"-c", "px1", "-C", "r"});
    EXPECT_EQ(run.sOut, sSTATUS("SUCCESS", "I014-HOSTS   Client px1 reachable over proxy"));
    EXPECT_THAT(CLIENT_LOG("dm1"), ElementsAre("qtc -h"));
    EXPECT_THAT(CLIENT_LOG("px1"), ElementsAre());
    EXPECT_EQ(COLUMN("px1", "qtc_version"), "NULL");
}

TEST_F(SANDBOX, check_of_an_unknown_host_says_E009_and_stores_it)
{
    ADD_CLIENT("nohost.invalid");
    const RUN         run = CONFIG_CLIENT({"-c", "nohost.invalid", "-C", "r"});
    const std::string sE009 = "E009-HOSTS   Could not resolve hostname [nohost.invalid]";
    EXPECT_EQ(run.iExit, 1);
    EXPECT_EQ(run.sOut, sSTATUS("ERROR", sE009));
    EXPECT_EQ(COLUMN("nohost.invalid", "msg"), sE009);
    EXPECT_EQ(COLUMN("nohost.invalid", "access_state"), "1");
    EXPECT_THAT(PROTOCOL(), testing::Contains(StartsWith("E003-HOSTS   Error message: ")));
    EXPECT_EQ(iCHILDREN_LEFT(), 0);
}

}  // namespace
