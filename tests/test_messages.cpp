/* The message catalogue: full texts, the choice of the language, and how values are
   filled in. */
#include "kernel/messages.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

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

TEST_F(MESSAGES, full_texts_stand_as_the_user_knows_them)
{
    const struct {
        LANGUAGES   eLanguage;
        MESSAGE_ID  eId;
        const char* cpText;
    } asctCase[] = {
        {LANG_EN, MSG_E004, "E004-HOSTS   Error during access to database  (A)"},
        {LANG_DE, MSG_E004, "E004-HOSTS   Fehler bei Datenbankzugriff (A)"},
        {LANG_BY, MSG_E004, "E004-HOSTS   Fälla beim Dattnbankzugriff  (A)"},
        {LANG_FR, MSG_E004, "E004-HOSTS   Erreur pendant l´accès sur la banque de données (A)"},
        {LANG_FR, MSG_E020, "E020-HOSTS   En ce moment, l´ordinateur A n´est pas accessible: B"},
        {LANG_BY, MSG_E012, "E012-HOSTS   Testsicharung vom A gäd ned. Ja mi leckst!"},
        {LANG_EN, MSG_I004, "I004-HOSTS   Mode: A   Address: B  Distribution: C"},
        {LANG_BY, MSG_I004, "I004-HOSTS   Modus: A   D´Adress: B  S´Derivat: C"},
        {LANG_BY, MSG_I003, "I003-HOSTS   Konfiguration vom A Client B hod guad hi g´haun."},
        {LANG_DE, MSG_W004,
         "W004-HOSTS   Um die Aktualisierung des Clients A abzuschliessen ist ein Neustart "
         "erforderlich. B"},
    };
    for (const auto& row : asctCase) {
        SCOPED_TRACE(row.cpText);
        EXPECT_EQ(sIN(row.eLanguage, row.eId, {"A", "B", "C"}), row.cpText);
    }
}

/* Other programs read these texts: who changes one on purpose changes the sum. */
TEST_F(MESSAGES, texts_of_every_language_and_the_usage_stay_to_the_letter)
{
    const auto uSUM = [](uint32_t uSum, std::string_view svText) {
        for (const char c : svText) uSum = (uSum ^ static_cast<unsigned char>(c)) * 16777619U;
        return uSum;
    };
    const std::pair<LANGUAGES, uint32_t> asRow[] = {
        {LANG_DE, 2879577224U}, {LANG_BY, 1740059363U}, {LANG_FR, 1615903463U}};
    for (const auto& [eLanguage, uWanted] : asRow) {
        uint32_t uSum = 2166136261U;
        for (int i = 0; i < MESSAGE_COUNT; ++i)
            uSum = uSUM(uSum, svMESSAGE_TEXT(static_cast<MESSAGE_ID>(i), eLanguage));
        EXPECT_EQ(uSum, uWanted) << eLanguage;
    }
    testing::internal::CaptureStdout();
    USAGE();
    const std::string sUsage = testing::internal::GetCapturedStdout();
    EXPECT_EQ(uSUM(2166136261U, sUsage.substr(sUsage.find('\n'))), 55820992U);
}

TEST_F(MESSAGES, a_language_without_a_text_shows_the_text_of_its_neighbour)
{
    const std::vector<MESSAGE_ID> french = {MSG_E004, MSG_E005, MSG_E020, MSG_I001, MSG_I005};
    const std::vector<MESSAGE_ID> german = {MSG_I014, MSG_I015, MSG_I016};
    const auto                    contains = [](const auto& ids, MESSAGE_ID eId) {
        return std::find(ids.begin(), ids.end(), eId) != ids.end();
    };
    EXPECT_EQ(MESSAGE_COUNT, 35);
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
        EXPECT_EQ(svMESSAGE_TEXT(eId, LANG_BY) == svMESSAGE_TEXT(eId, LANG_DE),
                  contains(german, eId));
        EXPECT_EQ(svMESSAGE_TEXT(eId, LANG_FR) != svEnglish, contains(french, eId));
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
    const struct {
        const char *cpMessage, *cpShown;
    } asctRow[] = {
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
    for (const auto& row : asctRow)
        EXPECT_EQ(sMASKED(row.cpMessage), row.cpShown != nullptr ? row.cpShown : row.cpMessage);
    const SECRETS_HERE shorter{"1"};
    EXPECT_EQ(sMASKED(asctRow[0].cpMessage), asctRow[0].cpMessage);
    EXPECT_EQ(sMASKED("E002-HOSTS   There is no access to computer a: 1"),
              "E002-HOSTS   There is no access to computer a: ***");
    EXPECT_EQ(sFOREIGN("update clients set a='2'"), "***");
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
    for (const auto& [sLine, cpData] : asRow) {
        SCOPED_TRACE(sLine);
        std::string sText = sLine;
        EXPECT_STREQ(szEXTRACT_AUTH_DATA(sText.data()), cpData);
    }
}

}  // namespace
