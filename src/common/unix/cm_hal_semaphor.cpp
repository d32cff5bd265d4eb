/* Semaphores: lock files held with flock.

   "-" unlinks the file while it still holds the lock, so that no file is left
   behind. Another process may have opened the file just before; it then locks a
   file that no longer has a name. Who locks therefore compares the locked file
   with the one under the name and starts again when they differ. */
#include "cm_hal_semaphor.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <string>

#include "../base/descriptor.h"
#include "../base/immortal.h"
#include "../config/variables.h"
#include "../lines/appending.h"
#include "../lines/standard_error.h"
#include "../text/text.h"
#include "cm_hal_pipe.h"

namespace {

constexpr int iOPEN_TRIES = 100;
// Who asks with "?" holds a shared lock for an instant.
constexpr int iLOCK_TRIES = 5;

enum TAKE { TAKE_HELD, TAKE_BUSY, TAKE_FAILED };

/* Locks held by this process, by file. flock tells two open files of one process
   apart like those of two, so it cannot say that the holder is ourselves. */
std::map<std::string, FD>& HELD()
{
    static IMMORTAL<std::map<std::string, FD>> held;
    static const int                           iOnce = (v_AFTER_FORK([] { HELD().clear(); }), 1);
    static_cast<void>(iOnce);
    return held.Get();
}

/* A caller may fill an array to its last byte. */
template<size_t N>
std::string sTEXT_OF(const char (&szText)[N])
{
    return {szText, strnlen(szText, N)};
}

std::string sSEMA_FILE(const sct_semaphore& sema)
{
    std::string sDirectory;
    iCONFIG_VARIABLE("gv_rw", sDirectory);
    return sDirectory + "sema/" + szFILE_NAME(sTEXT_OF(sema.szSema));
}

void TELL(sct_semaphore& sema, const char* cpVerb, const std::string& sFile)
{
    iTEXT_SET(sema.szMsg, sCANNOT(cpVerb, sFile));
}

FD fdOPEN_LOCK(const std::string& sFile, int iFlags)
{
    constexpr mode_t uMode = 0640;
    FD               fd(open(sFile.c_str(), iFlags | O_CLOEXEC | O_NOFOLLOW, uMode));
    if (fd.bOpen() || errno != ENOENT || (iFlags & O_CREAT) == 0) return fd;
    if (!iMAKE_DIRECTORY(sFile.substr(0, sFile.rfind('/')))) return fd;
    return FD(open(sFile.c_str(), iFlags | O_CLOEXEC | O_NOFOLLOW, uMode));
}

/* Takes the lock; fd holds it on TAKE_HELD. */
TAKE eTAKE(sct_semaphore& sema, const std::string& sFile, FD& fd)
{
    for (int iTry = 0; iTry < iOPEN_TRIES; iTry++) {
        fd = fdOPEN_LOCK(sFile, O_RDWR | O_CREAT);
        if (!fd.bOpen()) {
            TELL(sema, "make the lock file", sFile);
            return TAKE_FAILED;
        }
        if (!bLOCKED(fd.iGet(), iLOCK_TRIES)) {
            if (errno == EWOULDBLOCK) return TAKE_BUSY;
            TELL(sema, "lock", sFile);
            return TAKE_FAILED;
        }
        if (bSTILL_NAMED(fd.iGet(), sFile)) return TAKE_HELD;
    }
    return TAKE_BUSY;
}

/* For people who look: who holds it. Nothing depends on it. */
void SIGN(int iFd, const sct_semaphore& sema)
{
    const std::string sText = sTEXT_OF(sema.szCaller) + " " + std::to_string(getpid()) + "\n";
    if (ftruncate(iFd, 0) == 0 && pwrite(iFd, sText.data(), sText.size(), 0) < 0) errno = 0;
}

int iPLUS(sct_semaphore& sema, const std::string& sFile)
{
    if (HELD().contains(sFile)) return 1;
    FD         fd;
    const TAKE eTaken = eTAKE(sema, sFile, fd);
    if (eTaken != TAKE_HELD) return eTaken == TAKE_BUSY ? 0 : -1;
    SIGN(fd.iGet(), sema);
    sema.hSema = fd.iGet() + 1;  // never 0, which means none
    HELD().emplace(sFile, std::move(fd));
    return 1;
}

int iMINUS(sct_semaphore& sema, const std::string& sFile)
{
    const auto held = HELD().find(sFile);
    if (held == HELD().end()) return 0;
    if (unlink(sFile.c_str()) != 0) TELL(sema, "remove", sFile);
    HELD().erase(held);
    sema.hSema = 0;
    return 1;
}

/* A shared lock is enough to ask: two that ask at once do not see each other. */
int iASK(const std::string& sFile)
{
    if (HELD().contains(sFile)) return 0;
    const FD fd = fdOPEN_LOCK(sFile, O_RDONLY);
    return fd.bOpen() && flock(fd.iGet(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

}  // namespace

int i_SEMA(int iOperation, sct_semaphore* pSema)
{
    pSema->szMsg[0] = '\0';
    const std::string sFile = sSEMA_FILE(*pSema);
    switch (iOperation) {
        case '?':
            return iASK(sFile);
        case '+':
            return iPLUS(*pSema, sFile);
        case '-':
            return iMINUS(*pSema, sFile);
        default:
            return -1;
    }
}

/* Who takes the lock signs the file, and nobody else writes to it. */
long l_SEMA_TIME(const sct_semaphore* pSema)
{
    struct stat sctStat {};
    return stat(sSEMA_FILE(*pSema).c_str(), &sctStat) == 0 ? sctStat.st_mtime : 0;
}
