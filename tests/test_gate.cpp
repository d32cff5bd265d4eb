/* The gate of mode CTRL and the admission of a server: what they refuse, and that
   the tool works through them. */
#include "common/base/descriptor.h"
#include "common/remote/request.h"
#include "common/remote/transport.h"
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
        return CALLED(
            TEXTS{sBESIDE("vk_ctrl"), "--config", CLIENT_PATH("ctrl1", "vk.ini")} + m_asPackages,
            environment, sInput, bOpen);
    }
    TEXTS m_asPackages;  // option of the gate
    /* An ordinary ssh with the key that the client admits. */
    RUN SSH(const TEXTS& asArgument, const SETTINGS& environment = {},
            const std::string& sInput = "", bool bOpen = true)
    {
        const TEXTS asBegin{"ssh", "-F", sRW() + "ini/ctrl/config", "-o", "BatchMode=yes"};
        return CALLED(asBegin + asArgument, environment, sInput, bOpen);
    }
    /* Files of the client with what they hold, but for those of the backup itself. */
    SETTINGS FILES()
    {
        SETTINGS files;
        for (const auto& entry : fs::recursive_directory_iterator{CLIENT_PATH("ctrl1", "")}) {
            const std::string sPath = entry.path();
            if (sPath.starts_with(sWORK("from_server")) || sPath.find("/log/") != sPath.npos ||
                sPath.starts_with(sWORK("vk_execute_update.")))
                continue;
            files[sPath] =
                std::to_string(iMODE(sPath)) + (entry.is_regular_file() ? sREAD_FILE(sPath) : "");
        }
        return files;
    }
    /* A package on the server, signed there with the key that the client's administrator
       has put on the client, or with another one. */
    void SIGN(const std::string& sBytes, const std::string& sKey)
    {
        const std::string sPackage = sRW() + "work/packages/" + sDEB;
        const std::string sHome = sDIR() + "/" + sKey;
        const std::string sGPG = "gpg --homedir " + sHome + " --batch --yes --quiet ";
        WRITE_FILE(sPackage, sBytes);
        std::string sLine = sGPG + "--detach-sign " + sPackage;
        if (!fs::exists(sHome)) {
            fs::create_directory(sHome);
            fs::permissions(sHome, fs::perms::owner_all);
            fs::create_directory(CLIENT_PATH("ctrl1", "velka/ini/packages.d"));
            sLine = sGPG + "--passphrase '' --quick-generate-key " + sKey +
                    " ed25519 sign never && " + sLine;
        }
        EXPECT_EQ(CALLED({"/bin/sh", "-c", sLine}).iExit, 0);
        if (sKey == "admin")
            CALLED({"/bin/sh", "-c",
                    sGPG + "--armor --export >" +
                        CLIENT_PATH("ctrl1", "velka/ini/packages.d/admin.asc")});
        CALLED({"gpgconf", "--homedir", sHome, "--kill", "all"});
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
        "run m qtc " + std::string(100000, 'x'), "run m qtc", "run m qtc -h -h", "run m qtc -b",
        "run m qtc -b -s /etc/passwd -S srv gv_rw_ini:vk.ini", "run m qtc -b -s NULL:64:32 -S -x gv_rw_ini:vk.ini",
        "run m qtc -b -s NULL:64:32 -S srv /etc/shadow", "run m qtc -b -s NULL:64:32 -S http://x gv_rw_ini:vk.ini",
        "run m qtc -b -d . -s bck_test_..%2Fx.tmp -S srv /etc/velka2000.ini",
        "run m qtc -b -d / -s bck_test_x.tmp -S srv /etc/velka2000.ini",
        "run m qtc_smdr -b -d . -s bck_test_x.tmp -S srv -N x SYS:etc/hosts",
        "run m qtc_ndmp -D -s dir -a auth=md5,server=a,file=x,user=u,passwd=p",
        "run m qtc_ndmp -D -s dir -a auth=md5,server=a,user=u,passwd=p,file=x",
        "run m vk_client -r -f usefile -n gv_rw_ini:vk.ini -m f -s password=%5E -v 1",
        "run m vk_client -r -f usefile -n gv_rw_ini:vk.ini -m d", "run m vk_client -r -f usefile -n gv_rw_work:x -m D",
        "run m vk_client -r -f usefile -n gv_rw_work:../x -m d", "run m vk_client -r -f usefile -n gv_ro_bin:qtc -m d",
        "run m vk_execute_update", "run m vk_execute_update -f", "run m vk_execute_update x.deb -o y",
        "run m vk_execute_update x.deb -f -f", "run m vk_execute_update ../x.deb",
        "run m vk_execute_update -ox x.deb", "run m vk_execute_update x.deb%0A"};
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
    for (const TEXTS& asWrong : {TEXTS{"--config"}, TEXTS{"--confg", "/x"}, TEXTS{"-c", "a", "b"},
                                 TEXTS{"--packages", "all"}})
        EXPECT_EQ(CALLED(TEXTS{sBESIDE("vk_ctrl")} + asWrong).iExit, 2);
    EXPECT_THAT(ASKED("request", "run m qtc " + std::string((1 << 20) - 99, 'x')).sOut,
                HasSubstr(sREFUSED));
    // Cut off, it might have been to say more.
    EXPECT_THAT(ASKED("request", "run m qtc -h").sOut, HasSubstr("an unterminated request"));
}

TEST_F(GATE, runs_a_program_with_its_words_in_an_environment_of_its_own)
{
    WRITE_PROGRAM(CLIENT_PATH("ctrl1", "velka/bin/qtc_ndmp"), "printf '<%s>' \"$@\"; env; exit 3");
    const SETTINGS    environment{{"VK_INI", "/nowhere"},
                               {"gv_ro_bin", "/bin/"},
                               {"EVIL", "1"},
                               {"BASH_ENV", "/tmp/x"},
                               {"PATH", "/tmp"}};
    const std::string sWords =
        "run m-1 qtc_ndmp -D -s dir -a "
        "auth=md5,server=nas,user=,passwd=%20%3Bid%24%28id%29%C3%A4%2C";
    for (const bool bFollows : {false, true}) {
        const RUN run = bFollows ? ASKED("request", sWords + "\n", true, environment)
                                 : ASKED(sWords, "", true, environment);
        EXPECT_EQ(run.iExit, 3);
        EXPECT_THAT(run.sOut, StartsWith("m-1 begin\n<-D><-s><dir><-a><auth=md5,server=nas,user=,"
                                         "passwd= ;id$(id)ä,>"));
        EXPECT_THAT(run.sOut, AllOf(HasSubstr("\nSHELL=/bin/sh\n"), EndsWith("\n\nm-1 3\n")));
        EXPECT_THAT(run.sOut, HasSubstr("PATH=" + CLIENT_PATH("ctrl1", "velka/bin:/")));
        EXPECT_THAT(run.sOut, Not(AnyOf(HasSubstr("EVIL"), HasSubstr("SSH_"), HasSubstr("gv_"),
                                        HasSubstr("BASH_ENV"), HasSubstr("/nowhere"))));
    }
    EXPECT_THAT(ASKED("list m").sOut,
                AllOf(StartsWith("m begin\n.\n..\n"), HasSubstr("\ntmp\n"), EndsWith("\n\nm 0\n")));
    fs::remove(CLIENT_PATH("ctrl1", "velka/bin/qtc_ndmp"));
    EXPECT_THAT(ASKED(sWords, "", true).sOut,
                AllOf(HasSubstr("No such file"), EndsWith("\nm-1 127\n")));
}

TEST_F(GATE, takes_the_files_of_an_update_whole_or_not_at_all)
{
    struct ROW {
        const char *cpPath, *cpSize, *cpMode;
        size_t      uSent;
        const char* cpArrived;  // below velka/, null: refused
    };
    m_asPackages = {"--packages", "any"};
    fs::create_directory_symlink("/tmp", sWORK("link"));
    fs::create_symlink(sDIR() + "/outside", sWORK("file"));
    fs::create_symlink(sDIR() + "/outside", sWORK("half.part"));
    WRITE_FILE(sDIR() + "/mine", "mine");
    fs::create_hard_link(sDIR() + "/mine", sWORK("hard.part"));
    std::vector<ROW> rows{
        {"gv_rw_work:hard", "10", "644", 10, "work/hard"},
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
    EXPECT_EQ(sREAD_FILE(sDIR() + "/mine"), "mine");
    TEXTS asName;
    for (const auto& entry : fs::directory_iterator{sWORK("")})
        asName.push_back(entry.path().filename());
    EXPECT_THAT(asName, UnorderedElementsAre("a.deb", "hard", "tmp", "link", "file", "half.part"));
    HOST host;
    host.sName = "ctrl1";
    host.sAccessMode = "CTRL";
    host.sPlatform = "LINUX";
    for (const auto& [sFile, sCause] :
         SETTINGS{{"/none/x", "No such file or directory"}, {"/etc", "Is a directory"}}) {
        const COPY_END end = TRANSPORT_OF(host).sctPUT(host, sFile, "gv_rw_work:y", nullptr);
        EXPECT_FALSE(end.bDone);
        EXPECT_EQ(end.sReason, "cannot read \"" + sFile + "\": " + sCause);
    }
    EXPECT_THAT(ASKED("put m gv_rw_work:huge 4000000000000000000 644").sOut,
                AllOf(HasSubstr("no space left"), EndsWith("\nm 1\n")));

    // By default they lie in a folder of the server's own, which no link leads out of.
    m_asPackages = {};
    ASKED("put m gv_rw_work:/tmp/a.deb 1 644", "x");
    EXPECT_EQ(sREAD_FILE(sWORK("from_server/tmp/a.deb")), "x");
    ASKED("run m vk_client -r -f usefile -n gv_rw_work:a.deb -m d");
    EXPECT_TRUE(fs::exists(sWORK("a.deb")));
    ASKED("run m vk_client -r -f usefile -n gv_rw_work:/tmp/a.deb -m d");
    EXPECT_TRUE(fs::is_empty(sWORK("from_server")));
    fs::create_directory_symlink(sWORK(""), sWORK("from_server/link"));
    EXPECT_THAT(ASKED("run m vk_client -r -f usefile -n gv_rw_work:link/a.deb -m d").sOut,
                HasSubstr(sREFUSED));
    m_asPackages = {"--packages", "none"};
    EXPECT_THAT(ASKED("put m gv_rw_work:b.deb 1 644", "x").sOut,
                AllOf(HasSubstr("takes no packages"), EndsWith("\nm 1\n")));
    EXPECT_THAT(ASKED("run m vk_execute_update b.deb").sOut, HasSubstr("takes no packages"));
}

TEST_F(GATE, a_program_ends_with_the_connection_but_an_update_goes_on)
{
    m_asPackages = {"--packages", "any"};
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

TEST_F(GATE, a_stolen_key_changes_nothing_but_the_folder_of_the_server)
{
    SIGN("the package", "admin");
    const std::string sSig = sREAD_FILE(sRW() + "work/packages/" + sDEB + ".sig");
    const std::string sEvil = "#!/bin/sh\ntouch " + sDIR() + "/evil\n";
    const SETTINGS    before = FILES();
    const auto        PUT = [&](const std::string& sPath, const std::string& sBytes) {
        SSH({"ctrl1", "put m " + sPath + " " + std::to_string(sBytes.size()) + " 777"}, {}, sBytes,
                   false);
    };
    for (const char* cpPath :
         {"gv_ro_bin:vk_execute_update", "gv_rw_work:qir-gpg.key",
          "gv_rw_work:vk_execute_update.conf", "gv_rw_work:vk_execute_update.tmp/package/x.deb",
          "gv_rw_work:../bin/qtc", "gv_rw_work:x.deb", "gv_rw_ini:packages.d/thief.gpg"})
        PUT(cpPath, sEvil);
    PUT("gv_rw_work:x.deb.sig", sSig);
    for (const char* cpWords :
         {"vk_execute_update x.deb -f", "vk_execute_update vk_execute_update.tmp/package/x.deb",
          "qtc -h", "qtc -b -s NULL:64:32 -S thief.example gv_rw_ini:vk.ini",
          "qtc -b -d . -s bck_test_x.tmp -S thief.example /etc/velka2000.ini",
          "qtc_ndmp -D -s dir -a auth=md5,server=thief.example,user=u,passwd=p",
          "vk_client -r -f usefile -n gv_rw_work:vk_execute_update.log -m d",
          "vk_client -r -f usefile -n gv_rw_work:../authorized_keys -m d",
          "vk_client -r -f usefile -n gv_rw_work:velka_update -m D"})
        SSH({"ctrl1", std::string("run m ") + cpWords});
    const SETTINGS after = FILES();
    TEXTS          asChanged;
    for (const auto& files : {before, after})
        for (const auto& [sPath, sHeld] : files)
            if (!before.contains(sPath) || !after.contains(sPath) ||
                before.at(sPath) != after.at(sPath))
                asChanged.push_back(sPath);
    EXPECT_THAT(asChanged, IsEmpty());
    EXPECT_FALSE(fs::exists(sDIR() + "/evil"));
    EXPECT_EQ(iCOUNT_PROCESSES("VK_INI=" + CLIENT_PATH("ctrl1", "vk.ini"), 10000), 0);
    EXPECT_THAT(CLIENT_LOG("ctrl1"), Each(Not(HasSubstr("velka_installer"))));
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

    const auto UPDATE = [&] { return CONFIG_CLIENT({"-c", "ctrl1", "-U", "-F", "-P", sDEB}); };
    SIGN(std::string(3'000'000, 'p'), "admin");
    run = UPDATE();
    EXPECT_EQ(run.iExit, 0) << run.sOut;
    EXPECT_EQ(run.sErr, "");
    EXPECT_EQ(COLUMN("ctrl1", "update_state"), "0");
    EXPECT_THAT(sREAD_FILE(CLIENT_PATH("ctrl1", "velka/ini/vk.ini")), HasSubstr("version=5.2.0-4"));
    EXPECT_FALSE(fs::exists(sWORK("qir-gpg.key"))) << "the client's own keys decide";
    EXPECT_TRUE(fs::is_empty(sWORK("from_server"))) << "cleaned up";

    // What its administrator has not signed reaches no installer.
    WRITE_FILE(CLIENT_PATH("ctrl1", "log/commands"), "");
    SWITCH("ctrl1", "qtc", {"velka_version=5.1.0-3"});
    SIGN("another", "admin");
    PACKAGE(sDEB, "and another");
    EXPECT_THAT(UPDATE().sOut, AllOf(HasSubstr("E021"), HasSubstr("is bad")));
    SIGN("another", "thief");
    EXPECT_THAT(UPDATE().sOut,
                HasSubstr("not among " + CLIENT_PATH("ctrl1", "velka/ini/packages.d")));
    fs::remove(sRW() + "work/packages/" + sDEB + ".sig");
    EXPECT_THAT(UPDATE().sOut, HasSubstr("has no signature"));
    EXPECT_THAT(OUTCOMES().back(), HasSubstr("\"cause\":\"package-unsigned\""));
    for (const char* cp : {"velka/work", "velka/ini/packages.d/admin.asc"}) {
        chmod(CLIENT_PATH("ctrl1", cp).c_str(), 0777);
        EXPECT_THAT(UPDATE().sOut, HasSubstr("others than root may change it"));
        chmod(CLIENT_PATH("ctrl1", cp).c_str(), 0755);
    }
    EXPECT_THAT(CLIENT_LOG("ctrl1"), Each(StrEq("qtc -h")));
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
        const TEXTS asWhere{"--file", sFile, "--config", sIni, "--mode", cpMode};
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
        const std::string sLine =
            (cpMode[0] == 'C' ? "restrict,command=\"" + sBESIDE("vk_ctrl") + " --config " + sIni +
                                    " --packages signed\" "
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

/* set_client as root types it, with an sshd that reads the configuration of the test. */
class ADMISSION : public SANDBOX {
protected:
    void SetUp() override
    {
        SANDBOX::SetUp();
        for (const char* cp : {"bin", "keys", "velka/ini"})
            fs::create_directories(sDIR() + "/client/" + cp);
        WRITE_FILE(sINI(), "[variables]\ngv_rw_ini = " + sDIR() + "/client/velka/ini\n");
        WRITE_PROGRAM(sDIR() + "/client/bin/sshd",
                      "exec /usr/sbin/sshd -f " + sDIR() + "/client/sshd_config \"$@\"");
        CALLED({"ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", sDIR() + "/client/host_key"});
        SSHD("StrictModes no\n");
    }
    void SSHD(const std::string& sMore)
    {
        WRITE_FILE(sDIR() + "/client/sshd_config", "HostKey " + sDIR() + "/client/host_key\n" +
                                                       sMore + "AuthorizedKeysFile " + sFILE() +
                                                       "\nPermitRootLogin prohibit-password\n");
    }
    RUN SETUP(const TEXTS& asArgument, const std::string& sInput = "")
    {
        return CALLED(TEXTS{sBESIDE("vk_setup")} + asArgument,
                      {{"PATH", sDIR() + "/client/bin:/usr/bin:/bin"}, {"VK_INI", sINI()}}, sInput);
    }
    std::string sINI() { return sDIR() + "/client/vk.ini"; }
    std::string sFILE() { return sDIR() + "/client/keys/root"; }
    std::string sKEY(const char* cp = "ctrl")
    {
        return asLINES(sREAD_FILE(sDIR() + "/keys/" + cp + ".pub"))[0];
    }
};

TEST_F(ADMISSION, what_is_typed_holds_and_a_pasted_or_kept_line_brings_keys_only)
{
    for (const std::string sSays : {"--mode VKSSH", "--packages any", "--file /tmp/x",
                                    "--config /tmp/x", "--from 192.0.2.9"}) {
        SCOPED_TRACE(sSays);
        const RUN run = SETUP({"set_client", "srv", "--from", "192.0.2.1"},
                              "vk_setup set_client srv " + sSays + " " + sKEY() + "\n");
        EXPECT_EQ(run.iExit, 2);
        EXPECT_THAT(run.sOut, HasSubstr("nothing was changed"));
    }
    EXPECT_THAT(SETUP({"set_client", "srv"}, "vk_setup set_client other " + sKEY() + "\n").sOut,
                HasSubstr("the name other"));
    EXPECT_EQ(SETUP({"set_client", "srv", "--config", "/nowhere.ini", sKEY()}).iExit, 2);
    EXPECT_EQ(SETUP({"set_client", "srv", "--mode", "VKSSH", "--packages", "any", sKEY()}).iExit,
              2);
    EXPECT_FALSE(fs::exists(sFILE()));

    const std::string sKept = sDIR() + "/client/velka/ini/permits/srv.CTRL";
    const std::string sFolder = sDIR() + "/client/keys";
    WRITE_FILE(sFILE(), sKEY() + "\n");                  // sshd takes the first line of a key
    sctSHELL("chown 65534:65534 " + sFolder + " 2>&1");  // by root
    EXPECT_EQ(SETUP({"set_client", "srv", "--packages", "none"},
                    "set_client srv --mode CTRL --from 192.0.2.1 " + sKEY() + "\n")
                  .iExit,
              0);
    EXPECT_THAT(sREAD_FILE(sFILE()), AllOf(StartsWith("restrict,from=\"192.0.2.1\",command="),
                                           HasSubstr(" --packages none\"")));
    const TEXTS asOwner = asLINES(sctSHELL("stat -c %u:%g " + sFolder + " " + sFILE()).sOut);
    EXPECT_THAT(asOwner, ElementsAre(asOwner[0], asOwner[0]));
    EXPECT_EQ(sREAD_FILE(sKept + "-none"), "--from 192.0.2.1 " + sKEY() + "\n");
    // What is kept opens no more than it did.
    fs::remove(sFILE());
    EXPECT_EQ(SETUP({"set_client", "srv"}).iExit, 0);
    EXPECT_THAT(sREAD_FILE(sFILE()), HasSubstr(" --packages none\""));
    WRITE_FILE(sKept + "-none", "--mode VKSSH " + sKEY() + "\n");
    EXPECT_EQ(SETUP({"set_client", "srv"}).iExit, 2);
    chmod((sKept + "-none").c_str(), 0666);
    EXPECT_THAT(SETUP({"set_client", "srv"}).sOut, HasSubstr("others may have written it"));
    EXPECT_EQ(asLINES(sREAD_FILE(sFILE())).size(), 1U);
}

TEST_F(ADMISSION, a_renamed_server_stays_admitted_when_its_old_name_is_taken_back)
{
    for (const char* cpMode : {"CTRL", "VKSSH"}) {
        SCOPED_TRACE(cpMode);
        SETUP({"set_client", "old", "--mode", cpMode, sKEY()});
        const RUN run = SETUP({"set_client", "new", "--mode", cpMode, sKEY()});
        EXPECT_THAT(run.sOut, HasSubstr("removed the line of old, which is new now"));
        SETUP({"unset_client", "old"});
        EXPECT_THAT(asLINES(sREAD_FILE(sFILE())), ElementsAre(EndsWith(sKEY() + " vk_setup:new")));
        EXPECT_EQ(SETUP({"set_client", "old"}).iExit, 2) << "nothing of the old name is kept";
        SETUP({"unset_client", "new", "--mode", cpMode[0] == 'C' ? "VKSSH" : "CTRL"});
        EXPECT_EQ(asLINES(sREAD_FILE(sFILE())).size(), 1U) << "the line of this mode";
        SETUP({"unset_client", "new"});
    }
    WRITE_FILE(sFILE(), sKEY() + "\n");  // sshd takes the first line of a key
    SETUP({"set_client", "srv", sKEY()});
    EXPECT_THAT(sREAD_FILE(sFILE()), StartsWith("restrict,"));
}

TEST_F(ADMISSION, what_keeps_the_server_out_is_told_with_its_setting)
{
    EXPECT_THAT(SETUP({"set_client", "srv", sKEY()}).sOut,
                AllOf(HasSubstr("packages.d/: put the public keys"), Not(HasSubstr("sshd:"))));
    const std::pair<const char*, const char*> asRow[] = {
        {"PermitRootLogin no", "PermitRootLogin no blocks"},
        {"PubkeyAuthentication no", "PubkeyAuthentication no blocks"},
        {"AllowUsers admin", "AllowUsers blocks"},
        {"AllowUsers !root *", "AllowUsers blocks"},
        {"DenyUsers ro*", "DenyUsers blocks"},
        {"AllowGroups wheel", "AllowGroups blocks"},
        {"AuthenticationMethods publickey,password", "AuthenticationMethods"},
        {"ForceCommand /bin/true", "ForceCommand /bin/true blocks"},
        {"Match User root\nPermitRootLogin no\nMatch all", "PermitRootLogin no blocks"},
        {"AcceptEnv BASH_*", "AcceptEnv BASH_* lets"}};
    for (const auto& [cpSetting, cpTold] : asRow) {
        SCOPED_TRACE(cpSetting);
        SSHD(std::string("StrictModes no\n") + cpSetting + "\n");
        const RUN run = SETUP({"set_client", "srv"});
        EXPECT_EQ(run.iExit, 1);
        EXPECT_THAT(run.sOut, HasSubstr(cpTold));
    }
    SSHD("StrictModes no\nAllowUsers root@192.0.2.* admin\nAuthenticationMethods any\n");
    EXPECT_EQ(SETUP({"set_client", "srv", "--from", "192.0.2.7", sKEY()}).iExit, 0);
    SSHD("");
    chmod((sDIR() + "/client/keys").c_str(), 0777);
    EXPECT_THAT(SETUP({"set_client", "srv"}).sOut,
                HasSubstr("chmod go-w " + sDIR() + "/client/keys"));
    WRITE_FILE(sDIR() + "/client/sshd_config", "nonsense\n");
    EXPECT_THAT(CALLED({sBESIDE("vk_setup"), "unset_client", "srv", "--file", sFILE()}).sOut,
                HasSubstr("removed a line of srv"));
}

TEST_F(SANDBOX, set_client_refuses_what_is_no_key_or_no_file_of_its_own)
{
    const std::string                   sKey = asLINES(sREAD_FILE(sDIR() + "/keys/ctrl.pub"))[0];
    const std::string                   sFile = sDIR() + "/authorized_keys";
    const std::pair<TEXTS, const char*> asRow[] = {
        {{"velkasrv", sKey.substr(0, 40)}, "incomplete"},
        {{"velkasrv", "nonsense"}, "not a public key"},
        {{"velkasrv", sDIR() + "/keys/ctrl"}, "private key"},
        {{"velkasrv", "/nowhere.pub"}, "cannot read"},
        {{"a b", sKey}, "not a server name"},
        {{"velkasrv", "--mode", "SSH", sKey}, "not CTRL or VKSSH"},
        {{"velkasrv", "--from", "10.0.0.1\",command=\"sh", sKey}, "not a list of addresses"},
        {{"velkasrv", "--config", "/a\" b", sKey}, "not an absolute path"},
        {{"velkasrv", "--what", sKey}, "unknown option"},
        {{"velkasrv", "--from", "", sKey}, "--from needs a value"},
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
