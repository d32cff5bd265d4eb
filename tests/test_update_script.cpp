/* The update script of Unix-like clients, run by sh in a work directory of its own
   with keys made for the occasion and a stand-in for the system's installer. */
#include "common/text/command_line.h"
#include "sandbox_fixture.h"

using namespace testing;

namespace {

const std::string sSCRIPT = std::string(VK_SOURCE_DIR) + "/skel/vk_execute_update";
const std::string sNAME = "/tmp/velka-cli_4.4.1-14.deb";

// A shell line with its errors; what does not end by itself is ended after half a minute.
RUN SHELL_LINE(const std::string& sLine)
{
    return sctSHELL("exec 2>&1; timeout 30 sh -c '" + sLine + "'");
}

std::string sLAST(const RUN& run)
{
    return run.sOut.empty() ? "" : asLINES(run.sOut).back();
}

class UPDATE_SCRIPT : public Test {
protected:
    // The two product keys, and the home that can sign with them.
    static void SetUpTestSuite()
    {
        pathKeys = sTEMP_DIR();
        for (const std::string sKey : {"qir-gpg", "qir-gpg-2026"}) {
            const RUN made = SHELL_LINE(
                sGPG() + "--quick-generate-key \"" + sID(sKey) + "\" ed25519 sign never && " +
                sGPG() + "--export \"=" + sID(sKey) + "\" >" + (pathKeys / sKey).string() + ".key");
            ASSERT_EQ(made.iExit, 0) << made.sOut;
        }
        // One of them armoured.
        SHELL_LINE(sGPG() + "--armor --export \"=" + sID("qir-gpg") + "\" >" + pathKeys.string() +
                   "/qir-gpg.key");
    }
    static void TearDownTestSuite()
    {
        SHELL_LINE("gpgconf --homedir " + pathKeys.string() + " --kill all");
        // The agent takes its sockets away while it ends, at the same moment.
        std::error_code error;
        for (int iTry = 0; iTry < 100 && fs::exists(pathKeys); iTry++)
            fs::remove_all(pathKeys, error);
    }
    static std::string sGPG()
    {
        return "gpg --homedir " + pathKeys.string() + " --batch --yes --quiet --passphrase \"\" ";
    }
    static std::string sID(const std::string& sKey)
    {
        return sKey + " <" + sKey + "@sandbox.invalid>";
    }

    void SetUp() override
    {
        pathWork = sTEMP_DIR();
        fs::create_directory(pathWork / "tmp");
        for (const char* cpKey : {"qir-gpg.key", "qir-gpg-2026.key"})
            fs::copy_file(pathKeys / cpKey, pathWork / cpKey);
        WRITE_FILE(sFILE(), "the package\n");
        INSTALLER("cat \"$1\" >\"$VELKA_WORK/installed\"");
    }
    void TearDown() override { fs::remove_all(pathWork); }

    std::string sFILE() const { return pathWork.string() + sNAME; }
    bool        bInstalled() const { return fs::exists(pathWork / "installed"); }

    void INSTALLER(const std::string& sBody) const { WRITE_PROGRAM(pathWork / "installer", sBody); }
    void SIGN(const std::string& sKey, const std::string& sOptions = "") const
    {
        const RUN ran = SHELL_LINE(sGPG() + "-u \"=" + sID(sKey) + "\" " + sOptions +
                                   " --detach-sign " + sFILE());
        ASSERT_EQ(ran.iExit, 0) << ran.sOut;
    }
    std::string sCommand(const std::string& sArguments) const
    {
        return "VELKA_WORK=" + pathWork.string() + " VELKA_INSTALLER=" + pathWork.string() +
               "/installer sh " + sSCRIPT + " " + sArguments;
    }
    RUN UPDATE(const std::string& sArguments = sNAME, const std::string& sBefore = "") const
    {
        return SHELL_LINE(sBefore + " " + sCommand(sArguments));
    }

    static inline fs::path pathKeys;
    fs::path               pathWork;
};

TEST_F(UPDATE_SCRIPT, a_good_signature_of_either_key_and_none_at_all_install_the_package)
{
    for (const char* cpKey : {"qir-gpg", "qir-gpg-2026", ""}) {
        SCOPED_TRACE(cpKey);
        for (const char* cpForm : {"", "--armor"}) {  // .sig, .asc
            fs::remove(pathWork / "installed");
            for (const char* cpSuffix : {".sig", ".asc"}) fs::remove(sFILE() + cpSuffix);
            if (*cpKey != '\0') SIGN(cpKey, cpForm);
            const RUN ran = UPDATE();
            EXPECT_EQ(ran.iExit, 0);
            EXPECT_EQ(ran.sOut,
                      "STATUS=SUCCESS MSG=\"package /tmp/velka-cli_4.4.1-14.deb installed\"\n");
            EXPECT_EQ(sREAD_FILE(pathWork / "installed"), "the package\n");
        }
    }
    EXPECT_FALSE(fs::exists(pathWork / "vk_execute_update.tmp"));
}

TEST_F(UPDATE_SCRIPT, a_package_that_cannot_be_trusted_reaches_no_installer)
{
    const auto EXPECT_REFUSED = [this](const RUN& ran, const char* cpReason) {
        SCOPED_TRACE(cpReason);
        EXPECT_EQ(ran.iExit, 2);
        EXPECT_THAT(sLAST(ran), StartsWith("STATUS=ERROR MSG=\""));
        EXPECT_THAT(sLAST(ran), HasSubstr(cpReason));
        EXPECT_FALSE(bInstalled());
    };
    EXPECT_REFUSED(UPDATE(sNAME, "VELKA_SIGNATURE=required"), "no signature");

    SIGN("qir-gpg-2026");
    fs::remove(pathWork / "qir-gpg-2026.key");
    EXPECT_REFUSED(UPDATE(), "not among the product's keys");
    fs::remove(pathWork / "qir-gpg.key");
    EXPECT_REFUSED(UPDATE(), "no key file");
    fs::copy_file(pathKeys / "qir-gpg-2026.key", pathWork / "qir-gpg-2026.key");
    WRITE_FILE(sFILE(), "another package\n");
    EXPECT_REFUSED(UPDATE(), "is bad");
    WRITE_FILE(sFILE() + ".sig", "rubbish");
    EXPECT_REFUSED(UPDATE(), "cannot be checked");

    // gpgv alone calls the signature of an expired key good.
    const std::string sThen = "--faked-system-time 20200101T000000! ";
    ASSERT_EQ(SHELL_LINE(sGPG() + sThen +
                         "--quick-generate-key \"old <old@sandbox.invalid>\" ed25519 sign 1y && " +
                         sGPG() + "--export old >" + (pathWork / "qir-gpg.key").string())
                  .iExit,
              0);
    SIGN("old", sThen);
    EXPECT_REFUSED(UPDATE(), "expired");
}

TEST_F(UPDATE_SCRIPT, bad_input_ends_with_one_line_and_no_installer)
{
    constexpr std::pair<const char*, const char*> asRow[] = {
        // clang-format off
        {"", "no package named"}, {"/tmp/other.deb", "is missing"},
        {"/tmp/../tmp/velka-cli_4.4.1-14.deb", "leads out of the work directory"},
        {"x.deb -o", "option -o needs a value"}, {"x.deb -v loud", "is no number"},
        {"x.deb -q", "unknown option -q"}, {"x.deb y.deb", "more than one package"},
        // clang-format on
    };
    for (const auto& [cpArguments, cpReason] : asRow) {
        const RUN ran = UPDATE(cpArguments);
        SCOPED_TRACE(ran.sOut);
        EXPECT_EQ(ran.iExit, 2);
        EXPECT_THAT(ran.sOut, HasSubstr(cpReason));
        EXPECT_EQ(asLINES(ran.sOut).size(), 1U);
    }
    EXPECT_FALSE(bInstalled());
}

TEST_F(UPDATE_SCRIPT, a_failing_installer_gives_its_status_and_the_line_that_tells_most)
{
    INSTALLER("echo one; echo 'error: \"postinst\" of it`s <said> \"no\"'; echo velka-cli; exit 7");
    RUN ran = UPDATE();
    EXPECT_EQ(ran.iExit, 7);
    EXPECT_EQ(
        ran.sOut,
        "STATUS=ERROR MSG=\"installation of /tmp/velka-cli_4.4.1-14.deb failed with status 7: "
        "error: 'postinst' of it`s <said> 'no'\"\n");

    INSTALLER("echo 'x: error processing velka-cli:'; echo ' its cause'; echo velka-cli; exit 100");
    ran = UPDATE();
    EXPECT_EQ(ran.iExit, 100);
    EXPECT_THAT(sLAST(ran), EndsWith("status 100: x: error processing velka-cli:  its cause\""));

    INSTALLER("exit 1");  // 1 would say that there is only a warning
    EXPECT_EQ(UPDATE().iExit, 2);

    // The reason is cut at the end of a character, not within its three bytes.
    INSTALLER("awk 'BEGIN { for (i = 0; i < 30000; i++) printf \"\\342\\202\\254\" }'; exit 3");
    ran = UPDATE();
    const size_t uEuro = sLAST(ran).find("\342\202\254");
    ASSERT_NE(uEuro, std::string::npos) << sLAST(ran);
    EXPECT_EQ((sLAST(ran).size() - uEuro - 1) % 3, 0U) << sLAST(ran);
    EXPECT_LT(sLAST(ran).size(), 1100U);

    INSTALLER("yes | head -c 9000000; exit 3");
    ran = UPDATE(sNAME + " -v 1");
    EXPECT_EQ(ran.iExit, 3);
    EXPECT_LT(ran.sOut.size(), 10000U);
    EXPECT_LT(fs::file_size(pathWork / "vk_execute_update.log"), 5000000U);
}

TEST_F(UPDATE_SCRIPT, options_reach_the_installer_as_words_and_a_service_pack_is_called_so)
{
    INSTALLER("shift; printf '%s.' \"$VELKA_FORCE\" \"$@\" >\"$VELKA_WORK/arguments\"");
    const RUN ran = UPDATE(sNAME + " -f -s -v 1 -o \"--root=/x *\"");
    EXPECT_EQ(sREAD_FILE(pathWork / "arguments"), "1.--root=/x.*.");
    EXPECT_EQ(sLAST(ran),
              "STATUS=SUCCESS MSG=\"service pack /tmp/velka-cli_4.4.1-14.deb installed\"");
}

TEST_F(UPDATE_SCRIPT, the_package_is_taken_over_and_a_long_installation_says_that_it_lives)
{
    INSTALLER("rm -r \"$VELKA_WORK/tmp\"; sleep 2; cd / && cat \"$1\"; ls \"$1\".*");
    SIGN("qir-gpg");
    const RUN ran = SHELL_LINE("cd " + pathWork.string() +
                               " && VELKA_WORK=/proc/self/cwd VELKA_ALIVE=1 "
                               "VELKA_INSTALLER=./installer sh " +
                               sSCRIPT + " " + sNAME);
    EXPECT_EQ(ran.iExit, 0) << ran.sOut;
    EXPECT_THAT(ran.sOut, StartsWith("still at work after 1 s: " + sNAME + "\n"));
    const std::string sTaken = pathWork.string() + "/vk_execute_update.tmp";
    EXPECT_EQ(sREAD_FILE(pathWork / "vk_execute_update.log"),
              "the package\n" + sTaken + "/package/velka-cli_4.4.1-14.deb.sig\n");
    EXPECT_FALSE(fs::exists(sTaken));
}

TEST_F(UPDATE_SCRIPT, two_runs_exclude_each_other_and_what_an_installer_leaves_behind_does_not)
{
    // The first installer runs until the second update has been refused.
    const std::string sGate = (pathWork / "gate").string();
    INSTALLER("echo >" + sGate + ".in; read x <" + sGate + ".out");
    const RUN both =
        SHELL_LINE("mkfifo " + sGate + ".in " + sGate + ".out; { " + sCommand(sNAME) +
                   "; echo first=$?; } & " + "read x <" + sGate + ".in; " + sCommand(sNAME) +
                   "; echo second=$?; " + "echo >" + sGate + ".out; wait");
    EXPECT_EQ(both.iExit, 0);
    EXPECT_EQ(both.sOut,
              "STATUS=WARNING MSG=\"another update is running on this client; nothing was done\"\n"
              "second=1\n"
              "STATUS=SUCCESS MSG=\"package /tmp/velka-cli_4.4.1-14.deb installed\"\n"
              "first=0\n");

    // A service started by the package lives on with the output open.
    INSTALLER("echo ready; sleep 25 & echo $! >\"$VELKA_WORK/service\"");
    const RUN first = UPDATE();
    EXPECT_EQ(first.iExit, 0) << first.sOut;
    EXPECT_EQ(sREAD_FILE(pathWork / "vk_execute_update.log"), "ready\n");
    const std::string sService = sREAD_FILE(pathWork / "service");
    INSTALLER("exit 0");
    EXPECT_EQ(UPDATE().iExit, 0);
    EXPECT_EQ(SHELL_LINE("kill " + sService).iExit, 0) << "the service was to be alive";
}

TEST_F(UPDATE_SCRIPT, a_killed_run_does_not_hinder_the_next)
{
    INSTALLER("kill -KILL $PPID; exit 0");
    EXPECT_NE(UPDATE().iExit, 0);
    INSTALLER("cat \"$1\" >\"$VELKA_WORK/installed\"");
    SIGN("qir-gpg");
    EXPECT_EQ(UPDATE().iExit, 0);
    EXPECT_TRUE(bInstalled());
    EXPECT_FALSE(fs::exists(pathWork / "vk_execute_update.tmp"));
}

/* Lines as the server forms them, read by the Windows interpreter. */
TEST_F(UPDATE_SCRIPT, on_Windows_no_character_of_a_value_means_anything)
{
    if (!fs::exists("/usr/bin/wine")) GTEST_SKIP() << "the package wine is not installed";
    const auto WINE = [this](const char* cpFormat, const std::string& sValue) {
        char szLine[1024];
        EXPECT_TRUE(iCMD(szLine, SHELL_WINDOWS, cpFormat, sValue));
        fs::remove(pathWork / "arguments");
        WRITE_FILE(pathWork / "line", std::string(szLine) + "\r\n");
        const std::string sWork = "Z:" + pathWork.string();
        const std::string sRun = "cd " + pathWork.string() +
                                 " && WINEDEBUG=-all WINEPREFIX=" + (pathWork / "wine").string() +
                                 " VELKA_WORK=" + sWork + " VELKA_INSTALLER=" + sWork +
                                 "/show.exe timeout -k 1 100 wine cmd /d /q <line >output 2>&1";
        EXPECT_EQ(std::system(sRun.c_str()), 0);
        EXPECT_TRUE(bWAIT_UNTIL(10000, [&] { return fs::exists(pathWork / "arguments"); }))
            << sREAD_FILE(pathWork / "output");
        return sREAD_FILE(pathWork / "arguments");
    };
    WRITE_PROGRAM(pathWork / "show.exe",
                  "cd " + pathWork.string() + "\nprintf '[%s]' \"$@\" >part\nmv part arguments");
    fs::copy_file(std::string(VK_SOURCE_DIR) + "/skel/vk_execute_update.cmd",
                  pathWork / "update.cmd");
    WRITE_FILE(pathWork / "x_5.1.0-3.exe", "the package\n");

    EXPECT_EQ(WINE("show.exe %s", "A=%OS%&echo x>PWNED \"!^|"), "[A=%OS%&echo x>PWNED \"!^|]");
    const char* cpUpdate = "update.cmd x_5.1.0-3.exe -v 1 -o \"%s\"";
    EXPECT_THAT(WINE(cpUpdate, "A=1&echo x>PWNED&rem "), EndsWith("exe][A=1&echo][x>PWNED&rem]"));
    EXPECT_THAT(WINE(cpUpdate, "P=\"a b\" X=1^2|<>"), EndsWith("exe][P=a b][X=1^2|<>]"));
    EXPECT_THAT(sREAD_FILE(pathWork / "output"),
                HasSubstr("MSG=\"package x_5.1.0-3.exe installed"));
    EXPECT_FALSE(fs::exists(pathWork / "PWNED"));
    EXPECT_FALSE(fs::exists(pathWork / "vk_execute_update.tmp"));
    SHELL_LINE("WINEPREFIX=" + (pathWork / "wine").string() + " wineserver -k");
}

}  // namespace
