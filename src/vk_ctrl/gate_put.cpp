/* Files of an update. From the symbolic directory on, which the client's own
   configuration names, every folder is opened without following a link, and all work
   is done relative to the open folder.

   What comes from the server lies in one folder that nothing else uses, so that whoever
   has its key can neither read nor replace what programs of the client keep in the work
   directory, the update script's own folder least of all. */
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "common/base/descriptor.h"
#include "common/config/config.h"
#include "common/config/variables.h"
#include "common/lines/standard_error.h"
#include "common/text/text.h"
#include "common/unix/cm_hal_pipe.h"
#include "gate.h"

namespace {

constexpr const char* cpUPDATE_SCRIPT = "vk_execute_update";
constexpr const char* cpFROM_SERVER = "from_server";  // below gv_rw_work

/* What an update brings besides the package. */
constexpr std::string_view asvCLIENTS_OWN[] = {
    "gv_ro_bin:vk_execute_update", "gv_rw_work:qir-gpg.key", "gv_rw_work:qir-gpg-2026.key"};
constexpr size_t uBUFFER = size_t{256} * 1024;
constexpr int    iTRIES = 5;  // to get hold of a temporary name that others use too

/* A folder on the way to a file, in the one above it. */
struct ENTERED {
    FD          fdAbove;
    std::string sName;
};

/* Where a file belongs. */
struct TARGET {
    FD                   fdFolder;
    std::vector<ENTERED> entered;  // from the top down
    std::string          sName;
    std::string          sPart;     // its name until it is whole
    std::string          sRefused;  // why this is no place for a file of the server
    std::string          sFailed;   // what went wrong
};

int iREFUSED(TARGET& target, const char* cpCause)
{
    target.sRefused = cpCause;
    return 0;
}

int iFAILED(TARGET& target, const char* cpVerb)
{
    return iCANNOT(cpVerb, target.sName, target.sFailed);
}

bool bLINK(int iFolder, const std::string& sName)
{
    struct stat sctStat {};
    return fstatat(iFolder, sName.c_str(), &sctStat, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISLNK(sctStat.st_mode);
}

/* The folders and the name of a relative path. */
int iPARTS(std::string_view svPath, std::vector<std::string>& asPart)
{
    for (const std::string_view svPart : asvPIECES(svPath, '/')) {
        if (svPart == "..") return 0;
        if (!svPart.empty() && svPart != ".") asPart.emplace_back(svPart);
    }
    return !asPart.empty();
}

bool bANY()
{
    return sctCALLER().ePackages == PACKAGES_ANY;
}

bool bCLIENTS_OWN(const std::string& sPath)
{
    return !bANY() && std::find(std::begin(asvCLIENTS_OWN), std::end(asvCLIENTS_OWN), sPath) !=
                          std::end(asvCLIENTS_OWN);
}

/* Takes a symbolic path apart: a file of the server's folder; of any work directory, or the
   update script in gv_ro_bin, where the client takes any package. */
int iPLACE(const std::string& sPath, std::string& sDirectory, std::vector<std::string>& asPart,
           TARGET& target)
{
    const size_t      uColon = sPath.find(':');
    const std::string sKey = uColon == std::string::npos ? "" : sPath.substr(0, uColon);
    if (sKey != "gv_rw_work" && !(bANY() && sKey == "gv_ro_bin"))
        return iREFUSED(target, "a file outside the directories of updates");
    if (std::any_of(sPath.begin(), sPath.end(),
                    [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\177'; }))
        return iREFUSED(target, "a file name with control characters");
    if (sPath.back() == '/' || !iPARTS(std::string_view(sPath).substr(uColon + 1), asPart))
        return iREFUSED(target, "a path that names no file below its directory");
    if (sKey == "gv_ro_bin" && (asPart.size() != 1 || asPart[0] != cpUPDATE_SCRIPT))
        return iREFUSED(target, "a program other than the update script");
    iCONFIG_VARIABLE(sKey.c_str(), sDirectory);
    if (!bANY()) asPart.insert(asPart.begin(), cpFROM_SERVER);
    return 1;
}

/* Goes one folder down; bMake makes it where it is missing. */
int iENTER(TARGET& target, const std::string& sFolder, bool bMake)
{
    constexpr int iFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    const int     iFolder = target.fdFolder.iGet();
    if (bMake && mkdirat(iFolder, sFolder.c_str(), 0750) != 0 && errno != EEXIST)
        return iFAILED(target, "make the folder of");
    FD        fdNext(openat(iFolder, sFolder.c_str(), iFlags));
    const int iErrno = errno;
    if (!fdNext.bOpen() && bLINK(iFolder, sFolder))
        return iREFUSED(target, "a symbolic link among the folders of the file");
    errno = iErrno;
    if (!fdNext.bOpen()) return iFAILED(target, "reach");
    target.entered.push_back({std::move(target.fdFolder), sFolder});
    target.fdFolder = std::move(fdNext);
    return 1;
}

/* The folders that an update made for a path are no longer needed; the server's own stays. */
void v_REMOVE_EMPTY_FOLDERS(TARGET& target)
{
    for (; !target.entered.empty(); target.entered.pop_back()) {
        const ENTERED& last = target.entered.back();
        if (last.sName == cpFROM_SERVER && target.entered.size() == 1) return;
        if (unlinkat(last.fdAbove.iGet(), last.sName.c_str(), AT_REMOVEDIR) != 0) return;
    }
}

int iFIND(const std::string& sPath, bool bMake, TARGET& target)
{
    std::string              sDirectory;
    std::vector<std::string> asPart;
    if (!iPLACE(sPath, sDirectory, asPart, target)) return 0;
    target.sName = asPart.back();
    target.sPart = target.sName + ".part";
    asPart.pop_back();
    if (bMake) iMAKE_DIRECTORY(sDirectory);
    target.fdFolder = FD(open(sDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!target.fdFolder.bOpen()) return iFAILED(target, "open the folder of");
    for (const std::string& sFolder : asPart)
        if (!iENTER(target, sFolder, bMake)) return 0;
    if (bLINK(target.fdFolder.iGet(), target.sName) || bLINK(target.fdFolder.iGet(), target.sPart))
        return iREFUSED(target, "a symbolic link in the place of the file");
    return 1;
}

/* 1 when the descriptor is what the name stands for, and nothing else is. */
int iSTILL_ITS_NAME(int iFile, const TARGET& target)
{
    struct stat sctFile {};
    return fstat(iFile, &sctFile) == 0 && S_ISREG(sctFile.st_mode) && sctFile.st_nlink == 1 &&
           bSTILL_NAMED(iFile, target.sPart, target.fdFolder.iGet());
}

/* The temporary file, locked: what a copy that was killed left is taken over, what
   another copy is writing is not. */
FD fdTEMPORARY(TARGET& target)
{
    for (int iTry = 0; iTry < iTRIES; ++iTry) {
        FD fd(openat(target.fdFolder.iGet(), target.sPart.c_str(),
                     O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
        if (!fd.bOpen()) {
            iFAILED(target, "write");
            return fd;
        }
        if (flock(fd.iGet(), LOCK_EX | LOCK_NB) != 0) break;
        if (iSTILL_ITS_NAME(fd.iGet(), target)) return fd;
        unlinkat(target.fdFolder.iGet(), target.sPart.c_str(), 0);
    }
    target.sFailed = "cannot write \"" + target.sName + "\": another copy of it is under way";
    return FD();
}

/* The disk must have room for the whole before the first byte comes. */
int iROOM(long lSize, TARGET& target)
{
    struct statvfs sctDisk {};
    if (fstatvfs(target.fdFolder.iGet(), &sctDisk) != 0) return 1;
    // What is reserved for root is no room for a package.
    const double dFree =
        static_cast<double>(sctDisk.f_bavail) * static_cast<double>(sctDisk.f_frsize);
    if (static_cast<double>(lSize) <= dFree) return 1;
    char szHost[256] = "this client";
    gethostname(szHost, sizeof szHost - 1);
    return iREASON(target.sFailed, std::string("no space left on ") + szHost + ": " +
                                       std::to_string(lSize) + " bytes needed, " +
                                       std::to_string(static_cast<long>(dFree)) + " free");
}

/* Takes standard input to its end, which must come after exactly lSize bytes. */
int iTAKE(int iFile, long lSize, TARGET& target)
{
    const auto acBuf = std::make_unique<char[]>(uBUFFER);
    const int  iIdle = iCONFIG_IDLE_TIMEOUT();
    long       lTaken = 0;
    for (;;) {
        std::vector<WAIT_FD> fds{{STDIN_FILENO}};
        if (iWAIT(fds, lNOW_MS() + 1000L * iIdle) != WAIT_READY)
            return iREASON(target.sFailed, "no data for " + std::to_string(iIdle) + " seconds");
        const ssize_t iGot = lREAD(STDIN_FILENO, acBuf.get(), uBUFFER);
        if (iGot < 0 && errno == EAGAIN) continue;
        if (iGot < 0) return iFAILED(target, "take");
        lTaken += iGot;
        if (lTaken > lSize || (iGot == 0 && lTaken < lSize))
            return iREFUSED(target, lTaken > lSize ? "more bytes than announced"
                                                   : "fewer bytes than announced");
        if (iGot == 0) return 1;
        if (!iWRITE_ALL(iFile, {acBuf.get(), static_cast<size_t>(iGot)}))
            return iFAILED(target, "write");
    }
}

/* The file being taken, for a gate that a signal ends. */
const TARGET*& pCURRENT()
{
    static const TARGET* pTarget = nullptr;
    return pTarget;
}

struct UNDER_WAY {
    explicit UNDER_WAY(const TARGET& target)
    {
        pCURRENT() = &target;
        v_AT_END([] {
            if (pCURRENT() != nullptr)
                unlinkat(pCURRENT()->fdFolder.iGet(), pCURRENT()->sPart.c_str(), 0);
        });
    }
    UNDER_WAY(const UNDER_WAY&) = delete;
    UNDER_WAY& operator=(const UNDER_WAY&) = delete;
    ~UNDER_WAY() { pCURRENT() = nullptr; }
};

/* Result 1: the file is there, whole and under its name. */
int iTAKE_FILE(const REQUEST& request, TARGET& target)
{
    const int iFolder = target.fdFolder.iGet();
    const FD  fdPart = fdTEMPORARY(target);
    if (!fdPart.bOpen()) return 0;
    const UNDER_WAY underWay(target);
    int             iGood = iROOM(request.lSize, target);
    if (iGood && ftruncate(fdPart.iGet(), 0) != 0) iGood = iFAILED(target, "write");
    if (iGood) iGood = iTAKE(fdPart.iGet(), request.lSize, target);
    if (iGood && fchmod(fdPart.iGet(), request.uMode) != 0)
        iGood = iFAILED(target, "set the mode of");
    // A name that outlives a crash of the machine must not stand for half a file.
    if (iGood && fsync(fdPart.iGet()) != 0) iGood = iFAILED(target, "write");
    if (iGood && renameat(iFolder, target.sPart.c_str(), iFolder, target.sName.c_str()) != 0)
        iGood = iFAILED(target, "rename into");
    if (!iGood) unlinkat(iFolder, target.sPart.c_str(), 0);
    if (iGood) fsync(iFolder);
    return iGood;
}

int iTOLD(const REQUEST& request, const TARGET& target)
{
    if (target.sRefused.empty())
        iSAY(target.sFailed + "\n");
    else
        iREFUSE(target.sRefused);
    return iANSWER_END(request, 1);
}

}  // namespace

std::string sFROM_SERVER()
{
    std::string sWork;
    iCONFIG_VARIABLE("gv_rw_work", sWork);
    return sWork + cpFROM_SERVER;
}

int iGATE_PUT(const REQUEST& request)
{
    TARGET target;
    if (bCLIENTS_OWN(request.sPath)) {
        v_ANSWER_BEGIN(request);
        iSAY("kept: this client uses its own\n");
        return iANSWER_END(request, 0);
    }
    if (sctCALLER().ePackages == PACKAGES_NONE) {
        v_ANSWER_BEGIN(request);
        iSAY("this client takes no packages from the backup server\n");
        return iANSWER_END(request, 1);
    }
    const int iFound = iFIND(request.sPath, true, target);
    if (!target.sRefused.empty()) return iREFUSE(target.sRefused);
    syslog(LOG_INFO, "%s puts %s, %ld bytes", sctCALLER().sServer.c_str(), target.sName.c_str(),
           request.lSize);
    v_ANSWER_BEGIN(request);
    if (iFound && iTAKE_FILE(request, target)) return iANSWER_END(request, 0);
    v_REMOVE_EMPTY_FOLDERS(target);
    return iTOLD(request, target);
}

int iGATE_SIZE(const REQUEST& request)
{
    TARGET    target;
    const int iFound = iFIND(request.sPath, false, target);
    if (!target.sRefused.empty()) return iREFUSE(target.sRefused);
    v_ANSWER_BEGIN(request);
    struct stat sctStat {};
    if (iFound &&
        fstatat(target.fdFolder.iGet(), target.sName.c_str(), &sctStat, AT_SYMLINK_NOFOLLOW) != 0)
        iFAILED(target, "find");
    if (!target.sFailed.empty()) return iTOLD(request, target);
    iSAY(std::to_string(sctStat.st_size) + "\n");
    return iANSWER_END(request, 0);
}

int iGATE_REMOVE(const REQUEST& request, const std::string& sPath)
{
    TARGET    target;
    const int iFound = iFIND(sPath, false, target);
    if (!target.sRefused.empty()) return iREFUSE(target.sRefused);
    v_ANSWER_BEGIN(request);
    const bool bThere = iFound || errno != ENOENT;
    if (iFound && unlinkat(target.fdFolder.iGet(), target.sName.c_str(), 0) != 0 && errno != ENOENT)
        iFAILED(target, "remove");
    v_REMOVE_EMPTY_FOLDERS(target);
    if (!bThere) return iANSWER_END(request, 0);
    return target.sFailed.empty() ? iANSWER_END(request, 0) : iTOLD(request, target);
}
