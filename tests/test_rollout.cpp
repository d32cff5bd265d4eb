/* Updates of many clients that stop themselves: pilot, limit of failures, interruption,
   and the run that takes up what is left. */
#include "kernel/rollout.h"

#include <nlohmann/json.hpp>
#include <set>

#include "sandbox_fixture.h"

using namespace testing;

namespace {

TEST(ROLLOUT_DECISION, pilot_and_limit_decide_after_every_end)
{
    /* Each letter is a client's end: s success, f failure, v it has the version, u another
       run updates it. */
    const struct {
        int         iPilot, iStopAfter;
        const char* cpEnds;
        size_t      uAlone;  // ends after which more than one may run at a time
        size_t      uStop;   // end after which no further one is started; 0: none
        const char* cpWhy;
    } asctRow[] = {
        {0, 0, "fffffff", 0, 0, ""},
        {2, 0, "sfs", 9, 2, "the pilot failed on c1 (gv_update_pilot = 2)"},
        {2, 0, "vsusff", 4, 0, ""},
        {1, 2, "f", 9, 1, "the pilot failed on c0 (gv_update_pilot = 1)"},
        {1, 2, "svfvvf", 1, 6, "2 failed (gv_update_stop_after = 2)"},
        {0, 1, "vvf", 0, 3, "1 failed (gv_update_stop_after = 1)"},
    };
    for (const auto& row : asctRow) {
        SCOPED_TRACE(row.cpEnds);
        ROLLOUT rollout;
        rollout.iPilot = row.iPilot;
        rollout.iStopAfter = row.iStopAfter;
        size_t uAlone = bPILOT(&rollout) ? 9 : 0;
        size_t uStop = 0;
        for (size_t u = 0; row.cpEnds[u] != '\0' && uStop == 0; u++) {
            const char c = row.cpEnds[u];
            v_ROLLOUT_TAKE(&rollout, "c" + std::to_string(u),
                           c == 's'   ? CLIENT_UPDATED
                           : c == 'f' ? CLIENT_FAILED
                           : c == 'v' ? CLIENT_HAS_VERSION
                                      : CLIENT_UPDATING);
            if (uAlone == 9 && !bPILOT(&rollout)) uAlone = u + 1;
            if (!rollout.sStopped.empty()) uStop = u + 1;
        }
        EXPECT_EQ(uAlone, row.uAlone);
        EXPECT_EQ(uStop, row.uStop);
        EXPECT_EQ(rollout.sStopped, row.cpWhy);
    }
}

/* c01 to c20, all with the same version, and a package of another. */
class ROLLOUTS : public SANDBOX {
protected:
    void SetUp() override
    {
        SANDBOX::SetUp();
        SQL("insert into clients (client_id,name,os,accessmode,location,exec) select g,'c'||"
            "lpad(g::text,2,'0'),'Linux','VKSSH','0','1' from generate_series(1,20) g");
        START_CLIENTS(asCLIENTS(1, 20));
        PACKAGE(sPACKAGE);
        INI("general", "parallel", "8");
    }
    static std::string sCLIENT(int i) { return (i < 10 ? "c0" : "c") + std::to_string(i); }
    static TEXTS       asCLIENTS(int iFrom, int iTo)
    {
        TEXTS asName;
        for (int i = iFrom; i <= iTo; i++) asName.push_back(sCLIENT(i));
        return asName;
    }
    static std::string sJOINED(const TEXTS& asName)
    {
        std::string s;
        for (const std::string& sName : asName) s += " " + sName;
        return s;
    }
    static TEXTS UPDATE_OF(const TEXTS& asName) { return TEXTS{"-U", "-P", sPACKAGE} + asName; }
    static std::string sGO_ON(int iDone, int iOf)
    {
        return "vk_config_client: " + std::to_string(iDone) + " of " + std::to_string(iOf) +
               " clients done; to go on with the rest, type: vk_client_status --rollout --names "
               "-0 | xargs -0r vk_config_client -U -P " +
               sPACKAGE + " --\n";
    }
    RUN STATUS(const TEXTS& asArgument)
    {
        STARTED_RUN run = START_COMMAND(TEXTS{VK_STATUS_PROGRAM} + asArgument);
        return WAIT(run);
    }
    TEXTS UPDATE_FAILED() { return asLINES(STATUS({"--update-failed", "--names"}).sOut); }
    /* The summary, and that the clients' rows tell the same of each. */
    void EXPECT_AGREED(const RUN& run, int iOk, int iFailed, int iHaveVersion)
    {
        EXPECT_EQ(asLINES(run.sOut).back(), sSUMMARY(iOk, iFailed));
        EXPECT_EQ(UPDATE_FAILED().size() + static_cast<size_t>(iHaveVersion),
                  static_cast<size_t>(iFailed));
        EXPECT_EQ(run.sErr.find("already") == run.sErr.npos, iHaveVersion == 0);
    }
    /* Clients and messages of the lines with that exit status that were added: the first of
       them says what was planned, each client has one, and all hold the rollout. */
    TEXTS ADDED(const nlohmann::json& exit, size_t uClients)
    {
        TEXTS                 asLine;
        const TEXTS           asAll = OUTCOMES();
        const nlohmann::json  plan = nlohmann::json::parse(asAll.at(m_uSeen));
        std::set<std::string> clients;
        EXPECT_EQ(plan.at("clients").size(), uClients);
        EXPECT_EQ(plan.at("package"), sPACKAGE);
        EXPECT_FALSE(plan.contains("exit"));
        for (size_t u = m_uSeen + 1; u < asAll.size(); u++) {
            const auto line = nlohmann::json::parse(asAll[u]);
            EXPECT_EQ(line.at("task"), "update");
            EXPECT_EQ(line.at("rollout"), plan.at("run"));
            EXPECT_TRUE(clients.insert(line.at("client")).second) << asAll[u];
            if (line.at("exit") == exit)
                asLine.push_back(line.at("client").get<std::string>() + ": " +
                                 line.at("msg").get<std::string>());
        }
        EXPECT_EQ(clients.size(), uClients);
        return asLine;
    }
    TEXTS NOT_STARTED(size_t uClients)
    {
        TEXTS asLine = ADDED(nullptr, uClients);
        m_uSeen = OUTCOMES().size();
        return asLine;
    }

    static constexpr const char* sPACKAGE = "velka-cli_5.2.0-4_amd64.deb";
    size_t                       m_uSeen = 0;
};

TEST_F(ROLLOUTS, twenty_clients_pilot_limit_Ctrl_C_and_a_rerun_that_ends_green)
{
    /* A pilot that fails on its second client. */
    SWITCH("c02", "vk_execute_update", {"exit=1"});
    RUN run = CONFIG_CLIENT(UPDATE_OF(asCLIENTS(1, 20)), {{"gv_update_pilot", "3"}});
    EXPECT_EQ(run.iExit, 2);
    EXPECT_EQ(run.sErr,
              "vk_config_client: 18 clients not started, since the pilot failed on c02 "
              "(gv_update_pilot = 3):" +
                  sJOINED(asCLIENTS(3, 20)) +
                  "\nvk_config_client: 2 clients in the pilot: c01 c02\n" + sGO_ON(1, 20));
    EXPECT_AGREED(run, 1, 19, 0);
    EXPECT_EQ(UPDATE_FAILED(), asCLIENTS(2, 20));
    TEXTS asLine = NOT_STARTED(20);
    ASSERT_EQ(asLine.size(), 18U);
    EXPECT_EQ(asLine[0], "c03: not started, since the pilot failed on c02 (gv_update_pilot = 3)");
    EXPECT_THAT(CLIENT_LOG("c03"), Not(Contains(StartsWith("vk_execute_update"))));
    EXPECT_EQ(STATUS({"--names", "--updating"}).sOut, "");

    /* The limit, reached while others are at work: c01 has the version, c02 to c04 fail, c04
       when c11 is at work; the others wait until no further one is started. */
    const std::string sGo = sDIR() + "/go", sGo4 = sDIR() + "/go4";
    const std::string sBegun = sDIR() + "/begun";
    const std::string sWait =
        "before=printf x >>" + sBegun + "; until [ -e " + sGo + " ]; do sleep 0.02; done";
    SWITCH("c03", "vk_execute_update", {"exit=3"});
    SWITCH("c04", "vk_execute_update",
           {"exit=3", "before=until [ -e " + sGo4 + " ]; do sleep 0.02; done"});
    for (const std::string& sName : asCLIENTS(5, 20)) SWITCH(sName, "vk_execute_update", {sWait});
    STARTED_RUN started = START(UPDATE_OF(asCLIENTS(1, 20)),
                                {{"gv_update_stop_after", "3"}, {"gv_update_wait", "0"}});
    ASSERT_TRUE(bWAIT_UNTIL(
        60000, [&] { return SQL("select count(*) from clients where update_state='a'") == "8"; }));
    WRITE_FILE(sGo4, "");
    ASSERT_TRUE(bWAIT_UNTIL(60000, [&] {
        return sREAD_FILE(started.sErrFile).find("not started") != std::string::npos;
    }));
    WRITE_FILE(sGo, "");
    run = WAIT(started);
    EXPECT_EQ(run.iExit, 2);
    EXPECT_EQ(
        run.sErr,
        "vk_config_client: 9 clients not started, since 3 failed (gv_update_stop_after = 3):" +
            sJOINED(asCLIENTS(12, 20)) +
            "\nvk_config_client: 1 client with the version already: c01\n" + sGO_ON(8, 20));
    EXPECT_AGREED(run, 7, 13, 1);
    EXPECT_EQ(NOT_STARTED(20).size(), 9U);
    EXPECT_EQ(SQL("select string_agg(update_state,'' order by name) from clients"), "02220000000");

    /* Ctrl-C, while c02 to c04 and c12 to c16 are at work. */
    fs::remove(sGo);
    for (const std::string& sName : asCLIENTS(2, 4)) SWITCH(sName, "vk_execute_update", {sWait});
    const TEXTS asLeft = UPDATE_FAILED();
    ASSERT_EQ(asLeft.size(), 12U);
    WRITE_FILE(sBegun, "");
    started = START(UPDATE_OF(asLeft));
    ASSERT_TRUE(bWAIT_UNTIL(60000, [&] { return sREAD_FILE(sBegun).size() == 8; }));
    iSLEEP_MS(500);  // until each run has read that its script has begun
    EXPECT_EQ(asLINES(STATUS({"--names", "--updating"}).sOut).size(), 8U);
    KILL_GROUP(started, SIGINT);
    run = WAIT(started);
    EXPECT_EQ(run.iSignal, SIGINT);
    EXPECT_THAT(run.sErr, HasSubstr("4 clients not started, since the run was interrupted: c17 "
                                    "c18 c19 c20\n"));
    EXPECT_THAT(run.sErr, HasSubstr("c12: its run was ended by signal 15\n"));
    EXPECT_THAT(run.sErr, HasSubstr(sGO_ON(0, 12)));
    EXPECT_AGREED(run, 0, 12, 0);
    EXPECT_EQ(UPDATE_FAILED(), asLeft);
    EXPECT_THAT(
        ADDED(143, 12),
        AllOf(SizeIs(8), Each(HasSubstr("ended by signal 15; the update script keeps running"))));
    EXPECT_EQ(NOT_STARTED(12).size(), 4U);
    EXPECT_EQ(iCHILDREN_LEFT(5000), 0);

    /* What is left, with a pilot again, as a person sees it. */
    WRITE_FILE(sGo, "");
    started = START_COMMAND(
        {"script", "-qec", std::string(VK_PROGRAM) + " -U -P " + sPACKAGE + sJOINED(asLeft),
         "/dev/null"},
        {{"gv_update_pilot", "2"}, {"TERM", "xterm"}});
    run = WAIT(started);
    EXPECT_EQ(run.iExit, 0);
    for (const char* cpShown :
         {"pilot 1/2: 0/12 clients, 0 failed: c02", "pilot 2/2: 1/12 ", "after the pilot: 2/12 "})
        EXPECT_THAT(run.sOut, HasSubstr(cpShown));
    EXPECT_THAT(run.sOut, HasSubstr("Checked 12 clients: 12 OK and 0 failed."));
    EXPECT_THAT(UPDATE_FAILED(), IsEmpty());
    EXPECT_EQ(NOT_STARTED(12).size(), 0U);

    /* One that another run is updating proves nothing: the next one is the pilot. */
    fs::remove(sGo);
    started = START(UPDATE_OF({"c02"}) + TEXTS{"-F"});
    ASSERT_TRUE(bWAIT_UNTIL(60000, [&] { return COLUMN("c02", "update_state") == "a"; }));
    run = CONFIG_CLIENT(UPDATE_OF({"c01", "c02"}) + TEXTS{"-F"}, {{"gv_update_pilot", "2"}});
    EXPECT_EQ(run.iExit, 0);
    EXPECT_EQ(run.sErr,
              "vk_config_client: 1 client in the pilot: c01\n"
              "vk_config_client: 1 client being updated by another run: c02\n");
    WRITE_FILE(sGo, "");
    EXPECT_EQ(WAIT(started).iExit, 0);
}

}  // namespace
