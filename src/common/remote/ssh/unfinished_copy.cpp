/* Copies that a run could not bring to an end. */
#include "unfinished_copy.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "../../base/descriptor.h"
#include "../../config/variables.h"
#include "../../lines/appending.h"

namespace {

constexpr size_t uPATH_MAX = 65536;

std::string sNOTE_FILE(const std::string& sHost)
{
    std::string sDirectory;
    iCONFIG_VARIABLE("gv_rw", sDirectory);
    return sDirectory + "copies/" + szFILE_NAME(sHost);
}

bool bLOCK(COPY_NOTE& note)
{
    if (note.fdLock.bOpen() && flock(note.fdLock.iGet(), LOCK_EX | LOCK_NB) == 0) return true;
    note.fdLock.Close();
    return false;
}

}  // namespace

COPY_NOTE sctNOTE_COPY(const std::string& sHost, const std::string& sPart)
{
    COPY_NOTE note{sNOTE_FILE(sHost), FD()};
    note.fdLock = FD(iOPEN_APPEND(note.sFile));
    if (!bLOCK(note) || ftruncate(note.fdLock.iGet(), 0) != 0 ||
        !iWRITE_ALL(note.fdLock.iGet(), sPart))
        note.fdLock.Close();
    return note;
}

void v_COPY_ENDED(COPY_NOTE& note)
{
    if (note.fdLock.bOpen()) unlink(note.sFile.c_str());
    note.fdLock.Close();
}

bool bCOPY_NOTED(const std::string& sHost)
{
    return access(sNOTE_FILE(sHost).c_str(), F_OK) == 0;
}

std::string sUNFINISHED(const std::string& sHost, COPY_NOTE& note)
{
    note.sFile = sNOTE_FILE(sHost);
    note.fdLock = FD(open(note.sFile.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!bLOCK(note)) return {};
    std::string sPart;
    FD          fdRead(open(note.sFile.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    uREAD_NOW(fdRead, sPart, uPATH_MAX);
    return sPart.ends_with(".part") ? sPart : std::string();
}
