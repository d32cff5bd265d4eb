/* Why a run failed, and what it leaves of that: the outcome log. */
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <regex>

#include "common/base/descriptor.h"
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
    record.diagnosis.asWords = {"a\tb", "c2 \xc2\x9b", "login s3cr\"et"};
    const std::string sLine = sOUTCOME_LINE(record);
    const JSON        line = JSON::parse(sLine);
    EXPECT_EQ(sKEYS(sLine), "begin end pid client client_id exit id msg words ms ");
    EXPECT_THAT(line.value("begin", ""),
                MatchesRegex("[0-9-]{10}T[0-9:]{8}\\.[0-9]{3}[+-][0-9]{2}:[0-9]{2}"));
    EXPECT_EQ(line.value("client", ""), "al\"pha  [31m\xEF\xBF\xBD");
    EXPECT_EQ(line.value("client_id", 0), 12);
    EXPECT_EQ(line.value("id", ""), "E002-HOSTS");
    EXPECT_EQ(line.value("msg", ""), "E002-HOSTS   There is no access: ***");
    EXPECT_EQ(line["words"].dump(), R"(["a b","c2  ","login ***"])");
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

TEST_F(OUTCOME_FILE, a_line_is_whole_behind_one_that_is_cut_or_is_not_there)
{
    const std::string sFile = sPATH("gv_rw_prot/20240501.jsonl");
    iMAKE_DIRECTORY(sPATH("gv_rw_prot"));
    close(open(sFile.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0640));
    WRITE_FILE(sFile, "{\"cut");
    RUN_RECORD record;
    record.sClient = std::string(300, 'c');
    v_OUTCOME_LOG(record);
    const std::string sAll = sREAD_FILE(sFile);
    const TEXTS       asLine = asLINES(sAll);
    ASSERT_EQ(asLine.size(), 2U);
    EXPECT_EQ(asLine[0], "{\"cut");
    EXPECT_TRUE(JSON::accept(asLine[1])) << asLine[1];
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

constexpr const char* cpWAY =
    "debug1: Connecting to beta [192.0.2.7] port 22.\ndebug1: Connection established.\n";
constexpr const char* cpGREETED = "debug1: Remote protocol version 2.0, remote software x\n";
constexpr const char* cpASKED =
    "debug1: Will attempt key: /k ED25519 SHA256:x explicit\n"
    "debug1: SSH2_MSG_SERVICE_ACCEPT received\n"
    "debug1: Authentications that can continue: publickey\n";
constexpr const char* cpOFFERED = "debug1: Offering public key: /k ED25519 SHA256:x explicit\n";
constexpr const char* cpACCEPTED = "debug1: Server accepts key: /k ED25519 SHA256:x explicit\n";
constexpr const char* cpDENIED = "root@beta: Permission denied (publickey).\n";
constexpr const char* cpPROXY = "debug1: Executing proxy command: exec ssh -W '[b]:22' hop\n";
constexpr const char* cpIN = "Authenticated to hop ([192.0.2.9]:22) using \"publickey\".\n";

TEST(CAUSE_TABLE, a_cure_can_be_pasted_whatever_the_names)
{
    const DIAGNOSIS told =
        sctDIAGNOSIS({"not-registered", STAGE_NONE, {}}, {{"host", "a; rm {b}"}});
    EXPECT_THAT(told.sCure, HasSubstr("vk_config_client -c 'a; rm {b}' and"));
    EXPECT_EQ(sctDIAGNOSIS({"key-too-open", STAGE_NONE, {}}, {{"key", "/k $(x)"}}).sCommand,
              "chmod 600 '/k $(x)'");
    const std::string sChanged = std::string(cpWAY) + cpGREETED +
                                 "Host key for a has changed and you "
                                 "have requested strict checking.\n  ssh-keygen -f \"/k n\" -R \"";
    for (const auto& [sTail, cpWord] :
         {std::pair{"[::1]:22\"", "'[::1]:22'"}, std::pair{"a\"; rm $(b) \"", "'a\"; rm $(b) '"}}) {
        PLACES places;
        sctWHY(sctSSH_STORY(sChanged + sTail), "", false, places);
        EXPECT_EQ(places["remove"], std::string("ssh-keygen -f '/k n' -R ") + cpWord);
    }
}

using KNOWN_HOSTS = SCRATCH;

TEST_F(KNOWN_HOSTS, kept_key_and_owner_of_the_offered_one_whatever_stands_behind_the_keys)
{
    std::string asPrint[2];
    std::string asKey[2];
    for (int i = 0; i < 2; i++) {
        const std::string sKey = sPATH("key" + std::to_string(i));
        sSAID_BY({"ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-C", "", "-f", sKey}, 9000);
        const std::string sSaid = sSAID_BY({"ssh-keygen", "-l", "-f", sKey}, 9000);
        asPrint[i] = sSaid.substr(sSaid.find("SHA256:"), 50);
        asKey[i] = asLINES(sREAD_FILE(sKey + ".pub"))[0];
        asKey[i].erase(asKey[i].find_last_not_of(' ') + 1);
    }
    for (const char* cpComment : {"", " root@beta of old"}) {
        SCOPED_TRACE(cpComment);
        WRITE_FILE(sPATH("known"),
                   "# by hand\n\nalpha " + asKey[1] + "\nbeta " + asKey[0] + cpComment + "\n");
        const KNOWN_KEY known = sctKNOWN_KEY(sPATH("known"), "4", asPrint[1]);
        EXPECT_EQ(known.sKept, asPrint[0]);
        EXPECT_EQ(known.sOther, "alpha");
        EXPECT_EQ(sctKNOWN_KEY(sPATH("known"), "3", asPrint[0]).sOther, "beta");
        EXPECT_THAT(asSAME_KEY(sPATH("known") + ":4"), IsEmpty());
        WRITE_FILE(sPATH("known"), sREAD_FILE(sPATH("known")) + "|1|x= " + asKey[0] + "\nx,gamma " +
                                       asKey[0] + "\n");
        EXPECT_THAT(asSAME_KEY(sPATH("known") + ":4"), ElementsAre("x", "gamma"));
        EXPECT_THAT(asSAME_KEY(sKEPT_AT(sPATH("known"), "x,gamma")), ElementsAre("beta"));
    }
}

TEST(SSH_WORDS, the_way_and_whole_sentences_show_the_cause_and_nothing_else_does)
{
    const std::string sWay = cpWAY;
    const std::string sAsked = sWay + cpGREETED + cpASKED;
    const std::string sLogin = sAsked + cpOFFERED;
    const std::string sRoute = "debug1: Connecting to beta [192.0.2.7] port 22.\n";
    const std::string sAgain = "debug1: Authentications that can continue: publickey\n";
    const std::string sFailed = "Error: Authentication failed: ";
    const std::string sNo = "root@beta: Permission denied (publickey).";
    // What ssh logged, and the ssh to a host in between; stage, cause, and begin of the reason.
    const std::array<std::string, 5> aasRow[] = {
        {"ssh: Could not resolve hostname beta: Name or service not known\n", "", "name",
         "host-unknown", "Host is unknown: ssh: Could not"},
        {"ssh: Could not resolve hostname beta: Address family for hostname not supported\n", "",
         "name", "not-recognised", "ssh: Could not"},
        {"Can't open user config file /c: Permission denied\n", "", "server", "config-unreadable",
         "Can't"},
        {"/c: line 3: Bad configuration option: x\n/c: terminating, 1 bad configuration options\n",
         "", "server", "config-bad-option", "/c: line 3"},
        {sRoute + "debug1: connect to address 192.0.2.7 port 22: Connection refused\n"
                  "debug1: Connecting to beta [2001:db8::7] port 22.\n"
                  "debug1: connect to address 2001:db8::7 port 22: Network is unreachable\n"
                  "ssh: connect to host beta port 22: Network is unreachable\n",
         "", "port", "port-closed", "ssh: connect"},
        {sRoute + "debug1: connect to address 192.0.2.7 port 22: Invalid argument\n"
                  "ssh: connect to host beta port 22: Invalid argument\n",
         "", "route", "not-recognised", "ssh: connect"},
        {sRoute + "bind 192.0.2.77: Cannot assign requested address\n"
                  "ssh: connect to host beta port 22: failure\n",
         "", "server", "bind-address", "bind 192.0.2.77"},
        {sWay + "debug1: kex_exchange_identification: banner line 0: HTTP/1.1 400\n"
                "kex_exchange_identification: Connection closed by remote host\n",
         "", "greeting", "other-service", "kex_exchange"},
        {sWay + "debug1: kex_exchange_identification: banner line 0: Exceeded MaxStartups\n"
                "kex_exchange_identification: Connection closed by remote host\n",
         "", "greeting", "sshd-busy", "kex_exchange"},
        {sWay + "debug1: kex_exchange_identification: banner line 0: go away\n"
                "kex_exchange_identification: Connection closed by remote host\n",
         "", "greeting", "not-recognised", "kex_exchange"},
        {sWay + cpGREETED +
             "Host key for beta has changed and you have requested strict checking."
             "\r\nHost key verification failed.\r\n",
         "", "host-key", "host-key-changed", "Host key verification failed.; Host key for"},
        {sLogin + sAgain + cpDENIED, "", "login", "key-not-accepted", sFailed + sNo},
        {sLogin + cpACCEPTED + sAgain + cpDENIED, "", "login", "login-forbidden", sFailed + sNo},
        {sLogin + cpACCEPTED + "Load key \"/k\": bad permissions\n" + cpDENIED, "", "login",
         "key-too-open", sFailed + "Load key"},
        {sLogin + cpACCEPTED +
             "sign_and_send_pubkey: signing failed for ED25519 \"/k\": agent "
             "refused operation\n" +
             cpOFFERED + sAgain + cpDENIED,
         "", "login", "not-recognised", sFailed + "sign_and"},
        {sAsked + "debug1: Trying private key: /k.pub\nLoad key \"/k.pub\": error in libcrypto\n" +
             cpDENIED,
         "", "login", "key-not-in-agent", sFailed + "Load key"},
        {sLogin +
             "Authenticated using \"publickey\" with partial success.\n"
             "debug1: Authentications that can continue: password\n" +
             "root@beta: Permission denied (password).\n",
         "", "login", "second-factor", sFailed},
        {sAsked + cpDENIED, "", "login", "no-key-offered", sFailed},
        // What the host in between says of itself never looks like the client's failure.
        {cpPROXY,
         sRoute + "debug1: connect to address 192.0.2.9 port 22: Connection refused\n"
                  "ssh: connect to host hop port 22: Connection refused\n",
         "port", "jump-port-closed", "the way over the jump host hop: "},
        {cpPROXY, sLogin + sAgain + cpDENIED, "login", "jump-key-not-accepted", "the way over"},
        {cpPROXY, sLogin + cpIN + "channel 0: open failed: connect failed: Connection refused\n",
         "port", "behind-jump-port-closed", "the jump host hop works"},
        {cpPROXY, sLogin + "channel 0: open failed: connect failed: Connection refused\n" + cpIN,
         "port", "not-recognised", ""},
        // Nor does what a client wrote look like words of ssh.
        {sWay + cpGREETED + "Received disconnect from 192.0.2.7 port 22:2: Permission denied (\n",
         "", "host-key", "connection-closed", "Received disconnect"},
        {sLogin + sAgain + "Load key \"/k\": bad\nHost key for a has changed\n" + cpDENIED, "",
         "login", "key-unreadable", sFailed},
        {std::string(cpPROXY) + cpGREETED + cpASKED + cpOFFERED + sAgain + cpDENIED,
         "ssh: connect to host hop port 22: Connection refused\n", "login", "key-not-accepted",
         sFailed + sNo},
        {sLogin + "Authenticated to beta ([192.0.2.7]:22) using \"publickey\".\n", "", "", "", ""},
    };
    for (const auto& [sLog, sJump, sStage, sCause, sReason] : aasRow) {
        SCOPED_TRACE(sLog + sJump);
        PLACES            places{{"host", "beta"}};
        const SSH_VERDICT verdict = sctWHY(sctSSH_STORY(sLog), sJump, false, places);
        EXPECT_THAT(verdict.sReason, StartsWith(sReason));
        if (!sJump.empty()) {
            EXPECT_THAT(verdict.sReason, Not(HasSubstr("Connection refused")));
        }
        EXPECT_EQ(verdict.sCause, sCause);
        if (!sCause.empty()) {
            EXPECT_EQ(sctDIAGNOSIS(verdict, places).sStage, sStage);
        }
    }
    for (const std::string sColon : {":", ""}) {
        PLACES places;
        sctWHY(sctSSH_STORY("/a/b" + sColon + " line 3: Bad option: x\n"), "", false, places);
        EXPECT_EQ(places["file"] + " " + places["line"], "/a/b 3");
    }
    const std::string sOptions = "debug1: Remote: /root/.ssh/authorized_keys:1: key options: ";
    EXPECT_TRUE(sctSSH_STORY(sOptions + "command user-rc\n").bForced);
    EXPECT_FALSE(sctSSH_STORY(sOptions + "commands user-rc\n").bForced);
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

TEST_F(CAUSES, a_refused_key_is_offered_once_and_its_user_is_named_with_who_named_it)
{
    ADD_CLIENT("alpha");
    INI("general", "trace_level", "1");
    SQL("update clients set os_user='nobody1'");
    EXPECT_THAT(CHECK("alpha").sOut, HasSubstr("E011-HOSTS"));
    EXPECT_EQ(LAST().value("cause", ""), "key-not-accepted");
    const std::string sTrace = TRACE_TEXT();
    EXPECT_THAT(sTrace, HasSubstr(" for nobody1, from os_user of its row [login, "));
    const size_t uFirst = sTrace.find("command line: ssh -v ");
    EXPECT_NE(uFirst, sTrace.npos);
    EXPECT_EQ(sTrace.find("command line: ssh -v ", uFirst + 1), sTrace.npos);
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
    EXPECT_THAT(TRACE_TEXT(), HasSubstr("command line: ssh -v -T"));
    EXPECT_THAT(TRACE_TEXT(), HasSubstr("command for alpha: qtc -h"));
    EXPECT_THAT(TRACE_TEXT(), HasSubstr("try: ssh -o BatchMode=yes "));
    // What ssh would take for an option is none by hand either.
    ADD_CLIENT("-oA=b");
    CONFIG_CLIENT({"-c-oA=b", "-C", "r"});
    EXPECT_THAT(TRACE_TEXT(), HasSubstr(" -- -oA=b 'PATH="));
    // A later success leaves nothing of it.
    ADD_CLIENT("beta");
    CHECK("beta");
    EXPECT_FALSE(LAST().contains("cause"));
}

}  // namespace
