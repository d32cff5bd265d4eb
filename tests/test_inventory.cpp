/* What a check stores of the client's report, and what it asks the client for
   where the report has gaps. */
#include "sandbox_fixture.h"

using namespace testing;

namespace {

constexpr const char* cpASK_VERSION =
    "vk_client -r -f usefile -n gv_rw_ini:vk.ini -m f -s <version=^> -v 1";
constexpr const char* cpASK_PACKAGE =
    "vk_client -r -f usefile -n gv_rw_ini:vk.ini -m f -s <package_name=^> -v 1";

class INVENTORY : public SANDBOX {
protected:
    /* Checks the client and gives columns of its row, joined by "|". */
    std::string sCHECKED(const std::string& sClient, const std::string& sColumns, int iExit = 0)
    {
        EXPECT_EQ(CHECK(sClient).iExit, iExit);
        const TEXTS asRow =
            ROWS("select " + sColumns + " from clients where name='" + sClient + "'");
        return asRow.empty() ? "" : asRow[0];
    }
};

TEST_F(INVENTORY, every_field_of_the_report_goes_to_its_column)
{
    ADD_CLIENT("alpha");
    OUTPUT("alpha", "qtc",
           "banner line = of no meaning\r\n"
           " qtc_version = 5.1.0.9 \r\nVELKA_VERSION=5.1.0-12\nCORES=8\nHW=aarch64\n"
           "PACKAGE=velka=cli.deb\nEX_TYPE=full\nINSTALLATION_DATE=2024-02-29 01:02:03\n"
           "UPDATE_DATE=2025-04-05 06:07:08\nUPDATE_STATE=0\nUPDATE_MESSAGE=well done\n"
           "SERVICEPACK_NUMBER=17\nSERVICEPACK_PACKAGE=sp17.deb\n"
           "SERVICEPACK_DATE=2025-05-06 07:08:09\nMODULE_VERSIONS=core 5.1\nHW=second\n");
    EXPECT_EQ(sCHECKED("alpha",
                       "qtc_version,velka_version,version_number,hw_platform,package,"
                       "installation_date,update_date,update_state,update_message,"
                       "servicepack_number,servicepack_package,servicepack_date,module_versions"),
              "5.1.0.9|5.1.0-12|5000010000000012|aarch64|velka=cli.deb|2024-02-29 01:02:03|"
              "2025-04-05 06:07:08|0|well done|17|sp17.deb|2025-05-06 07:08:09|core 5.1");
    EXPECT_THAT(CLIENT_LOG("alpha"), ElementsAre("qtc -h"));

    // The same update again: what an update run stored of it since then stays.
    SQL("update clients set update_state='1',update_message='restart' where name='alpha'");
    EXPECT_EQ(sCHECKED("alpha", "update_state,update_message,servicepack_number"), "1|restart|17");

    // A report without fields empties them; a client without them is asked.
    OUTPUT("alpha", "qtc", "QTC_VERSION=1\n");
    EXPECT_EQ(sCHECKED("alpha",
                       "hw_platform,installation_date,update_date,update_state,update_message,"
                       "servicepack_number,servicepack_package,servicepack_date,module_versions"),
              "|NULL|NULL|||0||NULL|");
}

TEST_F(INVENTORY, states_numbers_and_dates_become_what_the_columns_hold)
{
    constexpr std::array<const char*, 4> aacpRow[] = {
        {"3010", "0", "20250301081500", "1|0|2025-03-01 08:15:00"},
        {"1654", "-5", "1740816900", "1|0|2025-03-01 08:15:00"},
        {"1642", "x9", "2025-02-30 00:00:00", "2|0|NULL"},
        {"3", "12abc", "yesterday", "2|12|NULL"},
        {"2", "7", "", "2|7|NULL"},
        {"1", "007", "2025-03-01", "1|7|NULL"},
        {"-4", "4294967296", "2025-03-01 08:15:00", "-4|4294967296|2025-03-01 08:15:00"},
        {"unknown", " 3", "'); drop table clients; --", "unknown|3|NULL"},
    };
    ADD_CLIENT("alpha");
    for (const auto& [cpState, cpNumber, cpDate, cpStored] : aacpRow) {
        SQL("update clients set update_date=null where name='alpha'");
        SWITCH(
            "alpha", "qtc",
            {std::string("update_state=") + cpState, std::string("servicepack_number=") + cpNumber,
             std::string("installation_date=") + cpDate});
        EXPECT_EQ(sCHECKED("alpha", "update_state,servicepack_number,installation_date"), cpStored);
    }
}

TEST_F(INVENTORY, version_and_package_that_the_report_lacks_are_asked_for)
{
    ADD_CLIENT("alpha");
    ADD_CLIENT("nw1", "VKSSH", "NetWare", {{"data_mover", "alpha"}});
    SWITCH("alpha", "qtc", {"velka_version=", "package="});
    WRITE_FILE(CLIENT_PATH("alpha", "velka/ini/vk.ini"),
               "version=4.4.3.73\npackage_name=a=b's.deb\nupdate_date=\n");
    EXPECT_EQ(sCHECKED("alpha", "velka_version,version_number,package,update_date"),
              "4.4.3.73|4000040000300073|a=b's.deb|NULL");
    EXPECT_THAT(CLIENT_LOG("alpha"), ElementsAre("qtc -h", cpASK_VERSION, cpASK_PACKAGE));

    // The files of a NetWare client are on its data mover.
    SWITCH("alpha", "qtc_smdr", {"velka_version=", "package="});
    EXPECT_EQ(sCHECKED("nw1", "velka_version,package"), "4.4.3.73|a=b's.deb");
    EXPECT_THAT(CLIENT_LOG("alpha"), Contains("qtc_smdr -h"));

    // Nothing found, a failed command, and an answer without "=" leave a gap.
    for (const char* cpFile : {"other=1\n", "version=\npackage_name=\n"}) {
        WRITE_FILE(CLIENT_PATH("alpha", "velka/ini/vk.ini"), cpFile);
        EXPECT_EQ(sCHECKED("alpha", "velka_version,version_number,package"), "|0|");
    }
    OUTPUT("alpha", "vk_client", "no such line\n");
    EXPECT_EQ(sCHECKED("alpha", "velka_version,package"), "|");

    // A report without the backup client's own version asks all the same.
    OUTPUT("alpha", "vk_client", "key=9.9.9-9\n");
    SWITCH("alpha", "qtc", {"mode=noversion", "velka_version=", "package=", "hw=other"});
    EXPECT_EQ(sCHECKED("alpha", "velka_version,package,hw_platform", 1), "9.9.9-9|9.9.9-9|x86_64");

    // An inventory that cannot be stored changes no verdict.
    SQL("alter table clients drop column update_date");
    SWITCH("alpha", "qtc", {"hw=other", "os=AIX"});
    EXPECT_EQ(sCHECKED("alpha", "hw_platform,os"), "x86_64|AIX");
}

TEST_F(INVENTORY, the_operating_system_is_corrected_unless_it_is_one_that_is_kept)
{
    constexpr std::array<const char*, 4> aacpRow[] = {
        {"AIX", "LINUX", "LINUX", "LINUX"},         {"OES-Linux", "LINUX", "OES-Linux", "LINUX"},
        {"OES-Linux", "Debian", "Debian", "LINUX"}, {"ESX-Server", "AIX", "ESX-Server", "LINUX"},
        {"AIX", "PalmOS", "AIX", "UNIX"},           {"AIX", "", "AIX", "UNIX"},
        {"AIX", "x' or os='Linux", "AIX", "UNIX"},  {"Linux", "AIX", "AIX", "UNIX"},
    };
    ADD_CLIENT("alpha");
    for (const auto& [cpStored, cpReported, cpAfter, cpPlatform] : aacpRow) {
        SCOPED_TRACE(std::string(cpStored) + " reports " + cpReported);
        SQL(std::string("update clients set os='") + cpStored + "' where name='alpha'");
        SWITCH("alpha", "qtc", {std::string("os=") + cpReported});
        EXPECT_EQ(sCHECKED("alpha", "os"), cpAfter);
        // The corrected class counts for the rest of the run.
        EXPECT_EQ(PROTOCOL().back(), std::string("I003-HOSTS   Configuration of ") + cpPlatform +
                                         " backup client alpha completed successfully.");
    }
}

TEST_F(INVENTORY, what_is_longer_than_its_column_is_cut_to_it_and_loses_nothing_else)
{
    SQL("alter table clients alter package type varchar(10),alter update_message type varchar(3)");
    ADD_CLIENT("alpha");
    SWITCH("alpha", "qtc", {"update_state=" + std::string(21, 's'), "update_message=äöüß"});
    EXPECT_EQ(sCHECKED("alpha", "update_state,update_message,package,hw_platform"),
              std::string(20, 's') + "|äöü|velka-cli_|x86_64");
    // Fields that make the statement longer than it may be.
    std::string sReport = "QTC_VERSION=6.1.0.9\n";
    for (const char* cpKey : {"HW", "SERVICEPACK_PACKAGE", "UPDATE_MESSAGE", "MODULE_VERSIONS"})
        sReport += cpKey + ("=" + std::string(255, '\'')) + "\n";
    OUTPUT("alpha", "qtc", sReport + "PACKAGE=p\n");
    EXPECT_EQ(sCHECKED("alpha", "qtc_version,package,left(hw_platform,3)"), "6.1.0.9|p|'''");
    fs::remove(CLIENT_PATH("alpha", "state/qtc.out"));
    SWITCH("alpha", "qtc", {"mode=fail", "text= ", "exit=3"});
    const RUN run = CHECK("alpha");
    EXPECT_THAT(run.sOut, HasSubstr("to computer alpha: No message found"));
    EXPECT_THAT(run.sErr, HasSubstr("alpha: \"qtc -h\" ended with status 3"));
}

}  // namespace
