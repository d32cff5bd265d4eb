/* One child of a run over many clients: what is kept and forwarded of its output,
   and when it has ended. */
#include "kernel/multi_client_child.h"

#include <gmock/gmock.h>

namespace {

using testing::EndsWith;
using testing::StartsWith;

/* What a command left after its end. */
struct ENDED {
    std::string sOut;
    std::string sForward;
    int         iStatus = -1;
    long        lMilliseconds = 0;
};

ENDED sctRUN(const char* cpCommand)
{
    ENDED        ended;
    CLIENT_CHILD child;
    const long   lStart = lNOW_MS();
    EXPECT_EQ(iCLIENT_START(&child, cpCommand), 1);
    while (!iCHILD_ENDED(child.child) && lNOW_MS() < lStart + 20000) {
        std::vector<WAIT_FD> fds;
        v_CLIENT_WAIT_FOR(&child, fds);
        iWAIT(fds, lStart + 20000);
        v_CLIENT_READ(&child, ended.sForward);
    }
    v_CLIENT_DRAIN(&child, ended.sForward);
    ended.sOut = child.sOut;
    ended.iStatus = child.child.iStatus;
    ended.lMilliseconds = lNOW_MS() - lStart;
    return ended;
}

TEST(MULTI_CLIENT_CHILD, standard_output_is_kept_and_error_lines_are_forwarded_whole)
{
    const ENDED ended =
        sctRUN("sh -c 'echo one; echo bad >&2; printf two; printf rest >&2; exit 5'");
    EXPECT_EQ(ended.sOut, "one\ntwo");
    EXPECT_EQ(ended.sForward, "bad\nrest\n");
    EXPECT_EQ(ended.iStatus, 5);
    EXPECT_EQ(sctRUN("sh -c 'kill -KILL $$'").iStatus, 128 + 9);
    EXPECT_NE(sctRUN("/nowhere/vk_config_client").iStatus, 0);
}

TEST(MULTI_CLIENT_CHILD, a_flood_keeps_the_last_lines_only_and_nothing_of_an_error_is_lost)
{
    const ENDED ended = sctRUN(
        "sh -c 'seq -f \"line %.0f\" 200000; seq 50000 >&2; echo STATUS=SUCCESS; "
        "head -c 300000 /dev/zero | tr \"\\0\" x >&2'");
    EXPECT_LE(ended.sOut.size(), 64U * 1024);
    EXPECT_GT(ended.sOut.size(), 60U * 1024);
    EXPECT_THAT(ended.sOut, StartsWith("line "));
    EXPECT_THAT(ended.sOut, EndsWith("line 200000\nSTATUS=SUCCESS\n"));
    EXPECT_THAT(ended.sForward, StartsWith("1\n2\n3\n"));
    EXPECT_EQ(ended.sForward.size(), 288894U + 300000 + 1);  // "1\n" to "50000\n", the x, "\n"
}

TEST(MULTI_CLIENT_CHILD, its_end_counts_though_something_holds_its_pipes_open)
{
    const ENDED ended = sctRUN("sh -c 'sleep 3 & echo done'");
    EXPECT_EQ(ended.sOut, "done\n");
    EXPECT_EQ(ended.iStatus, 0);
    EXPECT_LT(ended.lMilliseconds, 2500);
}

}  // namespace
