/* Why a run failed, and what it leaves of that: the outcome log. */
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "common/log/outcome_log.h"
#include "common/text/secret.h"
#include "sandbox_fixture.h"
#include "scratch.h"

using JSON = nlohmann::json;

namespace {

/* The keys of one line, in their order. */
std::string sKEYS(const std::string& sLine)
{
    const auto  line = nlohmann::ordered_json::parse(sLine);
    std::string sKeys;
    for (const auto& [sKey, value] : line.items()) sKeys += sKey + " ";
    return sKeys;
}

TEST(OUTCOME_LOG, texts_are_one_line_without_secrets_and_what_is_missing_is_left_out)
{
    v_SECRET("s3cr\"et");
    RUN_RECORD record;
    record.sClient = "al\"pha\n\x1b[31m\xff";
    record.sClientId = "12";
    record.sMessage = "E002-HOSTS   There is no access: s3cr\"et";
    record.diagnosis.asWords = {"a\tb", "c2 \xc2\x9b"};
    const std::string sLine = sOUTCOME_LINE(record);
    const JSON        line = JSON::parse(sLine);
    EXPECT_EQ(sKEYS(sLine), "begin end pid client client_id exit id msg words ms ");
    EXPECT_EQ(line.value("client", ""), "al\"pha  [31m\xEF\xBF\xBD");
    EXPECT_EQ(line.value("client_id", 0), 12);
    EXPECT_EQ(line.value("id", ""), "E002-HOSTS");
    EXPECT_EQ(line.value("msg", ""), "E002-HOSTS   There is no access: ***");
    EXPECT_EQ(line["words"].dump(), R"(["a b","c2  "])");
    EXPECT_EQ(sLine.find('\n'), std::string::npos);

    record.bStarted = false;
    record.sMessage = "E002 of another kind";
    const JSON other = JSON::parse(sOUTCOME_LINE(record));
    EXPECT_TRUE(other["exit"].is_null());
    EXPECT_EQ(other.value("id", "none"), "");
}

class OUTCOME_FILE : public SCRATCH {};

TEST_F(OUTCOME_FILE, lines_of_eight_processes_stay_whole)
{
    RUN_RECORD record;
    record.sClient = std::string(300, 'c');
    for (int i = 0; i < 8; i++) {
        const pid_t iPid = fork();
        ASSERT_GE(iPid, 0);
        for (int iLine = 0; iPid == 0 && iLine < 1250; iLine++) v_OUTCOME_LOG(record);
        if (iPid == 0) _exit(0);
    }
    while (wait(nullptr) > 0) continue;
    const std::string sFile = sPATH("gv_rw_prot/20240501.jsonl");
    const TEXTS       asLine = asLINES(sREAD_FILE(sFile));
    EXPECT_EQ(asLine.size(), 10000U);
    for (const std::string& sLine : asLine) ASSERT_TRUE(JSON::accept(sLine)) << sLine;
    struct stat sctStat {};
    stat(sFile.c_str(), &sctStat);
    EXPECT_EQ(sctStat.st_mode & 0777U, 0640U);
}

class CAUSES : public SANDBOX {
protected:
    JSON LAST() { return JSON::parse(OUTCOMES().back()); }
};

TEST_F(CAUSES, each_run_leaves_a_line_also_without_a_database)
{
    ADD_CLIENT("alpha");
    CONFIG_CLIENT({"-c", "alpha", "-C", "r", "-i", "id7", "-s", "gui"});
    ASSERT_EQ(OUTCOMES().size(), 1U);
    JSON line = LAST();
    for (const auto& [sKey, value] : std::map<std::string, JSON>{{"run", "id7"},
                                                                 {"sender", "gui"},
                                                                 {"client", "alpha"},
                                                                 {"client_id", 1},
                                                                 {"task", "check"},
                                                                 {"exit", 0},
                                                                 {"id", "I005-HOSTS"},
                                                                 {"msg", COLUMN("alpha", "msg")},
                                                                 {"mode", "VKSSH"},
                                                                 {"stored", true}})
        EXPECT_EQ(line[sKey].dump(), value.dump()) << sKey;
    for (const char* cpStage : {"database", "connect", "command", "total"})
        EXPECT_TRUE(line["ms"][cpStage].is_number_integer()) << cpStage;
    EXPECT_FALSE(line["ms"].contains("copy"));
    EXPECT_FALSE(line.contains("cause"));

    DATABASE_GONE();
    CONFIG_CLIENT({"-c", "alpha", "-C", "r"});
    line = LAST();
    EXPECT_EQ(OUTCOMES().size(), 2U);
    EXPECT_EQ(line.value("id", ""), "E006-HOSTS");
    EXPECT_FALSE(line.value("stored", true));
}

}  // namespace
