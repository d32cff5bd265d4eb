/* Why a run failed, and what it leaves of that: the outcome log. */
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <regex>

#include "common/lines/appending.h"
#include "common/lines/secret.h"
#include "common/log/outcome_log.h"
#include "common/remote/cause.h"
#include "common/remote/ssh/known_key.h"
#include "common/remote/ssh/ssh_words.h"
#include "common/unix/cm_hal_pipe.h"
#include "scratch.h"

using namespace testing;
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
    EXPECT_THAT(line.value("begin", ""),
                MatchesRegex("[0-9-]{10}T[0-9:]{8}\\.[0-9]{3}[+-][0-9]{2}:[0-9]{2}"));
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
    record.sMessage = "X004-HOSTS   of no kind";
    EXPECT_EQ(JSON::parse(sOUTCOME_LINE(record)).value("id", "none"), "");
}

class OUTCOME_FILE : public SCRATCH {};

TEST_F(OUTCOME_FILE, lines_of_eight_processes_stay_whole_behind_one_that_is_cut)
{
    const std::string sFile = sPATH("gv_rw_prot/20240501.jsonl");
    iMAKE_DIRECTORY(sPATH("gv_rw_prot"));
    close(open(sFile.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0640));
    WRITE_FILE(sFile, "{\"cut");
    RUN_RECORD record;
    record.sClient = std::string(300, 'c');
    for (int i = 0; i < 8; i++) {
        const pid_t iPid = fork();
        ASSERT_GE(iPid, 0);
        for (int iLine = 0; iPid == 0 && iLine < 1250; iLine++) v_OUTCOME_LOG(record);
        if (iPid == 0) _exit(0);
    }
    while (wait(nullptr) > 0) continue;
    const std::string sAll = sREAD_FILE(sFile);
    TEXTS             asLine = asLINES(sAll);
    EXPECT_EQ(asLine.size(), 10001U);
    EXPECT_EQ(asLine[0], "{\"cut");
    asLine.erase(asLine.begin());
    for (const std::string& sLine : asLine) ASSERT_TRUE(JSON::accept(sLine)) << sLine;
    EXPECT_EQ(iMODE(sFile), 0640U);

    // What a limit, or a full disk, lets through in part only is taken back.
    if (fork() == 0) {
        const rlimit sctLimit{sAll.size() + 100, sAll.size() + 100};
        v_STANDARD_DESCRIPTORS();
        setrlimit(RLIMIT_FSIZE, &sctLimit);
        v_OUTCOME_LOG(record);
        _exit(0);
    }
    int iStatus = -1;
    wait(&iStatus);
    EXPECT_EQ(iStatus, 0);
    EXPECT_EQ(sREAD_FILE(sFile), sAll);
}

TEST(CAUSE_TABLE, is_the_man_pages)
{
    std::string sMan = sREAD_FILE(std::string(VK_SOURCE_DIR) + "/man/vk_config_client.8");
    sMan = sMan.substr(sMan.find(".Sh CAUSES"));
    sMan = std::regex_replace(sMan.substr(0, sMan.find(".El")), std::regex("\\s+"), " ");
    size_t uRows = 0;
    for (size_t u = sMan.find(".It Cm "); u != sMan.npos; u = sMan.find(".It Cm ", u + 1)) uRows++;
    EXPECT_EQ(uRows, actCAUSES().size());
    for (const CAUSE& cause : actCAUSES()) {
        std::string sRow = std::string(".It Cm ") + cause.cpId;
        if (cause.eStage != STAGE_NONE) sRow += std::string(" Pq ") + cpSTAGE(cause.eStage);
        sRow += std::string(" ") + cause.cpSentence + ".";
        if (cause.cpCure[0] != '\0') sRow += std::string(" Cure: ") + cause.cpCure + ".";
        EXPECT_NE(sMan.find(sRow), sMan.npos) << sRow;
    }
}

TEST(CAUSE_TABLE, a_cure_can_be_pasted_whatever_the_names)
{
    EXPECT_EQ(sctDIAGNOSIS(sctCAUSE("not-registered"), {{"host", "a; rm b"}}).sCure,
              "vk_config_client -c 'a; rm b' -o Linux");
    const PLACES places{{"host", "{host};b"}};
    EXPECT_EQ(sCURE_FILLED(sCURE_FILLED("on {host}", places), places), "on '{''host};b'");
    EXPECT_EQ(sCURE_FILLED("psql -c \"name = '{host}'\"", places), "psql -c \"name = '...'\"");
    const std::string sChanged = "Host key for a has changed\n  ssh-keygen -f \"/k n\" -R \"";
    for (const auto& [sTail, cpWord] :
         {std::pair{"[::1]:22\"", "'[::1]:22'"}, std::pair{"a\"; rm $(b) \"", "'a\"; rm $(b) '"}}) {
        PLACES    found;
        DIAGNOSIS diagnosis;
        sWHY(sctSSH_STORY(sChanged + sTail), "", found, diagnosis);
        EXPECT_EQ(diagnosis.sCure, std::string("ssh-keygen -f '/k n' -R ") + cpWord);
    }
}

constexpr const char* cpWAY =
    "debug1: Connecting to beta [192.0.2.7] port 22.\ndebug1: Connection established.\n";
constexpr const char* cpGREETED = "debug1: Remote protocol version 2.0, remote software x\n";
constexpr const char* cpLOGIN =
    "debug1: Authentications that can continue: publickey\n"
    "debug1: Offering public key: /k ED25519 SHA256:x explicit\n";
constexpr const char* cpACCEPTED = "debug1: Server accepts key: /k ED25519 SHA256:x explicit\n";
constexpr const char* cpDENIED = "root@beta: Permission denied (publickey).\n";
constexpr const char* cpPROXY = "debug1: Executing proxy command: exec ssh -W '[b]:22' hop\n";

using KNOWN_HOSTS = SCRATCH;

TEST_F(KNOWN_HOSTS, kept_key_and_owner_of_the_offered_one_whatever_stands_behind_the_keys)
{
    std::string asPrint[2];
    std::string asKey[2];
    for (int i = 0; i < 2; i++) {
        const std::string sKey = sPATH("key" + std::to_string(i));
        sSAID_BY({"ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-C", "", "-f", sKey}, 9000);
        const std::string sSaid = sSAID_BY({"ssh-keygen", "-l", "-f", sKey}, 9000);
        asPrint[i] = sSaid.substr(sSaid.find("SHA256:") + 7, 43);
        asKey[i] = asLINES(sREAD_FILE(sKey + ".pub"))[0];
        asKey[i].erase(asKey[i].find_last_not_of(' ') + 1);
    }
    for (const char* cpComment : {"", " root@beta of old"}) {
        SCOPED_TRACE(cpComment);
        WRITE_FILE(sPATH("known"),
                   "# by hand\n\nalpha " + asKey[1] + "\nbeta " + asKey[0] + cpComment + "\n");
        const KNOWN_KEY known = sctKNOWN_KEY(sPATH("known"), "4", asPrint[1]);
        EXPECT_EQ(known.sKept, "SHA256:" + asPrint[0]);
        EXPECT_EQ(known.sOther, "alpha");
        EXPECT_EQ(sctKNOWN_KEY(sPATH("known"), "3", asPrint[0]).sOther, "beta");
        EXPECT_THAT(asSAME_KEY(sPATH("known") + ":4"), IsEmpty());
        WRITE_FILE(sPATH("known"), sREAD_FILE(sPATH("known")) + "|1|x= " + asKey[0] + "\nx,gamma " +
                                       asKey[0] + "\n");
        EXPECT_THAT(asSAME_KEY(sPATH("known") + ":4"), ElementsAre("x", "gamma"));
        EXPECT_THAT(asSAME_KEY(sKEPT_AT(sPATH("known"), "x,gamma")), ElementsAre("beta"));
    }
}

TEST(SSH_WORDS, the_way_and_the_words_show_the_cause)
{
    const std::string sWay = cpWAY;
    const std::string sLogin = sWay + cpGREETED + cpLOGIN;
    const std::string sNo = "root@beta: Permission denied (publickey).";
    const std::string sFailed = "Error: Authentication failed: ";
    const std::string sChanged =
        "Host key for beta has changed and you have requested strict checking.";
    // What ssh logged, and a jump host said; the cause and the reason.
    const std::array<std::string, 4> aasRow[] = {
        {"ssh: Could not resolve hostname beta: Name or service not known\n", "", "host-unknown",
         "Host is unknown: ssh: Could not resolve hostname beta: Name or service not known"},
        {"Can't open user config file /c: Permission denied\n", "", "config-unreadable",
         "Can't open user config file /c: Permission denied"},
        {"debug1: Connecting to beta [192.0.2.7] port 22.\n"
         "ssh: connect to host beta port 22: Connection refused\n",
         "", "port-closed", "ssh: connect to host beta port 22: Connection refused"},
        {sWay + "debug1: kex_exchange_identification: banner line 0: HTTP/1.1 400\n"
                "kex_exchange_identification: Connection closed by remote host\n",
         "", "other-service", "kex_exchange_identification: Connection closed by remote host"},
        {sWay + "Connection timed out during banner exchange\n", "", "sshd-silent",
         "Connection timed out during banner exchange"},
        {sWay + cpGREETED + "@ WARNING: REMOTE HOST IDENTIFICATION HAS CHANGED! @\n" + sChanged +
             "\r\nHost key verification failed.\r\n",
         "", "host-key-changed", "Host key verification failed.; " + sChanged},
        {sLogin + cpDENIED, "", "key-not-accepted", sFailed + sNo},
        {sLogin + cpACCEPTED + cpDENIED, "", "key-encrypted-no-agent", sFailed + sNo},
        {sLogin + cpACCEPTED + "debug1: Authentications that can continue: publickey\n" + cpDENIED,
         "", "login-forbidden", sFailed + sNo},
        {sLogin +
             "Permissions 0644 for '/k' are too open.\nThis private key will be ignored.\n"
             "Load key \"/k\": bad permissions\n" +
             cpDENIED,
         "", "key-too-open", sFailed + "Load key \"/k\": bad permissions; " + sNo},
        {sLogin + "Load key \"/k.pub\": error in libcrypto\n" + cpDENIED, "", "key-not-in-agent",
         sFailed + "Load key \"/k.pub\": error in libcrypto; " + sNo},
        // What the host in between says of itself never looks like the client's failure.
        {cpPROXY, "ssh: connect to host hop port 22: Connection refused\n", "jump-port-closed",
         "jump host hop: ssh: connect to host hop port 22: connection refused"},
        {cpPROXY, cpDENIED, "jump-key-not-accepted", "jump host hop: " + sNo},
        {cpPROXY, "channel 0: open failed: connect failed: Connection refused\n",
         "behind-jump-port-closed",
         "jump host hop: channel 0: open failed: connect failed: Connection refused"},
        // Nor does what it or a client wrote look like words of ssh.
        {cpPROXY,
         "debug1: SSH2_MSG_NEWKEYS received\nHost key for hop has changed\n  ssh-keygen -f \"/k\" "
         "-R \"x\"; rm b\nroot@hop: Permission denied (no such identity).\n",
         "jump-key-not-accepted", "jump host hop: root@hop: Permission denied (no such identity)."},
        {sWay + cpGREETED +
             "Received disconnect from 192.0.2.7 port 22:2: Host key for Permission denied (\n",
         "", "connection-closed",
         "Received disconnect from 192.0.2.7 port 22:2: Host key for Permission denied ("},
        {sLogin + "root@beta: Permission denied (bad permissions).\n", "", "key-not-accepted",
         sFailed + "root@beta: Permission denied (bad permissions)."},
        // What a client says behind its greeting is not taken for the words of a jump host.
        {std::string(cpPROXY) + cpGREETED + cpLOGIN + cpDENIED,
         "ssh: connect to host hop port 22: Connection refused\n", "key-not-accepted",
         sFailed + sNo},
        {sLogin + "Authenticated to beta ([192.0.2.7]:22) using \"publickey\".\n", "", "", ""},
    };
    for (const auto& [sLog, sJump, sCause, sReason] : aasRow) {
        SCOPED_TRACE(sLog + sJump);
        PLACES    places{{"host", "beta"}};
        DIAGNOSIS diagnosis;
        EXPECT_EQ(sWHY(sctSSH_STORY(sLog), sJump, places, diagnosis), sReason);
        EXPECT_EQ(diagnosis.sCause, sCause);
    }
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
    JSON       line = LAST();
    const JSON wanted = JSON::parse(
        R"({"run":"id7","sender":"gui","client":"alpha","client_id":1,"task":"check","exit":0,)"
        R"("id":"I005-HOSTS","mode":"VKSSH","stored":true})");
    for (const auto& [sKey, value] : wanted.items()) EXPECT_EQ(line[sKey], value) << sKey;
    EXPECT_EQ(line["msg"], COLUMN("alpha", "msg"));
    for (const char* cpStage : {"database", "connect", "command", "total"})
        EXPECT_TRUE(line["ms"][cpStage].is_number_integer()) << cpStage;
    EXPECT_FALSE(line["ms"].contains("copy"));
    EXPECT_FALSE(line.contains("cause"));
    EXPECT_TRUE(line["host_key"].get<std::string>().starts_with("SHA256:"));
    EXPECT_GT(line.value("port", 0), 0);

    DATABASE_GONE();
    CHECK("alpha");
    line = LAST();
    EXPECT_EQ(line.value("cause", ""), "database-missing");
    EXPECT_EQ(OUTCOMES().size(), 2U);
    EXPECT_EQ(line.value("id", ""), "E006-HOSTS");
    EXPECT_FALSE(line.value("stored", true));
}

TEST_F(CAUSES, two_clients_with_one_host_key_are_told_at_the_first_check_and_later)
{
    ADD_CLIENTS({"alpha", "beta"});
    EXPECT_EQ(CHECK("alpha").sErr, "");
    const std::string sConfig = sRW() + "ini/ssh/config";
    const std::string sText = sREAD_FILE(sConfig);
    const std::regex  address("Host alpha\n    HostName (.*)\n");
    std::smatch       found;
    ASSERT_TRUE(std::regex_search(sText, found, address));
    WRITE_FILE(sConfig, std::regex_replace(sText, std::regex("Host beta\n    HostName .*\n"),
                                           "Host beta\n    HostName " + found.str(1) + "\n"));
    for (int i = 0; i < 2; i++)
        EXPECT_EQ(CHECK("beta").sErr,
                  "vk_config_client: beta shows the host key of alpha; one machine under two "
                  "names, or a clone\n");
}

TEST_F(CAUSES, a_user_is_told_only_where_another_is_admitted_with_the_same_key)
{
    ADD_CLIENTS({"alpha", "nokey"});
    const std::string sConfig = sRW() + "ini/ssh/config";
    const std::string sRight = sREAD_FILE(sConfig);
    const std::string sWrong = std::regex_replace(sRight, std::regex(" User .*"), " User nobody2");
    const bool        bRoot = geteuid() == 0;
    const std::array<const char*, 3> asRow[] = {
        {"alpha", "nobody1", "os-user-not-accepted"},
        {"nokey", "nobody1", "key-not-accepted"},
        {"alpha", "", bRoot ? "user-not-accepted" : "key-not-accepted"},
        {"nokey", "", "key-not-accepted"},
    };
    for (const auto& [cpClient, cpUser, cpCause] : asRow) {
        SCOPED_TRACE(std::string(cpClient) + cpUser);
        SQL("update clients set os_user='" + std::string(cpUser) + "'");
        WRITE_FILE(sConfig, *cpUser != '\0' ? sRight : sWrong);
        const RUN run = CHECK(cpClient);
        EXPECT_THAT(run.sOut, HasSubstr("E011-HOSTS"));
        EXPECT_EQ(LAST().value("cause", ""), cpCause);
    }
}

TEST_F(CAUSES, failed_checks_name_stage_cause_and_words)
{
    INI("general", "trace_level", "1");
    const std::pair<TEXTS, std::array<const char*, 3>> asRow[] = {
        {{"mode=fail", "exit=3", "text=no licence\033[31m"},
         {"answer", "program-failed", "no licence"}},
        {{"mode=exit255"}, {"answer", "program-failed-silently", ""}},
        {{"mode=noversion"}, {"answer", "no-version", "MODULE_VERSIONS"}},
        {{"mode=cut"}, {"answer", "connection-lost", ""}},
    };
    ADD_CLIENT("alpha");
    for (const auto& [asSwitch, acpWanted] : asRow) {
        SCOPED_TRACE(acpWanted[1]);
        SWITCH("alpha", "qtc", asSwitch);
        const RUN  run = CHECK("alpha");
        const JSON line = LAST();
        EXPECT_EQ(line.value("stage", ""), acpWanted[0]);
        EXPECT_EQ(line.value("cause", ""), acpWanted[1]);
        const std::string sWords = line.contains("words") ? line["words"].dump() : "";
        EXPECT_THAT(sWords, HasSubstr(acpWanted[2]));
        EXPECT_EQ(sWords.find("\\u001b"), sWords.npos);
        EXPECT_THAT(run.sErr, Not(HasSubstr(acpWanted[1])));
        EXPECT_THAT(TRACE_TEXT(), HasSubstr(std::string(", ") + acpWanted[1] + "]"));
    }
    fs::remove(CLIENT_PATH("alpha", "velka/bin/qtc"));
    CHECK("alpha");
    EXPECT_EQ(LAST().value("cause", ""), "program-missing");
    EXPECT_THAT(TRACE_TEXT(), HasSubstr("command line: ssh -T"));
    EXPECT_THAT(TRACE_TEXT(), HasSubstr("command for alpha: qtc -h"));
    EXPECT_THAT(TRACE_TEXT(), HasSubstr("try: ssh -F "));
    // What ssh would take for an option is none by hand either.
    ADD_CLIENT("-oA=b");
    CONFIG_CLIENT({"-c-oA=b", "-C", "r"});
    EXPECT_THAT(TRACE_TEXT(), HasSubstr(" -- -oA=b 'qtc -h'"));
    // A later success leaves nothing of it.
    ADD_CLIENT("beta");
    CHECK("beta");
    EXPECT_FALSE(LAST().contains("cause"));
}

}  // namespace
