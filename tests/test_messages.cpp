/* The message catalogue: full texts, the choice of the language, and how values are
   filled in. */
#include "kernel/messages.h"

#include <gmock/gmock.h>

#include <set>
#include <string>

#include "kernel/vk_config_client.h"

namespace {

struct MESSAGES : testing::Test {
    void TearDown() override { eLang = LANG_EN; }
};

std::string sIN(LANGUAGES eLanguage, MESSAGE_ID eId, std::initializer_list<std::string_view> values)
{
    eLang = eLanguage;
    return sMESSAGE(eId, values);
}

TEST_F(MESSAGES, a_language_without_a_text_shows_the_text_of_its_neighbour)
{
    const std::set<MESSAGE_ID> french = {MSG_E004, MSG_E005, MSG_E020, MSG_I001, MSG_I005};
    const std::set<MESSAGE_ID> german = {MSG_I014, MSG_I015, MSG_I016};
    for (int i = 0; i < MESSAGE_COUNT; ++i) {
        const auto             eId = static_cast<MESSAGE_ID>(i);
        const std::string_view svEnglish = svMESSAGE_TEXT(eId, LANG_EN);
        SCOPED_TRACE(svEnglish);
        EXPECT_THAT(std::string(svEnglish.substr(0, 13)),
                    testing::MatchesRegex("[EIW][0-9]{3}-HOSTS   "));
        for (LANGUAGES eLanguage : {LANG_DE, LANG_BY, LANG_FR})
            EXPECT_EQ(svMESSAGE_TEXT(eId, eLanguage).substr(0, 13), svEnglish.substr(0, 13));
        for (LANGUAGES eLanguage : {LANG_ES, LANG_HR, LANG_PT, static_cast<LANGUAGES>(7)})
            EXPECT_EQ(svMESSAGE_TEXT(eId, eLanguage), svEnglish);
        EXPECT_NE(svMESSAGE_TEXT(eId, LANG_DE), svEnglish);
        const bool bGerman = svMESSAGE_TEXT(eId, LANG_BY) == svMESSAGE_TEXT(eId, LANG_DE);
        EXPECT_EQ(bGerman, german.contains(eId));
        EXPECT_EQ(svMESSAGE_TEXT(eId, LANG_FR) != svEnglish, french.contains(eId));
    }
}

TEST_F(MESSAGES, values_fill_the_marks_in_order_and_are_never_read_as_marks)
{
    // The French text names the client only.
    EXPECT_EQ(sIN(LANG_FR, MSG_I001, {"alpha", "LINUX"}),
              "I001-HOSTS   Configuration d´un client de alpha est démarré.");
    EXPECT_EQ(sIN(LANG_EN, MSG_E002, {"%s", "100%"}),
              "E002-HOSTS   There is no access to computer %s: 100%");
    char szText[64];
    MESSAGE(szText, MSG_E003, "abc");
    MESSAGE(szText, sizeof szText, MSG_E012, std::string_view(szText).substr(28));
    EXPECT_STREQ(szText, "E012-HOSTS   Backup from abc not possible.");
}

TEST_F(MESSAGES, longer_texts_are_cut_at_a_character_and_fitted_ones_keep_their_end)
{
    char szText[20];
    eLang = LANG_BY;
    MESSAGE(szText, MSG_I008, "a", "1");  // "I008-HOSTS   Benutza..."
    EXPECT_STREQ(szText, "I008-HOSTS   Benutz");
    MESSAGE(szText, MSG_E003, "a");  // the umlaut of "Fälla" would end at byte 16
    EXPECT_STREQ(szText, "E003-HOSTS   Fälla");
    MESSAGE(szText, 16, MSG_E003, "a");
    EXPECT_STREQ(szText, "E003-HOSTS   F");

    eLang = LANG_EN;
    EXPECT_EQ(sMESSAGE_FITTED(60, MSG_E004, "a detail that is longer than its place"),
              "E004-HOSTS   Error during access to database  (a detail th)");
    EXPECT_EQ(sMESSAGE_FITTED(60, MSG_E004, "short"),
              "E004-HOSTS   Error during access to database  (short)");
    EXPECT_EQ(sMESSAGE_FITTED(20, MSG_E004, "no room for any of it"), "E004-HOSTS   Error ");
}

TEST_F(MESSAGES, passwords_are_masked_in_foreign_values_and_never_in_the_catalogue)
{
    constexpr std::pair<const char*, const char*> asRow[] = {
        // clang-format off
        {"E007-HOSTS   There is still no QIR velka client software installed on computer a - please do it now.", nullptr},
        {"E002-HOSTS   There is no access to computer velka: no velka: here",
         "E002-HOSTS   There is no access to computer velka: no ***: here"},
        {"E004-HOSTS   Error during access to database  (user velka)",
         "E004-HOSTS   Error during access to database  (user ***)"},
        {"E013-HOSTS   Backup from velka cannot return to velka - please check ( ping, DNS, local KTRD ).", nullptr},
        {"E999-HOSTS   velka", "E999-HOSTS   ***"},
        // clang-format on
    };
    const SECRETS_HERE secrets{"velka"};
    for (const auto& [cpMessage, cpShown] : asRow)
        EXPECT_EQ(sMASKED(cpMessage), cpShown != nullptr ? cpShown : cpMessage);
    {
        const SECRETS_HERE shorter{"1"};
        EXPECT_EQ(sMASKED(asRow[0].first), asRow[0].first);
        EXPECT_EQ(sMASKED("E002-HOSTS   There is no access to computer a: 1"),
                  "E002-HOSTS   There is no access to computer a: ***");
        EXPECT_EQ(sFOREIGN("update clients set a='2'"), "***");
    }
    EXPECT_EQ(sFOREIGN("of the next one"), "of the next one");
    EXPECT_EQ(sMASKED("host 127.0.0.1"), "host 127.0.0.1");
}

TEST(AUTH_DATA, is_what_the_first_two_pairs_of_brackets_hold)
{
    // clang-format off
    const std::pair<std::string, const char*> asRow[] = {
        {"user [root] from [srv] refused", "root srv"}, {"[x][y][z]", "x y"}, {"[x] only", "x "},
        {"] before [", ""}, {"[]", " "}, {"[a[b]c[d]", "a[b d"}, {"[a]]b[c", "a "}, {"", ""},
        {"[a]" + std::string(600, 'x') + "[b]", "a "}};
    // clang-format on
    for (auto [sLine, cpData] : asRow) EXPECT_STREQ(szEXTRACT_AUTH_DATA(sLine.data()), cpData);
}

}  // namespace
