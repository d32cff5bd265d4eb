/* The entry that a registration makes in the server's hosts file. */
#include <sys/resource.h>
#include <sys/stat.h>

#include "sandbox_fixture.h"

using namespace testing;

namespace {

class HOSTS : public SANDBOX {
protected:
    RUN REGISTER(const std::string& sClient, const std::string& sFile, const TEXTS& asMore = {})
    {
        return CONFIG_CLIENT(TEXTS{"-c", sClient, "-o", "Linux", "-a", "10.1.2.3"} + asMore,
                             {{"gv_hosts_file", sFile}});
    }
};

TEST_F(HOSTS, an_entry_is_made_once_and_only_the_whole_name_in_a_line_counts_as_present)
{
    START_CLIENTS({"Alpha"});
    const std::string sEntry = "\n10.1.2.3   ALPHA alpha";
    // clang-format off
    const struct { const char* cpFile; bool bPresent; } aRow[] = {
        {"10.0.0.1 alpha\n", true}, {"10.0.0.1\tother\tALPHA\tmore # text\n", true},
        {"::1 localhost\n10.0.0.1 Alpha", true}, {"# 10.1.2.3 alpha\n", false},
        {"10.0.0.1 alpha2 my-alpha alpha.example.org\n", false},
        {"10.0.0.1 other # alpha\n", false}, {"", false},
    };
    // clang-format on
    const std::string sFile = sDIR() + "/hosts";
    const mode_t      iMask = umask(077);
    EXPECT_EQ(REGISTER("Alpha", sFile).iExit, 0);  // no such file
    umask(iMask);
    EXPECT_EQ(sREAD_FILE(sFile), sEntry);
    EXPECT_EQ(iMODE(sFile), 0644U);
    for (const auto& row : aRow) {
        SCOPED_TRACE(row.cpFile);
        WRITE_FILE(sFile, row.cpFile);
        for (int i = 0; i < 2; i++) {
            EXPECT_EQ(REGISTER("Alpha", sFile).iExit, 0);
            EXPECT_EQ(sREAD_FILE(sFile), row.cpFile + (row.bPresent ? "" : sEntry));
        }
    }
}

TEST_F(HOSTS, a_file_that_cannot_be_opened_ends_with_E005_and_keeps_the_registration)
{
    START_CLIENTS({"alpha"});
    mkfifo((sDIR() + "/pipe").c_str(), 0600);
    for (const auto& [sFile, sWhy] :
         {std::pair{sDIR() + "/none/hosts", "No such file or directory"},
          {sDIR(), "Is a directory"},
          {sDIR() + "/pipe", "it is a pipe"}}) {
        const RUN         run = REGISTER("alpha", sFile);
        const std::string sE005 = "E005-HOSTS   cannot open local file " + sFile +
                                  " to insert QIR velka server computer.";
        EXPECT_ENDED(run, 1, sE005);
        EXPECT_EQ(run.sErr, "vk_config_client: cannot open \"" + sFile + "\": " + sWhy + "\n");
        EXPECT_EQ(COLUMN("alpha", "msg"), sE005);
        EXPECT_EQ(SQL("select count(*) from interfaces where client_id=1"), "3");
    }
}

TEST_F(HOSTS, an_address_is_refused_only_where_it_would_become_an_entry)
{
    START_CLIENTS({"alpha"});
    const std::string sFile = sDIR() + "/hosts";
    const TEXTS       asBad{"-a", "10.1.2.3 x"};
    for (const TEXTS& asMore : {asBad, {"-a", "10.1.2.3#x"}, {"-a", "10.1.2.3\nx"}}) {
        const RUN run = REGISTER("alpha", sFile, asMore);
        EXPECT_ENDED(run, 2, sE006);
        EXPECT_THAT(run.sErr,
                    HasSubstr("x\" is not allowed in \"" + sFile + "\"; give an address or "));
        EXPECT_THAT(OUTCOMES().back(), HasSubstr("\"cause\":\"address-unusable\""));
    }
    EXPECT_EQ(SQL("select count(*) from clients"), "1");
    EXPECT_EQ(REGISTER("alpha", sFile, asBad + TEXTS{"-t", "1"}).iExit, 0);
    const std::string sRow = COLUMN("alpha", "concat_ws('|',msg,access_state)");
    EXPECT_EQ(REGISTER("alpha", sFile, asBad).iExit, 2);
    EXPECT_EQ(COLUMN("alpha", "concat_ws('|',msg,access_state)"), sRow);
    EXPECT_FALSE(fs::exists(sFile));
    EXPECT_EQ(REGISTER("alpha", sFile, {"-a", " 10.1.2.3\t"}).iExit, 0);
    EXPECT_EQ(sREAD_FILE(sFile), "\n10.1.2.3   ALPHA alpha");
    EXPECT_EQ(REGISTER("alpha", sFile, asBad).iExit, 0);  // it stands there already
}

TEST_F(HOSTS, a_file_that_cannot_take_the_entry_is_told_and_the_run_goes_on)
{
    START_CLIENTS({"alpha"});
    const std::string sFile = sDIR() + "/hosts", sFull(200000, '\n');
    WRITE_FILE(sFile, sFull);
    // A file beyond the limit takes nothing more; what the run writes else is shorter.
    rlimit sctLimit{}, sctSmall{};
    getrlimit(RLIMIT_FSIZE, &sctLimit);
    sctSmall = {100000, sctLimit.rlim_max};
    signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &sctSmall);
    const RUN run = REGISTER("alpha", sFile);
    setrlimit(RLIMIT_FSIZE, &sctLimit);
    signal(SIGXFSZ, SIG_DFL);
    EXPECT_EQ(run.iExit, 0) << run.sOut;
    EXPECT_THAT(run.sErr, HasSubstr("cannot close a written file: File too large"));
    EXPECT_EQ(sREAD_FILE(sFile), sFull);
}

TEST_F(HOSTS, a_windows_server_has_its_file_below_SYSTEMROOT)
{
    START_CLIENTS({"alpha"});
    SQL("update clients set os='Windows Server 2022' where client_id=0");
    INI("variables", "gv_hosts_file", "");
    EXPECT_EQ(CONFIG_CLIENT({"-c", "alpha", "-o", "Linux", "-a", "10.1.2.3"},
                            {{"SYSTEMROOT", sDIR() + "/win"}})
                  .iExit,
              0);
    EXPECT_EQ(sREAD_FILE(sDIR() + "/win\\system32\\drivers\\etc\\hosts"),
              "\n10.1.2.3   ALPHA alpha");
}

TEST_F(HOSTS, ten_runs_at_one_moment_append_ten_whole_entries)
{
    TEXTS                    asEntry{"127.0.0.1   localhost"};
    std::vector<STARTED_RUN> runs;
    for (int i = 0; i < 10; i++) {
        START_CLIENTS({"host" + std::to_string(i)});
        asEntry.push_back("10.1.2.3   HOST" + std::to_string(i) + " host" + std::to_string(i));
    }
    for (int i = 0; i < 10; i++)
        runs.push_back(START({"-c", "host" + std::to_string(i), "-o", "Linux", "-a", "10.1.2.3"}));
    for (STARTED_RUN& run : runs) EXPECT_EQ(WAIT(run).iExit, 0);
    EXPECT_THAT(asLINES(HOSTS_FILE()), UnorderedElementsAreArray(asEntry));
    EXPECT_EQ(iCHILDREN_LEFT(2000), 0);
}

}  // namespace
