#include "handed.h"

#include <poll.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>

#include "../base/immortal.h"
#include "../unix/cm_hal_pipe.h"
#include "connect.h"
#include "connection.h"

namespace {

constexpr size_t uMOST = 1024;
constexpr long   lAT_ONCE_MS = 100;  // making one holds up the start of the others

struct HANDED {
    CONNECTION pConn;
    bool       bOut = false;  // a child has it
};

/* The parent's. A process that is forked off has a copy that it neither uses nor ends. */
struct ALL_HANDED {
    std::array<HANDED, uMOST> handed;
    bool*                     pIdle = nullptr;  // of each; shared with the children
    bool                      bGivenUp = false;
    bool                      bToEnd = false;  // their end is registered
};

ALL_HANDED& ALL()
{
    static LASTING<ALL_HANDED> all;
    return all.Get();
}

void END_ALL()
{
    for (HANDED& handed : ALL().handed) handed.pConn.reset();
}

bool bPLAIN(PGconn* pConn)
{
    return pConn != nullptr && !PQsslInUse(pConn) && !PQgssEncInUse(pConn);
}

/* Nothing has come since its last statement, not even its end. */
bool bSILENT(const PGconn* pConn)
{
    pollfd sctPoll{PQsocket(pConn), POLLIN, 0};
    return poll(&sctPoll, 1, 0) == 0;
}

CONNECTION pMADE()
{
    const long lStart = lNOW_MS();
    DB_ERROR   error;
    CONNECTION pConn = pDB_CONNECT_ONCE(error);
    if (lNOW_MS() - lStart > lAT_ONCE_MS) ALL().bGivenUp = true;
    if (!bPLAIN(pConn.get()) || !asDB_SETTINGS_LEFT(pConn.get()).empty()) {
        ALL().bGivenUp = true;
        return nullptr;
    }
    v_DB_SET_UP(pConn.get());
    return pConn;
}

bool bREADY()
{
    ALL_HANDED& all = ALL();
    if (all.pIdle == nullptr && bPLAIN(pDB_HERE())) {
        void* pShared =
            mmap(nullptr, uMOST, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (pShared != MAP_FAILED) all.pIdle = static_cast<bool*>(pShared);
    }
    if (!all.bToEnd) v_AT_END(END_ALL);
    all.bToEnd = true;
    return all.pIdle != nullptr;
}

}  // namespace

int iDB_HAND_OUT()
{
    ALL_HANDED& all = ALL();
    if (!bREADY()) return -1;
    const auto it = std::find_if(all.handed.begin(), all.handed.end(),
                                 [](const HANDED& handed) { return !handed.bOut; });
    if (it == all.handed.end()) return -1;
    if (it->pConn && !bSILENT(it->pConn.get())) it->pConn.reset();
    if (!it->pConn && !all.bGivenUp) it->pConn = pMADE();
    if (!it->pConn) return -1;
    it->bOut = true;
    const auto iHanded = static_cast<int>(it - all.handed.begin());
    all.pIdle[iHanded] = false;
    return iHanded;
}

int iDB_HANDED_FD(int iHanded)
{
    return iHanded < 0 ? -1 : PQsocket(ALL().handed[static_cast<size_t>(iHanded)].pConn.get());
}

void v_DB_TAKE_HANDED(int iHanded)
{
    if (iHanded < 0) return;
    v_DB_MASK_PASSWORD();
    v_DB_BORROW(ALL().handed[static_cast<size_t>(iHanded)].pConn.get(), &ALL().pIdle[iHanded]);
}

void v_DB_HAND_BACK(int iHanded, bool bMore)
{
    if (iHanded < 0) return;
    HANDED& handed = ALL().handed[static_cast<size_t>(iHanded)];
    handed.bOut = false;
    if (!ALL().pIdle[iHanded] || !bMore) handed.pConn.reset();
}
