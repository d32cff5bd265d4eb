/* Names, reports, error lines and settings that hold what a statement, a shell, a
   format or a terminal would read as its own: they stay text. */
#include <algorithm>
#include <nlohmann/json.hpp>

#include "sandbox_fixture.h"

using namespace testing;

namespace {

const TEXTS asHOSTILE = {
    "it's",
    "\"quoted\" text \"",
    "back\\slash\\",
    "%s%n%s%n %d %%",
    "'; drop table clients; --",
    "x;touch $HOME/PWNED;`touch $HOME/PWNED`$(touch $HOME/PWNED)",
    "a && b | c > d < e * ?",
};

class HOSTILE : public SANDBOX {
protected:
    /* Each run has left a line that any reader takes, and that no terminal acts upon. */
    void TearDown() override
    {
        const TEXTS asLine = OUTCOMES();
        EXPECT_GT(asLine.size(), 10U);
        for (const std::string& sLine : asLine) {
            EXPECT_TRUE(nlohmann::json::accept(sLine)) << sLine;
            EXPECT_TRUE(std::none_of(sLine.begin(), sLine.end(), [](unsigned char c) {
                return c < 0x20 || c == 0x7F;
            })) << sLine;
        }
        SANDBOX::TearDown();
    }
    /* Runs a check that ends with iExit and whose outcome is stored; nothing else
       has happened. Gives the stored message. */
    std::string sCHECKED(const std::string& sClient, int iExit)
    {
        const RUN run = CHECK(sClient);
        EXPECT_EQ(run.sErr, "");
        EXPECT_EQ(COLUMN(sClient, "access_state"), std::to_string(iExit));
        const std::string sMessage = COLUMN(sClient, "msg");
        EXPECT_ENDED(run, iExit, sMessage);
        EXPECT_EQ(COLUMN(sClient, "comment"), sMessage);
        return sMessage;
    }
    TEXTS asPWNED() { return asFILES_NAMED(sDIR(), "PWNED"); }
};

TEST_F(HOSTILE, reports_and_error_lines_reach_the_database_as_text)
{
    ADD_CLIENT("alpha");
    for (const std::string& sText : asHOSTILE) {
        SCOPED_TRACE(sText);
        SQL("update clients set update_date=null");
        std::string sReport = "QTC_VERSION=1.2\nUPDATE_DATE=1\n";
        for (const char* cpKey :
             {"HW", "VELKA_VERSION", "PACKAGE", "UPDATE_MESSAGE", "MODULE_VERSIONS", "OS"})
            sReport += cpKey + ("=" + sText + "\n");
        OUTPUT("alpha", "qtc", sReport);
        SWITCH("alpha", "qtc", {});
        EXPECT_THAT(sCHECKED("alpha", 0), StartsWith("I005"));
        const std::string sSeen = sText.substr(0, sText.find_last_not_of(' ') + 1);
        for (const char* cpColumn :
             {"hw_platform", "velka_version", "package", "update_message", "module_versions"})
            EXPECT_EQ(COLUMN("alpha", cpColumn), sSeen);

        OUTPUT("alpha", "qtc", "first\n" + sText + "\n");
        SWITCH("alpha", "qtc", {"exit=1"});
        EXPECT_EQ(sCHECKED("alpha", 1),
                  "E002-HOSTS   There is no access to computer alpha: " + sText);
        EXPECT_THAT(PROTOCOL(), Contains("E003-HOSTS   Error message: " + sText));
    }
    EXPECT_THAT(asPWNED(), IsEmpty());
    EXPECT_EQ(SQL("select count(*) from clients"), "2");
}

TEST_F(HOSTILE, control_characters_and_broken_text_break_no_line)
{
    const std::pair<std::string, std::string> asRow[] = {
        {"a\x1b[2Jb\tc\x07\x7f", "a[2Jb c"},
        {"broken \xff\xc3( \xe2\x82 end",
         "broken \xEF\xBF\xBD\xEF\xBF\xBD( \xEF\xBF\xBD\xEF\xBF\xBD end"},
        {"carriage\rreturn\r", "carriagereturn"},
        {std::string("zero\0byte", 9), "zerobyte"},
        {"c1 \xc2\x9b"
         "31m \xc0\xaf",
         "c1 31m \xEF\xBF\xBD\xEF\xBF\xBD"},
        {"line\vfeeds\f\x1e", "linefeeds"},
    };
    ADD_CLIENT("alpha");
    for (const auto& [sBytes, sStored] : asRow) {
        SCOPED_TRACE(sStored);
        OUTPUT("alpha", "qtc", "QTC_VERSION=1.2\nUPDATE_DATE=1\nUPDATE_MESSAGE=" + sBytes + "\n");
        SWITCH("alpha", "qtc", {});
        EXPECT_THAT(sCHECKED("alpha", 0), StartsWith("I005"));
        EXPECT_EQ(COLUMN("alpha", "update_message"), sStored);
        OUTPUT("alpha", "qtc", sBytes);
        SWITCH("alpha", "qtc", {"exit=1"});
        EXPECT_EQ(sCHECKED("alpha", 1),
                  "E002-HOSTS   There is no access to computer alpha: " + sStored);
    }
    for (const std::string& sLine : PROTOCOL()) EXPECT_EQ(sLine.substr(4, 6), "-HOSTS");

    // The version itself, and more output than is kept, with garbage in front.
    ADD_CLIENT("garbage");
    EXPECT_THAT(sCHECKED("garbage", 0), StartsWith("I005"));
    SWITCH("alpha", "qtc", {"mode=megabytes", "bytes=17000000", "exit=1"});
    OUTPUT("alpha", "qtc", "\nError: the last line of all\n");
    EXPECT_EQ(sCHECKED("alpha", 1),
              "E002-HOSTS   There is no access to computer alpha: Error: the last line of all");
}

TEST_F(HOSTILE, settings_of_a_client_stay_words)
{
    ADD_CLIENT("alpha");
    ADD_CLIENT("nd1", "PROXY", "NDMP", {{"data_mover", "alpha"}});
    ADD_CLIENT("nw1", "VKSSH", "NetWare");
    for (const std::string& sText : asHOSTILE) {
        SCOPED_TRACE(sText);
        // The password reaches the program as one word, whatever it holds.
        SQL("update clients set user_name='u',password=$vk$" + sText + "$vk$ where name='nd1'");
        EXPECT_EQ(CHECK("nd1").iExit, 0);
        EXPECT_EQ(CLIENT_LOG("alpha").back(),
                  "qtc_ndmp -D -s dir -a <auth=md5,server=nd1,user=u,passwd=" + sText + ">");
        // A data mover and a user that are none fail the check, no more.
        SQL("update clients set data_mover=$vk$" + sText + "$vk$ where name='nw1'");
        EXPECT_EQ(sCHECKED("nw1", 1), "E009-HOSTS   Could not resolve hostname [nw1]");
        SQL("update clients set os_user=$vk$" + sText + "$vk$ where name='alpha'");
        EXPECT_THAT(sCHECKED("alpha", 1), AnyOf(StartsWith("E011"), StartsWith("E002")));
        SQL("update clients set os_user=null where name='alpha'");
        // A comment is stored as it was given.
        SQL("delete from clients where name='new'");
        EXPECT_EQ(CONFIG_CLIENT({"-c", "new", "-o", "Linux", "-m", "VIRTUAL", "-u", sText}).iExit,
                  0);
        EXPECT_EQ(COLUMN("new", "user_comment"), sText);
    }
    SQL("update clients set password=repeat('p',250) where name='nd1'");
    EXPECT_THAT(sCHECKED("nd1", 1), EndsWith("for alpha is longer than 255 bytes"));
    EXPECT_THAT(OUTCOMES().back(), HasSubstr("\"cause\":\"command-not-formed\""));
    EXPECT_THAT(asPWNED(), IsEmpty());
    EXPECT_EQ(SQL("select count(*) from clients"), "5");
}

}  // namespace
