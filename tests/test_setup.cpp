/* First setup of a server, its check with what mends each fault, and permits. */
#include "common/remote/reach.h"
#include "common/text/text.h"
#include "sandbox_fixture.h"

using namespace testing;

namespace {

class SERVER : public SANDBOX {
protected:
    void SetUp() override
    {
        SANDBOX::SetUp();
        // The part that runs on the server answers to the name that is typed.
        fs::create_symlink(VK_SETUP_SERVER, sDIR() + "/server/velka/bin/vk_setup");
        START_CLIENTS({"alpha", "ctrl1"});
    }

    /* A command line as it is typed on the server; $D is the sandbox. */
    RUN SHELL(const std::string& sLine)
    {
        const std::string sEnv = ". $D/env\n";  // where psql finds the database
        STARTED_RUN       run = START_COMMAND({"/bin/bash", "-c", sEnv + sLine}, {{"D", sDIR()}});
        return WAIT(run);
    }

    std::string sINI() { return sREAD_FILE(sDIR() + "/vk.ini"); }
};

/* Of the two ssh configurations, one is the sandbox's, one the setup's own. */
class SETUP : public SERVER {
protected:
    void SetUp() override
    {
        SERVER::SetUp();
        SHELL("rm -r $D/server/rw/ini/ctrl");
    }
};

TEST_F(SETUP, an_empty_database_is_filled_and_the_first_client_is_green)
{
    const std::string sOwner = "owner_of_" + SQL("select current_database()");
    SQL("create role " + sOwner);
    SQL("alter database " + sOwner.substr(9) + " owner to " + sOwner);
    SQL("drop table interfaces, clients, oper_systems");
    ASSERT_EQ(SHELL("vk_setup check").iExit, 1);

    const RUN first = SHELL("umask 000; vk_setup server --name backup1");
    EXPECT_EQ(first.iExit, 0) << first.sOut << first.sErr;
    EXPECT_THAT(first.sOut, HasSubstr("\n  vk_setup set_client backup1 --mode CTRL ssh-ed25519 "));
    EXPECT_THAT(ROWS("select client_id,name,exec,o.os=c.os from clients c left join oper_systems o "
                     "on o.os=c.os"),
                ElementsAre("0|backup1|0|t"));
    EXPECT_THAT(ROWS("select tableowner from pg_tables where schemaname='public'"),
                AllOf(SizeIs(3), Each(sOwner)));
    SQL("reassign owned by " + sOwner + " to current_user");
    SQL("drop role " + sOwner);
    const std::string sCtrl = sRW() + "ini/ctrl/";
    for (const auto& [sFile, uMode] : std::map<std::string, mode_t>{{sDIR() + "/vk.ini", 0640},
                                                                    {sRW() + "work/answ", 0750},
                                                                    {sCtrl, 0700},
                                                                    {sCtrl + "config", 0600},
                                                                    {sCtrl + "id_ed25519", 0600}}) {
        EXPECT_EQ(iMODE(sFile), uMode) << sFile;
    }
    EXPECT_EQ(SHELL("vk_setup check").iExit, 0);
    EXPECT_EQ(CONFIG_CLIENT({"-c", "alpha", "-o", "Linux", "-t", "0"}).iExit, 0);

    // Two at once wait for each other.
    const RUN two = SHELL(
        "rm -r $D/server/rw/ini/ctrl; psql -qc 'drop table interfaces'; "
        "vk_setup server >$D/1 & vk_setup server >$D/2; wait $!; sort $D/1 $D/2 | grep -c ^failed; "
        "cat $D/1 $D/2 | grep -c 'made    table'; vk_setup show gv_rw_prot");
    EXPECT_EQ(two.sOut, "0\n1\n" + sRW() + "prot/\n") << two.sErr;
    EXPECT_EQ(SHELL("vk_setup check").iExit, 0);

    // Once more: nothing is to do, nothing changes, a key least of all.
    const std::string sKey = sREAD_FILE(sCtrl + "id_ed25519");
    const std::string sIni = sINI();
    const RUN         again = SHELL("vk_setup server");
    EXPECT_EQ(again.iExit, 0);
    const TEXTS asLine = asLINES(again.sOut.substr(0, again.sOut.find("\n\n")));
    EXPECT_THAT(asLine, Each(StartsWith("there ")));
    EXPECT_EQ(sREAD_FILE(sCtrl + "id_ed25519"), sKey);
    EXPECT_EQ(sINI(), sIni);
    const RUN permit = SHELL("vk_setup permit --mode CTRL");
    EXPECT_THAT(again.sOut, HasSubstr("  " + permit.sOut));
    EXPECT_EQ(asLINES(permit.sOut).size(), 1U);
}

TEST_F(SETUP, what_a_stolen_key_reaches_stands_in_check_man_pages_and_security)
{
    const std::string sSource = fs::path{VK_SOURCE_DIR};
    const std::string sCheck = sCONDENSED(SHELL("vk_setup check").sOut);
    for (const REACH& reach : asctREACH)
        for (const std::string& sText :
             {sCheck, sCONDENSED(sREAD_FILE(sSource + "/man/vk_setup.8")),
              sCONDENSED(sREAD_FILE(sSource + "/man/vk_ctrl.8")),
              sCONDENSED(sREAD_FILE(sSource + "/docs/security.md"))}) {
            EXPECT_THAT(sText, HasSubstr(reach.cpWay));
            EXPECT_THAT(sText, HasSubstr(reach.cpReach));
        }
}

TEST_F(SETUP, each_fault_is_found_alone_and_its_command_mends_it)
{
    constexpr std::pair<const char*, const char*> asRow[] = {
        {"echo 'parallel 4' >>$D/vk.ini", "is neither a section nor key = value"},
        {"printf '\\357\\273\\277' | cat - $D/vk.ini >$D/i; cat $D/i >$D/vk.ini; chmod 644 "
         "$D/vk.ini",
         "vk.ini: others"},
        {"chmod 644 $D/vk.ini", "vk.ini: others may read it"},
        {"rm -r $D/server/rw/work/answ", "work/answ/: No such file or directory"},
        {"chmod 777 $D/server/rw/prot", "prot/: everybody may write there"},
        {"rm -r $D/server/rw/lgc; : >$D/server/rw/lgc", "lgc/: is not a directory"},
        {"rm $D/server/velka/skel/vk_execute_update", "vk_execute_update: No such file"},
        {": >$D/server/velka/skel/vk_execute_update.cmd", "vk_execute_update.cmd: is empty"},
        {"rm $D/server/hosts", "server/hosts: No such file"},
        {"chmod 644 $D/keys/client", "keys/client: others may read it"},
        {"cp $D/keys/ctrl.pub $D/keys/client.pub", "its public half"},
        {"rm $D/server/rw/ini/ctrl/id_ed25519", "ctrl/id_ed25519: No such file"},
        {"echo x >$D/server/rw/ini/ctrl/id_ed25519", "ctrl/id_ed25519: cannot be read: "},
        {"rm $D/server/rw/ini/ctrl/config", "ctrl/config: No such file"},
        {"sed -i '2iUsr root' $D/server/rw/ini/ctrl/config", "line 2: Bad configuration option"},
        {"chmod g+w $D/server/rw/ini/ssh/config", "ssh/config: others than its owner"},
        {"psql -qc 'drop table interfaces'", "tables: missing: interfaces"},
        {"psql -qc 'alter table clients drop qtc_version'", "missing: clients.qtc_version"},
        {"psql -qc 'alter table clients drop constraint clients_name_key'",
         "keys: missing: clients.name"},
        {"chmod 777 $D/server/rw/ini/ctrl", "ini/ctrl/: others than its owner"},
        {"psql -qc 'drop index interfaces_name'", "indexes: missing: interfaces_name"},
        {"psql -qc 'alter table interfaces drop constraint interfaces_client_id_fkey'",
         "keys: missing: interfaces.client_id"},
        {"psql -qc 'delete from clients'", "clients has no row with client_id 0"},
        {"psql -qc \"update clients set os='OS/2'\"", "\"OS/2\" is not in oper_systems"},
        {"psql -qc \"delete from oper_systems where os='AIX'\"", "1 of the product's are missing"},
        {"psql -qc \"alter database $PGDATABASE set default_transaction_read_only=on\"",
         "is read-only"},
        {"psql -qc \"alter role velka in database $PGDATABASE set "
         "default_transaction_read_only=on\"",
         "is read-only"},
        {"psql -qc \"insert into clients (client_id,name,os,accessmode) values "
         "(1,'a','AIX','QUIC')\"",
         "not configured: QUIC"},
        {"touch $D/pw; chmod 644 $D/pw; sed -i \"s|^conninfo = .*|& passfile=$D/pw|\" $D/vk.ini",
         "pw: others may read it"},
    };
    ASSERT_EQ(SHELL("vk_setup server").iExit, 0);
    for (const auto& [cpBreak, cpTold] : asRow) {
        SCOPED_TRACE(cpBreak);
        EXPECT_EQ(SHELL(cpBreak).sErr, "");
        const RUN broken = SHELL("vk_setup check");
        TEXTS     asWrong = asLINES(broken.sOut);
        std::erase_if(asWrong, [](const std::string& s) { return !s.starts_with("wrong   "); });
        EXPECT_EQ(broken.iExit, 1);
        ASSERT_EQ(asWrong.size(), 1U) << broken.sOut;
        EXPECT_THAT(asWrong[0], HasSubstr(cpTold));
        const std::string sMark = "; mend: ";
        ASSERT_THAT(asWrong[0], HasSubstr(sMark));
        const RUN mend = SHELL(asWrong[0].substr(asWrong[0].find(sMark) + sMark.size()));
        EXPECT_EQ(mend.iExit, 0) << mend.sOut << mend.sErr;
        const RUN mended = SHELL("vk_setup check");
        EXPECT_EQ(mended.iExit, 0) << mended.sOut << mended.sErr;
    }
}

TEST_F(SERVER, set_mode_registers_a_client_with_its_mode_and_checks_it)
{
    const std::string sMode = "select accessmode from clients where client_id>0";
    RUN               run = SHELL("vk_setup set_mode ctrl1 CTRL");
    EXPECT_EQ(run.iExit, 1);
    EXPECT_THAT(run.sErr, HasSubstr("\"ctrl1\" is not registered; give its operating system"));
    run = SHELL("vk_setup set_mode \"x' or ''='\" CTRL --os OS/2");
    EXPECT_EQ(run.iExit, 1);
    EXPECT_THAT(run.sErr, HasSubstr("OS/2"));
    EXPECT_THAT(ROWS(sMode), IsEmpty());
    run = SHELL("vk_setup set_mode ctrl1 CTRL --os Linux");
    EXPECT_EQ(run.iExit, 0) << run.sOut << run.sErr;
    EXPECT_THAT(run.sOut, MatchesRegex("made    row of ctrl1\nmade    access mode CTRL of "
                                       "ctrl1\nSTATUS=SUCCESS MSG=\"I005[^\n]*\n"));
    EXPECT_EQ(run.sErr, "");
    EXPECT_THAT(ROWS(sMode), ElementsAre("CTRL"));
    // The plain key of the other mode is not admitted there.
    EXPECT_THAT(SHELL("vk_setup set_mode ctrl1 VKSSH").sOut, HasSubstr("E011"));
    EXPECT_EQ(SHELL("vk_setup set_mode ctrl1 QUIC").iExit, 2);
    EXPECT_THAT(ROWS(sMode), ElementsAre("VKSSH"));
}

TEST_F(SETUP, arguments_that_make_no_sense_change_nothing_and_a_database_elsewhere_is_told)
{
    const std::string sIni = sINI();
    for (const char* cp :
         {"server --name", "server --name -x", "server --name 'a b'", "server --name ALL_CLIENTS",
          "server --name 'a;b'", "server --name .a", "show", "server now", "permit --mode SSH",
          "check all", "set_mode a", "set_mode a CTRL x", "chekc", ""}) {
        SCOPED_TRACE(cp);
        const RUN run = SHELL(std::string("vk_setup ") + cp);
        EXPECT_EQ(run.iExit, 2);
        EXPECT_EQ(run.sOut, "");
        EXPECT_NE(run.sErr, "");
    }
    EXPECT_EQ(SHELL("vk_setup server --conninfo 'hots=x'").iExit, 1);
    EXPECT_EQ(sINI(), sIni);
    const RUN far = SHELL(
        "vk_setup server --conninfo 'host=127.0.0.1 port=1 dbname=vdb user=\"vu\" password=pst'");
    EXPECT_EQ(far.iExit, 1);
    EXPECT_THAT(far.sOut, HasSubstr("create database \"vdb\" owner \"\"\"vu\"\"\""));
    EXPECT_THAT(far.sOut + far.sErr, Not(HasSubstr("pst'")));
    EXPECT_THAT(sINI(), HasSubstr("\nconninfo = host=127.0.0.1 port=1 "));
    EXPECT_THAT(SHELL("vk_setup permit").sErr, HasSubstr("the database: connection to server at"));
}

}  // namespace
