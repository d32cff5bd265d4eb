/* Text, patterns, versions; values inside statements and command lines. */
#include "common/cm_db_access.h"
#include "common/common.h"
#include "common/text/command_line.h"
#include "sandbox_fixture.h"

namespace {

TEST(TEXT, is_cut_at_a_character_and_stays_valid)
{
    const std::tuple<const char*, size_t, const char*> asRow[] = {
        // clang-format off
        {"abc", 3, "abc"}, {"abcd", 3, "abc"}, {"aä", 2, "a"}, {"aä", 3, "aä"}, {"a€€", 6, "a€"},
        {"😀x", 3, ""}, {"😀x", 4, "😀"}, {"\x80\x80\x80\x80\x80\x80", 5, "\x80\x80\x80\x80\x80"},
        {"", 0, ""}, {"ä", 0, ""},
        // clang-format on
    };
    for (const auto& [cpText, uMax, cpCut] : asRow)
        EXPECT_EQ(svTEXT_CUT(cpText, uMax), cpCut) << cpText;
    char szEight[8];
    x_Snprintf(szEight, sizeof szEight, "%s", "12345678901234567890");
    EXPECT_STREQ(szEight, "1234567");
    x_Snprintf(szEight, sizeof szEight, "12345%s", "ä");
    EXPECT_STREQ(szEight, "12345ä");
    x_Snprintf(szEight, sizeof szEight, "%s", "123456ä");
    EXPECT_STREQ(szEight, "123456") << "one byte too long";
    EXPECT_FALSE(iTEXT_SET(szEight, "1234567ä"));
    EXPECT_STREQ(szEight, "1234567");
}

TEST(TEXT, of_foreign_bytes_becomes_one_harmless_line)
{
    const std::string svBad = "\xEF\xBF\xBD";
    EXPECT_EQ(sVALID_UTF8("a\xFF z\xC3"), "a" + svBad + " z" + svBad);
    EXPECT_EQ(sVALID_UTF8("\xC0\xAF"), svBad + svBad) << "overlong";
    EXPECT_EQ(sVALID_UTF8("\xED\xA0\x80"), svBad + svBad + svBad) << "surrogate";
    EXPECT_EQ(sVALID_UTF8("\xF4\x90\x80\x80").size(), 12U) << "above U+10FFFF";
    EXPECT_EQ(sVALID_UTF8("ä€😀\n"), "ä€😀\n");
    EXPECT_EQ(sONE_LINE("a\tb\r\nc\x1B[2J\x7F\xC2\x9B"
                        "d\xE2\x80\xA8"
                        "e"),
              "a b  c [2J  d e");
}

TEST(TEXT, passwords_are_masked_in_every_form_they_take)
{
    const std::string sPassword = "pa'ss \"w$rd\\";
    v_SECRET(sPassword);
    v_SECRET("");
    char szSql[256];
    char szCmd[256];
    ASSERT_TRUE(iSQL(szSql, "update t set p='%s'", sPassword));
    ASSERT_TRUE(iCMD(szCmd, SHELL_POSIX, "qtc -p %s -N \"a:%s\"", sPassword, sPassword));
    EXPECT_EQ(sMASKED("is " + sPassword + "!"), "is ***!");
    EXPECT_EQ(sMASKED(szSql), "update t set p='***'");
    EXPECT_EQ(sMASKED(szCmd), "qtc -p *** -N \"a:***\"");
    ASSERT_TRUE(iCMD(szCmd, SHELL_WINDOWS, "qtc -p %s -N \"a:%s\"", sPassword, sPassword));
    EXPECT_THAT(sMASKED(szCmd), testing::Not(testing::HasSubstr("w$rd")));
    EXPECT_EQ(sMASKED("nothing here"), "nothing here");
    // A client's output has lost control characters, and is shown as one line.
    v_SECRET(
        "top\tse\x01\xC2\x85"
        "cret\nline");
    EXPECT_EQ(sMASKED("top secret, line, top se  cret line"), "***, ***, ***");
}

TEST(TEXT, is_joined_up_to_a_null_and_the_end_of_its_buffer)
{
    char        szBuf[8] = "old";
    const char* cpNone = nullptr;
    EXPECT_STREQ(str_chain(szBuf, 0, "er", cpNone, "x"), "older");
    EXPECT_STREQ(str_chain(szBuf, 1, "abcd", "efgh", "i"), "abcdefg");
}

TEST(PATTERN, hits_where_its_texts_or_its_name_stand)
{
    const std::tuple<const char*, const char*, int> asRow[] = {
        // clang-format off
        {"ssh:|Error:^", "an Error: here", 1}, {"ssh:|Error:^", "ssh: connect", 1},
        {"ssh:|Error:^", "error: SSH:", 0}, {"a|OR|b^", "xORx", 0}, {"a|OR|b^", "xbx", 1},
        {"OR b^", "xOR bx", 1}, {"^", "anything", 0}, {"a||^", "xyz", 0}, {"x^y^", "x^y", 1},
        {"alpha", "10.0.0.1\tALPHA alpha2", 1}, {"alpha", "10.0.0.1 alpha2 alpha.dom xalpha", 0},
        {"alpha", "10.0.0.1 beta # alpha", 0}, {"alpha", "alpha#comment", 1}, {"", "", 0},
        // clang-format on
    };
    for (const auto& [cpPattern, cpLine, iHit] : asRow)
        EXPECT_EQ(iPATTERN_HIT(cpPattern, cpLine), iHit) << cpPattern << " in " << cpLine;
}

TEST(PATTERN, captures_of_a_package_name)
{
    constexpr char szPATTERN[] = R"((.*[-_])?(.*?\..*\..*-.*?)\..*)";
    char*          cpFirst = nullptr;
    char*          cpSecond = nullptr;
    pscanf("/tmp/velka-cli_4.4.1-14.wheezy_amd64.deb", szPATTERN, &cpFirst, &cpSecond);
    EXPECT_STREQ(cpFirst, "/tmp/velka-cli_");
    EXPECT_STREQ(cpSecond, "4.4.1-14");
    pscanf("4.4.1-14.deb", szPATTERN, &cpFirst, &cpSecond);
    EXPECT_EQ(cpFirst, nullptr);
    EXPECT_STREQ(cpSecond, "4.4.1-14");
    for (const char* cpPattern : {szPATTERN, "(unclosed", "only(one)"}) {
        SCOPED_TRACE(cpPattern);
        pscanf("no version", cpPattern, &cpFirst, &cpSecond);
        EXPECT_EQ(cpFirst, nullptr);
        EXPECT_EQ(cpSecond, nullptr);
    }
    /* Would try for ages: ends as a match that failed. */
    const std::string sEvil(40, 'a');
    pscanf(sEvil.c_str(), "(a+)+(a*)*b", &cpFirst, &cpSecond);
    EXPECT_EQ(cpFirst, nullptr);
}

TEST(VERSION, is_ordered_part_by_part_and_zero_for_anything_else)
{
    const char* const acpRising[] = {"0.0.0.1",  "3.9.9.9",    "4.2.2.98",        "4.2.2.99",
                                     "4.4.1-14", "4.4.3.73",   "4.4.3.99999",     "4.4.4.0",
                                     "4.10.0.0", "10.0.0.0.1", "9000.99999.0.1-x"};
    for (size_t u = 1; u < std::size(acpRising); u++)
        EXPECT_LT(l_cli_version(acpRising[u - 1]), l_cli_version(acpRising[u])) << acpRising[u];
    EXPECT_EQ(l_cli_version("4.4.1-14"), 4000040000100014L);
    for (const char* cpSuffix : {"-1", "_x", "~rc1", "+b", ".wheezy", "."})
        EXPECT_EQ(l_cli_version((std::string("4.4.1.14") + cpSuffix).c_str()), 4000040000100014L);
    EXPECT_EQ(l_cli_version(nullptr), 0);
    for (const char* cpNone :
         {"", "4.4.1", "4.4.1.", "4.4-1.1", "4.4.1.x", "v4.4.1.1", "9001.0.0.0", "1.100000.0.0",
          "1.1.1.1a", "-1.1.1.1", "4.4.1.14 ", " 4.4.1.14", "99999999999999999999.1.1.1", "4..1.1"})
        EXPECT_EQ(l_cli_version(cpNone), 0) << cpNone;
}

TEST(COMMAND, values_reach_the_program_as_they_are)
{
    const char* const acpValue[] = {
        "plain-1.2_3:/x=,+@%", "two words", "it's", "a\"b", "$HOME `id`", "\\",
        "back\\slash\\",       "a;b|c&d>e", "-n",   "*",    "~",          "ä€",
        "line\nfeed",          "!x",        "#c"};
    for (const char* cpValue : acpValue) {
        SCOPED_TRACE(cpValue);
        char szCmd[512];
        ASSERT_TRUE(iCMD(szCmd, SHELL_POSIX, "printf '%%s|' %s pre%s \"in %s\" '%s'", cpValue,
                         cpValue, cpValue, cpValue));
        const std::string s = cpValue;
        EXPECT_EQ(sctSHELL(szCmd).sOut, s + "|pre" + s + "|in " + s + "|" + s + "|");
        EXPECT_EQ(sctSHELL("printf %s " + sSHELL_WORD(SHELL_POSIX, s)).sOut, s);
    }
    EXPECT_EQ(sSHELL_WORD(SHELL_POSIX, ""), "''");
    EXPECT_EQ(sSHELL_WORD(SHELL_WINDOWS, ""), "\"\"");
}

TEST(COMMAND, on_windows_and_what_is_refused)
{
    const std::array<const char*, 3> aacpRow[] = {
        {"plain", "plain", "\"plain\""},
        {"", "\"\"", "\"\""},
        {"two words", "\"two words\"", "\"two words\""},
        {"C:\\dir x\\", "\"C:\\dir x\\\\\"", "\"C:\\dir x\\\\\""},
        {"a\"&b", "\"a\"\"&b\"", "\"a\"\"&b\""},
        {"%OS%", "\"\"%\"OS\"%\"\"", "\"\"%\"OS\"%\"\""},
        {"a\\\"b", "\"a\\\\\"\"b\"", "\"a\\\\\"\"b\""},
    };
    char szCmd[64];
    for (const auto& [cpValue, cpBare, cpQuoted] : aacpRow) {
        ASSERT_TRUE(iCMD(szCmd, SHELL_WINDOWS, "%s", cpValue));
        EXPECT_STREQ(szCmd, cpBare);
        ASSERT_TRUE(iCMD(szCmd, SHELL_WINDOWS, "\"%s\"", cpValue));
        EXPECT_STREQ(szCmd, cpQuoted);
    }
    EXPECT_FALSE(iCMD(szCmd, SHELL_WINDOWS, "echo %s", "a\nb"));
    EXPECT_STREQ(szCmd, "");
    EXPECT_FALSE(iCMD(szCmd, SHELL_POSIX, "echo %s", std::string(64, 'x')));
    EXPECT_STREQ(szCmd, "");
    EXPECT_FALSE(iCMD(szCmd, SHELL_POSIX, "echo %s", std::string_view("a\0b", 3)));
    ASSERT_TRUE(iCMD(szCmd, SHELL_POSIX, "a %s b%s %s%s c%s", "", "", "", RAW_TEXT{" -f"}, ""));
    EXPECT_STREQ(szCmd, "a '' b '' -f c") << "an empty value that is a word stays one";
    ASSERT_TRUE(iCMD(szCmd, SHELL_POSIX, "%s -v %d 100%%", RAW_TEXT{"qtc -x \"a b\""}, 7));
    EXPECT_STREQ(szCmd, "qtc -x \"a b\" -v 7 100%");
}

TEST(STATEMENT, values_are_quoted_where_they_stand)
{
    char szSql[256];
    ASSERT_TRUE(iSQL(szSql, "a='%s' b like '%s%%' c=%d d=%ld e='%c' %s", "o'x\\\xFF",
                     LIKE_TEXT{"50%_'\\"}, -3, 1L << 40, '\'', RAW_TEXT{"f=NULL"}));
    EXPECT_STREQ(
        szSql,
        "a='o''x\\\xEF\xBF\xBD' b like '50\\%\\_''\\\\%' c=-3 d=1099511627776 e='''' f=NULL");
    ASSERT_TRUE(iSQL(szSql, "'%s'", std::string_view("a\0b", 3)));
    EXPECT_STREQ(szSql, "'ab'");
    EXPECT_FALSE(iSQL(szSql, "a=%s", "1 or true")) << "a text outside quotes";
    EXPECT_FALSE(iSQL(szSql, "a='x' and b=%s", "1 or true"));
    EXPECT_FALSE(iSQL(szSql, "a=%d", "1")) << "a text for a number";
    EXPECT_FALSE(iSQL(szSql, "a='%s'", 1)) << "a number for a text";
    EXPECT_FALSE(iSQL(szSql, "a='%s' %s", "x")) << "a value is missing";
    EXPECT_STREQ(szSql, "");
}

TEST(STATEMENT, fits_its_buffer_and_only_free_text_is_shortened_for_that)
{
    char szExact[16];  // 15 characters and the end
    EXPECT_TRUE(iSQL(szExact, "select '%s'", "123456"));
    EXPECT_STREQ(szExact, "select '123456'");
    EXPECT_TRUE(iSQL(szExact, "select '%s'", FREE_TEXT{"1234567"}));
    EXPECT_STREQ(szExact, "select '123456'");
    EXPECT_FALSE(iSQL(szExact, "select '%s'", "1234567"));
    char szSql[40];
    /* 15 characters of frame leave 24 for the free texts. */
    ASSERT_TRUE(
        iSQL(szSql, "set a='%s',b='%s' x", FREE_TEXT{std::string(50, 'a')}, FREE_TEXT{"bb"}));
    EXPECT_EQ(szSql, "set a='" + std::string(22, 'a') + "',b='bb' x");
    ASSERT_TRUE(iSQL(szSql, "set a='%s'", FREE_TEXT{std::string(50, '\'')}));
    EXPECT_EQ(szSql, "set a='" + std::string(30, '\'') + "'") << "an odd place is left free";
    const std::string sEuros = "€€€€€€€€€€€€€€€";
    ASSERT_TRUE(iSQL(szSql, "set a='%s'", FREE_TEXT{sEuros}));
    EXPECT_EQ(szSql, "set a='" + sEuros.substr(0, 30) + "'");
    EXPECT_FALSE(iSQL(szSql, "set a='%s' where n='%s'", FREE_TEXT{"f"}, std::string(50, 'n')));
    EXPECT_STREQ(szSql, "");
}

}  // namespace
