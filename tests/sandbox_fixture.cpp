/* The fixture of sandbox_fixture.h, in this order: files, processes, the shared
   database server, clients, runs, what they wrote. */
#include "sandbox_fixture.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <regex>
#include <set>
#include <sstream>

#include "common/config/config.h"
#include "common/text/command_line.h"

TEXTS operator+(TEXTS asFirst, const TEXTS& asMore)
{
    asFirst.insert(asFirst.end(), asMore.begin(), asMore.end());
    return asFirst;
}

std::string sREAD_FILE(const std::string& sPath)
{
    std::ifstream     file{sPath, std::ios::binary};
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

void WRITE_FILE(const std::string& sPath, std::string_view svBytes)
{
    std::ofstream file{sPath, std::ios::binary | std::ios::trunc};
    file.write(svBytes.data(), static_cast<std::streamsize>(svBytes.size()));
    ASSERT_TRUE(file.flush()) << "cannot write " << sPath;
}

void WRITE_PROGRAM(const std::string& sPath, std::string_view svScript)
{
    unlink(sPath.c_str());
    WRITE_FILE(sPath, "#!/bin/sh\n" + std::string(svScript) + "\n");
    ASSERT_EQ(chmod(sPath.c_str(), 0755), 0);
}

mode_t iMODE(const std::string& sPath)
{
    struct stat sctStat {};
    EXPECT_EQ(stat(sPath.c_str(), &sctStat), 0) << sPath;
    return sctStat.st_mode & 07777U;
}

std::string sTEMP_DIR()
{
    char szDir[] = "/tmp/vk-test.XXXXXX";
    return mkdtemp(szDir) ? szDir : "";
}

FD fdLISTENER(const std::string& sPath)
{
    sockaddr_un sctAddress{};
    sctAddress.sun_family = AF_UNIX;
    sPath.copy(sctAddress.sun_path, sizeof sctAddress.sun_path - 1);
    FD fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(bind(fd.iGet(), reinterpret_cast<sockaddr*>(&sctAddress), sizeof sctAddress), 0);
    EXPECT_EQ(listen(fd.iGet(), 8), 0);
    return fd;
}

TEXTS asLINES(const std::string& sText)
{
    TEXTS             asLine;
    std::stringstream text{sText};
    for (std::string sLine; std::getline(text, sLine);) asLine.push_back(sLine);
    return asLine;
}

std::string sALL_FILES(const std::string& sFolder, std::string_view svEnd)
{
    std::set<std::string> paths;
    std::error_code       error;
    for (const auto& entry : fs::recursive_directory_iterator{sFolder, error})
        if (entry.is_regular_file() && entry.path().native().ends_with(svEnd))
            paths.insert(entry.path());
    std::string sText;
    for (const std::string& sPath : paths) sText += sREAD_FILE(sPath);
    return sText;
}

TEXTS asFILES_NAMED(const std::string& sFolder, std::string_view svPart)
{
    TEXTS asFound;
    for (const auto& entry : fs::recursive_directory_iterator{sFolder})
        if (entry.path().filename().native().find(svPart) != std::string::npos)
            asFound.push_back(entry.path());
    return asFound;
}

namespace {

/* Starts a program with exactly this environment; its output goes to the files. */
pid_t iSPAWN(const TEXTS& asCommand, const SETTINGS& environment, const std::string& sOutFile,
             const std::string& sErrFile)
{
    TEXTS asVariable;
    for (const auto& [sName, sValue] : environment) asVariable.push_back(sName + "=" + sValue);
    std::vector<char*> apArgument, apVariable;
    for (const std::string& s : asCommand) apArgument.push_back(const_cast<char*>(s.c_str()));
    for (const std::string& s : asVariable) apVariable.push_back(const_cast<char*>(s.c_str()));
    apArgument.push_back(nullptr);
    apVariable.push_back(nullptr);
    const pid_t iPid = fork();
    if (iPid != 0) return iPid;
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // with a test that is killed
    setpgid(0, 0);
    const int iIn = open("/dev/null", O_RDONLY);
    const int iOut = open(sOutFile.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    const int iErr = open(sErrFile.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    if (dup2(iIn, 0) < 0 || dup2(iOut, 1) < 0 || dup2(iErr, 2) < 0) _exit(126);
    for (const int iFd : {iIn, iOut, iErr})
        if (iFd > 2) close(iFd);
    execvpe(apArgument[0], apArgument.data(), apVariable.data());
    _exit(127);
}

/* Whether it ended within the limit (*pStatus as of waitpid). */
bool bENDS(pid_t iPid, int iLimitMs, int* pStatus)
{
    return bWAIT_UNTIL(iLimitMs, [&] { return waitpid(iPid, pStatus, WNOHANG) == iPid; });
}

}  // namespace

std::string sSTATUS(int iExit, const std::string& sMessage)
{
    return std::string("STATUS=") + (iExit ? "ERROR" : "SUCCESS") + " MSG=\"" + sMessage + "\"\n";
}

void EXPECT_ENDED(const RUN& run, int iExit, const std::string& sMessage)
{
    EXPECT_EQ(run.iExit, iExit);
    EXPECT_EQ(run.sOut, sSTATUS(iExit, sMessage));
}

std::string sSUMMARY(int iOk, int iFailed)
{
    return std::string("STATUS=") + (iFailed ? "ERROR" : "SUCCESS") + " MSG=Checked " +
           std::to_string(iOk + iFailed) + " clients: " + std::to_string(iOk) + " OK and " +
           std::to_string(iFailed) + " failed.";
}

bool bSCRIPT(const TEXTS& asArgument)
{
    const std::string sLog = "/tmp/vk-test-" + std::to_string(getpid()) + ".log";
    const char*       cpPath = getenv("PATH");
    const char*       cpHome = getenv("HOME");
    const pid_t       iPid = iSPAWN(TEXTS{VK_SANDBOX_SCRIPT} + asArgument,
                                    {{"PATH", cpPath ? cpPath : "/usr/bin:/bin"},
                                     {"HOME", cpHome ? cpHome : "/"},
                                     {"VK_BIN", fs::path{VK_PROGRAM}.parent_path().string()}},
                                    sLog, sLog);
    int               iStatus = -1;
    const bool        bGood = bENDS(iPid, 60000, &iStatus) && iStatus == 0;
    if (!bGood) ADD_FAILURE() << "sandbox " << asArgument[0] << ": " << sREAD_FILE(sLog);
    unlink(sLog.c_str());
    return bGood;
}

RUN sctSHELL(const std::string& sLine)
{
    RUN         run;
    FILE* const pPipe = popen(sLine.c_str(), "re");
    for (int c = 0; pPipe != nullptr && (c = fgetc(pPipe)) != EOF;)
        run.sOut += static_cast<char>(c);
    const int iStatus = pPipe != nullptr ? pclose(pPipe) : -1;
    run.iExit = WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -1;
    return run;
}

namespace {

/* The database server that this process uses: ctest's, else one of its own. */
struct CLUSTER {
    std::string sDir;
    pid_t       iOwner = -1;  // a forked process has none of its own

    CLUSTER()
    {
        const char* cpShared = getenv("VK_TEST_CLUSTER");
        sDir = cpShared ? cpShared : "";
        if (!sDir.empty() && fs::exists(sDir + "/cluster")) return;
        sDir = sTEMP_DIR();
        iOwner = getpid();
        bSCRIPT({"cluster", sDir, "--parent", std::to_string(getpid())});
    }
    ~CLUSTER()
    {
        if (iOwner == getpid()) bSCRIPT({"down", sDir});
    }
};

const std::string& sCLUSTER()
{
    static const CLUSTER sctCluster;
    return sctCluster.sDir;
}

std::string sSERVER_LOG()
{
    return sCLUSTER() + "/services/postgres/log";
}

TEXTS asPROCESSES_WITH(const std::string& sVariable)
{
    TEXTS           asFound;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator{"/proc", error}) {
        const std::string sPid = entry.path().filename();
        if (sPid.find_first_not_of("0123456789") != std::string::npos) continue;
        const std::string sAll = '\0' + sREAD_FILE(entry.path() / "environ");
        if (sAll.find('\0' + sVariable + '\0') == std::string::npos) continue;
        std::string sCommand = sREAD_FILE(entry.path() / "cmdline");
        if (sCommand.empty()) continue;  // a zombie
        std::replace(sCommand.begin(), sCommand.end(), '\0', ' ');
        asFound.push_back(sPid + " " + sCommand);
    }
    return asFound;
}

}  // namespace

int iCOUNT_PROCESSES(const std::string& sVariable, int iWaitMs)
{
    TEXTS asLeft;
    bWAIT_UNTIL(iWaitMs, [&] { return (asLeft = asPROCESSES_WITH(sVariable)).empty(); });
    for (const std::string& s : asLeft) std::cerr << "still there: " << s << "\n";
    return static_cast<int>(asLeft.size());
}

STARTED_RUN& STARTED_RUN::operator=(STARTED_RUN&& other) noexcept
{
    std::swap(iPid, other.iPid);
    std::swap(lStarted, other.lStarted);
    std::swap(sOutFile, other.sOutFile);
    std::swap(sErrFile, other.sErrFile);
    return *this;
}

STARTED_RUN::~STARTED_RUN()
{
    if (iPid <= 0) return;
    kill(-iPid, SIGKILL);
    waitpid(iPid, nullptr, 0);
}

/* ---- the sandbox of one test ------------------------------------------- */

void SANDBOX::SetUp()
{
    m_sDir = sTEMP_DIR();
    ASSERT_FALSE(m_sDir.empty());
    ASSERT_TRUE(bSCRIPT(
        {"up", m_sDir, "--cluster", sCLUSTER(), "--parent", std::to_string(getpid()), "--quick"}));
    for (const std::string& sLine : asLINES(sREAD_FILE(m_sDir + "/vk.ini"))) {
        const std::string sKey = "conninfo = ";
        if (!sLine.starts_with(sKey)) continue;
        m_pConn.reset(PQconnectdb((sLine.substr(sKey.size()) + " application_name=test").c_str()));
    }
    ASSERT_EQ(PQstatus(m_pConn.get()), CONNECTION_OK) << PQerrorMessage(m_pConn.get());
    m_sHost = PQhost(m_pConn.get());
    m_sDatabase = PQdb(m_pConn.get());
    // Of the log that all tests share, only what comes from here on is looked at.
    m_uServerLog = fs::file_size(sSERVER_LOG());
    setenv("VK_INI", (m_sDir + "/vk.ini").c_str(), 1);
    v_CONFIG_FORGET();
}

void SANDBOX::TearDown()
{
    if (HasFailure()) PRINT_STATE();
    unsetenv("VK_INI");
    v_CONFIG_FORGET();
    m_pConn.reset();
    if (!m_sDir.empty()) bSCRIPT({"down", m_sDir});
}

void SANDBOX::PRINT_STATE()
{
    for (int i = 1; i <= m_iRuns; i++) {
        const std::string sRun = m_sDir + "/run" + std::to_string(i);
        std::cerr << "---- run " << i << ", standard output\n"
                  << sREAD_FILE(sRun + ".out") << "---- standard error\n"
                  << sREAD_FILE(sRun + ".err");
    }
    std::cerr << "---- trace\n"
              << TRACE_TEXT() << "---- day protocol\n"
              << sALL_FILES(sRW() + "prot") << "---- database server\n";
    for (const std::string& sLine : asLINES(sREAD_FILE(sSERVER_LOG()).substr(m_uServerLog)))
        if (sLine.find(m_sDatabase) != std::string::npos) std::cerr << sLine << "\n";
    for (const auto& entry : fs::directory_iterator{m_sDir + "/services"})
        std::cerr << "---- sshd of " << entry.path().filename() << "\n"
                  << sREAD_FILE(entry.path() / "log");
}

/* ---- clients ------------------------------------------------------------ */

std::string SANDBOX::sLITERAL(const std::string& sValue)
{
    const std::unique_ptr<char, decltype(&PQfreemem)> szText{
        PQescapeLiteral(m_pConn.get(), sValue.c_str(), sValue.size()), PQfreemem};
    return szText ? szText.get() : "NULL";
}

void SANDBOX::ADD_CLIENT(const std::string& sName, const std::string& sMode, const std::string& sOs,
                         const SETTINGS& columns)
{
    SETTINGS all = columns;
    all.insert(
        {{"name", sName}, {"os", sOs}, {"accessmode", sMode}, {"location", "0"}, {"exec", "1"}});
    std::string sColumns, sValues;
    for (const auto& [sColumn, sValue] : all) {
        sColumns += "," + sColumn;
        sValues += "," + sLITERAL(sValue);
    }
    SQL("insert into clients (client_id" + sColumns + ") select max(client_id)+1" + sValues +
        " from clients");
    // Only plain names reach the script; others are rows without a machine.
    if (sName.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789.-_") == std::string::npos &&
        sName[0] != '-' && sMode != "VIRTUAL")
        START_CLIENTS({sName});
}

void SANDBOX::START_CLIENTS(const TEXTS& asName)
{
    ASSERT_TRUE(bSCRIPT(TEXTS{"add", m_sDir} + asName));
}

void SANDBOX::SWITCH(const std::string& sClient, const std::string& sProgram,
                     const TEXTS& asSetting)
{
    std::string sText;
    for (const std::string& sSetting : asSetting) {
        const size_t uEqual = sSetting.find('=');
        ASSERT_NE(uEqual, std::string::npos) << sSetting;
        sText += sSetting.substr(0, uEqual + 1) +
                 sSHELL_WORD(SHELL_POSIX, sSetting.substr(uEqual + 1)) + "\n";
    }
    WRITE_FILE(CLIENT_PATH(sClient, "state/" + sProgram), sText);
}

/* ---- runs --------------------------------------------------------------- */

STARTED_RUN SANDBOX::START(const TEXTS& asArgument, const SETTINGS& environment)
{
    return START_COMMAND(TEXTS{m_sProgram} + asArgument, environment);
}

STARTED_RUN SANDBOX::START_COMMAND(const TEXTS& asCommand, const SETTINGS& environment)
{
    SETTINGS all{{"PATH", fs::path{VK_PROGRAM}.parent_path().string() + ":" + m_sDir +
                              "/server/velka/bin:/usr/bin:/bin"},
                 {"HOME", m_sDir + "/server"},
                 {"TMPDIR", m_sDir},  // what a killed run leaves goes with the sandbox
                 {"VK_INI", m_sDir + "/vk.ini"},
                 {"LC_ALL", "C"}};
    for (const char* cpName : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "TZ"})
        if (const char* cpValue = getenv(cpName)) all[cpName] = cpValue;
    for (const auto& [sName, sValue] : environment) all[sName] = sValue;
    const std::string sRun = m_sDir + "/run" + std::to_string(++m_iRuns);
    STARTED_RUN       run;
    run.lStarted = lNOW_MS();
    run.sOutFile = sRun + ".out";
    run.sErrFile = sRun + ".err";
    run.iPid = iSPAWN(asCommand, all, run.sOutFile, run.sErrFile);
    return run;
}

RUN SANDBOX::WAIT(STARTED_RUN& run, int iLimitMs)
{
    RUN result;
    int iStatus = 0;
    if (run.iPid <= 0 || !bENDS(run.iPid, iLimitMs, &iStatus)) {
        ADD_FAILURE() << "no run, or one that lasts longer than " << iLimitMs << " ms";
        const STARTED_RUN ended = std::move(run);
        result.iSignal = SIGKILL;
        return result;
    }
    run.iPid = -1;
    if (WIFEXITED(iStatus)) result.iExit = WEXITSTATUS(iStatus);
    if (WIFSIGNALED(iStatus)) result.iSignal = WTERMSIG(iStatus);
    result.iMilliseconds = lNOW_MS() - run.lStarted;
    result.sOut = sREAD_FILE(run.sOutFile);
    result.sErr = sREAD_FILE(run.sErrFile);
    return result;
}

/* ---- what they wrote ---------------------------------------------------- */

std::string SANDBOX::COLUMN(const std::string& sClient, const std::string& sColumn)
{
    const TEXTS asRow = ROWS("select " + sColumn + " from clients where name=" + sLITERAL(sClient));
    if (asRow.size() != 1) ADD_FAILURE() << asRow.size() << " rows of client " << sClient;
    return asRow.empty() ? "" : asRow[0];
}

std::string SANDBOX::SQL(const std::string& sStatement)
{
    const TEXTS asRow = ROWS(sStatement);
    return asRow.empty() ? "" : asRow[0];
}

TEXTS SANDBOX::ROWS(const std::string& sStatement)
{
    const std::unique_ptr<PGresult, void (*)(PGresult*)> pRes{
        PQexec(m_pConn.get(), sStatement.c_str()), PQclear};
    const ExecStatusType eStatus = PQresultStatus(pRes.get());
    if (eStatus != PGRES_TUPLES_OK && eStatus != PGRES_COMMAND_OK)
        ADD_FAILURE() << sStatement << ": " << PQerrorMessage(m_pConn.get());
    TEXTS asRow;
    for (int iRow = 0; iRow < PQntuples(pRes.get()); iRow++) {
        std::string sRow;
        for (int i = 0; i < PQnfields(pRes.get()); i++) {
            if (i) sRow += "|";
            sRow += PQgetisnull(pRes.get(), iRow, i) ? "NULL" : PQgetvalue(pRes.get(), iRow, i);
        }
        asRow.push_back(sRow);
    }
    return asRow;
}

void SANDBOX::DATABASE_GONE()
{
    const std::string sConn = "host=" + m_sHost + " user=velka dbname=postgres";
    const std::unique_ptr<PGconn, CLOSE_DB> pConn{PQconnectdb(sConn.c_str())};
    const std::string sText = "drop database " + m_sDatabase + " with (force)";
    PQclear(PQexec(pConn.get(), sText.c_str()));
    EXPECT_STREQ(PQerrorMessage(pConn.get()), "");
}

TEXTS SANDBOX::STATEMENTS()
{
    TEXTS             asStatement;
    const std::string sMark = "execute <unnamed>: ";
    for (const std::string& sLine : asLINES(sREAD_FILE(sSERVER_LOG()).substr(m_uServerLog))) {
        const size_t uAt = sLine.find(sMark);
        if (uAt == std::string::npos || sLine.find(" " + m_sDatabase + " ") > uAt ||
            sLine.find(" " + m_sDatabase + " test ") < uAt)
            continue;
        asStatement.push_back(sLine.substr(uAt + sMark.size()));
    }
    return asStatement;
}

TEXTS SANDBOX::PROTOCOL()
{
    TEXTS asText = asLINES(sALL_FILES(sRW() + "prot", ".prt"));
    for (std::string& sLine : asText) {
        std::smatch found;  // date, time and process id, and what stands behind them
        EXPECT_TRUE(std::regex_match(sLine, found, std::regex("[^ ]+ [^ ]+ [0-9]+ (.*)"))) << sLine;
        sLine = std::string(found[1]);
    }
    return asText;
}

/* ---- configuration ------------------------------------------------------ */

void SANDBOX::INI(const std::string& sSection, const std::string& sKey, const std::string& sValue)
{
    const std::string sFile = m_sDir + "/vk.ini";
    WRITE_FILE(sFile, sREAD_FILE(sFile) + "[" + sSection + "]\n" + sKey + " = " + sValue + "\n");
}
