/* A private backup server for one test: a database of its own, directories,
   vk.ini, which the library reads in this process, too, and clients behind real sshd
   with stand-in programs (sandbox/). Tests run side by side. After a failure the runs' standard error, the
   trace, the day protocol and the server log are printed. */
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libpq-fe.h>
#include <signal.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/unix/cm_hal_pipe.h"

/* Where the sources and the programs of this build lie. */
extern const char *const VK_SANDBOX_SCRIPT,
    *const VK_SOURCE_DIR, *const VK_SETUP_SERVER, *const VK_STATUS_PROGRAM, *const VK_PROGRAM;

namespace fs = std::filesystem;
using TEXTS = std::vector<std::string>;
TEXTS operator+(TEXTS asFirst, const TEXTS& asMore);
using SETTINGS = std::map<std::string, std::string>;

/* What a run left. */
struct RUN {
    int         iExit = -1;   // exit code; -1 when a signal ended it
    int         iSignal = 0;  // signal that ended it
    std::string sOut;
    std::string sErr;
    long        iMilliseconds = 0;
};

/* A run under way. It is killed with its group when the test lets it go. */
struct STARTED_RUN {
    pid_t       iPid = -1;
    long        lStarted = 0;  // lNOW_MS time
    std::string sOutFile;
    std::string sErrFile;

    STARTED_RUN() = default;
    STARTED_RUN(STARTED_RUN&& other) noexcept { *this = std::move(other); }
    STARTED_RUN& operator=(STARTED_RUN&& other) noexcept;
    ~STARTED_RUN();
};

/* Waits until bDone() or the limit has passed. */
template<class F>
bool bWAIT_UNTIL(int iLimitMs, F bDone)
{
    const long lEnd = lNOW_MS() + iLimitMs;
    while (!bDone()) {
        if (lNOW_MS() > lEnd) return false;
        iSLEEP_MS(5);
    }
    return true;
}

/* Whole file, "" when there is none. */
std::string sREAD_FILE(const std::string& sPath);
void        WRITE_FILE(const std::string& sPath, std::string_view svBytes);
/* A shell script, in the place of what was there; and the last bits of a file's mode. */
void        WRITE_PROGRAM(const std::string& sPath, std::string_view svScript);
mode_t      iMODE(const std::string& sPath);
std::string sTEMP_DIR();                           // a new one
FD          fdLISTENER(const std::string& sPath);  // a socket that nobody serves
TEXTS       asLINES(const std::string& sText);
/* The bytes of its files whose names end so, in the order of the names. */
std::string sALL_FILES(const std::string& sFolder, std::string_view svEnd = "");
/* The status line of a run, and the last line of one over several clients. */
std::string sSTATUS(int iExit, const std::string& sMessage);
void        EXPECT_ENDED(const RUN& run, int iExit, const std::string& sMessage);  // all it said
std::string sSUMMARY(int iOk, int iFailed);
bool        bSCRIPT(const TEXTS& asArgument);    // runs sandbox/sandbox
RUN         sctSHELL(const std::string& sLine);  // standard output and exit code of a line
/* Living processes whose environment holds sVariable, after up to iWaitMs. */
int iCOUNT_PROCESSES(const std::string& sVariable, int iWaitMs);

struct CLOSE_DB {
    void operator()(PGconn* pConn) const { PQfinish(pConn); }
};

inline const std::string sE006 = "E006-HOSTS   Missing parameters for configuration of a client.";

/* Paths below a folder of what has such a text in its name. */
TEXTS asFILES_NAMED(const std::string& sFolder, std::string_view svPart);

class SANDBOX : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    /* ---- clients ---- */

    /* Enters a client and starts its sshd, when its name is one that has one
       (sandbox/sandbox says what follows from a name). More columns by name. */
    void ADD_CLIENT(const std::string& sName, const std::string& sMode = "VKSSH",
                    const std::string& sOs = "Linux", const SETTINGS& columns = {});
    void ADD_CLIENTS(const TEXTS& asName, const std::string& sMode = "VKSSH")
    {
        for (const std::string& sName : asName) ADD_CLIENT(sName, sMode);
    }
    /* Starts clients that are not in the database. */
    void START_CLIENTS(const TEXTS& asName);
    /* Its sshd and every session; and starts it again. */
    void STOP_CLIENT(const std::string& sName) { bSCRIPT({"stop", m_sDir, sName}); }
    void RESTART_CLIENT(const std::string& sName) { bSCRIPT({"start", m_sDir, sName}); }

    /* Replaces a stand-in's switches, KEY=VALUE each; none: back to normal. The
       server's own stand-ins are those of client "velkasrv". */
    void SWITCH(const std::string& sClient, const std::string& sProgram, const TEXTS& asSetting);
    /* What the stand-in prints in place of its own output, byte for byte. */
    void OUTPUT(const std::string& sClient, const std::string& sProgram, std::string_view svBytes)
    {
        WRITE_FILE(CLIENT_PATH(sClient, "state/" + sProgram + ".out"), svBytes);
    }

    /* A package on the server. */
    void PACKAGE(const std::string& sName, std::string_view svBytes = "package")
    {
        WRITE_FILE(sRW() + "work/packages/" + sName, svBytes);
    }
    /* Command lines that the client's programs got, in order; a word that is not
       plain stands between < and >. */
    TEXTS CLIENT_LOG(const std::string& sClient)
    {
        return asLINES(sREAD_FILE(CLIENT_PATH(sClient, "log/commands")));
    }
    /* A path below the client's directory, such as "velka/work/x". */
    std::string CLIENT_PATH(const std::string& sClient, const std::string& sPath)
    {
        return m_sDir + "/clients/" + sClient + "/" + sPath;
    }
    /* Processes that commands left running on the client, after up to iWaitMs. */
    int iCLIENT_PROCESSES(const std::string& sClient, int iWaitMs = 0)
    {
        return iCOUNT_PROCESSES("HOME=" + m_sDir + "/clients/" + sClient, iWaitMs);
    }

    /* ---- runs ---- */

    /* Runs the tool to its end; one that lasts longer than iLimitMs is killed and
       fails the test. environment is added to a bare one. */
    RUN CONFIG_CLIENT(const TEXTS& asArgument, const SETTINGS& environment = {},
                      int iLimitMs = 60000)
    {
        STARTED_RUN run = START(asArgument, environment);
        return WAIT(run, iLimitMs);
    }
    RUN CHECK(const std::string& sClient) { return CONFIG_CLIENT({"-c", sClient, "-C", "r"}); }
    STARTED_RUN START(const TEXTS& asArgument, const SETTINGS& environment = {});
    /* The same for any program, its path first. */
    STARTED_RUN START_COMMAND(const TEXTS& asCommand, const SETTINGS& environment = {});
    RUN         WAIT(STARTED_RUN& run, int iLimitMs = 60000);
    /* The process alone; and as a terminal does. */
    void KILL(const STARTED_RUN& run, int iSignal) { SEND(run.iPid, run.iPid, iSignal); }
    void KILL_GROUP(const STARTED_RUN& run, int iSignal) { SEND(run.iPid, -run.iPid, iSignal); }
    /* Processes of this test's runs that still live, after up to iWaitMs. */
    int iCHILDREN_LEFT(int iWaitMs = 0)
    {
        return iCOUNT_PROCESSES("VK_INI=" + m_sDir + "/vk.ini", iWaitMs);
    }

    /* ---- what they wrote ---- */

    std::string COLUMN(const std::string& sClient, const std::string& sColumn);  // "NULL" for null
    std::string SQL(const std::string& sStatement);   // first row; a failure fails the test
    TEXTS       ROWS(const std::string& sStatement);  // values joined by "|"
    void        DATABASE_GONE();                      // dropped under all connections
    TEXTS       STATEMENTS();                         // that the runs sent to the server, in order
    /* Process of the server that waits for a lock of this test, 0 none. */
    pid_t iWAITING_BACKEND()
    {
        return std::atoi(SQL("select max(pid) from pg_locks where not granted and database=(select "
                             "oid from pg_database where datname=current_database())")
                             .c_str());
    }
    /* Lines of the outcome log. */
    TEXTS OUTCOMES() { return asLINES(sALL_FILES(sRW() + "prot", ".jsonl")); }
    TEXTS PROTOCOL();  // texts of the day protocol, without time and process id
    /* Lines of the info output, "KIND text"; all trace files; the hosts file, which
       starts as "127.0.0.1   localhost". */
    TEXTS       INFO() { return asLINES(sALL_FILES(sRW() + "work/answ")); }
    std::string TRACE_TEXT() { return sALL_FILES(sRW() + "lgc"); }
    std::string HOSTS_FILE() { return sREAD_FILE(m_sDir + "/server/hosts"); }

    /* ---- configuration ---- */

    /* Sets a key of vk.ini; what stands last there counts. */
    void INI(const std::string& sSection, const std::string& sKey, const std::string& sValue);
    /* Directory of the sandbox; rw() is gv_rw. */
    const std::string& sDIR() const { return m_sDir; }
    std::string        m_sProgram = VK_PROGRAM;  // what runs start
    std::string        sRW() const { return m_sDir + "/server/rw/"; }

private:
    static void SEND(pid_t iPid, pid_t iTo, int iSignal)
    {
        if (iPid > 0) kill(iTo, iSignal);
    }
    void        PRINT_STATE();
    std::string sLITERAL(const std::string& sValue);

    std::string                       m_sDir;
    std::string                       m_sHost;      // socket directory of the server
    std::string                       m_sDatabase;  // name of this test's database
    size_t                            m_uServerLog = 0;
    int                               m_iRuns = 0;
    std::unique_ptr<PGconn, CLOSE_DB> m_pConn;
};
