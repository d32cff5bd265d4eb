/* A check of one client ("-C r"): where its command runs, what it says and writes,
   and how a failure is told. */
#include <fcntl.h>
#include <sys/file.h>

#include "sandbox_fixture.h"

using namespace testing;

namespace {

TEST_F(SANDBOX, the_command_runs_where_mode_and_platform_say)
{
    struct ROW {
        const char *cpName, *cpMode, *cpOs, *cpMover;
        // Whose log gets which command (null: none runs), and the run message.
        const char *cpHost, *cpCommand, *cpMessage;
    };
    constexpr const char* cpNDMP =
        "qtc_ndmp -D -s dir -a auth=md5,server=nd1,user=backup,passwd=a+b";
    constexpr ROW asctRow[] = {
        {"virt1", "VIRTUAL", "Linux", "dm1", "dm1", nullptr,
         "I015-HOSTS   Client virt1 configured with access mode 'VIRTUAL'. Remote access not "
         "possible."},
        {"nw1", "VKSSH", "NetWare", "dm1", "dm1", "qtc_smdr -h", "I005"},
        {"nw2", "PROXY", "NetWare", "NULL", "velkasrv", "qtc_smdr -h", "I014"},
        // The mover is reached by its own mode: this one takes no other key.
        {"nw3", "SSH", "NetWare", "ctrl1", "ctrl1", "qtc_smdr -h", "I005"},
        {"nd1", "PROXY", "NDMP", "dm1", "dm1", cpNDMP, "I014"},
        {"px1", "PROXY", "Linux", "", "velkasrv", "qtc -h",
         "I014-HOSTS   Client px1 reachable over proxy"},
        {"px2", "PROXY", "Citrix XenServer", "dm1", "dm1", "qtc -h", "I014"},
        {"xen1", "SSH", "Citrix XenServer", "dm1", "xen1", "qtc -h", "I014"},
        {"ctrl1", "CTRL", "Linux", "dm1", "ctrl1", "qtc -h", "I005"},
        {"plain", "", "NDMP", "dm1", "plain", "qtc -h", "I005"},
        {"velka2", "HOUSE", "Linux", "dm1", "velka2", "qtc -h", "I005"},
    };
    INI("access HOUSE", "config", "gv_rw_ini:admin/config");
    ADD_CLIENT("dm1");
    for (const ROW& row : asctRow)
        ADD_CLIENT(row.cpName, row.cpMode, row.cpOs,
                   {{"data_mover", row.cpMover}, {"user_name", "backup"}, {"password", "a+b"}});
    for (const ROW& row : asctRow) {
        SCOPED_TRACE(row.cpName);
        const size_t uBefore = CLIENT_LOG(row.cpHost).size();
        const RUN    run = CHECK(row.cpName);
        EXPECT_EQ(run.iExit, 0);
        EXPECT_EQ(run.sErr, "");
        EXPECT_THAT(run.sOut, StartsWith(std::string("STATUS=SUCCESS MSG=\"") + row.cpMessage));
        TEXTS asNew = CLIENT_LOG(row.cpHost);
        asNew.erase(asNew.begin(), asNew.begin() + static_cast<long>(uBefore));
        EXPECT_EQ(asNew, row.cpCommand ? TEXTS{row.cpCommand} : TEXTS{});
        // A report is read only of a client that was asked itself.
        EXPECT_EQ(COLUMN(row.cpName, "qtc_version") != "NULL",
                  std::string_view(row.cpMessage) == "I005");
    }
    // Only a proxied client is asked for a directory first.
    EXPECT_THAT(sREAD_FILE(CLIENT_PATH("px1", "log/lines")), HasSubstr("ls -a /"));
    EXPECT_THAT(sREAD_FILE(CLIENT_PATH("dm1", "log/lines")), Not(HasSubstr("ls -a /")));
    EXPECT_EQ(iCHILDREN_LEFT(), 0);
}

TEST_F(SANDBOX, check_of_a_Linux_client_says_stores_sends_and_writes_this)
{
    const std::string sI005 =
        "I005-HOSTS   QIR velka client is already installed on alpha, access is valid";
    ADD_CLIENT("alpha");
    const RUN run = CONFIG_CLIENT({"-c", "alpha", "-C", "r", "-i", "a/b", "-s", ".me"});
    EXPECT_ENDED(run, 0, sI005);
    EXPECT_EQ(run.sErr, "");
    EXPECT_THAT(CLIENT_LOG("alpha"), ElementsAre("qtc -h"));
    EXPECT_THAT(ROWS("select msg,comment,access_state,access_success=access_time,qtc_version,"
                     "velka_version,package,hw_platform,update_date,servicepack_number,os "
                     "from clients where name='alpha'"),
                ElementsAre(sI005 + "|" + sI005 +
                            "|0|t|5.1.0.7|5.1.0-3|velka-cli_5.1.0-3_amd64.deb|x86_64|"
                            "2025-03-01 08:15:00|0|Linux"));
    EXPECT_EQ(iCLIENT_PROCESSES("alpha", 2000), 0);
    EXPECT_THAT(
        STATEMENTS(),
        ElementsAre("select name from clients where client_id=0",
                    "select accessmode,os,vm_server_type from clients where name='alpha'",
                    "select oper_systems.platform from oper_systems where oper_systems.os='Linux'",
                    StartsWith("select oper_systems.platform from clients,oper_systems where"),
                    StartsWith("select name,client_id,data_mover,accessmode,clients.os,platform"),
                    StartsWith("select client_id,accessmode,os_user,data_mover,platform,"),
                    "select update_date from clients where name='alpha'",
                    StartsWith("update clients set qtc_version="),
                    StartsWith("update clients set msg=")));
    const std::string sI001 =
        "I001-HOSTS   Configuration of client alpha on platform LINUX started.";
    const std::string sI004 =
        "I004-HOSTS   Mode: VKSSH   Address: via_nameserver  Distribution: Linux";
    const std::string sI009 = "I009-HOSTS   Testing QTC-connection to client alpha.";
    const std::string sI003 =
        "I003-HOSTS   Configuration of LINUX backup client alpha completed successfully.";
    EXPECT_THAT(PROTOCOL(),
                ElementsAre(sI001, sI004, sI009,
                            "I002-HOSTS   On the new client QTC-version 5.1.0.7 is installed.",
                            sI005, sI003));
    EXPECT_THAT(asLINES(sREAD_FILE(sRW() + "work/answ/a_b__me.inf")),
                ElementsAre("S " + sI001, "M " + sI004, "M " + sI009, "S " + sI003, "M " + sI005));
    EXPECT_EQ(TRACE_TEXT(), "");
}

TEST_F(SANDBOX, a_failure_is_classified_told_and_stored)
{
    struct ROW {
        const char *cpName, *cpMode;
        std::string sMessage;
        TEXTS       asAdvice = {};  // what the day protocol gets besides
    };
    const auto sE007 = [](const std::string& sName) {
        return "E007-HOSTS   There is still no QIR velka client software installed on computer " +
               sName + " - please do it now.";
    };
    const std::string sE002 = "E002-HOSTS   There is no access to computer ";
    const std::string sE010 =
        "E010-HOSTS   QIR velka client on refused not yet started - for what to do see Day "
        "Protocol.";
    // clang-format off
    const ROW asctRow[] = {
        {"nohost.invalid", "VKSSH", "E009-HOSTS   Could not resolve hostname [nohost.invalid]"},
        {"refused", "VKSSH", sE010,
         {sE010, "I006-HOSTS   At first please install QIR velka client-software on refused.",
          "I007-HOSTS   If already installed please start it there with ´vk_main start´."}},
        {"nokey", "SSH",
         "E011-HOSTS   Missing permit. Execute [vk_setup set_client velkasrv] on client nokey"},
        {"noversion", "VKSSH", sE007("noversion")},
        {"tkc", "VKSSH",
         "E020-HOSTS   Client tkc is currently not reachable: tkc-11: session with velkasrv broke "
         "off, tkd-1: no route to media server: tkd-1: no route to media server", {sE007("tkc")}},
        {"exit255", "VKSSH", sE002 + "exit255: No message found"},
        {"refusedpx", "PROXY", sE002 + "refusedpx: "},
        {"alpha", "ODD", sE002 + "alpha: access mode \"ODD\" is not configured; add a section "
                                 "[access ODD] to vk.ini"},
        // clang-format on
    };
    for (const ROW& row : asctRow) ADD_CLIENT(row.cpName, row.cpMode);
    for (const ROW& row : asctRow) {
        SCOPED_TRACE(row.cpName);
        const size_t uBefore = PROTOCOL().size() + 3;  // I001, I004, I009
        const RUN    run = CONFIG_CLIENT({"-c", row.cpName, "-C", "s"});
        EXPECT_ENDED(run, 1, row.sMessage);
        EXPECT_EQ(
            run.sErr,
            row.sMessage.ends_with("No message found")
                ? "vk_config_client: exit255: \"qtc -h\" ended with status 255 without output\n"
                : "");
        EXPECT_EQ(COLUMN(row.cpName, "concat_ws('|',msg,comment,access_state,access_success)"),
                  row.sMessage + "|" + row.sMessage + "|1");
        TEXTS asNew = PROTOCOL();
        asNew.erase(asNew.begin(), asNew.begin() + static_cast<long>(uBefore));
        // A command that failed leaves its error line first.
        if (!row.sMessage.starts_with("E007") && !row.sMessage.starts_with("E020")) {
            EXPECT_THAT(asNew.at(0), StartsWith("E003-HOSTS   Error message: "));
            asNew.erase(asNew.begin());
        }
        TEXTS asExpected = row.asAdvice;
        asExpected.push_back(row.sMessage);
        asExpected.push_back("E001-HOSTS   Configuration of LINUX backup client " +
                             std::string(row.cpName) + " completed with errors.");
        EXPECT_THAT(asNew, ElementsAreArray(asExpected));
    }
    EXPECT_EQ(iCHILDREN_LEFT(), 0);
}

TEST_F(SANDBOX, the_error_line_of_a_failed_command_is_the_telling_one)
{
    const std::string sE002 = "E002-HOSTS   There is no access to computer alpha: ";
    const std::string sE009 = "E009-HOSTS   Could not resolve hostname [alpha]";
    const std::string sE011 =
        "E011-HOSTS   Missing permit. Execute [vk_setup set_client velkasrv] on client alpha";
    const std::pair<std::string, std::string> asRow[] = {
        {"first\nlast line\n", sE002 + "last line"},
        {"ssh: no luck\nlast\n", sE002 + "ssh: no luck"},
        {"Host is unknown, Connection refused\n", sE009},
        {"tkc: Authoritative Answer Host not found\n", sE009},
        {"connection Refused", sE002 + "connection Refused"},
        {"a\nError: Authentication failed for x\nConnection refused\n", sE011},
        {"srv is not allowed to connect or security problem for user root\n", sE011},
        {std::string(600, 'y'), sE002 + std::string(511 - sE002.size(), 'y')},
    };
    ADD_CLIENT("alpha");
    SWITCH("alpha", "qtc", {"exit=7"});
    for (const auto& [sOutput, sMessage] : asRow) {
        SCOPED_TRACE(sOutput);
        OUTPUT("alpha", "qtc", sOutput);
        EXPECT_ENDED(CHECK("alpha"), 1, sMessage);
    }
    // The listing of a proxied client is not taken for the words of its data mover.
    OUTPUT("alpha", "qtc", "\n");
    ADD_CLIENT("px1", "PROXY", "Linux", {{"data_mover", "alpha"}});
    EXPECT_THAT(CONFIG_CLIENT({"-c", "px1", "-C", "r"}).sOut, HasSubstr("px1: No message found"));
}

TEST_F(SANDBOX, a_connection_that_breaks_as_it_is_made_is_made_once_more)
{
    ADD_CLIENT("alpha");
    const std::string sSsh = sDIR() + "/server/velka/bin/ssh", sCuts = sDIR() + "/cuts";
    WRITE_PROGRAM(sSsh, "read n <" + sCuts + "\ncase \"$n $*\" in 0*) ;; *' -E '*)\n" +
                            "echo $((n - 1)) >" + sCuts +
                            "\nwhile [ \"$1\" != -E ]; do shift; done\n"
                            "echo 'Failed to connect to new control master' >>\"$2\"\n"
                            "exit 255 ;; esac\nexec /usr/bin/ssh \"$@\"");
    for (const std::string sTimes : {"1", "2"}) {
        WRITE_FILE(sCuts, sTimes + "\n");
        CHECK("alpha");
        EXPECT_THAT(COLUMN("alpha", "msg"), HasSubstr(sTimes == "1" ? "I005-HOSTS" : "was lost"));
        EXPECT_EQ(sREAD_FILE(sCuts), "0\n");
    }
}

TEST_F(SANDBOX, a_client_with_the_other_kind_of_shell_is_asked_once_more_and_corrected)
{
    ADD_CLIENT("alpha", "VKSSH", "Windows Server 2022");
    ADD_CLIENT("winbox");
    SWITCH("winbox", "qtc", {"os=Windows Server 2022", "velka_version="});
    for (const std::string sName : {"alpha", "winbox"}) {
        SCOPED_TRACE(sName);
        EXPECT_EQ(CHECK(sName).iExit, 0);
        EXPECT_EQ(COLUMN(sName, "os"), sName == "alpha" ? "Linux" : "Windows Server 2022");
        EXPECT_EQ(CLIENT_LOG(sName).front(), "qtc -h");
        EXPECT_THAT(CLIENT_LOG(sName), Contains("qtc -h").Times(1));
        EXPECT_EQ(COLUMN(sName, "velka_version"), "5.1.0-3");
    }
    EXPECT_EQ(CLIENT_LOG("winbox").back(),
              "vk_client -r -f usefile -n gv_rw_ini:vk.ini -m f -s <version=^> -v 1");
}

TEST_F(SANDBOX, the_ssh_configuration_of_a_mode_decides_on_host_keys_and_gives_nothing_away)
{
    const std::string sConfig = sRW() + "ini/ssh/config", sKnown = sRW() + "ini/ssh/known_hosts";
    const std::string sOther = "alpha " + sREAD_FILE(sDIR() + "/keys/client.pub");
    const std::string sREFUSED =
        "E002-HOSTS   There is no access to computer alpha: Host key verification failed.";
    const std::string                sSTRICT = "StrictHostKeyChecking yes";
    const std::array<std::string, 3> aasRow[] = {
        {"", "", "I005"},
        {"", sOther, sREFUSED},
        {sSTRICT, "", sREFUSED},
        {"StrictHostKeyChecking no\nPermitLocalCommand yes\nLocalCommand touch " + sDIR() +
             "/GIVEN",
         "", "I005"},
    };
    ADD_CLIENT("alpha");
    std::string  sText = sREAD_FILE(sConfig);
    const size_t uLine = sText.find("    StrictHostKeyChecking accept-new\n");
    ASSERT_NE(uLine, std::string::npos);
    sText.erase(uLine, sText.find('\n', uLine) + 1 - uLine);
    for (const auto& [sSetting, sBefore, sMessage] : aasRow) {
        SCOPED_TRACE(sSetting);
        WRITE_FILE(sKnown, sBefore);
        WRITE_FILE(sConfig, sText + "Host *\n" + sSetting + "\n");
        CHECK("alpha");
        EXPECT_THAT(COLUMN("alpha", "msg"), StartsWith(sMessage));
        EXPECT_EQ(sREAD_FILE(sKnown).starts_with("alpha ssh-"), sSetting != sSTRICT);
    }
    EXPECT_FALSE(fs::exists(sDIR() + "/GIVEN"));
}

TEST_F(SANDBOX, private_folders_of_killed_runs_go_when_nobody_uses_them)
{
    const std::string sBase = sDIR() + "/vk-" + std::to_string(geteuid()) + "-";
    for (const char* cpName : {"LOCKED", "SOCKET", "YOUNG", "KILLED"})
        fs::create_directory(sBase + cpName);
    for (const char* cpName : {"LOCKED", "KILLED"}) WRITE_FILE(sBase + cpName + "/0.log", "");
    const FD fdLock(open((sBase + "LOCKED").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(flock(fdLock.iGet(), LOCK_EX), 0);
    FD fdSocket = fdLISTENER(sBase + "SOCKET/0");
    ADD_CLIENT("alpha");
    EXPECT_EQ(CHECK("alpha").iExit, 0);
    for (const char* cpName : {"LOCKED", "SOCKET", "YOUNG"})
        EXPECT_TRUE(fs::exists(sBase + cpName)) << cpName;
    EXPECT_FALSE(fs::exists(sBase + "KILLED"));
    fdSocket.Close();
    EXPECT_EQ(CHECK("alpha").iExit, 0);
    EXPECT_FALSE(fs::exists(sBase + "SOCKET"));
}

}  // namespace
