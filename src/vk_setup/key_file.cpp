#include "key_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "common/base/descriptor.h"
#include "common/base/replace.h"
#include "common/lines/standard_error.h"

namespace {

constexpr long   lLOCK_MS = 10'000;
constexpr size_t uFILE_MAX = size_t{16} * 1024 * 1024;
constexpr mode_t uFILE_MODE = 0600;
constexpr mode_t uOTHERS_WRITE = 022;
constexpr int    iFOLDER_FLAGS = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

/* Nobody but root and the account itself owns a folder or may write into it. */
int iMEND(int iFolder, const std::string& sFolder, KEY_FILE& file, std::string& sReason)
{
    struct stat sctStat {};
    if (fstat(iFolder, &sctStat) != 0) return iCANNOT("read", sFolder, sReason);
    const mode_t uMode = sctStat.st_mode & 07777U;
    const bool   bOwner = sctStat.st_uid == 0 || sctStat.st_uid == geteuid();
    if (bOwner && (uMode & uOTHERS_WRITE) == 0) return 1;
    if ((!bOwner && fchown(iFolder, geteuid(), static_cast<gid_t>(-1)) != 0) ||
        fchmod(iFolder, uMode & ~uOTHERS_WRITE) != 0)
        return iCANNOT("set owner and mode of", sFolder, sReason);
    file.sMended += (file.sMended.empty() ? "" : ", ") + sFolder;
    return 1;
}

/* The folder of keys of one account, and its home. */
int iPRIVATE_FOLDER(const std::string& sFolder, KEY_FILE& file, std::string& sReason)
{
    FD& fd = file.fdFolder;
    if (mkdir(sFolder.c_str(), 0700) != 0 && errno != EEXIST)
        return iCANNOT("make", sFolder, sReason);
    fd = FD(open(sFolder.c_str(), iFOLDER_FLAGS | O_NOFOLLOW));
    if (!fd.bOpen() && (errno == ELOOP || errno == ENOTDIR))
        return iREASON(sReason, "\"" + sFolder + "\" is not a folder; name the file with --file");
    if (!fd.bOpen()) return iCANNOT("open", sFolder, sReason);
    const FD          fdHome(openat(fd.iGet(), "..", iFOLDER_FLAGS));
    const std::string sHome = sFolder.substr(0, sFolder.rfind('/'));
    if (!fdHome.bOpen()) return iCANNOT("open", sHome, sReason);
    return iMEND(fdHome.iGet(), sHome, file, sReason) && iMEND(fd.iGet(), sFolder, file, sReason);
}

int iLOCK(const KEY_FILE& file, std::string& sReason)
{
    const long lEnd = lNOW_MS() + lLOCK_MS;
    while (flock(file.fdFolder.iGet(), LOCK_EX | LOCK_NB) != 0) {
        if (lNOW_MS() > lEnd) return iCANNOT("lock the folder of", file.sPath, sReason);
        iSLEEP_MS(20);
    }
    return 1;
}

int iREAD_KEYS(KEY_FILE& file, std::string& sReason)
{
    const int iFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    const FD  fd(openat(file.fdFolder.iGet(), file.sName.c_str(), iFlags));
    if (!fd.bOpen() && errno == ENOENT) return 1;
    if (!fd.bOpen() && errno == ELOOP)
        return iREASON(
            sReason, "\"" + file.sPath + "\" is a symbolic link; name the file itself with --file");
    struct stat sctFile {};
    struct stat sctFolder {};
    if (!fd.bOpen() || fstat(fd.iGet(), &sctFile) != 0 ||
        fstat(file.fdFolder.iGet(), &sctFolder) != 0)
        return iCANNOT("read", file.sPath, sReason);
    if (!S_ISREG(sctFile.st_mode))
        return iREASON(sReason, "\"" + file.sPath + "\" is not a regular file");
    file.bThere = true;
    file.bRight = (sctFile.st_mode & 07777U) == uFILE_MODE && sctFile.st_uid == sctFolder.st_uid;
    return iREAD_ALL(fd.iGet(), file.sText, uFILE_MAX) || iCANNOT("read", file.sPath, sReason);
}

}  // namespace

int iKEY_FILE_OPEN(const std::string& sPath, bool bPrivateFolder, KEY_FILE& file,
                   std::string& sReason)
{
    const size_t      uName = sPath.rfind('/');
    const std::string sFolder = uName == std::string::npos ? "." : sPath.substr(0, uName + 1);
    file.sPath = sPath;
    file.sName = sPath.substr(uName == std::string::npos ? 0 : uName + 1);
    errno = EISDIR;
    if (file.sName.empty()) return iCANNOT("read", sPath, sReason);
    if (bPrivateFolder) {
        if (!iPRIVATE_FOLDER(sPath.substr(0, uName), file, sReason)) return 0;
    } else {
        file.fdFolder = FD(open(sFolder.c_str(), iFOLDER_FLAGS));
        if (!file.fdFolder.bOpen()) return iCANNOT("open", sFolder, sReason);
    }
    return iLOCK(file, sReason) && iREAD_KEYS(file, sReason);
}

int iKEY_FILE_REPLACE(const KEY_FILE& file, std::string_view svText, std::string& sReason)
{
    const int   iFolder = file.fdFolder.iGet();
    REPLACEMENT replacement{file.sName, "." + file.sName + ".vk_setup", uFILE_MODE, iFolder};
    struct stat sctFolder {};
    unlinkat(iFolder, replacement.sNew.c_str(), 0);  // an ended run's; the folder is locked
    if (fstat(iFolder, &sctFolder) != 0) return iCANNOT("write", file.sPath, sReason);
    replacement.uOwner = sctFolder.st_uid;
    replacement.uGroup = sctFolder.st_gid;
    if (!iREPLACE(replacement, svText)) return iCANNOT("write", file.sPath, sReason);
    fsync(iFolder);
    return 1;
}
