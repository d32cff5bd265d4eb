/* The test backup of a check "-C s": its command, what its output means, and the
   output file that runs share. */
#include <fcntl.h>
#include <sys/file.h>

#include "sandbox_fixture.h"

using namespace testing;

namespace {

const std::string sSTART = "qtc: test backup started\n";

class BACKUP : public SANDBOX {
protected:
    std::string sI005(const std::string& sName)
    {
        return "I005-HOSTS   QIR velka client is already installed on " + sName +
               ", access is valid";
    }
    void EXPECT_CHECK(const std::string& sClient, int iExit, const std::string& sMessage)
    {
        EXPECT_ENDED(CONFIG_CLIENT({"-c", sClient, "-C", "s", "-v", "3"}), iExit, sMessage);
    }
    std::string sOUTPUT_FILE(const std::string& sHost)
    {
        return sRW() + "work/rsh_" + sHost + ".tmp";
    }
};

TEST_F(BACKUP, the_command_follows_platform_and_version)
{
    const char* cpOld = "qtc -b -d . -s bck_test_alpha.tmp -S srv1 /etc/velka2000.ini";
    const char* cpRemote = "qtc -b -s NULL:64:32 -S http://_REMOTE_CLIENT_:11000 gv_rw_ini:vk.ini";
    const char* cpServer = "qtc -b -s NULL:64:32 -S srv1 gv_rw_ini:vk.ini";
    const char* cpWin4 = "qtc -b -s NULL:64:32 \"-S\" srv1 gv_ro_bin:qtc.exe";
    // clang-format off
    const struct { const char* cpClient; const char* cpVersion; const char* cpCommand; } aRow[] = {
        {"alpha", "1.9", cpOld}, {"alpha", "2.0", cpOld}, {"alpha", "3.6", cpOld},
        {"alpha", "4.4R7", cpRemote}, {"alpha", "4.4R8", cpRemote}, {"alpha", "4.5", cpRemote},
        {"alpha", "5.0", cpRemote}, {"alpha", "4.4R10", cpServer}, {"alpha", "4.3.1", cpServer},
        {"alpha", "4.10", cpServer}, {"alpha", "4.4", cpServer}, {"aix", "4.5", cpRemote},
        {"winbox", "2.4", "qtc -b -d . -s bck_test_winbox.tmp \"-S\" srv1 qtc.exe"},
        {"winbox", "3.1", "qtc -b -d . -s bck_test_winbox.tmp \"-S\" srv1 ./qtc.exe"},
        {"winbox", "1.9", cpWin4}, {"winbox", "4.4R7", cpWin4}, {"xen1", "4.5", "qtc -h"},
    };
    // clang-format on
    SQL("insert into interfaces values (0,'http://srv0:11000',0),(0,'a_srv',2),(0,'srv1',1)");
    SQL("drop index interfaces_client");  // which would put them in order by itself
    ADD_CLIENT("alpha");
    ADD_CLIENT("aix", "VKSSH", "AIX");
    ADD_CLIENT("xen1", "VKSSH", "Citrix XenServer");
    ADD_CLIENT("winbox", "VKSSH", "Windows Server 2022");
    for (const auto& row : aRow) {
        SCOPED_TRACE(row.cpClient + std::string{" "} + row.cpVersion);
        SWITCH(row.cpClient, "qtc", {"os=", "qtc_version=" + std::string{row.cpVersion}});
        EXPECT_CHECK(row.cpClient, 0, sI005(row.cpClient));
        EXPECT_THAT(asLINES(sREAD_FILE(CLIENT_PATH(row.cpClient, "log/lines"))).back(),
                    HasSubstr(row.cpCommand));
        EXPECT_FALSE(fs::exists(sOUTPUT_FILE(row.cpClient)));
    }
    EXPECT_THAT(PROTOCOL(),
                IsSupersetOf({"I010-HOSTS   Testing backup-connection from client alpha.",
                              "I003-HOSTS   Configuration of Windows backup client winbox "
                              "completed successfully."}));
}

TEST_F(BACKUP, a_NetWare_client_is_backed_up_by_its_data_mover_with_its_password)
{
    SQL("insert into interfaces values (0,'srv1',0)");
    ADD_CLIENT("dm1");
    ADD_CLIENT("nw1", "VKSSH", "NetWare",
               {{"data_mover", "dm1"}, {"user_name", "admin"}, {"password", "s3cr3t$x"}});
    EXPECT_CHECK("nw1", 0, sI005("nw1"));
    EXPECT_EQ(CLIENT_LOG("dm1").back(),
              "qtc_smdr -b -d . -s bck_test_nw1.tmp -S srv1 -N "
              "<nw1:nw1.NetWare File System:nw1:admin:s3cr3t$x:0> SYS:etc/hosts");
    EXPECT_THAT(TRACE_TEXT(), Not(HasSubstr("s3cr3t")));

    // No argument vector shows it, so the Windows interpreter reads its line, too.
    ADD_CLIENT("winbox", "VKSSH", "Windows Server 2022");
    SQL("update clients set data_mover='winbox' where name='nw1'");
    EXPECT_CHECK("nw1", 0, sI005("nw1"));
    EXPECT_EQ(CLIENT_LOG("winbox").back(), CLIENT_LOG("dm1").back());
    EXPECT_THAT(asLINES(sREAD_FILE(CLIENT_PATH("winbox", "log/lines"))).back(),
                AllOf(HasSubstr("s3cr3t"), EndsWith("& exit")));
    SQL("update clients set data_mover='dm1' where name='nw1'");

    SWITCH("dm1", "qtc_smdr", {"backup=none"});
    SQL("update clients set user_name='',os_user='root',os_password='rootpw' where name='nw1'");
    EXPECT_CHECK("nw1", 1, "E012-HOSTS   Backup from nw1 not possible.");
    EXPECT_THAT(CLIENT_LOG("dm1").back(),
                HasSubstr("<nw1:nw1.NetWare File System:nw1:root:rootpw:0>"));
    EXPECT_EQ(sREAD_FILE(sOUTPUT_FILE("dm1")), sSTART);
    EXPECT_FALSE(fs::exists(sOUTPUT_FILE("nw1")));

    // One that says for the first time that it is one; the server is its data mover.
    ADD_CLIENT("alpha");
    SWITCH("alpha", "qtc", {"os=NetWare"});
    EXPECT_CHECK("alpha", 0, sI005("alpha"));
    EXPECT_THAT(CLIENT_LOG("velkasrv").back(), StartsWith("qtc_smdr -b -d . -s bck_test_alpha"));
}

TEST_F(BACKUP, the_first_marker_in_the_output_decides_and_only_success_deletes_the_file)
{
    const std::string sOutput = sOUTPUT_FILE("alpha"), sI = sI005("alpha");
    const std::string sE012 = "E012-HOSTS   Backup from alpha not possible.";
    // clang-format off
    const struct {
        std::string sBackup, sMessage, sKept; /* of the output file, after its first line */
    } aRow[] = {
        {"3007", sI, ""}, {"2032", sI, ""}, {"both", sI, ""}, {"all", sI, ""}, {"none", sE012, ""},
        {"1009", "E013-HOSTS   Backup from alpha cannot return to velkasrv - please check ( ping, "
                 "DNS, local KTRD ).", "qtc-1009: server interface does not answer\n"},
        {"late", "E013-HOSTS   Backup from alpha cannot return to velkasrv - please check ( ping, "
                 "DNS, local KTRD ).", "Error: first try\nqtc-1009: server interface does not answer\n"},
        {"ERROR", "E002-HOSTS   There is no access to computer alpha: ERROR: media pool is empty",
         "ERROR:\tmedia pool is empty\n"},
        {"Error", "E011-HOSTS   Missing permit. Execute [vk_setup set_client velkasrv] on client "
                  "alpha", "Error: Authentication failed: user backup\n"},
        {"refused", "E010-HOSTS   QIR velka client on alpha not yet started - for what to do see "
                    "Day Protocol.", "ERROR: connect: Connection refused\n"},
        {"hang", sE012, "waiting"},
    };
    // clang-format on
    ADD_CLIENT("alpha");
    for (const auto& row : aRow) {
        SCOPED_TRACE(row.sBackup);
        const bool bFails = row.sMessage != sI;
        if (row.sBackup == "hang") INI("remote", "idle_timeout", "1");
        // The target, left over and as the client's backup makes it.
        const std::string sTarget = sRW() + "work/bck_test_alpha.tmp";
        WRITE_FILE(sTarget, "left over");
        WRITE_FILE(CLIENT_PATH("alpha", "state/qtc"),
                   "backup=" + row.sBackup + "\ncase $1 in -b) [ ! -e " + sTarget +
                       " ] || backup=none; : >" + sTarget + " ;; esac\n");
        WRITE_FILE(sOutput, "qtc-3007: of an earlier run\n");
        EXPECT_CHECK("alpha", bFails, row.sMessage);
        EXPECT_EQ(COLUMN("alpha", "msg"), row.sMessage);
        EXPECT_FALSE(fs::exists(sTarget));
        EXPECT_EQ(fs::exists(sOutput), bFails);
        EXPECT_EQ(sREAD_FILE(sOutput), bFails ? sSTART + row.sKept : "");
        EXPECT_EQ(iCHILDREN_LEFT(), 0);
        EXPECT_EQ(iCLIENT_PROCESSES("alpha", 5000), 0);
    }
    for (const char* cpLine :
         {"E003-HOSTS   Error message: ERROR: media pool is empty",
          "E003-HOSTS   Error message: ERROR: connect: Connection refused",
          "I006-HOSTS   At first please install QIR velka client-software on alpha.",
          "I007-HOSTS   If already installed please start it there with ´vk_main start´."})
        EXPECT_THAT(PROTOCOL(), Contains(cpLine));
}

TEST_F(BACKUP, runs_that_share_an_output_file_take_turns_and_none_judges_anothers_output)
{
    ADD_CLIENT("dm1");
    for (const char* cpName : {"nw1", "nw2"})
        ADD_CLIENT(cpName, "VKSSH", "NetWare", {{"data_mover", "dm1"}});
    WRITE_FILE(CLIENT_PATH("dm1", "state/qtc_smdr"),
               "case $* in *nw2*) backup=1009;; *-b*) sleep 0.1;; esac\n");
    std::vector<STARTED_RUN> runs;
    for (int i = 0; i < 8; i++) runs.push_back(START({"-c", i % 2 ? "nw2" : "nw1", "-C", "s"}));
    for (size_t u = 0; u < runs.size(); u++)
        EXPECT_THAT(WAIT(runs[u]).sOut, HasSubstr(u % 2 ? "E013-HOSTS" : sI005("nw1")));

    // Held by somebody for longer than a test backup may last.
    INI("remote", "total_timeout", "1");
    const std::string sLock = sRW() + "sema/rsh_dm1.tmp";
    const FD          fdLock(open(sLock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640));
    ASSERT_EQ(flock(fdLock.iGet(), LOCK_EX), 0);
    const RUN late = CONFIG_CLIENT({"-c", "nw1", "-C", "s"});
    EXPECT_THAT(late.sOut, HasSubstr("E012-HOSTS   Backup from nw1 not possible."));
    EXPECT_THAT(late.sErr, HasSubstr("rsh_dm1.tmp\" was in use by others for "));
    EXPECT_LT(late.iMilliseconds, 15000);
}

TEST_F(BACKUP, an_output_file_that_cannot_be_removed_is_not_judged)
{
    ADD_CLIENT("alpha");
    fs::create_directories(sOUTPUT_FILE("alpha") + "/qtc-3007:");
    const RUN run = CONFIG_CLIENT({"-c", "alpha", "-C", "s"});
    EXPECT_EQ(run.iExit, 1);
    EXPECT_THAT(run.sOut, HasSubstr("E012-HOSTS   Backup from alpha not possible."));
    EXPECT_THAT(run.sErr, HasSubstr("cannot remove \"" + sOUTPUT_FILE("alpha") + "\": "));
    EXPECT_THAT(CLIENT_LOG("alpha"), ElementsAre("qtc -h"));
}

}  // namespace
