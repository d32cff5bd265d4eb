/* Registration, refresh and removal of clients; those of mode VIRTUAL need no machine. */
#include "sandbox_fixture.h"

using namespace testing;

namespace {

std::string sI012(const std::string& sName)
{
    return sSTATUS(0, "I012-HOSTS   Client " + sName + " added");
}

using REGISTRATION = SANDBOX;

TEST_F(REGISTRATION, a_new_client_gets_the_next_identifier_and_three_interfaces)
{
    START_CLIENTS({"alpha"});
    SQL("alter table clients alter client_id type bigint");  // as others have it
    SQL("insert into clients (client_id,name,os) values (41,'old','Linux')");
    EXPECT_EQ(CONFIG_CLIENT({"-c", "alpha", "-o", "Linux", "-a", "10.1.2.3"}).iExit, 0);
    EXPECT_THAT(
        STATEMENTS(),
        IsSupersetOf(
            {"select MAX(client_id) from clients",
             "insert into clients (client_id,name,os,net_prot,msg,comment,location,accessmode,exec,"
             "access_options,user_comment,os_user,os_password) values (42,'alpha','Linux','TCPIP',"
             "'10.1.2.3 Id=42','10.1.2.3 Id=42','0','VKSSH','1','','','','')"}));
    EXPECT_THAT(ROWS("select client_id,name,os,net_prot,location,accessmode,exec,access_options,"
                     "user_comment,os_user,os_password from clients where name='alpha'"),
                ElementsAre("42|alpha|Linux|TCPIP|0|VKSSH|1||||"));
    EXPECT_THAT(ROWS("select * from interfaces where client_id=42 order by i_order"),
                ElementsAre("42|http://alpha:11000|0", "42|https://alpha:11443|1", "42|alpha|2"));
}

TEST_F(REGISTRATION, interfaces_follow_the_prefix_and_complete_what_is_there)
{
    constexpr const char* cpHttp = "http://N:11000 0,https://N:11443 1,N 2";
    constexpr const char* cpHttps = "https://N:11443 0,http://N:11000 1,N 2";
    // clang-format off
    const struct {
        const char *cpClient, *cpPrefix /* of [defaults] */, *cpVariable /* of the environment */;
        TEXTS asBefore; const char* cpAdded;
    } aRow[] = {
        {"https1", "https", "", {}, cpHttps}, {"https2", "", "https", {}, cpHttps},
        {"other", "http", "https", {}, cpHttp}, {"upper", "HTTPS", "", {}, cpHttp},
        {"port", "", "", {"HTTP://Port:8000"}, "https://N:11443 1,N 2"},
        {"secure", "", "", {"https://secure:1"}, "http://N:11000 0,N 2"},
        {"bare", "", "", {"BARE"}, "http://N:11000 0,https://N:11443 1"},
        {"a_b", "", "", {"http://axb:1"}, cpHttp}, {"two", "", "", {"x", "y"}, "NULL"},
    };
    // clang-format on
    for (const auto& row : aRow) {
        SCOPED_TRACE(row.cpClient);
        ADD_CLIENT(row.cpClient, "VIRTUAL");
        INI("defaults", "vk_conf_default_interface_prefix", row.cpPrefix);
        const std::string sId = COLUMN(row.cpClient, "client_id");
        for (const std::string& sName : row.asBefore)
            SQL("insert into interfaces values (" + sId + ",'" + sName + "',9)");
        SETTINGS environment;
        if (row.cpVariable[0]) environment["gv_default_interface_prefix"] = row.cpVariable;
        EXPECT_EQ(CONFIG_CLIENT({"-c", row.cpClient, "-m", "VIRTUAL"}, environment).iExit, 0);
        EXPECT_EQ(SQL("select string_agg(replace(i_name,name,'N')||' '||i_order,',' order by "
                      "i_order) from interfaces join clients using (client_id) where i_order<>9 "
                      "and client_id=" +
                      sId),
                  row.cpAdded);
    }
}

TEST_F(REGISTRATION, a_known_client_is_refreshed_and_keeps_what_it_has)
{
    ADD_CLIENT("known", "PROXY", "NetWare", {{"location", "7"}, {"exec", "0"}});
    // A row of another program that refers to the client does not hold the run.
    INI("database", "statement_timeout", "2");
    SQL("create table jobs (client_id integer references clients)");
    SQL("begin");
    SQL("insert into jobs values (1)");
    const TEXTS asKnown{"-c", "known", "-o", "Linux", "-m", "VIRTUAL", "-a", "10.9.9.9"};
    const RUN   run = CONFIG_CLIENT(asKnown);
    SQL("commit");
    EXPECT_EQ(run.sOut, sI012("known"));
    EXPECT_THAT(run.sErr, Not(HasSubstr("not stored")));
    EXPECT_THAT(STATEMENTS(),
                Contains("update clients set accessmode='PROXY',msg='10.9.9.9 Id=1',"
                         "comment='10.9.9.9 Id=1' where client_id='1' and name='known'"));
    EXPECT_THAT(ROWS("select client_id,os,accessmode,location,exec from clients where client_id>0"),
                ElementsAre("1|NetWare|PROXY|7|0"));
    EXPECT_EQ(SQL("select count(*) from interfaces where client_id=1"), "3");
}

TEST_F(REGISTRATION, depth_access_mode_and_outcome_decide_what_is_tested)
{
    const char* cpBackup = "qtc -b -s NULL:64:32 -S http://_REMOTE_CLIENT_:11000 gv_rw_ini:vk.ini";
    const std::string sVms = "qtc -b -s NULL:64:32 -S velkasrv gv_ro_bin:qtc.exe";
    // clang-format off
    const struct {
        std::string sClient; TEXTS asOption, asLog; const char *cpMessage, *cpHosts; /* entry */
    } aRow[] = {
        {"plain", {"-a", "10.1.1.1"}, {"qtc -h", cpBackup}, "I005", "\n10.1.1.1   PLAIN plain"},
        {"t0", {"-a", "10.1.1.2", "-t", "0"}, {"qtc -h"}, "I005", ""},
        {"t1", {"-a", "10.1.1.3", "-t", "1"}, {"qtc -h", cpBackup}, "I005", ""},
        {"null", {"-a", "NULL"}, {"qtc -h", cpBackup}, "I005", ""},
        {"named", {}, {"qtc -h", cpBackup}, "I005", ""},
        {"vms", {"-a", "10.1.1.4"}, {"qtc -h", sVms}, "I005", ""},
        {"proxy", {"-a", "10.1.1.5", "-m", "PROXY"}, {}, "I012", ""},
        {"refused", {"-a", "10.1.1.6"}, {}, "E010", ""},
        {"nobackup", {"-a", "10.1.1.7"}, {"qtc -h", cpBackup}, "E012", ""},
    };
    // clang-format on
    for (const auto& row : aRow) START_CLIENTS({row.sClient});
    SWITCH("vms", "qtc", {"os=VMS"});
    SWITCH("nobackup", "qtc", {"backup=none"});
    std::string sHosts = HOSTS_FILE();
    for (const auto& row : aRow) {
        SCOPED_TRACE(row.sClient);
        const TEXTS asBegin{"-c", row.sClient, "-o", row.sClient == "vms" ? "VMS" : "Linux"};
        EXPECT_EQ(CONFIG_CLIENT(asBegin + row.asOption).iExit, row.cpMessage[0] == 'E');
        EXPECT_THAT(COLUMN(row.sClient, "msg"), StartsWith(row.cpMessage));
        EXPECT_EQ(CLIENT_LOG(row.sClient), row.asLog);
        EXPECT_EQ(HOSTS_FILE(), sHosts += row.cpHosts);
    }
    EXPECT_EQ(SQL("select count(*) from interfaces"), "27");
}

TEST_F(REGISTRATION, many_at_one_moment_give_each_client_one_row_and_three_interfaces)
{
    // Slow inserts, so that runs for one client look for interfaces before one is there.
    SQL("create function slow() returns trigger language plpgsql as "
        "$$begin perform pg_sleep(0.2); return new; end$$");
    SQL("create trigger slow before insert on interfaces for each row execute function slow()");
    std::vector<STARTED_RUN> runs;
    const auto               NAME = [](int i) { return i < 40 ? "n" + std::to_string(i) : "same"; };
    for (int i = 0; i < 52; i++)
        runs.push_back(START({"-c", NAME(i), "-o", "Linux", "-m", "VIRTUAL"}));
    for (int i = 0; i < 52; i++) EXPECT_EQ(WAIT(runs[static_cast<size_t>(i)]).sOut, sI012(NAME(i)));
    EXPECT_EQ(SQL("select string_agg(client_id::text,',' order by client_id) from clients"),
              SQL("select string_agg(i::text,',' order by i) from generate_series(0,41) i"));
    EXPECT_THAT(ROWS("select distinct accessmode,string_agg(replace(i_name,name,'N')||i_order,' ' "
                     "order by i_order) from interfaces join clients using (client_id) group by "
                     "client_id,accessmode"),
                ElementsAre("VKSSH|http://N:110000 https://N:114431 N2"));
    EXPECT_EQ(SQL("select count(*) from interfaces"), "123");
}

TEST_F(REGISTRATION, removal_deletes_interfaces_and_row_and_nothing_else)
{
    for (const char* cpName : {"keep", "gone"}) ADD_CLIENT(cpName, "VIRTUAL");
    SQL("insert into interfaces values (1,'keep',2),(2,'http://gone:11000',0),(2,'gone',2)");
    const std::string sI008 = "I008-HOSTS   User deleted client ";
    EXPECT_ENDED(CONFIG_CLIENT({"-c", "gone", "-C", "d"}), 0, sI008 + "gone (id=2).");
    TEXTS asDelete = STATEMENTS();
    std::erase_if(asDelete, [](const std::string& s) { return !s.starts_with("delete"); });
    EXPECT_THAT(asDelete, ElementsAre("delete from interfaces where client_id='2'",
                                      "delete from clients where client_id='2' and name='gone'"));
    EXPECT_THAT(ROWS("select name from clients order by 1"), ElementsAre("keep", "velkasrv"));
    EXPECT_THAT(ROWS("select i_name from interfaces"), ElementsAre("keep"));
    EXPECT_THAT(PROTOCOL(), Contains(sI008 + "gone (id=2)."));

    EXPECT_ENDED(CONFIG_CLIENT({"-c", "gone", "-C", "d"}), 2, sE006);
}

TEST_F(REGISTRATION, a_removal_that_comes_late_leaves_the_client_that_got_the_identifier)
{
    ADD_CLIENT("xx", "VIRTUAL");
    INI("general", "trace_level", "1");
    SQL("insert into interfaces values (1,'xx',2)");
    for (const bool bKeys : {true, false}) {
        SCOPED_TRACE(bKeys);
        SQL("begin");
        SQL("lock table interfaces");
        std::vector<STARTED_RUN> runs;
        for (int i = 0; i < 2; i++) runs.push_back(START({"-c", "xx", "-C", "d"}));
        ASSERT_TRUE(bWAIT_UNTIL(20000, [&] {
            return SQL("select count(*) from pg_locks where not granted and "
                       "relation='interfaces'::regclass") == "2";
        }));
        SQL("update clients set name='yy' where client_id=1");  // xx is gone, yy has its number
        SQL("update interfaces set i_name='yy'");
        SQL("commit");
        for (STARTED_RUN& run : runs)
            EXPECT_THAT(WAIT(run).sOut, HasSubstr("I008-HOSTS   User deleted client xx (id=1)."));
        EXPECT_THAT(ROWS("select name,i_name from clients join interfaces using (client_id)"),
                    ElementsAre("yy|yy"));
        SQL("alter table interfaces drop constraint if exists interfaces_client_id_fkey");
        SQL("update clients set name='xx' where client_id=1");
    }
}

TEST_F(REGISTRATION, a_client_removed_as_its_system_is_set_is_entered_anew)
{
    ADD_CLIENT("odd", "VIRTUAL", "Linx");
    SQL("create function gone() returns trigger language plpgsql as "
        "$$begin delete from clients where name=old.name; return null; end$$");
    SQL("create trigger gone before update of os on clients for each row execute function gone()");
    EXPECT_EQ(CONFIG_CLIENT({"-c", "odd", "-o", "Linux", "-m", "VIRTUAL"}).sOut, sI012("odd"));
    EXPECT_EQ(COLUMN("odd", "os"), "Linux");
}

TEST_F(REGISTRATION, what_is_refused_or_not_done_is_told)
{
    ADD_CLIENT("alpha", "VIRTUAL");
    ADD_CLIENT("odd", "VIRTUAL", "Linx");
    for (const char* cpName : {"odder", "oddest"}) ADD_CLIENT(cpName, "VIRTUAL", "Beos");
    ADD_CLIENT("nomode", "");
    const std::string sUnknown =
        "operating system \"Linx\" is not in oper_systems; did you mean "
        "\"Linux\"?";
    // clang-format off
    const struct { TEXTS asArgument; int iExit; const char* cpOut; std::string sTold; } aRow[] = {
        {{"-c", "Alpha", "-o", "Linux"}, 0, "I012", "\"alpha\" exists already; \"Alpha\" is another one"},
        {{"-c", "new", "-o", "Linx"}, 0, "I012", sUnknown},
        {{"-c", "odd"}, 2, "E006", "odd is stored with an operating system that is not in"},
        {{"-c", "odd", "-o", "Linx"}, 1, "E004-HOSTS   Error during access to database  (the client "
          "is stored with an unknown operating system)", sUnknown},
        {{"-c", "odd", "-o", "Linux"}, 0, "I012", ""},
        {{"-c", "odder", "-o", "NetWare", "-l", "7"}, 0, "I012",
         "odder is registered already; not used: -l"},
        {{"-c", "oddest", "-C", "x", "-o", "Linux"}, 0, "I012", "\"x\" is not r, s or d"},
        {{"-c", "nomode", "-C", "x", "-t", "0"}, 0, "I012", "is stored without an access mode and not tested; to"},
        {{"-c", "velkasrv", "-C", "d"}, 1, "E001-HOSTS   Configuration of LINUX backup client velkasrv",
          "is the backup server itself"},
        {{"-c", "none", "-C", "r"}, 2, "E006", "no such client: none"},
    };
    // clang-format on
    for (const auto& row : aRow) {
        const bool bTask = row.asArgument.end()[-2] == "-C";
        const RUN  run = CONFIG_CLIENT(row.asArgument + (bTask ? TEXTS{} : TEXTS{"-m", "VIRTUAL"}));
        SCOPED_TRACE(run.sOut + run.sErr);
        EXPECT_EQ(run.iExit, row.iExit);
        EXPECT_THAT(run.sOut, HasSubstr(row.cpOut));
        EXPECT_THAT(run.sErr, HasSubstr(row.sTold));
    }
    EXPECT_THAT(ROWS("select name,os from clients where name like 'o%' order by name"),
                ElementsAre("odd|Linux", "odder|NetWare", "oddest|Linux"));
    EXPECT_EQ(SQL("select count(*) from clients where name='velkasrv'"), "1");
}

TEST_F(REGISTRATION, what_cannot_be_stored_is_told)
{
    ADD_CLIENT("alpha", "VIRTUAL");
    const TEXTS    asRegister{"-c", "alpha", "-m", "VIRTUAL"}, asRemove{"-c", "alpha", "-C", "d"};
    const SETTINGS readOnly{{"PGOPTIONS", "-c default_transaction_read_only=on"}};
    const std::string sRefused = " in a read-only transaction";
    RUN               run = CONFIG_CLIENT(asRegister, readOnly);
    EXPECT_EQ(run.sOut, sI012("alpha"));
    for (const char* cpWhat : {"refreshed entry", "interfaces", "outcome"})
        EXPECT_THAT(run.sErr, ContainsRegex(": " + std::string(cpWhat) +
                                            " of alpha not stored: ERROR: .*" + sRefused));
    run = CONFIG_CLIENT(asRemove, readOnly);
    EXPECT_THAT(run.sOut, HasSubstr("I008"));
    EXPECT_THAT(run.sErr, ContainsRegex(": alpha not removed: ERROR: .*" + sRefused));
    EXPECT_EQ(SQL("select count(*) from clients"), "2");
    SQL("create function stay() returns trigger language plpgsql as $$begin return null; end$$");
    SQL("create trigger stay before delete on clients for each row execute function stay()");
    run = CONFIG_CLIENT(asRemove);
    EXPECT_ENDED(run, 0, "I008-HOSTS   User deleted client alpha (id=1).");
    EXPECT_THAT(run.sErr, HasSubstr("alpha not removed: a trigger or a policy"));
    EXPECT_EQ(asLINES(run.sErr).size(), 1U);
    EXPECT_THAT(OUTCOMES().back(), HasSubstr("\"stored\":false"));

    // The interfaces come all, or not at all and with the next run.
    SQL("create function no() returns trigger language plpgsql as "
        "$$begin raise exception 'no room'; end$$");
    SQL("create trigger no before insert on interfaces for each row when (new.i_order=2) execute "
        "function no()");
    for (const char* cpLeft : {"0", "3"}) {
        run = CONFIG_CLIENT(asRegister);
        EXPECT_EQ(run.sOut, sI012("alpha"));
        EXPECT_EQ(SQL("select count(*) from interfaces"), cpLeft);
        EXPECT_EQ(run.sErr.find(": interfaces of alpha not stored: ERROR: no room") < 1000,
                  *cpLeft == '0');
        SQL("drop trigger if exists no on interfaces");
    }

    SQL("create trigger no before insert on clients for each row execute function no()");
    run = CONFIG_CLIENT({"-c", "new", "-o", "Linux"});
    EXPECT_THAT(run.sOut, HasSubstr("(ERROR: no room)"));
    EXPECT_EQ(run.sErr, "");  // no word of a row that another run removed

    SQL("update clients set os='gone' where client_id=0");
    run = CONFIG_CLIENT(asRegister);
    EXPECT_THAT(run.sOut, HasSubstr("E004-HOSTS   Error during access to database  ()"));
    EXPECT_THAT(asLINES(run.sErr), Contains(HasSubstr("the backup server has no row with client_id "
                                                      "0 and a known operating system")));
    SQL("alter table clients rename vm_server_type to other");
    run = CHECK("alpha");
    EXPECT_ENDED(run, 2, sE006);
    EXPECT_THAT(run.sErr, HasSubstr("settings of alpha not read: ERROR: column"));
}

TEST_F(REGISTRATION, identifiers_end_with_seven_digits)
{
    SQL("insert into clients (client_id,name,os) values (9999998,'last','Linux')");
    EXPECT_EQ(CONFIG_CLIENT({"-c", "a", "-o", "Linux", "-m", "VIRTUAL"}).iExit, 0);
    EXPECT_EQ(COLUMN("a", "client_id") + COLUMN("a", "comment"), "9999999" + COLUMN("a", "msg"));
    EXPECT_THAT(CONFIG_CLIENT({"-c", "b", "-o", "Linux", "-m", "VIRTUAL"}).sOut,
                HasSubstr("(no client identifier of up to 7 digits is free)"));
    SQL("update clients set client_id=10000000 where name='last'");
    EXPECT_THAT(CONFIG_CLIENT({"-c", "last", "-C", "n", "-m", "VIRTUAL"}).sErr,
                HasSubstr("entry of last not stored: its identifier 10000000 has more than 7"));
    EXPECT_EQ(SQL("select count(*) from clients"), "3");
}

}  // namespace
