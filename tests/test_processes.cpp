/* Child processes, waiting, and how the service runs one command: what a client's shell
   is told, how its output is read, when a try is worth another. No server takes part. */
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <ctime>

#include "common/base/descriptor.h"
#include "common/remote/command.h"
#include "common/remote/ssh/known_key.h"
#include "common/remote/ssh/sftp.h"
#include "common/remote/ssh/ssh_configuration.h"
#include "common/remote/ssh/ssh_connection.h"
#include "common/remote/wrapper.h"
#include "common/unix/drain.h"
#include "common/unix/local_command.h"
#include "scratch.h"

using testing::HasSubstr;

namespace {

/* A child that runs a shell text, its lifeline held. */
struct SHELL_CHILD {
    CHILD       child;
    std::string sOut;

    explicit SHELL_CHILD(const std::string& sText, const std::string& sInput = "")
    {
        CHILD_SPEC sctSpec;
        sctSpec.asArgument = {"/bin/sh", "-c", sText};
        sctSpec.bPipeIn = true;
        sctSpec.sFirstInput = sInput;
        std::string sReason;
        EXPECT_TRUE(iCHILD_START(child, sctSpec, sReason)) << sReason;
    }
    bool bSAYS(const std::string& sText)
    {
        return bWAIT_UNTIL(10000, [&] {
            uREAD_NOW(child.fdOut, sOut, 65536);
            return sOut.find(sText) != std::string::npos;
        });
    }
    bool bEnds(int iLimitMs)
    {
        return bWAIT_UNTIL(iLimitMs, [&] { return iCHILD_ENDED(child) == 1; });
    }
};

/* Runs bGood in a process of its own. */
template<class F>
bool bALONE(F bGood)
{
    const pid_t iPid = fork();
    if (iPid == 0) {
        alarm(20);
        _exit(bGood() ? 0 : 1);
    }
    int iStatus = -1;
    waitpid(iPid, &iStatus, 0);
    return WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == 0;
}

TEST(PROCESSES, a_child_is_ended_whatever_it_does_about_it)
{
    const std::pair<const char*, int> asRow[] = {
        {"echo ready; sleep 60", 128 + SIGTERM},
        {"trap '' TERM; echo ready; exec sleep 8", 128 + SIGKILL},  // ends by itself, but late
        {"trap 'exit 7' TERM; echo ready; while :; do sleep 0.01; done", 7},
    };
    for (const auto& [cpText, iStatus] : asRow) {
        SCOPED_TRACE(cpText);
        SHELL_CHILD one(cpText);
        ASSERT_TRUE(one.bSAYS("ready"));
        const pid_t iGroup = one.child.iPid;
        const long  lBegin = lNOW_MS();
        v_CHILD_END(one.child, 300);
        EXPECT_LT(lNOW_MS() - lBegin, 5000);
        EXPECT_EQ(one.child.iStatus, iStatus);
        EXPECT_TRUE(bWAIT_UNTIL(5000, [&] { return kill(-iGroup, 0) != 0; }));
    }
    SHELL_CHILD one("kill -USR1 $$");
    ASSERT_TRUE(one.bEnds(10000));
    EXPECT_EQ(one.child.iStatus, 128 + SIGUSR1);
}

TEST(PROCESSES, a_child_that_cannot_be_started_or_seen_says_why)
{
    CHILD       child;
    std::string sReason;
    CHILD_SPEC  sctSpec;
    sctSpec.asArgument = {"/nowhere/program"};
    EXPECT_FALSE(iCHILD_START(child, sctSpec, sReason));
    EXPECT_EQ(sReason, "cannot run \"/nowhere/program\": No such file or directory");
    // Room for the pipes, for what sees its end, or for less: it runs and is seen, or not.
    sctSpec.asArgument = {"/bin/true"};
    EXPECT_TRUE(bALONE([&] {
        const int iFree = FD(open("/dev/null", O_RDONLY)).iGet();
        int       iStarted = 0;
        for (int iRoom = 1; iRoom < 9; iRoom++) {
            const rlimit limit{static_cast<rlim_t>(iFree + iRoom), 4096};
            setrlimit(RLIMIT_NOFILE, &limit);
            CHILD one;
            if (!iCHILD_START(one, sctSpec, sReason)) {
                if (sReason != "cannot run \"/bin/true\": Too many open files") return false;
                continue;
            }
            iStarted++;
            std::vector<WAIT_FD> fds{{one.fdExit.iGet()}};
            if (iWAIT(fds, lNOW_MS() + 5000) != WAIT_READY) return false;
        }
        return iStarted > 0;
    }));
}

TEST(PROCESSES, a_program_of_this_server_is_given_up_at_its_limit)
{
    const long lBegin = lNOW_MS();
    EXPECT_EQ(iRUN_LOCALLY("exit 5", 60000), 5);
    EXPECT_EQ(iRUN_LOCALLY("exec sleep 9", 100), 128 + SIGTERM);
    EXPECT_EQ(sSAID_BY({"/bin/sh", "-c", "echo early; exec sleep 9"}, 1000), "early\n");
    EXPECT_LT(lNOW_MS() - lBegin, 8000);
}

TEST(PROCESSES, who_writes_without_end_is_slowed_down_and_its_last_words_are_kept)
{
    DRAIN       words;
    CHILD       child;
    CHILD_SPEC  sctSpec;
    std::string sReason;
    const auto  v_RUN = [&](const std::string& sShell, long lMs) {
        sctSpec.asArgument = {"/bin/sh", "-c", "exec >>" + words.sPath() + "; " + sShell};
        ASSERT_TRUE(iCHILD_START(child, sctSpec, sReason));
        const long lEnd = lNOW_MS() + lMs;
        while (!iCHILD_ENDED(child) && lNOW_MS() < lEnd) iSLEEP_MS(100);
        v_CHILD_END(child, 100);
    };
    v_RUN("echo first; yes | head -c 2000000; echo last", 20000);
    const std::string sText = words.sText();
    EXPECT_TRUE(sText.starts_with("first\ny\n") && sText.ends_with("\ny\nlast\n"));
    EXPECT_LT(sText.size(), 400000U);
    words.Forget();
    v_RUN("yes", 1000);
    v_RUN("echo more", 5000);
    EXPECT_TRUE(words.sText().ends_with("more\n"));
}

TEST(PROCESSES, what_the_caller_left_wrong_is_put_right)
{
    EXPECT_TRUE(bALONE([] {
        close(STDIN_FILENO);
        close(STDERR_FILENO);
        v_STANDARD_DESCRIPTORS();
        return fcntl(STDIN_FILENO, F_GETFD) >= 0 && fcntl(STDERR_FILENO, F_GETFD) >= 0 &&
               FD(open("/dev/null", O_RDONLY)).iGet() > STDERR_FILENO;
    }));
    EXPECT_TRUE(bALONE([] {
        signal(SIGCHLD, SIG_IGN);
        signal(SIGHUP, SIG_IGN);  // as nohup does
        sigset_t setAll;
        sigfillset(&setAll);
        sigprocmask(SIG_BLOCK, &setAll, nullptr);
        v_SIGNALS_SETUP();
        struct sigaction sctHangUp {};
        sigaction(SIGHUP, nullptr, &sctHangUp);
        SHELL_CHILD one("exit 3");
        return one.bEnds(10000) && one.child.iStatus == 3 && sctHangUp.sa_handler == SIG_IGN;
    }));
}

/* ---- what a client's shell is told ---- */

std::string sSCRIPT(const std::string& sCommand)
{
    return sPOSIX_SCRIPT(sCommand, "/opt/velka/bin/");
}

TEST(CLIENT_SHELL, carries_out_the_line_and_shows_nothing_of_it)
{
    const std::string sShow = "tr '\\0' ' ' </proc/$$/cmdline; ps -ww -o args= $$ | grep -c s3cret";
    const std::tuple<std::string, const char*, long> asRow[] = {
        {"echo 'two\nlines' \"it's\"; exit 3", "two\nlines it's\n", 3},
        {"printf 'no end'; exit 255", "no end", 255},
        {"cat; read x || echo none", "none\n", 0},
        {"x=s3cret; " + sShow, "/bin/sh -c IFS= read -r vk; eval \"$vk\" 0\n", 1},
        {"echo $PATH | cut -d: -f1", "/opt/velka/bin\n", 0},
    };
    for (const auto& [sCommand, cpOutput, lStatus] : asRow) {
        SCOPED_TRACE(sCommand);
        SHELL_CHILD one(cpPOSIX_READER, sSCRIPT(sCommand));
        MARK_READER marks;
        std::string sOutput;
        ASSERT_TRUE(bWAIT_UNTIL(10000, [&] {
            std::string sBytes;
            uREAD_NOW(one.child.fdOut, sBytes, 1);
            sOutput += marks.sFeed(sBytes);
            return marks.eState() == MARK_READER::ENDED;
        }));
        EXPECT_EQ(sOutput, cpOutput);
        EXPECT_EQ(marks.lStatus(), lStatus);
    }
}

TEST(CLIENT_SHELL, ends_its_command_when_nobody_holds_the_line_any_more)
{
    for (const char* cpCommand :
         {"echo ready; sleep 60", "trap '' TERM HUP; echo ready; while :; do sleep 60; done"}) {
        SCOPED_TRACE(cpCommand);
        SHELL_CHILD one(cpPOSIX_READER, sSCRIPT(cpCommand));
        ASSERT_TRUE(one.bSAYS("ready"));
        const pid_t iGroup = one.child.iPid;
        one.child.fdIn.Close();
        EXPECT_TRUE(one.bEnds(8000));
        EXPECT_TRUE(bWAIT_UNTIL(8000, [&] { return kill(-iGroup, 0) != 0; }));
    }
}

/* ---- how its output is read ---- */

TEST(OUTPUT_OF_A_COMMAND, is_found_between_the_marks_however_it_is_cut)
{
    const std::string sText =
        "motd\n" + sRUN_MARK() + " begin\nout\r\n\nmore\n" + sRUN_MARK() + " 3010\n";
    for (size_t uCut = 0; uCut <= sText.size(); uCut++) {
        MARK_READER marks;
        std::string sOutput = marks.sFeed(sText.substr(0, uCut));
        sOutput += marks.sFeed(sText.substr(uCut));
        ASSERT_EQ(sOutput, "out\r\n\nmore") << uCut;
        ASSERT_EQ(marks.lStatus(), 3010);
        ASSERT_EQ(marks.sNoise(), "motd\n");
    }
}

TEST(OUTPUT_OF_A_COMMAND, costs_what_it_is_long)
{
    constexpr size_t uALL = size_t{4} << 20;
    for (const std::string sUnit : {"\xC2\x80", "\xFF", "x\n", "\n", "\x01", "\t\xC2", "ab"}) {
        SCOPED_TRACE(testing::PrintToString(sUnit));
        OUTPUT output;
        output.LL_Lines = ConsLL();
        OUTPUT_SINK sink(output);
        MARK_READER marks;
        std::string sPiece;
        while (sPiece.size() < 65536) sPiece += sUnit;
        const std::clock_t begin = std::clock();
        for (size_t u = 0; u < 200000; u += sUnit.size()) marks.sFeed(sUnit);
        sink.Take(marks.sFeed("\n" + sRUN_MARK() + " begin\n"));
        for (size_t u = 0; u < uALL; u += sPiece.size()) sink.Take(marks.sFeed(sPiece));
        sink.Take(marks.sFeed("\nSTATUS=ERROR\nSTATUS=SUCCESS MSG=\"x\"\n \nlast"));
        sink.Take(marks.sRest());
        sink.Finish();
        EXPECT_LT(static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC, 5);
        EXPECT_EQ(output.sLastLine, "last");
        EXPECT_EQ(output.sStatusLine, "STATUS=SUCCESS MSG=\"x\"");
        EXPECT_STREQ(static_cast<const char*>(LastElmLL(output.LL_Lines)), "last");
        EXPECT_LT(SizeLL(output.LL_Lines), uOUTPUT_MAX / 50);
    }
}

/* ---- when a try is worth another ---- */

class TRIES : public SCRATCH {
protected:
    void SetUp() override
    {
        SCRATCH::SetUp();
        WRITE_FILE(sPATH("config"), "");
        INI("[access VKSSH]\nconfig = " + sPATH("config") + "\n");
        m_sPath = getenv("PATH");
        setenv("PATH", (sPATH("") + ":" + m_sPath).c_str(), 1);
        setenv("TMPDIR", sPATH("").c_str(), 1);
    }
    void TearDown() override
    {
        setenv("PATH", m_sPath.c_str(), 1);
        unsetenv("TMPDIR");
        SCRATCH::TearDown();
    }
    /* Runs a command where ssh is that shell text ($log: its own words, $last: the
       remote command), with two further tries. */
    COMMAND_END sctRUN(const std::string& sSsh, const char* cpCommand)
    {
        WRITE_PROGRAM(sPATH("ssh"), "echo >>" + sPATH("calls") +
                                        "\nfor last; do [ \"$before\" != -E ] || log=$last; "
                                        "before=$last; done\n" +
                                        sSsh);
        WRITE_FILE(sPATH("calls"), "");
        HOST host;
        host.sName = "alpha" + std::to_string(m_iHosts++);
        host.sAccessMode = "VKSSH";
        OUTPUT output;
        return sctRUN_COMMAND(host, "", cpCommand, {5, 5, 15, 2}, output, str_log{});
    }
    size_t uCALLS() { return asLINES(sREAD_FILE(sPATH("calls"))).size(); }

private:
    std::string m_sPath;
    int         m_iHosts = 0;
};

TEST_F(TRIES, are_made_again_only_where_that_can_do_no_harm)
{
    const std::tuple<const char*, const char*, size_t, FAILURE> asRow[] = {
        {"eval \"$last\"", "exit 9", 1, FAILURE_NONE},
        {"echo 'Connection refused' >>$log; exit 255", "true", 3, FAILURE_OTHER},
        {"echo 'root@a: Permission denied (publickey).' >>$log; exit 255", "true", 1,
         FAILURE_REFUSED},
        // It began, and its connection broke: nobody knows how far it came.
        {"eval \"${last#exec }\"; exit 255", "kill -KILL $$", 1, FAILURE_OTHER},
    };
    EXPECT_TRUE(bALONE([&] {
        for (const auto& [cpSsh, cpCommand, uCalls, eFailure] : asRow) {
            SCOPED_TRACE(cpSsh);
            EXPECT_EQ(sctRUN(cpSsh, cpCommand).eFailure, eFailure);
            EXPECT_EQ(uCALLS(), uCalls);
        }
        return !HasFailure();
    }));
}

TEST_F(TRIES, keep_their_sockets_where_nobody_can_put_another_folder)
{
    const struct {
        const char* cpName;
        mode_t      iMode;  // of the folder around TMPDIR
        bool        bUsed;
    } asctRow[] = {{"own", 0755, true},
                   {"sticky", 01777, true},
                   {"open", 0777, false},
                   {"a ${b", 0755, false}};
    for (const auto& row : asctRow) {
        SCOPED_TRACE(row.cpName);
        const std::string sTmp = sPATH(row.cpName) + "/tmp";
        fs::create_directories(sTmp);
        chmod(sPATH(row.cpName).c_str(), row.iMode);
        EXPECT_TRUE(bALONE([&] {
            setenv("TMPDIR", sTmp.c_str(), 1);
            const std::string sPlace = sPRIVATE_DIRECTORY();
            fs::remove(sPlace);
            return !sPlace.empty() && sPlace.starts_with(sTmp) == row.bUsed;
        }));
    }
}

TEST_F(TRIES, nothing_of_the_administrators_goes_to_a_client_or_serves_a_jump_host)
{
    WRITE_FILE(sPATH("config"),
               "Host *\nForwardAgent yes\nForwardX11 yes\nGSSAPIDelegateCredentials yes\n"
               "SendEnv PATH\nSetEnv A=1\nPermitLocalCommand yes\nTunnel yes\n"
               "ControlMaster auto\nControlPath /tmp/%h\n");
    for (const bool bFolder : {true, false}) {
        EXPECT_TRUE(bALONE([&] {
            const std::string sFolder = sPRIVATE_DIRECTORY();
            if (!bFolder) std::filesystem::remove_all(sFolder);
            TEXTS       asWord;
            std::string sReason;
            iSSH_CONFIGURATION(sPATH("config"), asWord, sReason);
            asWord.insert(asWord.begin(), {"ssh", "-G"});
            asWord.emplace_back("alpha");
            const std::string sSaid = sSAID_BY(asWord, 5000);
            std::filesystem::remove_all(sFolder);
            for (const char* cpLine :
                 {"forwardagent no", "forwardx11 no", "gssapidelegatecredentials no",
                  "permitlocalcommand no", "tunnel false", "setenv VK_CONFIG_CLIENT=1",
                  "controlmaster false"})
                EXPECT_THAT(sSaid, HasSubstr(std::string("\n") + cpLine + "\n"));
            for (const char* cpKey : {"\nsendenv ", "A=1", "\ncontrolpath "})
                EXPECT_THAT(sSaid, testing::Not(HasSubstr(cpKey)));
            return !HasFailure();
        }));
    }
}

TEST_F(TRIES, only_the_update_script_outlives_the_limit_of_its_command)
{
    EXPECT_TRUE(bALONE([&] {
        HOST host;
        host.bLocal = true;
        for (const std::string sProgram : {"vk_execute_update", "another"}) {
            WRITE_PROGRAM(sPATH(sProgram), "echo $$ >$0.pid\nexec sleep 15");
            OUTPUT output;
            sctRUN_COMMAND(host, "", sProgram.c_str(), {5, 1, 1, 0}, output, str_log{});
            const pid_t iPid = std::atoi(sREAD_FILE(sPATH(sProgram) + ".pid").c_str());
            const bool  bRuns = !bWAIT_UNTIL(500, [&] { return kill(iPid, 0) != 0; });
            if (iPid <= 0 || bRuns != (sProgram != "another")) return false;
            if (bRuns) kill(iPid, SIGKILL);
        }
        return true;
    }));
}

/* ---- files ---- */

TEST_F(TRIES, a_copy_arrives_whole_or_not_at_all)
{
    const std::string sServer = "/usr/lib/openssh/sftp-server";
    if (access(sServer.c_str(), X_OK) != 0) GTEST_SKIP() << "no sftp server";
    CHILD_SPEC sctSpec;
    sctSpec.asArgument = {"sftp", "-b", "-", "-D", sServer};
    sctSpec.asEnvironment = {{"LC_ALL", "C"}};
    const std::string sTarget = sPATH("a/b c/target");
    HOST              host;
    host.sName = "alpha";
    COPY_END end = sctSFTP_PUT(sctSpec, host, "/bin/sh", sTarget, "751");
    EXPECT_TRUE(end.bDone) << end.sReason;
    EXPECT_EQ(iMODE(sTarget), 0751U);
    EXPECT_EQ(fs::file_size(sTarget), fs::file_size("/bin/sh"));
    // A file that says it is empty and is not.
    end = sctSFTP_PUT(sctSpec, host, "/proc/version", sPATH("version"), nullptr);
    EXPECT_EQ(end.finding.sCause, "copy-short");
    EXPECT_THAT(end.sReason, HasSubstr("of 0 bytes"));
    EXPECT_FALSE(fs::exists(sPATH("version")));
    EXPECT_FALSE(fs::exists(sPATH("version.part")));
    EXPECT_TRUE(fs::is_empty(sPATH("gv_rw/copies")));
    // What a killed run has left goes, nothing else.
    WRITE_FILE(sPATH("big.part"), "half");
    WRITE_FILE(sPATH("gv_rw/copies/alpha"), sPATH("big.part"));
    v_SFTP_TIDY(sctSpec, "alpha");
    EXPECT_FALSE(fs::exists(sPATH("big.part")));
    EXPECT_FALSE(fs::exists(sPATH("gv_rw/copies/alpha")));
    WRITE_FILE(sPATH("gv_rw/copies/alpha"), sTarget);
    v_SFTP_TIDY(sctSpec, "alpha");
    EXPECT_TRUE(fs::exists(sTarget));
}

}  // namespace
