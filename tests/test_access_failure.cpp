/* From the raw error line of a failed command to the message for the user. */
#include <gmock/gmock.h>

#include <memory>

#include "kernel/vk_config_client.h"
#include "scratch.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;

class ACCESS_FAILURE : public SCRATCH {
protected:
    void SetUp() override
    {
        SCRATCH::SetUp();
        iTEXT_SET(m_pArg->szNodeName, "alpha");
        iTEXT_SET(m_pArg->szVelkaNode, "srv");
    }
    void TearDown() override
    {
        eLang = LANG_EN;
        SCRATCH::TearDown();
    }
    std::string sMADE_OF(const std::string& sLine, size_t uSize = 1024)
    {
        std::string sBuf(1024, '\0');
        iTEXT_COPY(sBuf.data(), uSize, sLine);
        CREATE_USER_INFO(m_pArg.get(), sBuf.data(), uSize);
        return sBuf.c_str();
    }
    TEXTS PROTOCOL() { return asLINES(sREAD_FILE(sPATH("gv_rw_prot/20240501.prt"))); }

    const std::unique_ptr<SCT_ARGS> m_pArg = std::make_unique<SCT_ARGS>();
};

TEST_F(ACCESS_FAILURE, the_first_rule_that_matches_decides)
{
    const std::string sE009 = "E009-HOSTS   Could not resolve hostname [alpha]";
    const std::string sE010 =
        "E010-HOSTS   QIR velka client on alpha not yet started - for what to do see Day Protocol.";
    const std::string sE011 =
        "E011-HOSTS   Missing permit. Execute [vk_setup set_client srv] on client alpha";
    const std::string sE002 = "E002-HOSTS   There is no access to computer alpha: ";
    const struct {
        const char* cpLine;
        std::string sMessage;
    } asctCase[] = {
        {"x Authoritative Answer Host not found y", sE009},
        {"Connection refused, Host is unknown", sE009},
        {"Error: Authentication failed: Host is unknown", sE009},
        {"ssh: connect to host alpha port 22: Connection refused", sE010},
        {"Error: Authentication failed, Connection refused", sE010},
        {"root is not allowed to connect or security problem for user root", sE011},
        {"Error: Authentication failed: no key", sE011},
        {"Authentication failed", sE002 + "Authentication failed"},
        {"connection refused", sE002 + "connection refused"},
        {"HOST IS UNKNOWN", sE002 + "HOST IS UNKNOWN"},
        {"100% full, it's %s", sE002 + "100% full, it's %s"},
        {"", sE002},
    };
    for (const auto& row : asctCase) {
        SCOPED_TRACE(row.cpLine);
        EXPECT_EQ(sMADE_OF(row.cpLine), row.sMessage);
    }
}

TEST_F(ACCESS_FAILURE, only_a_client_that_is_not_started_puts_advice_into_the_day_protocol)
{
    sMADE_OF("Host is unknown");
    sMADE_OF("Error: Authentication failed");
    sMADE_OF("anything");
    EXPECT_THAT(PROTOCOL(), ElementsAre());
    sMADE_OF("Connection refused");
    EXPECT_THAT(
        PROTOCOL(),
        ElementsAre(
            EndsWith(" E010-HOSTS   QIR velka client on alpha not yet started - for what to do see "
                     "Day Protocol."),
            EndsWith(" I006-HOSTS   At first please install QIR velka client-software on alpha."),
            EndsWith(" I007-HOSTS   If already installed please start it there with ´vk_main "
                     "start´.")));
}

TEST_F(ACCESS_FAILURE, messages_keep_to_their_buffers)
{
    const std::string sLong = sMADE_OF(std::string(900, 'x'));
    EXPECT_EQ(sLong.size(), 511U);
    EXPECT_EQ(sMADE_OF("Host is unknown", 30), "E009-HOSTS   Could not resolv");
    EXPECT_EQ(sMADE_OF("something else", 30), "E002-HOSTS   There is no acce");
}

TEST(AUTH_DATA, is_what_the_first_two_pairs_of_brackets_hold)
{
    const std::string sLong = "[a]" + std::string(600, 'x') + "[b]";
    const struct {
        std::string sLine;
        const char* cpData;
    } asctCase[] = {
        {"[x][y][z]", "x y"},
        {"user [root] from [srv] refused", "root srv"},
        {"[x] only", "x "},
        {"] before [", ""},
        {"[]", " "},
        {"[][]", " "},
        {"[a[b]c[d]", "a[b d"},
        {"[a]]b[c", "a "},
        {"no brackets", ""},
        {"", ""},
        {sLong, "a "},
    };
    for (const auto& row : asctCase) {
        SCOPED_TRACE(row.sLine);
        std::string sText = row.sLine;
        EXPECT_EQ(szEXTRACT_AUTH_DATA(sText.data()), sText.data());
        EXPECT_STREQ(sText.c_str(), row.cpData);
    }
}

}  // namespace
