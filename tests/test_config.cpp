/* Configuration, trace, time and files. */
#include <sys/stat.h>
#include <time.h>

#include "common/common.h"
#include "scratch.h"

namespace {

using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

std::string sVARIABLE(const char* cpName)
{
    std::string sValue;
    return iCONFIG_VARIABLE(cpName, sValue) ? sValue : "(unset)";
}

std::string sCLIENT_DIR(const char* cpPlatform, const char* cpKey)
{
    std::string sValue;
    return iCONFIG_CLIENT_DIRECTORY(cpPlatform, cpKey, sValue) ? sValue : "(unknown)";
}

class CONFIG : public SCRATCH {};

TEST_F(CONFIG, variables_come_from_environment_file_and_defaults_in_that_order)
{
    setenv("VK_INI", sPATH("none.ini").c_str(), 1);
    v_CONFIG_FORGET();
    CaptureStderr();
    EXPECT_TRUE(iCONFIG_VALID());
    EXPECT_EQ(GetCapturedStderr(), "vk_config_client: VK_INI names \"" + sPATH("none.ini") +
                                       "\", which does not exist; using the defaults\n");
    EXPECT_EQ(sVARIABLE("gv_rw_work"), "/var/opt/velka/work/");
    EXPECT_EQ(sVARIABLE("gv_hosts_file"), "(unset)");
    EXPECT_EQ(sVARIABLE("gv_daylbl").size(), 8U);
    EXPECT_EQ(iCONFIG_UPDATE_WAIT(), 15);
    EXPECT_EQ(iCONFIG_STATEMENT_TIMEOUT(), 60);

    setenv("VK_INI", sPATH("vk.ini").c_str(), 1);
    INI("gv_ro = /opt/other ; a comment\n  gv_hosts_file =\ngv_ro_bin = /bin/\n"
        "[defaults]\nvk_key = https\n[database]\nconninfo = host=a,b password=" +
        std::string(5000, 'p') + "\n");
    EXPECT_TRUE(iCONFIG_VALID());
    EXPECT_EQ(sVARIABLE("gv_ro"), "/opt/other/");
    EXPECT_EQ(sVARIABLE("gv_ro_bin"), "/bin/");
    EXPECT_EQ(sVARIABLE("gv_hosts_file"), "(unset)");
    EXPECT_EQ(sCONFIG_TEXT("database", "conninfo", "").size(), 5018U);
    setenv("gv_ro", "/env", 1);
    EXPECT_STREQ(read_glbv("gv_ro"), "/env/");
    setenv("gv_ro", "", 1);
    EXPECT_STREQ(read_glbv("gv_ro"), "/opt/other/");
    unsetenv("gv_ro");
    char szCut[6];
    EXPECT_STREQ(glbv('r', "gv_ro", szCut), "/opt/");

    char szPrefix[256] = "http";
    EXPECT_EQ(i_get_default2("vk_key", "gv_daylbl", szPrefix, str_log{}), 1);
    EXPECT_STREQ(szPrefix, "https");
}

TEST_F(CONFIG, a_file_that_cannot_be_used_is_told_with_its_line)
{
    INI("this is no setting\n");
    CaptureStderr();
    EXPECT_FALSE(iCONFIG_VALID());
    EXPECT_FALSE(iCONFIG_VALID());
    EXPECT_EQ(GetCapturedStderr(), "vk_config_client: cannot parse \"" + sPATH("vk.ini") +
                                       "\": line 8 is neither a section nor key = value\n");
    mkfifo(sPATH("pipe").c_str(), 0600);
    for (const auto& [sFile, cpTold] :
         {std::pair{sPATH(""), "Is a directory"}, {sPATH("pipe"), "it is a pipe"}}) {
        setenv("VK_INI", sFile.c_str(), 1);
        v_CONFIG_FORGET();
        CaptureStderr();
        EXPECT_FALSE(iCONFIG_VALID());
        EXPECT_THAT(GetCapturedStderr(), HasSubstr(cpTold));
    }
}

TEST_F(CONFIG, what_makes_no_sense_is_told_with_its_line_and_the_default_holds)
{
    INI("gv_update_wait = soon\ngv_rw_wrok = /x\ngv_rw_pool = /y\n[general]\nparallel = 0\n"
        "langauge = de\nlanguage = xx\ntrace_level = 2\nstatement_timeout = 1\nnonsense = 1\n"
        "\n[remotes]\nidle_timeout = 5\n[remote] ; real\n  idle_timeout = "
        "12x\n[access]\n[database]\n"
        "conninfo = " +
        std::string(5000, 'p') + "\nnext = 1\n");
    setenv("gv_update_wait", "later", 1);
    str_log sctLog{};
    CaptureStderr();
    EXPECT_EQ(iCONFIG_PARALLEL(), 1);
    EXPECT_EQ(iCONFIG_IDLE_TIMEOUT(), 1800);
    EXPECT_EQ(iCONFIG_UPDATE_WAIT() + iCONFIG_UPDATE_WAIT(), 30);
    v_set_log_main("x_<PID>.lgc", "X", &sctLog);
    unsetenv("gv_update_wait");
    const std::string sIni = "vk_config_client: " + sPATH("vk.ini") + ":";
    const TEXTS       asWanted{
        // clang-format off
        sIni + "8: [variables] gv_update_wait = \"soon\" is not a number from 0 to 86400; using 15",
        sIni + "9: unknown key \"gv_rw_wrok\" in [variables]; did you mean \"gv_rw_work\"?",
        sIni + "12: [general] parallel = \"0\" is not a number from 1 to 1000; using 1",
        sIni + "13: unknown key \"langauge\" in [general]; did you mean \"language\"?",
        sIni + "14: [general] language = \"xx\" is unknown; known are en es de by fr hr pt; using en",
        sIni + "16: unknown key \"statement_timeout\" in [general]; it belongs to [database]",
        sIni + "17: unknown key \"nonsense\" in [general]; it is not used",
        sIni + "19: unknown section [remotes]; did you mean [remote]?",
        sIni + "22: [remote] idle_timeout = \"12x\" is not a number from 1 to 86400; using 1800",
        sIni + "23: section [access] lacks a name; it is not used",
        sIni + "26: unknown key \"next\" in [database]; it is not used",
        "vk_config_client: environment: gv_update_wait = \"later\" is not a number from 0 to 86400; using 15",
        // clang-format on
    };
    EXPECT_EQ(asLINES(GetCapturedStderr()), asWanted);
    EXPECT_EQ(sctLog.iLogLevel, 2);
    EXPECT_EQ(eLang, LANG_EN);
}

TEST_F(CONFIG, directories_and_symbolic_paths)
{
    INI("[access SSH]\nconfig = /etc/ssh/mine\n[access LAB]\nconfig = gv_rw_ini:lab/config\n"
        "[access BAD]\nconfig = gv_rx:x\n[directories AIX]\ngv_ro = /usr/velka\n"
        "[directories WINNT2]\ngv_ro = D:\\velka\n");
    constexpr std::array<const char*, 3> aacpRow[] = {
        // clang-format off
        {"LINUX", "gv_ro_bin", "/opt/velka/bin/"}, {"", "gv_rw_work", "/var/opt/velka/work/"},
        {"AIX", "gv_ro", "/usr/velka/"}, {"AIX", "gv_rw_ini", "/etc/velka/"},
        {"wnt", "gv_rw_work", "C:\\Program Files\\velka\\work\\"},
        {"WINNT2", "gv_ro", "D:\\velka\\"}, {"LINUX", "gv_nonsense", "(unknown)"},
        // clang-format on
    };
    for (const auto& [cpPlatform, cpKey, cpDirectory] : aacpRow)
        EXPECT_EQ(sCLIENT_DIR(cpPlatform, cpKey), cpDirectory) << cpPlatform << " " << cpKey;
    const std::string                         sIni = sPATH("gv_rw_ini/");
    std::string                               sPath;
    std::string                               sReason;
    const std::pair<const char*, std::string> asPath[] = {
        {"gv_rw_ini://a/b", sIni + "a/b"}, {"gv_rw_ini:", sIni}, {"/abs:x", "/abs:x"}};
    for (const auto& [cpPath, sWanted] : asPath) {
        EXPECT_TRUE(iCONFIG_SERVER_PATH(cpPath, sPath, sReason));
        EXPECT_EQ(sPath, sWanted);
    }
    EXPECT_FALSE(iCONFIG_SERVER_PATH("gv_daylbl:x", sPath, sReason));
    EXPECT_EQ(sReason, "unknown directory key \"gv_daylbl\"");
    const std::pair<const char*, std::string> asMode[] = {
        {"CTRL", sIni + "ctrl/config"}, {"SSH", "/etc/ssh/mine"}, {"LAB", sIni + "lab/config"}};
    for (const auto& [cpMode, sWanted] : asMode) {
        EXPECT_TRUE(iCONFIG_ACCESS(cpMode, sPath));
        EXPECT_EQ(sPath, sWanted);
    }
    EXPECT_FALSE(iCONFIG_ACCESS("RSH", sPath));
    CaptureStderr();
    EXPECT_FALSE(iCONFIG_ACCESS("BAD", sPath));
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("gv_rx"));
}

class OUTPUT : public SCRATCH {};

TEST_F(OUTPUT, trace_goes_where_the_record_says_and_makes_no_file_without_a_line)
{
    str_log sctLog{};
    v_set_log_main("tool_<PID>.lgc", "TOOL", &sctLog);
    EXPECT_EQ(sctLog.iLogLevel, 0);
    WRITE_TRACE(&sctLog, "not at level 0");
    EXPECT_FALSE(file_exist(sPATH("gv_rw_lgc").c_str()));
    v_set_log(-4, 1, &sctLog);
    EXPECT_EQ(sctLog.iLogLevel, 0);
    v_set_log(3, 1, &sctLog);
    v_SECRET("geheim");
    const mode_t iMask = umask(0);
    WRITE_TRACE(&sctLog, "first %d %s%5ld|%zu\n\x1B%-5s %.*s%*d %.1E", 1, "geheim", 7L, size_t{8},
                "50%s", 2, "cut", 3, 4, 5e6);
    umask(iMask);
    const std::string sMain = sPATH("gv_rw_lgc/tool_") + std::to_string(getpid()) + ".lgc";
    EXPECT_THAT(
        sREAD_FILE(sMain),
        testing::MatchesRegex("[0-9-]{10} [0-9:]{8}\\.[0-9]{3} " + std::to_string(getpid()) +
                              " 3-TOOL first 1 \\*\\*\\*    7.8  50%s  cu  4 5\\.0E\\+06\n"));
    const str_log sctCopy = sctLog;
    v_set_log_mover(&sctLog, "tool-a/b_1.log");
    WRITE_TRACE(&sctLog, "moved");
    WRITE_TRACE(&sctCopy, "of the old copy");
    WRITE_TRACE(&sctLog, "moved again");
    EXPECT_EQ(asLINES(sREAD_FILE(sPATH("gv_rw_lgc/tool-a_b_1.log"))).size(), 2U);
    EXPECT_EQ(asLINES(sREAD_FILE(sMain)).size(), 2U);
    EXPECT_EQ(iMODE(sPATH("gv_rw_lgc")), 0750U);
    EXPECT_EQ(iMODE(sMain), 0640U) << "no one else reads or writes it";
}

TEST_F(OUTPUT, the_command_line_hides_the_value_of_p)
{
    const std::pair<TEXTS, const char*> asRow[] = {
        // clang-format off
        {{"-p", "secret", "-c", "a"}, "-p *** -c a"}, {{"-psecret", "x"}, "-p*** x"},
        {{"-Fpsecret", "-U"}, "-Fp*** -U"}, {{"-Fp", "secret", "y"}, "-Fp *** y"},
        {{"-c", "-p", "name"}, "-c -p name"}, {{"-cp", "name"}, "-cp name"},
        {{"--", "-p", "name"}, "-- -p name"}, {{"a", "-p", "s", "-", "-p"}, "a -p *** - -p"},
        // clang-format on
    };
    for (const auto& [asWord, cpText] : asRow) {
        std::vector<char*> acp{const_cast<char*>("tool")};
        for (const std::string& s : asWord) acp.push_back(const_cast<char*>(s.c_str()));
        EXPECT_EQ(GET_CALL_PARAM(static_cast<int>(acp.size()), acp.data()),
                  std::string("tool ") + cpText);
    }
}

TEST_F(OUTPUT, a_text_file_is_searched_line_by_line)
{
    WRITE_FILE(sPATH("hosts"), "127.0.0.1 localhost\n10.0.0.1\tAlpha # beta\r\n" +
                                   std::string(100000, 'x') + "qtc-3007: no\x01t ok \xFF");
    char szPattern[1024] = "alpha";
    EXPECT_EQ(file_search2(sPATH("hosts").c_str(), szPattern, sizeof szPattern, 32), 1);
    EXPECT_STREQ(szPattern, "10.0.0.1\tAlpha # beta");
    iTEXT_SET(szPattern, "beta");
    EXPECT_EQ(file_search2(sPATH("hosts").c_str(), szPattern, sizeof szPattern, 32), 0);
    EXPECT_STREQ(szPattern, "beta");
    iTEXT_SET(szPattern, "not ok^");
    EXPECT_EQ(file_search2(sPATH("hosts").c_str(), szPattern, 21, 32), 1);
    EXPECT_STREQ(szPattern, "xxxxxxxxxxxxxxxxxxxx");
}

TEST(TIME, stamps_become_iso_in_local_time)
{
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    constexpr std::pair<const char*, const char*> asRow[] = {
        // clang-format off
        {"2024-05-01 10:00:00", "2024-05-01 10:00:00"}, {"20240501100000", "2024-05-01 10:00:00"},
        {"2024-05-01T10:00:00Z", "2024-05-01 12:00:00"}, {"1714557600", "2024-05-01 12:00:00"},
        {"2024-12-31T23:30:00Z", "2025-01-01 00:30:00"}, {"2024-05-01 24:00:00", ""},
        {"2024-02-29 00:00:00", "2024-02-29 00:00:00"}, {"2023-02-29 00:00:00", ""},
        {"1900-02-29 00:00:00", ""}, {"2024-13-45 00:00:00", ""}, {"20240431000000", ""},
        {"2024-05-01T10:00:00", ""}, {"2024-05-01", ""}, {"0000-01-01 00:00:00", ""},
        {"0999-01-01T10:00:00Z", "0999-01-01 11:00:00"}, {"20242001121314", ""},
        {" 2024-5-01 10:00:00", ""}, {"2024-12-31 23:59:60", ""},
        {"yesterday", ""}, {"-1", ""}, {"", ""},
        // clang-format on
    };
    for (const auto& [cpStamp, cpIso] : asRow) {
        char szStamp[256];
        iTEXT_SET(szStamp, cpStamp);
        cm_time_stamp2iso(szStamp);
        EXPECT_STREQ(szStamp, cpIso) << cpStamp;
    }
    setenv("TZ", "EST5", 1);
    tzset();
    char szZero[256] = "0001-01-01T04:59:59Z";  // a date never set, and a year 0 here
    cm_time_stamp2iso(szZero);
    EXPECT_STREQ(szZero, "");
    char szNow[256] = "I";
    EXPECT_THAT(time_get(szNow), testing::MatchesRegex("[0-9]{14}_" + std::to_string(getpid())));
    szNow[0] = '\0';
    const std::string sBefore = psz_now_iso();
    EXPECT_THAT(time_get(szNow), testing::MatchesRegex("[0-9-]{10} [0-9:]{8}"));
    EXPECT_LE(sBefore, szNow);
    EXPECT_LE(std::string(szNow), psz_now_iso());
    unsetenv("TZ");
    tzset();
}

}  // namespace
