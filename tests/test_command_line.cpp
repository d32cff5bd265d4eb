/* The command line and vk.ini of a run: what each option does, and how a value
   without sense is refused. */
#include <algorithm>

#include "kernel/velka.h"
#include "sandbox_fixture.h"

using namespace testing;

namespace {

class COMMAND_LINE : public SANDBOX {
protected:
    /* Registers a client that no test reaches, with more options. */
    RUN REGISTER(const std::string& sName, const TEXTS& asMore)
    {
        return CONFIG_CLIENT(TEXTS{"-c", sName, "-o", "Linux", "-m", "VIRTUAL"} + asMore);
    }
};

TEST_F(COMMAND_LINE, one_word_that_asks_for_help_gives_64_lines_and_touches_nothing)
{
    for (const char* cpWord : {"-h", "-?", "/?", "?", "?x", "--help"}) {
        SCOPED_TRACE(cpWord);
        const RUN run = CONFIG_CLIENT({cpWord});
        EXPECT_EQ(run.iExit, 0);
        EXPECT_EQ(run.sErr, "");
        TEXTS asLine = asLINES(run.sOut);
        ASSERT_EQ(asLine.size(), 64U);
        EXPECT_EQ(asLine[0], gszGitId);
        EXPECT_EQ(asLine[1], std::string(80, '-'));
        EXPECT_EQ(asLine[63], asLine[1]);
        EXPECT_THAT(asLine[59], HasSubstr("-P \"C:\\Temp\\velka_sp_srv-201909171332_2665822_4.4.3."
                                          "73_windows_x64.exe\""));
    }
    EXPECT_EQ(CONFIG_CLIENT({"--version"}).sOut, std::string(gszGitId) + "\n");
    EXPECT_THAT(STATEMENTS(), IsEmpty());
    EXPECT_THAT(PROTOCOL(), IsEmpty());
}

TEST_F(COMMAND_LINE, wrong_options_are_told_and_the_run_goes_on)
{
    ADD_CLIENT("virt1", "VIRTUAL");
    const std::string                   sRow = COLUMN("virt1", "clients::text");
    const std::pair<const char*, TEXTS> asRow[] = {
        {"-", {"--dry-run", "-U", "-c", "virt1", "-P", "velka-cli_5.2.0-4.deb"}},
        {"x", {"-S", "-P", "velka_sp-1_1_5.1.0-3.deb", "virt1", "-x"}},
        {"n", {"-C", "d", "-n", "-c", "virt1"}},
        {"h", {"-h", "-c", "virt1", "-C", "r"}},
        {"x", {"-c", "virt1", "-xC", "r"}}};
    for (const auto& [cpWrong, asArgument] : asRow) {
        const RUN  run = CONFIG_CLIENT(asArgument);
        const bool bChange = asArgument.back() != "r";
        SCOPED_TRACE(run.sErr);
        EXPECT_EQ(run.iExit, bChange ? 2 : 0);
        EXPECT_EQ(run.sOut == sSTATUS(2, sE006), bChange);
        EXPECT_EQ(asLINES(run.sErr).size() % 2, 0U);  // getopt's and the tool's
        EXPECT_THAT(run.sErr, HasSubstr(std::string("wrong option ") + cpWrong +
                                        " in command line; only "
                                        "USa:e:i:l:m:c:O:Fo:P:s:t:u:p:v:C:k allowed\n"));
        EXPECT_EQ(COLUMN("virt1", "clients::text") == sRow, bChange);
    }
    EXPECT_EQ(asLINES(CONFIG_CLIENT({"-c", "virt1", "-C", "r", "-a"}).sErr).size(), 1U);
}

TEST_F(COMMAND_LINE, a_value_longer_than_its_field_is_refused)
{
    constexpr std::pair<const char*, size_t> asRow[] = {
        {"-a", 255},  {"-c", 255}, {"-i", 255}, {"-l", 4},   {"-m", 10},  {"-o", 32},
        {"-P", 1023}, {"-s", 255}, {"-u", 255}, {"-O", 255}, {"-p", 255}, {"-C", 255}};
    for (const auto& [cpOption, uLimit] : asRow) {
        SCOPED_TRACE(cpOption);
        const std::string sFits(uLimit, 'r');
        const RUN         run = CONFIG_CLIENT({"-t", "0", cpOption, sFits + "r"});
        EXPECT_ENDED(run, 2, sE006);
        EXPECT_THAT(
            asLINES(run.sErr),
            ElementsAre(AllOf(HasSubstr(std::string("option ") + cpOption),
                              HasSubstr(" longer than " + std::to_string(uLimit) + " bytes"))));
        EXPECT_EQ(run.sErr.find(sFits) == std::string::npos, cpOption[1] == 'p');
        // One byte less is taken; the run ends for want of a client.
        EXPECT_THAT(CONFIG_CLIENT({"-t", "0", cpOption, sFits}).sErr, Not(HasSubstr("longer")));
    }
    EXPECT_EQ(SQL("select count(*) from clients"), "1");
}

TEST_F(COMMAND_LINE, what_a_run_cannot_take_or_does_not_use_is_told_in_one_line)
{
    for (const char* cpName : {"a", "off", "ALL_CLIENTS"}) ADD_CLIENT(cpName, "VIRTUAL");
    SQL("update clients set exec='0' where name='off'");
    const struct {
        TEXTS       asArgument;
        int         iExit;
        const char* cpTold;  // beginning of the line, "" none
    } asctRow[] = {
        // clang-format off
        {{"-c", "ALL_CLIENTS", "-o", "Linux"}, 2, "option -c: ALL_CLIENTS cannot be registered"},
        {{"-c", "ALL_CLIENTS", "-C", "d"}, 2, "option -C d does not take ALL_CLIENTS"},
        {{"-c", "a\nb", "-o", "Linux"}, 2, "client name \"a b\" contains a control character"},
        {{"-C", "r", "a", "b\x1b"}, 2, "client name \"b \" contains a control character"},
        {{"-c", "a", "-C", "R"}, 0, "option -C: \"R\" is not r, s or d; registering the client"},
        {{"-c", "a", "-C", "r", "-t", "1x"}, 0, "option -t: \"1x\" is not a number; using 1"},
        {{"-c", "a", "-C", "r", "-v", ""}, 0, "option -v: \"\" is not a number; using 0"},
        {{"-c", "a", "-m", "VIRTUAL", "-t", "7"}, 0, "option -t: 7 is not between 0 and 2; using 2"},
        {{"-c", "nobody", "-U", "-C", "x", "-P", "x"}, 2, "option -C is not used by this run"},
        {{"-c", "a", "-C", "r", "-P", "x"}, 0, "option -P is not used by this run"},
        {{"-c", "a", "-C", "r", "-k"}, 0, "option -k is not used by this run"},
        {{"-c", "nobody", "-U", "-S", "-P", "x"}, 2, "option -U is not used by this run"},
        {{"-c", "nobody", "-S", "-P", "x", "-e", "1"}, 2, "option -e is not used by this run"},
        {{"-c", "nobody", "-U", "-m", "CTRL", "-P", "x"}, 2, "option -m is not used by this run"},
        {{"-c", "a", "-o", "Other", "-l", "2", "-u", "text"}, 0,
         "a is registered already; not used: -o -l -u"},
        {{"-c", "a", "-C", "r", "-m", "SSH"}, 0, "option -m SSH is not used: only CTRL and VKSSH"},
        {{"-c", "n1", "-o", "Linux", "-m", "PROXY"}, 0,
         "option -m PROXY: client n1 is stored with access mode VKSSH and not tested; "
         "to store the other: vk_setup set_mode n1 PROXY"},
        {{"-c", "n2", "-o", "Linux", "-m", "VIRTUAL", "x", "y"}, 0,
         "a registration takes one client by -c; ignored: x y"},
        {{"-c", "n3.invalid", "-o", "Linux", "-t", "0", "-m", "CTRL"}, 1,
         "option -m CTRL: client n3.invalid is stored with access mode VKSSH and tested; to store"},
        {{"-C", "r", "a", "alhpa", "a", "alhpa"}, 0, "no such client: alhpa"},
        {{"-C", "r", "a", "off"}, 0, "off is skipped: exec is not '1'"},
        {{"-C", "r", "-c", "ALL_CLIENTS", "-o", "Windoze"}, 0, "no client matches location, system"},
        {{"-C", "r", "ALL_CLIENTS", "a"}, 0, "ALL_CLIENTS is skipped: it is not a client's name"},
        {{"-C", "r", "-c", "b", "a"}, 0, "option -c b is not used: the names at the end replace it"},
        {{"-C", "r", "-c", "ALL_CLIENTS", "a"}, 0, "option -c ALL_CLIENTS is not used: the names"},
        {{"-C", "r", "-c", "a", "a"}, 0, ""},
        {{"-C", "r", "-m", "CTRL", "a"}, 0, "option -m is not passed to the clients' runs"},
        {{"-C", "r", "-l", "2", "a"}, 0, "option -l is not used: it applies to -c ALL_CLIENTS only"},
        // clang-format on
    };
    for (const auto& row : asctRow) {
        SCOPED_TRACE(PrintToString(row.asArgument));
        const RUN   run = CONFIG_CLIENT(row.asArgument);
        const TEXTS asTold = asLINES(run.sErr);
        EXPECT_EQ(run.iExit, row.iExit);
        EXPECT_EQ(run.sOut == sSTATUS(2, sE006), row.iExit == 2);
        const auto uTold = std::count_if(asTold.begin(), asTold.end(), [&](const auto& sLine) {
            return sLine.starts_with("vk_config_client: " + std::string(row.cpTold));
        });
        EXPECT_EQ(uTold, *row.cpTold == '\0' ? 0 : 1) << run.sErr;
        EXPECT_LE(asTold.size(), 2U);  // n2: that it is not tested, too
    }
    // A forced service pack uses -O; all that is told is that the client is missing.
    const RUN forced = CONFIG_CLIENT({"-c", "nobody", "-S", "-P", "x", "-O", "force"});
    EXPECT_EQ(forced.sErr, "vk_config_client: no such client: nobody\n");
    CONFIG_CLIENT({"-v", "1", "-C", "r", "a", "alhpa", "-m", "CTRL"});
    EXPECT_THAT(TRACE_TEXT(), HasSubstr("no such client: alhpa"));
    EXPECT_THAT(TRACE_TEXT(), HasSubstr("option -m is not passed to"));
    EXPECT_EQ(SQL("select count(*) from clients"), "7");
}

TEST_F(COMMAND_LINE, identifier_and_sender_name_the_answer_file_of_every_run)
{
    const std::string sLong(255, 'i');
    for (const TEXTS& asOption :
         {TEXTS{"-U", "-c", "nobody"}, {"-l", "munich", "-o", "Linux", "-c", "x"}, {}}) {
        EXPECT_EQ(CONFIG_CLIENT(asOption + TEXTS{"-i", "run/7", "-s", "ui"}).iExit, 2);
        EXPECT_THAT(asLINES(sREAD_FILE(sRW() + "work/answ/run_7_ui.inf")),
                    Contains(StartsWith("M E006")));
        fs::remove(sRW() + "work/answ/run_7_ui.inf");
    }
    for (const char* cpEnd : {"1", "2"})
        EXPECT_EQ(CONFIG_CLIENT({"-i", sLong, "-s", sLong.substr(1) + cpEnd}).sErr,
                  "vk_config_client: no client is given; name one with -c\n");
    EXPECT_EQ(std::distance(fs::directory_iterator(sRW() + "work/answ"), {}), 2);
}

TEST_F(COMMAND_LINE, standard_output_that_is_full_is_told_and_no_success)
{
    ADD_CLIENT("virt1", "VIRTUAL");
    std::string sOut = sDIR() + "/run0.out";
    for (const TEXTS& asArgument :
         {TEXTS{"-h"}, {"-c", "virt1", "-C", "r"}, {"-C", "r", "virt1"}}) {
        sOut[sOut.size() - 5]++;  // of the next run
        fs::create_symlink("/dev/full", sOut);
        STARTED_RUN started = START(asArgument);
        started.sOutFile = "/dev/null";  // it never ends
        const RUN run = WAIT(started);
        fs::remove(sOut);
        EXPECT_EQ(run.iExit, 2);
        EXPECT_EQ(run.sErr,
                  "vk_config_client: cannot write standard output: No space left on device\n");
    }
    EXPECT_EQ(COLUMN("virt1", "access_state"), "0");
}

TEST_F(COMMAND_LINE, options_of_a_registration_reach_their_columns)
{
    const std::pair<const char*, TEXTS> asRow[] = {
        {"0||", {"-l", "NULL", "-O", "reinforced"}},
        {"muc|Force|pw", {"-l", "muc", "-O", "Force", "-p", "pw"}}};
    for (const auto& [cpStored, asOption] : asRow) {
        SQL("delete from clients where client_id>0");
        EXPECT_EQ(REGISTER("new", asOption).sOut, sSTATUS(0, "I012-HOSTS   Client new added"));
        EXPECT_THAT(ROWS("select location,access_options,os_password from clients "
                         "where name='new'"),
                    ElementsAre(cpStored));
    }
}

TEST_F(COMMAND_LINE, a_mode_given_with_m_counts_only_when_it_is_CTRL_or_VKSSH)
{
    ADD_CLIENT("ctrl1", "VKSSH");
    ADD_CLIENT("alpha", "VIRTUAL");
    constexpr std::array<const char*, 3> aacpRow[] = {
        {"ctrl1", "CTRL", "I005"}, {"ctrl1", "SSH", "E011"},     {"ctrl1", "PROXY", "E011"},
        {"ctrl1", "", "E011"},     {"alpha", "VIRTUAL", "I015"}, {"alpha", "SSH", "I015"},
    };
    START_CLIENTS({"alpha"});
    for (const auto& [cpName, cpMode, cpMessage] : aacpRow) {
        CONFIG_CLIENT({"-c", cpName, "-C", "r", "-m", cpMode});
        EXPECT_THAT(COLUMN(cpName, "msg"), StartsWith(cpMessage)) << cpMode;
    }
    const RUN run = CONFIG_CLIENT({"-v1", "-c", "alpha", "-C", "r", "-m", "VKSSH"});
    EXPECT_EQ(run.iExit, 0);
    EXPECT_THAT(
        PROTOCOL(),
        Contains("I004-HOSTS   Mode: VKSSH   Address: via_nameserver  Distribution: Linux"));
    EXPECT_THAT(TRACE_TEXT(),
                HasSubstr("Use access mode VKSSH given via command line parameter -m"));
    EXPECT_EQ(COLUMN("alpha", "accessmode"), "VIRTUAL");
}

TEST_F(COMMAND_LINE, what_is_missing_ends_with_E006_and_an_unknown_system_with_W003)
{
    ADD_CLIENT("odd", "VIRTUAL", "PalmOS");
    for (const char* cpCheck : {"r", "s", "d"}) {
        EXPECT_ENDED(CONFIG_CLIENT({"-c", "nobody", "-C", cpCheck}), 2, sE006);
        EXPECT_ENDED(CONFIG_CLIENT({"-C", cpCheck}), 2, sE006);
        const RUN unknown = CONFIG_CLIENT({"-c", "odd", "-C", cpCheck});
        EXPECT_ENDED(unknown, 1,
                     "W003-HOSTS   Computer odd is not yet configured in QIR velka´s database.");
        EXPECT_THAT(unknown.sErr, HasSubstr("operating system \"PalmOS\" is not in oper_systems"));
    }
    for (const TEXTS& asArgument : {TEXTS{},
                                    {"-c", "new", "-o", "Linux", "-C", "n"},
                                    {"-o", "Linux", "-m", "VIRTUAL"},
                                    {"-c", "new", "-m", "VIRTUAL"},
                                    {"-c", "new", "-m", "VIRTUAL", "-o", "NULL"}})
        EXPECT_ENDED(CONFIG_CLIENT(asArgument), 2, sE006);
    EXPECT_EQ(SQL("select count(*) from clients"), "2");
}

TEST_F(COMMAND_LINE, a_password_stands_in_no_text_that_the_run_leaves)
{
    INI("general", "trace_level", "9");
    const std::string sSecret = "se'cret";
    const RUN         run = REGISTER("a1", {"-p", sSecret, "-u", "told"});
    EXPECT_EQ(run.iExit, 0);
    EXPECT_EQ(COLUMN("a1", "os_password"), sSecret);
    EXPECT_THAT(TRACE_TEXT(), HasSubstr(" -p *** -u told"));
    SQL("begin");
    SQL("lock table clients");
    STARTED_RUN held = START({"-c", "a2", "-o", "Linux", "-m", "VIRTUAL", "-p", sSecret});
    EXPECT_TRUE(bWAIT_UNTIL(20000, [&] { return iWAITING_BACKEND() > 0; }));
    EXPECT_THAT(sREAD_FILE("/proc/" + std::to_string(held.iPid) + "/cmdline"),
                AllOf(HasSubstr("-p"), Not(HasSubstr("cret"))));
    SQL("commit");
    WAIT(held);
    ADD_CLIENT("alpha");
    ADD_CLIENT("nd1", "PROXY", "NDMP",
               {{"data_mover", "alpha"}, {"user_name", "u"}, {"password", sSecret}});
    SWITCH("alpha", "qtc_ndmp", {"mode=fail", "text=qtc_ndmp: login u/" + sSecret + " refused"});
    const std::string sShown =
        "E002-HOSTS   There is no access to computer nd1: qtc_ndmp: login u/*** refused";
    EXPECT_EQ(CHECK("nd1").sOut, sSTATUS(1, sShown));
    EXPECT_THAT(COLUMN("nd1", "msg"), HasSubstr(sSecret)) << "stored as it came";
    EXPECT_THAT(CONFIG_CLIENT({"-C", "r", "nd1"}).sOut,
                AllOf(HasSubstr("Message: " + sShown), Not(HasSubstr(sSecret))));
    EXPECT_THAT(CLIENT_LOG("alpha"), Each(HasSubstr("passwd=se'cret>")));
    // Neither as it is nor as a statement or a command line carries it.
    EXPECT_THAT(TRACE_TEXT() + run.sErr, Not(ContainsRegex("se'[\\\\']*cret")));
    EXPECT_THAT(PROTOCOL(), Each(Not(HasSubstr("cret"))));
    EXPECT_THAT(INFO(), Each(Not(HasSubstr("cret"))));
    // Nor does a client show its own, which this run gives to nobody.
    for (const std::string sOwn : {"own-word", "own"}) {
        SQL("update clients set os_password='" + sOwn + "' where name='alpha'");
        SWITCH("alpha", "qtc", {"mode=fail", "text=own-word refused"});
        EXPECT_THAT(CONFIG_CLIENT({"-c", "alpha", "-C", "r"}).sOut,
                    HasSubstr(sOwn == "own" ? "alpha: own-word refused" : "alpha: *** refused"));
        EXPECT_THAT(COLUMN("alpha", "msg"), HasSubstr("own-word refused"));
    }
    // One too short to be searched for: what the client says is left out whole.
    SQL("update clients set password='c7#' where name='nd1'");
    SWITCH("alpha", "qtc_ndmp", {"mode=fail", "text=login u/c7# refused"});
    EXPECT_THAT(CHECK("nd1").sOut, HasSubstr("computer nd1: ***\""));
    EXPECT_THAT(TRACE_TEXT(), AllOf(Not(HasSubstr("c7#")), HasSubstr("passwd=***")));
}

TEST_F(COMMAND_LINE, vk_ini_sets_the_language_and_is_refused_when_broken)
{
    ADD_CLIENT("virt1", "VIRTUAL");
    INI("general", "language", "de");
    const RUN german = CHECK("virt1");
    EXPECT_EQ(german.sOut,
              "STATUS=SUCCESS MSG=\"I015-HOSTS   Client virt1 mit Zugriffsart 'VIRTUAL' "
              "konfiguriert. Kein Remotezugriff möglich.\"\n");
    EXPECT_EQ(german.sErr, "");

    const std::string sIni = sREAD_FILE(sDIR() + "/vk.ini");
    WRITE_FILE(sDIR() + "/vk.ini", sIni + "[general\n");
    const RUN broken = CHECK("virt1");
    EXPECT_EQ(broken.iExit, 2);
    EXPECT_EQ(broken.sOut, "");
    EXPECT_THAT(
        asLINES(broken.sErr),
        ElementsAre(HasSubstr("/vk.ini\": line " + std::to_string(asLINES(sIni).size() + 1))));
}

}  // namespace
