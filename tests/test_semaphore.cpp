/* Semaphores between processes. */
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "common/lines/appending.h"
#include "common/text/text.h"
#include "common/unix/cm_hal_semaphor.h"
#include "scratch.h"

namespace {

sct_semaphore sctSEMA(const char* cpName)
{
    sct_semaphore sema{};
    iTEXT_SET(sema.szSema, cpName);
    iTEXT_SET(sema.szCaller, "tester");
    return sema;
}

/* Another process with a record of its own, forked before anything is held;
   it carries out one operation for each character that it is sent. */
class OTHER {
public:
    explicit OTHER(const char* cpName)
    {
        int aiSocket[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, aiSocket) != 0) return;
        m_iPid = fork();
        if (m_iPid == 0) SERVE(aiSocket[1], cpName);
        close(aiSocket[1]);
        m_fdAsk = FD(aiSocket[0]);
    }
    ~OTHER() { Kill(); }
    int iDo(char cOperation)
    {
        int iAnswer = -99;
        if (write(m_fdAsk.iGet(), &cOperation, 1) != 1) return iAnswer;
        return read(m_fdAsk.iGet(), &iAnswer, sizeof iAnswer) == sizeof iAnswer ? iAnswer : -98;
    }
    void Kill()
    {
        if (m_iPid <= 0) return;
        kill(m_iPid, SIGKILL);
        waitpid(m_iPid, nullptr, 0);
        m_iPid = -1;
    }

private:
    /* A program that goes on when its starter has gone. Result  its process id */
    static int iSTART_SLEEPER()
    {
        CHILD       child;
        std::string sReason;
        CHILD_SPEC  sctSpec;
        sctSpec.asArgument = {"sleep", "60"};
        sctSpec.bOutlives = true;
        return iCHILD_START(child, sctSpec, sReason) ? child.iPid : -1;
    }
    [[noreturn]] static void SERVE(int iSocket, const char* cpName)
    {
        alarm(60);
        sct_semaphore sema = sctSEMA(cpName);
        char          cOperation = 0;
        while (read(iSocket, &cOperation, 1) == 1) {
            const int iResult = cOperation == 'c' ? iSTART_SLEEPER() : i_SEMA(cOperation, &sema);
            if (write(iSocket, &iResult, sizeof iResult) < 0) break;
        }
        _exit(0);
    }

    pid_t m_iPid = -1;
    FD    m_fdAsk;
};

class SEMAPHORE : public SCRATCH {};

TEST_F(SEMAPHORE, is_held_by_one_process_and_seen_by_the_others)
{
    sct_semaphore     sema = sctSEMA("update_client_a/b");
    const std::string sFile = sPATH("gv_rw/sema/update_client_a_b");
    OTHER             other("update_client_a/b");
    EXPECT_EQ(i_SEMA('-', &sema), 0);
    EXPECT_EQ(i_SEMA('+', &sema), 1);
    EXPECT_EQ(i_SEMA('?', &sema), 0) << "another process was asked for";
    EXPECT_EQ(sREAD_FILE(sFile), "tester " + std::to_string(getpid()) + "\n");
    OTHER heir("update_client_a/b");  // forked while it is held
    for (OTHER* pOther : {&other, &heir})
        for (const char c : {'?', '+', '-'}) EXPECT_EQ(pOther->iDo(c), c == '?');
    EXPECT_EQ(i_SEMA('-', &sema), 1);
    EXPECT_EQ(other.iDo('?'), 0);
    EXPECT_FALSE(fs::exists(sFile));
}

TEST_F(SEMAPHORE, ends_with_its_process_and_is_taken_over)
{
    sct_semaphore sema = sctSEMA("job");
    OTHER         other("job");
    ASSERT_EQ(other.iDo('+'), 1);
    /* A program started meanwhile does not hold it on. */
    const pid_t iSleeper = other.iDo('c');
    ASSERT_GT(iSleeper, 0);
    other.Kill();
    EXPECT_EQ(kill(iSleeper, 0), 0);
    EXPECT_TRUE(fs::exists(sPATH("gv_rw/sema/job")));
    EXPECT_EQ(i_SEMA('?', &sema), 0);
    EXPECT_EQ(i_SEMA('+', &sema), 1);
    EXPECT_EQ(i_SEMA('-', &sema), 1);
    kill(iSleeper, SIGKILL);
}

TEST_F(SEMAPHORE, names_that_differ_only_in_their_middle_are_two)
{
    const std::string sLong = std::string(120, 'a') + "1" + std::string(130, 'b');
    std::string       sOther = sLong;
    sOther[120] = '2';
    for (const size_t uMax : {size_t{127}, size_t{40}}) {
        EXPECT_LE(sSHORT_NAME(sLong, uMax).size(), uMax);
        EXPECT_NE(sSHORT_NAME(sLong, uMax), sSHORT_NAME(sOther, uMax));
        EXPECT_EQ(sSHORT_NAME("short", uMax), "short");
    }
    EXPECT_NE(szFILE_NAME(sLong), szFILE_NAME(sOther));
    EXPECT_LE(szFILE_NAME(sLong).size(), 200U);
}

/* "-" removes the file that another may just have opened: no two may ever hold
   it, whatever the order. */
TEST_F(SEMAPHORE, is_never_held_twice_while_many_take_and_give)
{
    constexpr int iPROCESSES = 4;
    constexpr int iROUNDS = 300;
    const auto    sMarker = sPATH("inside");
    pid_t         aiPid[iPROCESSES];
    for (pid_t& iPid : aiPid) {
        iPid = fork();
        if (iPid != 0) continue;
        alarm(60);
        sct_semaphore sema = sctSEMA("crowd");
        for (int iGot = 0; iGot < iROUNDS;) {
            if (i_SEMA('+', &sema) != 1) continue;
            iGot++;
            if (mkdir(sMarker.c_str(), 0700) != 0) _exit(2);
            rmdir(sMarker.c_str());
            i_SEMA('-', &sema);
        }
        _exit(0);
    }
    for (const pid_t iPid : aiPid) {
        int iStatus = -1;
        waitpid(iPid, &iStatus, 0);
        EXPECT_TRUE(WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == 0) << "held twice, or stuck";
    }
}

TEST_F(SEMAPHORE, that_cannot_be_made_says_why)
{
    INI("gv_rw = /dev/null\n");
    sct_semaphore sema = sctSEMA("x");
    EXPECT_EQ(i_SEMA('+', &sema), -1);
    EXPECT_STREQ(sema.szMsg, "cannot make the lock file \"/dev/null/sema/x\": Not a directory");
    EXPECT_EQ(i_SEMA('?', &sema), 0);
    EXPECT_STREQ(sema.szMsg, "");
}

}  // namespace
