/* The entry that a registration makes in the server's hosts file. */
#include <filesystem>

#include "sandbox_fixture.h"

using testing::HasSubstr;
using testing::UnorderedElementsAreArray;

namespace {

class HOSTS : public SANDBOX {
protected:
    RUN REGISTER(const std::string& sClient, const SETTINGS& environment = {})
    {
        return CONFIG_CLIENT({"-c", sClient, "-o", "Linux", "-a", "10.1.2.3"}, environment);
    }
};

TEST_F(HOSTS, an_entry_holds_address_upper_and_lower_name_and_is_made_once)
{
    START_CLIENTS({"Alpha"});
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(REGISTER("Alpha").iExit, 0);
        EXPECT_EQ(HOSTS_FILE(), "127.0.0.1   localhost\n10.1.2.3   ALPHA alpha");
    }
    const std::string sMissing = sDIR() + "/missing";
    EXPECT_EQ(REGISTER("Alpha", {{"gv_hosts_file", sMissing}}).iExit, 0);
    EXPECT_EQ(sREAD_FILE(sMissing), "\n10.1.2.3   ALPHA alpha");
}

TEST_F(HOSTS, only_the_whole_name_in_a_line_counts_as_present)
{
    START_CLIENTS({"alpha"});
    const struct {
        const char* cpFile;
        bool        bPresent;
    } aRow[] = {
        {"10.0.0.1 alpha\n", true},
        {"10.0.0.1\tother\tALPHA\tmore # text\n", true},
        {"::1 localhost\n10.0.0.1 Alpha", true},
        {"10.0.0.1 alpha2 my-alpha alpha.example.org\n", false},
        {"10.0.0.1 other # alpha\n", false},
        {"# 10.1.2.3 alpha\n", false},
        {"", false},
    };
    const std::string sFile = sDIR() + "/hosts";
    for (const auto& row : aRow) {
        SCOPED_TRACE(row.cpFile);
        WRITE_FILE(sFile, row.cpFile);
        EXPECT_EQ(REGISTER("alpha", {{"gv_hosts_file", sFile}}).iExit, 0);
        EXPECT_EQ(sREAD_FILE(sFile),
                  row.cpFile + std::string{row.bPresent ? "" : "\n10.1.2.3   ALPHA alpha"});
    }
}

TEST_F(HOSTS, a_file_that_cannot_be_opened_ends_with_E005_and_keeps_the_registration)
{
    START_CLIENTS({"alpha"});
    const std::string sFile = sDIR() + "/none/hosts";
    const RUN         run = REGISTER("alpha", {{"gv_hosts_file", sFile}});
    const std::string sE005 =
        "E005-HOSTS   cannot open local file " + sFile + " to insert QIR velka server computer.";
    EXPECT_EQ(run.iExit, 1);
    EXPECT_EQ(run.sOut, "STATUS=ERROR MSG=\"" + sE005 + "\"\n");
    EXPECT_EQ(COLUMN("alpha", "msg"), sE005);
    EXPECT_EQ(SQL("select count(*) from interfaces where client_id=1"), "3");

    // A long path is shortened, the message stays whole.
    const RUN longer =
        REGISTER("alpha", {{"gv_hosts_file", sDIR() + "/" + std::string(400, 'x') + "/hosts"}});
    EXPECT_EQ(longer.iExit, 1);
    EXPECT_THAT(longer.sOut, HasSubstr("xxx to insert QIR velka server computer.\"\n"));
    EXPECT_LT(COLUMN("alpha", "msg").size(), 256u);
}

TEST_F(HOSTS, ten_runs_at_one_moment_append_ten_whole_entries)
{
    TEXTS asClient, asEntry{"127.0.0.1   localhost"};
    for (int i = 0; i < 10; i++) {
        asClient.push_back("host" + std::to_string(i));
        asEntry.push_back("10.1.2.3   HOST" + std::to_string(i) + " host" + std::to_string(i));
    }
    START_CLIENTS(asClient);
    std::vector<STARTED_RUN> runs;
    for (const std::string& sClient : asClient)
        runs.push_back(START({"-c", sClient, "-o", "Linux", "-a", "10.1.2.3"}));
    for (STARTED_RUN& run : runs) EXPECT_EQ(WAIT(run).iExit, 0);
    EXPECT_THAT(asLINES(HOSTS_FILE()), UnorderedElementsAreArray(asEntry));
    EXPECT_EQ(iCHILDREN_LEFT(2000), 0);
}

}  // namespace
