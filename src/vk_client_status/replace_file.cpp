/* Replacing a file. */
#include "replace_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/common.h"
#include "common/unix/cm_hal_pipe.h"

namespace {

/* What is renamed over a device, such as /dev/null, takes it away from the whole machine. */
bool bREPLACEABLE(const std::string& sFile)
{
    struct stat sctStat {};
    return !sFile.starts_with("/dev/") &&
           (stat(sFile.c_str(), &sctStat) != 0 || S_ISREG(sctStat.st_mode) ||
            S_ISDIR(sctStat.st_mode));  // the system refuses a folder
}

/* The new file, locked. What lies there is taken over only when it is a file of this user
   alone, so that nobody can have another file overwritten by a link. One that its writer has
   renamed meanwhile is no longer the new file. */
FD fdNEW(const std::string& sNew)
{
    constexpr mode_t uMode = 0644;  // what web servers and collectors read
    while (true) {
        FD fd(open(sNew.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, uMode));
        struct stat sctOpen {};
        struct stat sctThere {};
        if (!fd.bOpen() || fstat(fd.iGet(), &sctOpen) != 0) return FD();
        if (!S_ISREG(sctOpen.st_mode) || sctOpen.st_uid != geteuid()) {
            errno = EEXIST;
            return FD();
        }
        while (flock(fd.iGet(), LOCK_EX) != 0)
            if (errno != EINTR) return FD();
        if (lstat(sNew.c_str(), &sctThere) != 0 || sctThere.st_ino != sctOpen.st_ino) continue;
        if (sctThere.st_nlink != 1) {
            errno = EMLINK;
            return FD();
        }
        return ftruncate(fd.iGet(), 0) == 0 && fchmod(fd.iGet(), uMode) == 0 ? std::move(fd) : FD();
    }
}

}  // namespace

int iREPLACE_FILE(const std::string& sFile, const std::string& sText)
{
    if (!bREPLACEABLE(sFile)) {
        v_STDERR("cannot write \"%s\": it is not a regular file; name one that may be replaced",
                 sFile.c_str());
        return 0;
    }
    const std::string sNew = sFile + ".new";
    const FD          fd = fdNEW(sNew);
    if (fd.bOpen()) {
        if (iWRITE_ALL(fd.iGet(), sText) && fsync(fd.iGet()) == 0 &&
            rename(sNew.c_str(), sFile.c_str()) == 0)
            return 1;
        const int iErrno = errno;
        unlink(sNew.c_str());
        errno = iErrno;
    }
    v_STDERR("cannot write \"%s\": %s", sFile.c_str(), std::strerror(errno));
    return 0;
}
