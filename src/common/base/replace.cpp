/* Replacing a file. */
#include "replace.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "descriptor.h"
#include "holder.h"

namespace {

constexpr int iLOCK_TRIES = 2500;  // of 2 ms; whoever writes it is soon done

/* The new file, locked. What lies there is taken over only when it is a file of this user
   alone, so that nobody can have another file overwritten by a link. One that its writer has
   renamed meanwhile is no longer the new file. */
FD fdNEW(const REPLACEMENT& file)
{
    constexpr int iFlags = O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    while (true) {
        FD          fd(openat(file.iFolder, file.sNew.c_str(), iFlags, 0600));
        struct stat sctOpen {};
        if (!fd.bOpen() || fstat(fd.iGet(), &sctOpen) != 0) return FD();
        if (!S_ISREG(sctOpen.st_mode) || sctOpen.st_uid != geteuid() || sctOpen.st_nlink > 1) {
            errno = sctOpen.st_nlink > 1 ? EMLINK : EEXIST;
            return FD();
        }
        if (!bLOCKED(fd.iGet(), iLOCK_TRIES)) return FD();
        if (!bSTILL_NAMED(fd.iGet(), file.sNew, file.iFolder)) continue;
        return ftruncate(fd.iGet(), 0) == 0 ? std::move(fd) : FD();
    }
}

}  // namespace

int iREPLACE(const REPLACEMENT& file, std::string_view svText)
{
    const FD   fd = fdNEW(file);
    const bool bOwner = file.uOwner != static_cast<uid_t>(-1);
    if (!fd.bOpen()) return 0;
    if ((!bOwner || fchown(fd.iGet(), file.uOwner, file.uGroup) == 0) &&
        fchmod(fd.iGet(), file.uMode) == 0 && iWRITE_ALL(fd.iGet(), svText) &&
        fsync(fd.iGet()) == 0 &&
        renameat(file.iFolder, file.sNew.c_str(), file.iFolder, file.sFile.c_str()) == 0)
        return 1;
    const int iErrno = errno;
    unlinkat(file.iFolder, file.sNew.c_str(), 0);
    errno = iErrno;
    return 0;
}
