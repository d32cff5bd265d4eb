/* How the output of a test backup is judged. */
#include <gmock/gmock.h>

#include <filesystem>
#include <memory>

#include "kernel/vk_config_client.h"
#include "scratch.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;

class TEST_ANSWER : public SCRATCH {
protected:
    void SetUp() override
    {
        SCRATCH::SetUp();
        iTEXT_SET(m_pArg->szNodeName, "alpha");
        iTEXT_SET(m_pArg->szVelkaNode, "srv");
    }
    int iJUDGE(const std::string& sOutput, size_t uSize = 1024)
    {
        WRITE_FILE(sPATH("out"), sOutput);
        return iANALYSE_TEST_ANSWER(m_pArg.get(), sPATH("out").c_str(), m_szRet, uSize);
    }
    bool bFILE_KEPT() { return std::filesystem::exists(sPATH("out")); }

    char                            m_szRet[1024] = "";
    const std::unique_ptr<SCT_ARGS> m_pArg = std::make_unique<SCT_ARGS>();
};

constexpr const char* cpI005 =
    "I005-HOSTS   QIR velka client is already installed on alpha, access is valid";

TEST_F(TEST_ANSWER, a_success_outweighs_everything_and_removes_the_output)
{
    for (const char* cpMarker : {"qtc-3007: done", "x qtc-2032: done"}) {
        SCOPED_TRACE(cpMarker);
        EXPECT_EQ(iJUDGE(std::string("ERROR: one\nqtc-1009: two\n") + cpMarker), 1);
        EXPECT_STREQ(m_szRet, cpI005);
        EXPECT_FALSE(bFILE_KEPT());
    }
}

TEST_F(TEST_ANSWER, a_failure_gives_the_message_of_its_kind_and_keeps_the_output)
{
    const struct {
        const char* cpOutput;
        const char* cpMessage;
    } asctCase[] = {
        {"Error: no\nqtc-1009: cannot return\n",
         "E013-HOSTS   Backup from alpha cannot return to srv - please check ( ping, DNS, local "
         "KTRD )."},
        {"first\nsome Error here\nERROR: later\n",
         "E002-HOSTS   There is no access to computer alpha: some Error here"},
        {"ERROR: Connection refused\n",
         "E010-HOSTS   QIR velka client on alpha not yet started - for what to do see Day "
         "Protocol."},
        {"an ORder, an error, a qtc-3007 and a QTC-3007: are no markers\n",
         "E012-HOSTS   Backup from alpha not possible."},
        {"", "E012-HOSTS   Backup from alpha not possible."},
    };
    for (const auto& row : asctCase) {
        SCOPED_TRACE(row.cpOutput);
        EXPECT_EQ(iJUDGE(row.cpOutput), 0);
        EXPECT_STREQ(m_szRet, row.cpMessage);
        EXPECT_TRUE(bFILE_KEPT());
    }
}

TEST_F(TEST_ANSWER, an_error_line_goes_to_the_day_protocol_as_it_was_found)
{
    iJUDGE("qtc: Error 5, 100% of it's space\n");
    EXPECT_THAT(asLINES(sREAD_FILE(sPATH("gv_rw_prot/20240501.prt"))),
                ElementsAre(EndsWith(" E003-HOSTS   Error message: qtc: Error 5, 100% of it's "
                                     "space")));
}

TEST_F(TEST_ANSWER, a_missing_output_and_a_short_buffer_change_no_result)
{
    EXPECT_EQ(iANALYSE_TEST_ANSWER(m_pArg.get(), sPATH("none").c_str(), m_szRet, sizeof m_szRet),
              0);
    EXPECT_STREQ(m_szRet, "E012-HOSTS   Backup from alpha not possible.");
    EXPECT_EQ(iJUDGE("qtc-3007: ok\n", 20), 1);
    EXPECT_STREQ(m_szRet, "I005-HOSTS   QIR ve");
}

}  // namespace
