/* The message catalogue: full texts, the choice of the language, and how values are
   filled in. */
#include "kernel/messages.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

class MESSAGES : public testing::Test {
protected:
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
        {LANG_FR, MSG_E005,
         "E005-HOSTS   Le fichier local A ne peut pas être ouvré pour enregistrer le QIR "
         "velka-ordinatuer là ."},
        {LANG_FR, MSG_E020, "E020-HOSTS   En ce moment, l´ordinateur A n´est pas accessible: B"},
        {LANG_EN, MSG_E013,
         "E013-HOSTS   Backup from A cannot return to B - please check ( ping, DNS, local KTRD )."},
        {LANG_BY, MSG_E012, "E012-HOSTS   Testsicharung vom A gäd ned. Ja mi leckst!"},
        {LANG_EN, MSG_I004, "I004-HOSTS   Mode: A   Address: B  Distribution: C"},
        {LANG_BY, MSG_I004, "I004-HOSTS   Modus: A   D´Adress: B  S´Derivat: C"},
        {LANG_EN, MSG_I007,
         "I007-HOSTS   If already installed please start it there with ´vk_main start´."},
        {LANG_BY, MSG_I003, "I003-HOSTS   Konfiguration vom A Client B hod guad hi g´haun."},
        {LANG_DE, MSG_I015,
         "I015-HOSTS   Client A mit Zugriffsart 'VIRTUAL' konfiguriert. Kein Remotezugriff "
         "möglich."},
        {LANG_DE, MSG_W004,
         "W004-HOSTS   Um die Aktualisierung des Clients A abzuschliessen ist ein Neustart "
         "erforderlich. B"},
        {LANG_EN, MSG_W003,
         "W003-HOSTS   Computer A is not yet configured in QIR velka´s "
         "database."},
    };
    for (const auto& row : asctCase) {
        SCOPED_TRACE(row.cpText);
        EXPECT_EQ(sIN(row.eLanguage, row.eId, {"A", "B", "C"}), row.cpText);
    }
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

    char szFitted[60];
    eLang = LANG_EN;
    MESSAGE_FITTED(szFitted, MSG_E004, "a detail that is longer than its place");
    EXPECT_STREQ(szFitted, "E004-HOSTS   Error during access to database  (a detail th)");
    MESSAGE_FITTED(szFitted, MSG_E004, "short");
    EXPECT_STREQ(szFitted, "E004-HOSTS   Error during access to database  (short)");
    MESSAGE_FITTED(szText, MSG_E004, "no room for any of it");
    EXPECT_STREQ(szText, "E004-HOSTS   Error ");
}

}  // namespace
