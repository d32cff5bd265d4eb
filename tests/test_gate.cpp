/* The gate of mode CTRL and the admission of a server: what they refuse, and that
   the tool works through them. */
#include "common/remote/request.h"
#include "common/remote/transport.h"
#include "common/unix/read_now.h"
#include "sandbox_fixture.h"

using namespace testing;

namespace {

const std::string sREFUSED = "is not allowed to connect or security problem for user";
const std::string sDEB = "velka-cli_5.2.0-4_amd64.deb";

std::string sBESIDE(const char* cpProgram)
{
    return fs::path{VK_PROGRAM}.parent_path().string() + "/" + cpProgram;
}

/* A program with sInput on its standard input, which stays open while bOpen. */
RUN CALLED(const TEXTS& asArgument, const SETTINGS& environment = {},
           const std::string& sInput = "", bool bOpen = false)
{
    RUN        run;
    CHILD      child;
    CHILD_SPEC sctSpec;
    sctSpec.asArgument = asArgument;
    for (const auto& variable : environment) sctSpec.asEnvironment.push_back(variable);
    sctSpec.bPipeIn = true;
    sctSpec.sFirstInput = sInput;
    EXPECT_TRUE(iCHILD_START(child, sctSpec, run.sErr)) << run.sErr;
    if (!bOpen) child.fdIn.Close();
    const bool bEnded = bWAIT_UNTIL(30000, [&] {
        uREAD_NOW(child.fdOut, run.sOut, 1 << 20);
        return !child.fdOut.bOpen() && iCHILD_ENDED(child);
    });
    EXPECT_TRUE(bEnded) << asArgument[0];
    run.iExit = child.iStatus;
    return run;
}

class GATE : public SANDBOX {
protected:
    void SetUp() override
    {
        SANDBOX::SetUp();
        ADD_CLIENT("ctrl1", "CTRL");
    }
    /* The gate as sshd starts it. */
    RUN ASKED(const std::string& sLine, const std::string& sInput = "", bool bOpen = false,
              SETTINGS environment = {})
    {
        environment["SSH_ORIGINAL_COMMAND"] = sLine;
        return CALLED({sBESIDE("vk_ctrl"), "--config", CLIENT_PATH("ctrl1", "vk.ini")}, environment,
                      sInput, bOpen);
    }
    /* An ordinary ssh with the key that the client admits. */
    RUN SSH(const TEXTS& asArgument, const SETTINGS& environment = {})
    {
        const TEXTS asBegin{"ssh", "-F", sRW() + "ini/ctrl/config", "-o", "BatchMode=yes"};
        return CALLED(asBegin + asArgument, environment, "", true);
    }
    std::string sWORK(const std::string& sName)
    {
        return CLIENT_PATH("ctrl1", "velka/work/" + sName);
    }
};

TEST_F(GATE, refuses_whatever_is_no_request_of_its_own)
{
    // clang-format off
    TEXTS asLine{
        "", "/bin/sh", "sh -c id", "internal-sftp", "/usr/lib/openssh/sftp-server", "scp -t /tmp",
        "run", "run m", "run m sh -c id", "run m /bin/sh", "run m ../qtc", "run m velka_installer",
        "run m qtc%2F..%2Fvelka_installer", "run m qtc%00", "run m qtc -h%2", "run m  qtc -h",
        " run m qtc -h", "run m qtc -h ", "RUN m qtc -h", "run m%20begin qtc -h", "list m /etc",
        "run m qtc -h\nrun m qtc -h", "run m qtc -h run m qtc -h;",
        "run m qtc " + std::string(100000, 'x')};
    // clang-format on
    for (const char c : std::string("|&;<>()$`\\\"'*?[]{}#~!^\t\r\n\x7f\x80"))
        asLine.push_back(std::string("run m qtc -h") + c + "id");
    for (const std::string& sLine : asLine) {
        SCOPED_TRACE(sLine.substr(0, 60));
        const RUN run = ASKED(sLine);
        EXPECT_EQ(run.iExit, 1);
        EXPECT_THAT(run.sOut, HasSubstr(sREFUSED));
        EXPECT_EQ(asLINES(run.sOut).size(), 1U);
    }
    EXPECT_THAT(CLIENT_LOG("ctrl1"), IsEmpty());

    // No line of this length reaches a program's environment; the parser stands alone.
    REQUEST     request;
    std::string sReason;
    EXPECT_EQ(iREQUEST_READ("run m qtc " + std::string(1 << 20, 'x'), request, sReason), 0);
    EXPECT_EQ(iREQUEST_READ("run m", request, sReason), 0);
    EXPECT_EQ(sReason, "a request with too few or too many words");
    for (const size_t uMark : {uREQUEST_MARK_MAX, uREQUEST_MARK_MAX + 1})
        EXPECT_EQ(iREQUEST_READ("run " + std::string(uMark, 'm') + " qtc", request, sReason),
                  uMark == uREQUEST_MARK_MAX);
    TEXTS asWord;
    for (const char* cpLine : {"qtc a|b", "qtc $x", "qtc \"a", "qtc a\nb", "qtc a\\"})
        EXPECT_EQ(iPOSIX_WORDS(cpLine, asWord, sReason), 0) << cpLine;
    for (const TEXTS& asWrong : {TEXTS{"--config"}, TEXTS{"--confg", "/x"}, TEXTS{"-c", "a", "b"}})
        EXPECT_EQ(CALLED(TEXTS{sBESIDE("vk_ctrl")} + asWrong).iExit, 2);
    EXPECT_THAT(ASKED("request", "run m qtc " + std::string((1 << 20) - 99, 'x')).sOut,
                HasSubstr(sREFUSED));
}

TEST_F(GATE, runs_a_program_with_its_words_in_an_environment_of_its_own)
{
    WRITE_PROGRAM(CLIENT_PATH("ctrl1", "velka/bin/qtc_ndmp"), "printf '<%s>' \"$@\"; env; exit 3");
    const SETTINGS    environment{{"VK_INI", "/nowhere"},
                               {"gv_ro_bin", "/bin/"},
                               {"EVIL", "1"},
                               {"BASH_ENV", "/tmp/x"},
                               {"PATH", "/tmp"}};
    const std::string sWords = "run m-1 qtc_ndmp a%20b % %3Bid %24%28id%29 %C3%A4%0A";
    for (const bool bFollows : {false, true}) {
        const RUN run = bFollows ? ASKED("request", sWords + "\n", true, environment)
                                 : ASKED(sWords, "", true, environment);
        EXPECT_EQ(run.iExit, 3);
        EXPECT_THAT(run.sOut, StartsWith("m-1 begin\n<a b><><;id><$(id)><ä\n>"));
        EXPECT_THAT(run.sOut, EndsWith("\n\nm-1 3\n"));
        EXPECT_THAT(run.sOut, HasSubstr("PATH=" + CLIENT_PATH("ctrl1", "velka/bin:/")));
        EXPECT_THAT(run.sOut, Not(AnyOf(HasSubstr("EVIL"), HasSubstr("SSH_"), HasSubstr("gv_"),
                                        HasSubstr("BASH_ENV"), HasSubstr("/nowhere"))));
    }
    EXPECT_THAT(ASKED("list m").sOut,
                AllOf(StartsWith("m begin\n.\n..\n"), HasSubstr("\ntmp\n"), EndsWith("\n\nm 0\n")));
    fs::remove(CLIENT_PATH("ctrl1", "velka/bin/qtc_ndmp"));
    EXPECT_THAT(ASKED("run m qtc_ndmp", "", true).sOut,
                AllOf(HasSubstr("No such file"), EndsWith("\nm 127\n")));
}

TEST_F(GATE, takes_the_files_of_an_update_whole_or_not_at_all)
{
    struct ROW {
        const char *cpPath, *cpSize, *cpMode;
        size_t      uSent;
        const char* cpArrived;  // below velka/, null: refused
    };
    fs::create_directory_symlink("/tmp", sWORK("link"));
    fs::create_symlink(sDIR() + "/outside", sWORK("file"));
    fs::create_symlink(sDIR() + "/outside", sWORK("half.part"));
    std::vector<ROW> rows{
        {"gv_rw_work:a.deb", "100", "644", 100, "work/a.deb"},
        {"gv_rw_work:/tmp/new/b.deb", "0", "600", 0, "work/tmp/new/b.deb"},
        {"gv_ro_bin:vk_execute_update", "70000", "755", 70000, "bin/vk_execute_update"},
        {"gv_rw_work:short", "101", "644", 100, nullptr},
        {"gv_rw_work:long", "99", "644", 100, nullptr},
        {"gv_rw_work:x", "-1", "644", 0, nullptr},
        {"gv_rw_work:x", "99999999999999999999", "644", 10, nullptr},
        {"gv_rw_work:x", "10", "4755", 10, nullptr},
    };
    for (const char* cpPath :
         {"gv_rw_work:../x", "gv_rw_work:tmp/../../x", "gv_rw_work:link/x", "gv_rw_work:file",
          "gv_rw_work:half", "gv_rw_work:", "gv_rw_work:a%0Ab", "gv_ro_bin:another",
          "gv_ro_bin:x/vk_execute_update", "gv_ro_bin:vk_execute_update/x", "gv_rw_ini:vk.ini",
          "/tmp/x", "x"})
        rows.push_back({cpPath, "10", "644", 10, nullptr});
    for (const ROW& row : rows) {
        SCOPED_TRACE(std::string(row.cpPath) + " " + row.cpSize);
        const std::string sBytes(row.uSent, 'x');
        const RUN         run =
            ASKED(std::string("put m ") + row.cpPath + " " + row.cpSize + " " + row.cpMode, sBytes);
        EXPECT_EQ(run.sOut.find(sREFUSED) == std::string::npos, row.cpArrived != nullptr);
        if (row.cpArrived == nullptr) continue;
        const std::string sFile = CLIENT_PATH("ctrl1", std::string("velka/") + row.cpArrived);
        EXPECT_EQ(run.sOut, "m begin\n\nm 0\n");
        EXPECT_EQ(sREAD_FILE(sFile), sBytes);
        EXPECT_EQ(iMODE(sFile), std::stoul(row.cpMode, nullptr, 8));
        EXPECT_EQ(ASKED(std::string("size m ") + row.cpPath).sOut,
                  "m begin\n" + std::to_string(row.uSent) + "\n\nm 0\n");
    }
    EXPECT_THAT(ASKED("put m gv_rw_work:a.deb/x 1 644", "x").sOut, HasSubstr("cannot reach"));
    EXPECT_FALSE(fs::exists(sDIR() + "/outside"));
    TEXTS asName;
    for (const auto& entry : fs::directory_iterator{sWORK("")})
        asName.push_back(entry.path().filename());
    EXPECT_THAT(asName, UnorderedElementsAre("a.deb", "tmp", "link", "file", "half.part"));
    HOST host;
    host.sName = "ctrl1";
    host.sAccessMode = "CTRL";
    host.sPlatform = "LINUX";
    std::string sReason;
    for (const auto& [sFile, sCause] :
         SETTINGS{{"/none/x", "No such file or directory"}, {"/etc", "Is a directory"}}) {
        EXPECT_EQ(TRANSPORT_OF(host).iPUT(host, sFile, "gv_rw_work:y", nullptr, sReason, {}), 0);
        EXPECT_EQ(sReason, "cannot read \"" + sFile + "\": " + sCause);
    }
    EXPECT_THAT(ASKED("put m gv_rw_work:huge 4000000000000000000 644").sOut,
                AllOf(HasSubstr("no space left"), EndsWith("\nm 1\n")));
}

TEST_F(GATE, a_program_ends_with_the_connection_but_an_update_goes_on)
{
    SWITCH("ctrl1", "qtc", {"mode=silent"});
    EXPECT_THAT(ASKED("run m qtc -h", "anything").sOut, EndsWith("\nm 143\n"));
    fs::copy_file(CLIENT_PATH("velkasrv", "velka/skel/vk_execute_update"),
                  CLIENT_PATH("ctrl1", "velka/bin/vk_execute_update"));
    WRITE_FILE(sWORK(sDEB), "package");
    SWITCH("ctrl1", "vk_execute_update", {"wait=1"});
    EXPECT_THAT(ASKED("run m vk_execute_update " + sDEB).sOut,
                AllOf(HasSubstr("STATUS=SUCCESS"), EndsWith("\nm 0\n")));
    // A run that is killed takes its command with it, through sshd and gate.
    WRITE_FILE(CLIENT_PATH("ctrl1", "log/commands"), "");
    STARTED_RUN run = START({"-c", "ctrl1", "-C", "r"});
    EXPECT_TRUE(bWAIT_UNTIL(20000, [&] { return CLIENT_LOG("ctrl1").size() == 1; }));
    KILL(run, SIGKILL);
    EXPECT_EQ(iCOUNT_PROCESSES("VK_INI=" + CLIENT_PATH("ctrl1", "vk.ini"), 10000), 0);
}

TEST_F(GATE, its_key_opens_nothing_else)
{
    const std::pair<TEXTS, const char*> asRow[] = {
        {{"ctrl1"}, "not allowed to connect"},
        {{"ctrl1", "id; touch /tmp/x"}, "not allowed to connect"},
        {{"-s", "ctrl1", "sftp"}, "not allowed to connect"},
        {{"-tt", "ctrl1", "list m"}, "PTY allocation request failed"},
        {{"-W", "127.0.0.1:22", "ctrl1"}, "prohibited"},
        {{"-o", "ExitOnForwardFailure=yes", "-R", "0:127.0.0.1:1", "ctrl1", "list m"},
         "remote port forwarding failed"},
        {{"-Y", "ctrl1", "list m"}, "X11 forwarding request failed"},
        {{"-o", "SetEnv=VK_INI=/nowhere", "ctrl1", "run m qtc -h"}, "QTC_VERSION="},
    };
    for (const auto& [asArgument, cpSaid] : asRow)
        EXPECT_THAT(SSH(asArgument, {{"DISPLAY", ":99"}}).sOut, HasSubstr(cpSaid));
    EXPECT_THAT(CLIENT_LOG("ctrl1"), ElementsAre("qtc -h"));
}

TEST_F(GATE, check_test_backup_and_update_go_through_it)
{
    RUN run = CONFIG_CLIENT({"-c", "ctrl1", "-C", "s"});
    EXPECT_EQ(run.iExit, 0) << run.sOut;
    EXPECT_EQ(run.sErr, "");
    EXPECT_THAT(CLIENT_LOG("ctrl1"),
                ElementsAre("qtc -h",
                            "qtc -b -s NULL:64:32 -S http://_REMOTE_CLIENT_:11000 "
                            "gv_rw_ini:vk.ini"));
    EXPECT_EQ(COLUMN("ctrl1", "qtc_version"), "5.1.0.7");

    WRITE_FILE(sRW() + "work/packages/" + sDEB, std::string(3'000'000, 'p'));
    run = CONFIG_CLIENT({"-c", "ctrl1", "-U", "-P", sDEB});
    EXPECT_EQ(run.iExit, 0) << run.sOut;
    EXPECT_EQ(run.sErr, "");
    EXPECT_EQ(COLUMN("ctrl1", "update_state"), "0");
    EXPECT_THAT(sREAD_FILE(CLIENT_PATH("ctrl1", "velka/ini/vk.ini")), HasSubstr("version=5.2.0-4"));
    EXPECT_TRUE(fs::exists(sWORK("qir-gpg.key")));
    EXPECT_FALSE(fs::exists(sWORK(sDEB))) << "cleaned up";
    EXPECT_THAT(CLIENT_LOG("ctrl1"), Contains("vk_execute_update " + sDEB));
    EXPECT_EQ(iCHILDREN_LEFT(), 0);

    // A key of older times that leads to a shell.
    ADD_CLIENT("oldctrl1", "CTRL");
    run = CHECK("oldctrl1");
    EXPECT_THAT(run.sOut, HasSubstr("I005"));
}

TEST_F(GATE, a_password_stands_in_no_argument_vector)
{
    WRITE_PROGRAM(sDIR() + "/ssh",
                  "printf '%s\\n' \"$@\" >>" + sDIR() + "/arguments\nexec /usr/bin/ssh \"$@\"");
    ADD_CLIENT("nd1", "PROXY", "NDMP",
               {{"data_mover", "ctrl1"}, {"user_name", "backup"}, {"password", "top secret"}});
    const RUN run = CONFIG_CLIENT({"-c", "nd1", "-C", "r"}, {{"PATH", sDIR() + ":/usr/bin:/bin"}});
    EXPECT_EQ(run.iExit, 0) << run.sOut;
    EXPECT_THAT(CLIENT_LOG("ctrl1"), ElementsAre(HasSubstr("passwd=top secret")));
    EXPECT_THAT(sREAD_FILE(sDIR() + "/arguments"),
                AllOf(HasSubstr("\nrequest\n"), Not(HasSubstr("top"))));
}

TEST_F(SANDBOX, set_client_admits_a_server_once_and_unset_takes_it_back)
{
    const std::string sOthers =
        "# mine\n\nssh-ed25519 AAAA me@home\n  from=\"a b\" ssh-rsa AAAA \r\n";
    for (const char* cpMode : {"CTRL", "VKSSH"}) {
        SCOPED_TRACE(cpMode);
        const std::string sName = std::string("nokey") + (cpMode[0] == 'C' ? "1" : "2");
        ADD_CLIENT(sName, cpMode);
        const std::string sFile = CLIENT_PATH(sName, "authorized_keys");
        const std::string sIni = CLIENT_PATH(sName, "vk.ini");
        WRITE_FILE(sIni, "[variables]\ngv_ro_bin = " + CLIENT_PATH(sName, "velka/bin") +
                             "\ngv_rw_ini = " + CLIENT_PATH(sName, "velka/ini") + "\n");
        WRITE_FILE(sFile, sOthers);
        chmod(sFile.c_str(), 0666);
        EXPECT_THAT(CHECK(sName).sOut, HasSubstr("E011"));
        EXPECT_THAT(OUTCOMES().back(),
                    HasSubstr(cpMode[0] == 'C' ? "vk_setup permit --mode CTRL\\\" prints"
                                               : "vk_setup permit\\\" prints"));

        const std::string sKey = asLINES(
            sREAD_FILE(sDIR() + "/keys/" + (cpMode[0] == 'C' ? "ctrl" : "client") + ".pub"))[0];
        const TEXTS asWhere{"--file", sFile, "--config", sIni};
        const auto  SETUP = [&](const TEXTS& asArgument, const std::string& sInput = "") {
            return CALLED(TEXTS{sBESIDE("vk_setup")} + asArgument + asWhere, {}, sInput);
        };
        // What permit prints, typed or pasted.
        EXPECT_EQ(SETUP({"set_client", "velkasrv"}).iExit, 2);
        EXPECT_EQ(SETUP({"set_client", "velkasrv"}, "vk_setup set_client velkasrv --mode " +
                                                        std::string(cpMode) + " " + sKey + "\n")
                      .iExit,
                  0);
        const std::string sAfter = sREAD_FILE(sFile);
        const std::string sLine = (cpMode[0] == 'C' ? "restrict,command=\"" + sBESIDE("vk_ctrl") +
                                                          " --config " + sIni + "\" "
                                                    : "") +
                                  sKey + " vk_setup:velkasrv\n";
        EXPECT_EQ(sAfter, sOthers + sLine);
        EXPECT_EQ(iMODE(sFile), 0600U);
        EXPECT_THAT(CHECK(sName).sOut, HasSubstr("I005"));

        for (const TEXTS& asAgain :
             {TEXTS{"set_client", "velkasrv"},
              TEXTS{"set_client", "velkasrv", "--mode", cpMode, sKey},
              TEXTS{"set_client", "velkasrv", "--mode", cpMode, sKey + " --file a\"b"}}) {
            EXPECT_THAT(SETUP(asAgain).sOut, HasSubstr("nothing to do"));
            EXPECT_EQ(sREAD_FILE(sFile), sAfter);
        }
        // Lost, and opened again by the command that E011 names.
        WRITE_FILE(sFile, "");
        EXPECT_EQ(SETUP({"set_client", "velkasrv"}).iExit, 0);
        EXPECT_EQ(sREAD_FILE(sFile), sLine);

        WRITE_FILE(sFile, sAfter);
        EXPECT_EQ(SETUP({"unset_client", "velkasrv"}).iExit, 0);
        EXPECT_EQ(sREAD_FILE(sFile), sOthers);
        EXPECT_EQ(SETUP({"set_client", "velkasrv"}).iExit, 2) << "nothing is remembered";
    }
}

TEST_F(SANDBOX, set_client_refuses_what_is_no_key_or_no_file_of_its_own)
{
    const std::string                   sKey = asLINES(sREAD_FILE(sDIR() + "/keys/ctrl.pub"))[0];
    const std::string                   sFile = sDIR() + "/authorized_keys";
    const std::pair<TEXTS, const char*> asRow[] = {
        {{"velkasrv", sKey.substr(0, 40)}, "not whole"},
        {{"velkasrv", "nonsense"}, "no public key"},
        {{"velkasrv", sDIR() + "/keys/ctrl"}, "private key"},
        {{"velkasrv", "/nowhere.pub"}, "cannot read"},
        {{"a b", sKey}, "no name of a server"},
        {{"velkasrv", "--mode", "SSH", sKey}, "none of CTRL, VKSSH"},
        {{"velkasrv", "--from", "10.0.0.1\",command=\"sh", sKey}, "no list of addresses"},
        {{"velkasrv", "--config", "/a\" b", sKey}, "no absolute path"},
        {{"velkasrv", "--what", sKey}, "unknown option"},
        {{"velkasrv", sKey}, "symbolic link"},
    };
    WRITE_FILE(sDIR() + "/elsewhere", "");
    fs::create_symlink(sDIR() + "/elsewhere", sFile);
    for (const auto& [asArgument, cpSaid] : asRow) {
        SCOPED_TRACE(cpSaid);
        const RUN run =
            CALLED(TEXTS{sBESIDE("vk_setup"), "set_client"} + asArgument + TEXTS{"--file", sFile});
        EXPECT_NE(run.iExit, 0);
        EXPECT_THAT(run.sOut, HasSubstr(cpSaid));
        EXPECT_EQ(asLINES(run.sOut).size(), 1U);
        EXPECT_EQ(sREAD_FILE(sFile), "");
    }
}

}  // namespace
