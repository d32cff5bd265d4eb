/* Updates of clients, with a stand-in for the update script on the client. */
#include <sys/wait.h>

#include <filesystem>

#include "sandbox_fixture.h"

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

namespace fs = std::filesystem;

const std::string     sDEB = "velka-cli_5.2.0-4_amd64.deb";
const std::string     sSP = "velka_sp-201909171332_1_5.1.0-3.deb";
const std::string     sSP_EXE = "velka_sp_srv-201909171332_2665822_4.4.3.73_windows_x64.exe";
const std::string     sSCRIPT = "vk_execute_update";
constexpr const char* cpALREADY =
    "STATUS=SUCCESS MSG=\"Update already running. Semaphore update_client_alpha already exists. "
    "Nothing to be done.\"\n";

const std::string sUPDATED = "0|Update finished successfully|t|f|5000020000000004|2";
const std::string sE021 = "STATUS=ERROR MSG=\"E021-HOSTS   Update of client alpha failed: ";
const std::string sCOPY_FAILED = sE021 + "Copy of package file failed: ";

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
    std::string PACKAGE(const std::string& sName, std::string_view svBytes)
    {
        const std::string sPath = sRW() + "work/packages/" + sName;
        WRITE_FILE(sPath, svBytes);
        return sPath;
    }
    /* Before each update: the row as no update has left it. */
    void RESET(const std::string& sClient, const TEXTS& asScript = {})
    {
        SQL("update clients set update_state='x',update_message='before',update_date=null,"
            "servicepack_date=null,version_number=1,servicepack_number=2");
        WRITE_FILE(CLIENT_PATH(sClient, "log/commands"), "");
        SWITCH(sClient, sSCRIPT, asScript);
    }
    void EXPECT_ENDED(const RUN& run, int iExit, const std::string& sMessage)
    {
        EXPECT_EQ(run.iExit, iExit);
        EXPECT_EQ(run.sOut, std::string{"STATUS="} + (iExit ? "ERROR" : "SUCCESS") + " MSG=\"" +
                                sMessage + "\"\n");
    }
    /* State, message, whether update_date and servicepack_date are now, numbers. */
    std::string sSTATE(const std::string& sClient)
    {
        const auto sNow = [](const std::string& s) {
            return "coalesce(abs(extract(epoch from " + s + "-localtimestamp))<100,false)";
        };
        return ROWS("select update_state,update_message," + sNow("update_date") + "," +
                    sNow("servicepack_date") +
                    ",version_number,servicepack_number from clients "
                    "where name='" +
                    sClient + "'")
            .at(0);
    }
    RUN CLIENT_UPDATE(const std::string& sClient, const TEXTS& asMore = {"-U", "-P", sDEB})
    {
        TEXTS asArgument{"-c", sClient};
        asArgument.insert(asArgument.end(), asMore.begin(), asMore.end());
        return CONFIG_CLIENT(asArgument);
    }
    /* Files below the client's work directory but the keys. */
    TEXTS WORK_FILES(const std::string& sClient)
    {
        TEXTS asName;
        for (const auto& entry : fs::directory_iterator{CLIENT_PATH(sClient, "velka/work")})
            if (entry.path().extension() != ".key") asName.push_back(entry.path().filename());
        return asName;
    }
    bool bLOGGED(const std::string& sClient, const std::string& sCommand)
    {
        return bWAIT_UNTIL(20000, [&] {
            const TEXTS asLog = CLIENT_LOG(sClient);
            return !asLog.empty() && asLog.back().starts_with(sCommand);
        });
    }
    /* Starts an update and holds its package copy half way: the client's file
       server stands still. Gives that server's process. */
    pid_t HOLD_COPY(STARTED_RUN& run, const std::string& sClient)
    {
        fs::resize_file(PACKAGE("big-5.2.0-4.deb", ""), 256 << 20);
        run = START({"-c", sClient, "-U", "-P", "big-5.2.0-4.deb"});
        pid_t iServer = 0;
        EXPECT_TRUE(bWAIT_UNTIL(20000, [&] { return (iServer = iWRITER(sClient)) > 0; }));
        if (iServer > 0) kill(iServer, SIGSTOP);
        return iServer;
    }
    /* The process that has a growing file of the client's work directory open. */
    pid_t iWRITER(const std::string& sClient)
    {
        std::error_code error;
        for (const auto& file : fs::directory_iterator{CLIENT_PATH(sClient, "velka/work"), error}) {
            if (file.path().extension() == ".key" || fs::file_size(file, error) == 0) continue;
            for (const auto& entry : fs::directory_iterator{"/proc", error}) {
                const std::string sPid = entry.path().filename();
                if (sPid.find_first_not_of("0123456789") != std::string::npos) continue;
                std::error_code ignored;
                for (const auto& fd : fs::directory_iterator{entry.path() / "fd", ignored})
                    if (fs::read_symlink(fd, ignored) == fs::canonical(file, ignored))
                        return std::atoi(sPid.c_str());
            }
        }
        return 0;
    }
};

TEST_F(UPDATE, a_package_is_copied_run_cleaned_up_and_recorded_in_that_order)
{
    ADD_CLIENT("alpha");
    RESET("alpha");
    EXPECT_ENDED(CLIENT_UPDATE("alpha"), 0, sI013("alpha"));
    const std::string sClean = "vk_client -r -f usefile -n gv_rw_work:";
    EXPECT_THAT(CLIENT_LOG("alpha"),
                ElementsAre("qtc -h", sSCRIPT + " " + sDEB, sClean + sDEB + " -m d", "qtc -h"));
    EXPECT_EQ(sSTATE("alpha"), sUPDATED);
    EXPECT_THAT(STATEMENTS(),
                Contains("update clients set update_state='a',update_message='Update in progress "
                         "using package " +
                         sDEB + "' where name='alpha'"));
    for (const std::string& sFile :
         {"bin/" + sSCRIPT, std::string{"work/qir-gpg.key"}, std::string{"work/qir-gpg-2026.key"}})
        EXPECT_EQ(fs::status(CLIENT_PATH("alpha", "velka/" + sFile)).permissions(), fs::perms{0755})
            << sFile;
    EXPECT_THAT(WORK_FILES("alpha"), IsEmpty());

    // A package anywhere on the server; one of the same version is refused.
    const std::string sPath = sDIR() + "/velka-cli_5.2.0-5_amd64.deb";
    WRITE_FILE(sPath, "package");
    EXPECT_EQ(CLIENT_UPDATE("alpha", {"-U", "-P", sPath}).iExit, 0);
    EXPECT_EQ(CLIENT_LOG("alpha")[5], sSCRIPT + " " + sPath);
    EXPECT_ENDED(CLIENT_UPDATE("alpha", {"-U", "-P", sPath}), 1,
                 "Old and new Velka versions on client alpha are identical: 5000020000000005. "
                 "Do not run update.");

    // The server itself is not asked before.
    RESET("velkasrv");
    OUTPUT("velkasrv", sSCRIPT, "STATUS=SUCCESS\n");
    EXPECT_EQ(CLIENT_UPDATE("velkasrv").iExit, 0);
    EXPECT_THAT(CLIENT_LOG("velkasrv"),
                ElementsAre(sSCRIPT + " " + sDEB, sClean + sDEB + " -m d", "qtc -h"));
    EXPECT_EQ(iCHILDREN_LEFT(2000), 0);
}

TEST_F(UPDATE, the_command_follows_system_and_options)
{
    const struct {
        const char* cpClient;
        TEXTS       asOption;
        std::string sPackage;
        const char* cpMore;  // of the command, after the package
    } aRow[] = {
        {"alpha", {"-U", "-F", "-O", "abc"}, sDEB, " -f"},
        {"alpha", {"-S"}, sSP, ""},
        {"alpha", {"-S", "-F"}, sSP, " -f"},
        {"winbox", {"-U"}, sDEB, " -v 1"},
        {"winbox", {"-U", "-F", "-O", "abc"}, sDEB, " -f -v 1 -o \"abc\""},
        {"winbox", {"-U", "-O", "/x & y"}, sDEB, " -v 1 -o \"/x & y\""},
        {"winbox", {"-U", "-O", "force"}, sDEB, " -f -v 1"},
        {"winbox", {"-S"}, sSP_EXE, " -s -v 1"},
        {"winbox", {"-S", "-F", "-O", "abc"}, sSP_EXE, " -f -s -v 1"},
    };
    ADD_CLIENT("alpha");
    ADD_CLIENT("winbox", "VKSSH", "Windows Server 2022");
    for (const auto& row : aRow) {
        const std::string sClient = row.cpClient;
        SCOPED_TRACE(sClient + testing::PrintToString(row.asOption));
        const std::string sLines = CLIENT_PATH(sClient, "log/lines");
        WRITE_FILE(sLines, "");
        RESET(sClient);
        TEXTS asOption = row.asOption;
        asOption.insert(asOption.end(), {"-P", row.sPackage});
        const bool bWindows = sClient == "winbox", bPackage = asOption[0] == "-U";
        const RUN  run = CLIENT_UPDATE(sClient, asOption);
        if (bPackage)
            EXPECT_ENDED(run, 0, sI013(sClient));
        else
            EXPECT_ENDED(run, 0,
                         "I016-HOSTS   Servicepack successfully applied to Client " + sClient +
                             ": " + row.sPackage);
        EXPECT_EQ(
            sSTATE(sClient),
            bPackage ? sUPDATED : "0|Servicepack update finished successfully|f|t|1|201909171332");
        const std::string sCommand =
            sSCRIPT + (bWindows ? ".cmd " : " ") + row.sPackage + row.cpMore;
        TEXTS             asCommand{bWindows ? "& " + sCommand + " <NUL" : "'" + sCommand + "'"};
        const std::string sRemove = "vk_client -r -f usefile -n \"";
        if (bWindows)
            asCommand.insert(asCommand.end(), {sRemove + "gv_ro_bin:velka_update\" -m D <NUL",
                                               sRemove + "gv_rw_work:velka_update\" -m D <NUL"});
        asCommand.push_back(sRemove + "gv_rw_work:" + row.sPackage + "\" -m d");
        size_t uAt = 0;
        for (const std::string& sPart : asCommand)
            EXPECT_NE(uAt = sREAD_FILE(sLines).find(sPart, uAt), std::string::npos) << sPart;
    }
}

TEST_F(UPDATE, the_status_of_the_script_decides_message_exit_code_and_state)
{
    const std::string sUpdate = "-HOSTS   Update of client winbox ";
    const std::string sServicepack = "-HOSTS   Servicepack update of client winbox ";
    const std::string sRestart = "-HOSTS   A restart is required to complete the ";
    const std::string sCheck = "finished successfully, but access check failed: ";
    const std::string sW4 = "W004" + sRestart + "update of client winbox. ";
    const std::string sW5 = "W005" + sRestart + "servicepack update of client winbox. ";
    const std::string sE21 = "E021" + sUpdate + "failed: ";
    const std::string sE22 = "E022" + sServicepack + "failed: ";
    const struct {
        TEXTS       asScript;
        char        cKind;
        int         iExit;
        std::string sMessage;
    } aRow[] = {
        {{"exit=3010", "text=do it"}, 'U', 1, sW4 + "do it"},
        {{"exit=1641", "text=do it"}, 'S', 1, sW5 + "do it"},
        {{"exit=1644", "text=t"}, 'U', 1, sW4 + "t"},
        {{"exit=1645", "text=t"}, 'U', 1, sW4 + "t"},
        {{"exit=1652", "text=t"}, 'U', 1, sW4 + "t"},
        {{"exit=1653", "text=t"}, 'U', 1, sW4 + "t"},
        {{"exit=1654", "text=t"}, 'U', 1, sW4 + "t"},
        {{"exit=1603", "text=it's bad"}, 'U', 1, sE21 + "it's bad"},
        {{"exit=1603", "text=bad"}, 'S', 1, sE22 + "bad"},
        {{"exit=2", "text=bad", "status=WARNING"}, 'U', 2, sE21 + "bad"},
        {{"exit=9", "mode=fail", "text=last words"}, 'U', 9, sE21 + "last words"},
        {{"exit=10", "text=say \"no\" twice"}, 'U', 1, sE21 + "say \"no\" twice"},
        {{"exit=3010", "status=SUCCESS"}, 'U', 0, sI013("winbox")},
        {{"before=echo mode=fail > $base/state/qtc"},
         'U',
         1,
         "W006" + sUpdate + sCheck + "command failed"},
        {{"before=echo mode=noversion > $base/state/qtc"},
         'S',
         1,
         "W007" + sServicepack + sCheck + "No version in the report of qtc -h"},
    };
    ADD_CLIENT("winbox", "VKSSH", "Windows Server 2022");
    for (const auto& row : aRow) {
        SCOPED_TRACE(testing::PrintToString(row.asScript));
        RESET("winbox", row.asScript);
        SWITCH("winbox", "qtc", {});
        const bool bPackage = row.cKind == 'U';
        EXPECT_ENDED(
            CLIENT_UPDATE("winbox", {bPackage ? "-U" : "-S", "-P", bPackage ? sDEB : sSP_EXE}),
            row.iExit, row.sMessage);
        EXPECT_EQ(COLUMN("winbox", "msg"), row.sMessage);
        const std::string sState = row.sMessage[0] == 'W' ? "1|WARNING " : "2|ERROR ";
        const std::string sDates = bPackage ? "|t|f|1|2" : "|f|t|1|2";
        EXPECT_EQ(sSTATE("winbox"), row.iExit ? sState + row.sMessage + sDates : sUPDATED);
        // Asked again only after success.
        const bool bAgain = row.sMessage[0] == 'I' || row.sMessage[3] >= '6';
        EXPECT_THAT(CLIENT_LOG("winbox"), Contains("qtc -h").Times(bAgain ? 2 : 1));
        EXPECT_THAT(WORK_FILES("winbox"), IsEmpty());
    }
}

TEST_F(UPDATE, long_text_and_apostrophes_from_the_script_keep_the_statement_whole)
{
    ADD_CLIENT("alpha");
    ADD_CLIENT("other", "VIRTUAL");
    const std::string sE21 = "ERROR E021-HOSTS   Update of client alpha failed: ";
    for (const std::string& sText : {"it's " + std::string(100000, 'y'), std::string(5000, '\''),
                                     "x" + std::string(5000, '\'')}) {
        RESET("alpha", {"exit=3", "fills=100000", "text=" + sText});
        EXPECT_EQ(CLIENT_UPDATE("alpha").iExit, 3);
        const std::string sMessage = COLUMN("alpha", "update_message");
        EXPECT_EQ(sMessage.substr(0, sE21.size() + 900),
                  (sE21 + sText).substr(0, sE21.size() + 900));
        EXPECT_EQ(COLUMN("alpha", "update_state"), "2");
        EXPECT_THAT(COLUMN("alpha", "msg"), StartsWith("E021-HOSTS"));
        EXPECT_EQ(sSTATE("other"), "x|before|f|f|1|2");
    }
    for (const std::string& sStatement : STATEMENTS()) EXPECT_LT(sStatement.size(), 2048u);
}

TEST_F(UPDATE, what_may_not_be_updated_is_refused_before_anything_is_copied)
{
    const std::string sE006 = "E006-HOSTS   Missing parameters for configuration of a client.";
    const std::string sNone = "Could not determine Velka version from package name: ";
    const std::string sNew = "velka_cli-4.4.1-14.exe";
    const std::string sSame = "velka-cli_4.2.2-99_all.deb";
    const std::string sExe = "velka_cli-4.4.3.73_windows_x64.exe";
    struct ROW {
        std::string sOs;
        TEXTS       asOption;
        int         iExit;
        std::string sMessage;  // E021: passes, then the package is missing
    };
    std::vector<ROW> rows = {
        {"Linux", {"-U"}, 2, sE006},
        {"Linux", {"-S", "-F"}, 2, sE006},
        {"Linux", {"-U", "-P", sExe}, 2, sNone + sExe},
        {"Linux", {"-S", "-P", sSP_EXE}, 2, sNone + sSP_EXE},
        {"Linux", {"-U", "-P", "it's none"}, 2, sNone + "it's none"},
        {"Linux",
         {"-U", "-P", sSame},
         1,
         "Old and new Velka versions on client alpha are identical: 4000020000200099. Do not run "
         "update."},
        {"Linux", {"-U", "-F", "-P", sSame}, 2, "E021"},
        {"Linux", {"-S", "-P", "velka_sp-17_1_4.2.2-99.deb"}, 2, "E021"},
        {"Linux", {"-S", "-P", "velka_sp-17_1_4.9.2-99.deb"}, 2, "E021"},
        {"Windows 7", {"-U", "-F", "-P", "velka_cli-4.2.2-99.exe"}, 2, "E021"},
    };
    for (const char* cpOs : {"Windows Server 2012", "windows xp", "Windows XP "})
        rows.push_back({cpOs, {"-U", "-P", sNew}, 2, "E021"});
    for (const std::string sOs :
         {"Windows Server 2008", "Windows Server 2008 R2", "Windows 7", "Windows NT", "Windows XP",
          "Windows 2000", "Windows Server 2003", "Windows Server 2003 R2", "Storage Server 2003",
          "Home Server", "Windows Vista"})
        rows.push_back({sOs,
                        {"-U", "-F", "-P", sNew},
                        2,
                        "Update of " + sOs + " with QIR velka version 4.4.1.0 is not supported"});
    ADD_CLIENT("alpha");
    // Its interpreter is POSIX, whatever the system's name.
    SQL("insert into oper_systems values ('windows xp','LINUX'),('Windows XP ','LINUX')");
    SQL("update oper_systems set platform='LINUX'");
    const std::string sKey = CLIENT_PATH("alpha", "velka/work/qir-gpg.key");
    for (const ROW& row : rows) {
        SCOPED_TRACE(row.sOs + testing::PrintToString(row.asOption));
        RESET("alpha");
        SQL("update clients set version_number=4000020000200099,os='" + row.sOs +
            "' where name='alpha'");
        const RUN  run = CLIENT_UPDATE("alpha", row.asOption);
        const bool bPasses = row.sMessage == "E021";
        if (bPasses)
            EXPECT_THAT(run.sOut, StartsWith(sCOPY_FAILED));
        else
            EXPECT_ENDED(run, row.iExit, row.sMessage);
        EXPECT_EQ(run.iExit, row.iExit);
        EXPECT_THAT(CLIENT_LOG("alpha"), ElementsAre("qtc -h"));
        EXPECT_EQ(fs::remove(sKey), bPasses);
        EXPECT_EQ(sSTATE("alpha"), "x|before|f|f|4000020000200099|2");
    }
}

TEST_F(UPDATE, a_client_that_does_not_answer_or_cannot_be_read_is_not_updated)
{
    ADD_CLIENT("noversion");
    ADD_CLIENT("refused");
    RESET("noversion");
    EXPECT_ENDED(CLIENT_UPDATE("noversion"), 2,
                 "Error from alive test: No version in the report of qtc -h");
    const RUN run = CLIENT_UPDATE("refused");
    EXPECT_EQ(run.iExit, 2);
    EXPECT_THAT(run.sOut, AllOf(StartsWith("STATUS=ERROR MSG=\"Error from alive test: "),
                                HasSubstr("Connection refused")));
    EXPECT_EQ(sSTATE("noversion"), "x|before|f|f|1|2");

    // Whole rows cannot be read, single columns can.
    SQL("alter table clients rename to base");
    SQL("create view clients as select *,1/(client_id-client_id) as fails from base");
    EXPECT_ENDED(CLIENT_UPDATE("noversion"), 2, "Error in DB access");
    EXPECT_THAT(CLIENT_LOG("noversion"), ElementsAre("qtc -h"));
}

TEST_F(UPDATE, the_service_pack_follows_a_package_that_was_installed_or_warned)
{
    ADD_CLIENT("alpha");
    const std::string sChain = "vk_update_client sp_update -c alpha";
    const struct {
        TEXTS asScript, asOption;
        int   iExit;
        bool  bChained;
    } aRow[] = {
        {{}, {"-U", "-e", "1", "-P", sDEB}, 0, true},
        {{"exit=1"}, {"-U", "-e", "1", "-P", sDEB}, 1, true},
        {{"exit=2"}, {"-U", "-e", "1", "-P", sDEB}, 2, false},
        {{}, {"-U", "-e", "0", "-P", sDEB}, 0, false},
        {{}, {"-S", "-e", "1", "-P", sSP}, 0, false},
    };
    SWITCH("velkasrv", "vk_update_client", {"exit=7"});  // of no account
    for (const auto& row : aRow) {
        SCOPED_TRACE(testing::PrintToString(row.asOption) + std::to_string(row.iExit));
        RESET("alpha", row.asScript);
        WRITE_FILE(CLIENT_PATH("velkasrv", "log/commands"), "");
        EXPECT_EQ(CLIENT_UPDATE("alpha", row.asOption).iExit, row.iExit);
        EXPECT_EQ(CLIENT_LOG("velkasrv"), row.bChained ? TEXTS{sChain} : TEXTS{});
    }
}

TEST_F(UPDATE, of_twenty_at_one_moment_one_runs)
{
    ADD_CLIENT("alpha");
    const std::string sGo = CLIENT_PATH("alpha", "go");
    RESET("alpha", {"before=until [ -e " + sGo + " ]; do sleep 0.02; done"});
    std::vector<STARTED_RUN> runs;
    for (int i = 0; i < 20; i++) runs.push_back(START({"-c", "alpha", "-U", "-P", sDEB}));
    const auto iENDED = [&] {
        int iEnded = 0;
        for (const STARTED_RUN& run : runs) {
            siginfo_t sctInfo = {};
            waitid(P_PID, static_cast<id_t>(run.iPid), &sctInfo, WEXITED | WNOHANG | WNOWAIT);
            iEnded += sctInfo.si_pid != 0;
        }
        return iEnded;
    };
    EXPECT_TRUE(bWAIT_UNTIL(60000, [&] { return iENDED() >= 19; }));
    EXPECT_TRUE(bLOGGED("alpha", sSCRIPT));
    EXPECT_EQ(iENDED(), 19);
    WRITE_FILE(sGo, "");
    TEXTS asOut;
    for (STARTED_RUN& started : runs) {
        const RUN run = WAIT(started);
        EXPECT_EQ(run.iExit, 0);
        if (run.sOut != cpALREADY) asOut.push_back(run.sOut);
    }
    EXPECT_THAT(asOut, ElementsAre("STATUS=SUCCESS MSG=\"" + sI013("alpha") + "\"\n"));
    EXPECT_THAT(CLIENT_LOG("alpha"), Contains(StartsWith(sSCRIPT)).Times(1));
    EXPECT_EQ(sSTATE("alpha"), sUPDATED);
}

TEST_F(UPDATE, several_clients_are_updated_side_by_side)
{
    const std::string        sBegun = sDIR() + "/begun";
    std::vector<STARTED_RUN> runs;
    for (const char* cpName : {"c1", "c2", "c3", "c4"}) {
        ADD_CLIENT(cpName);
        SWITCH(cpName, sSCRIPT,
               {"before=echo >>" + sBegun + "; until [ $(wc -l <" + sBegun +
                ") = 4 ]; do sleep 0.02; done"});
    }
    for (const char* cpName : {"c1", "c2", "c3", "c4"})
        runs.push_back(START({"-c", cpName, "-U", "-P", sDEB}));
    for (STARTED_RUN& run : runs) EXPECT_EQ(WAIT(run).iExit, 0);
}

TEST_F(UPDATE, after_KILL_at_any_step_the_next_run_succeeds_at_once)
{
    ADD_CLIENT("alpha");
    for (const std::string sProgram : {"qtc", "vk_client", "vk_execute_update"}) {  // that hangs
        SCOPED_TRACE(sProgram);
        RESET("alpha");
        SWITCH("alpha", sProgram, {"mode=silent"});
        STARTED_RUN run = START({"-c", "alpha", "-U", "-P", sDEB});
        ASSERT_TRUE(bLOGGED("alpha", sProgram));
        EXPECT_EQ(CLIENT_UPDATE("alpha").sOut, cpALREADY);
        KILL(run, SIGKILL);
        EXPECT_EQ(WAIT(run).iSignal, SIGKILL);
        SWITCH("alpha", sProgram, {});
        EXPECT_EQ(CLIENT_UPDATE("alpha").iExit, 0);
        EXPECT_EQ(sSTATE("alpha"), sUPDATED);
        EXPECT_EQ(iCHILDREN_LEFT(5000), 0);
        // Of the client's programs only the update script is left to finish.
        EXPECT_TRUE(sProgram == sSCRIPT || iCLIENT_PROCESSES("alpha", 30000) == 0);
    }
    // In the middle of the copy.
    RESET("alpha");
    STARTED_RUN run;
    const pid_t iServer = HOLD_COPY(run, "alpha");
    KILL(run, SIGKILL);
    EXPECT_EQ(WAIT(run).iSignal, SIGKILL);
    EXPECT_EQ(iCHILDREN_LEFT(5000), 0);
    EXPECT_THAT(WORK_FILES("alpha"), Not(Contains("big-5.2.0-4.deb")));
    EXPECT_EQ(sSTATE("alpha"), "x|before|f|f|1|2");
    EXPECT_EQ(CLIENT_UPDATE("alpha").iExit, 0);
    kill(iServer, SIGCONT);
}

TEST_F(UPDATE, a_copy_that_breaks_or_finds_no_room_ends_with_E021_and_no_file)
{
    ADD_CLIENT("alpha");
    RESET("alpha");
    STARTED_RUN run;
    const pid_t iServer = HOLD_COPY(run, "alpha");
    STOP_CLIENT("alpha");
    const RUN broken = WAIT(run, 60000);
    EXPECT_EQ(broken.iExit, 2);
    EXPECT_THAT(broken.sOut, StartsWith(sCOPY_FAILED));
    EXPECT_THAT(WORK_FILES("alpha"), Not(Contains("big-5.2.0-4.deb")));
    kill(iServer, SIGKILL);

    // Its files may grow to 512 KiB, as on a full disk.
    const std::string sService = sDIR() + "/services/alpha/run";
    const std::string sText = sREAD_FILE(sService);
    WRITE_FILE(sService,
               "#!/bin/sh\ntrap '' XFSZ\nulimit -f 1024\n" + sText.substr(sText.find('\n') + 1));
    RESTART_CLIENT("alpha");
    for (const char* cpKind : {"-U", "-S"}) {
        PACKAGE(sSP, std::string(1 << 20, 'x'));
        PACKAGE(sDEB, std::string(1 << 20, 'x'));
        const RUN full = CLIENT_UPDATE("alpha", {cpKind, "-P", cpKind[1] == 'U' ? sDEB : sSP});
        EXPECT_EQ(full.iExit, 2);
        EXPECT_THAT(full.sOut, StartsWith(sCOPY_FAILED));
        EXPECT_THAT(full.sOut, Not(StartsWith(sCOPY_FAILED + "\"")));
        EXPECT_THAT(WORK_FILES("alpha"), Each(StartsWith("big")));
    }
    EXPECT_EQ(sSTATE("alpha"), "x|before|f|f|1|2");
    EXPECT_THAT(CLIENT_LOG("alpha"), Each("qtc -h"));
}

TEST_F(UPDATE, a_client_that_restarts_during_the_script_has_failed)
{
    ADD_CLIENT("alpha");
    RESET("alpha", {"before=kill -KILL $VK_SESSION_PID"});
    const RUN run = CLIENT_UPDATE("alpha");
    EXPECT_EQ(run.iExit, 1);
    EXPECT_LT(run.iMilliseconds, 30000);
    EXPECT_THAT(run.sOut,
                StartsWith("STATUS=ERROR MSG=\"E021-HOSTS   Update of client alpha failed: "));
    EXPECT_THAT(sSTATE("alpha"),
                AllOf(StartsWith("2|ERROR E021-HOSTS   "), testing::EndsWith("|t|f|1|2")));
    EXPECT_EQ(iCHILDREN_LEFT(5000), 0);
}

}  // namespace
