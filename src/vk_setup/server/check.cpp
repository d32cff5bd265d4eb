/* The check: everything that a check of a client needs, one line each. */
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "../programs.h"
#include "common/base/holder.h"
#include "common/common.h"
#include "common/config/config.h"
#include "common/remote/reach.h"
#include "files.h"
#include "setup.h"
#include "steps.h"

namespace {

constexpr size_t uWORDS_MAX = size_t{1} << 20;

/* Reads the configuration and takes what the library says of it, a line each. */
std::string sCONFIG_WORDS()
{
    std::string sWords;
    const FD    fdWords(memfd_create("words", MFD_CLOEXEC));
    const FD    fdOwn(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3));
    if (!fdWords.bOpen() || !fdOwn.bOpen() || dup2(fdWords.iGet(), STDERR_FILENO) < 0) return "";
    iCONFIG_VALID();
    dup2(fdOwn.iGet(), STDERR_FILENO);
    lseek(fdWords.iGet(), 0, SEEK_SET);
    iREAD_ALL(fdWords.iGet(), sWords, uWORDS_MAX);
    return sWords;
}

/* Lines of the file that are not used as they stand: "FILE:LINE: what is wrong". The
   command makes a comment of the line, so that the default holds. */
int iCHECK_WORDS(const std::string& sFile, const std::string& sWords)
{
    const std::string sMark = sFile + ":";
    int               iFound = 0;
    for (size_t u = sWords.find(sMark); u != sWords.npos; u = sWords.find(sMark, u + 1)) {
        char*      cpEnd = nullptr;
        const long lLine = std::strtol(sWords.c_str() + u + sMark.size(), &cpEnd, 10);
        if (lLine <= 0 || *cpEnd != ':') continue;
        const size_t uText = static_cast<size_t>(cpEnd - sWords.c_str()) + 1;
        v_WRONG("configuration " + sMark + std::to_string(lLine),
                sWords.substr(uText + 1, sWords.find('\n', uText) - uText - 1),
                sTYPED({"sed", "-i", std::to_string(lLine) + "s/^/; /", sFile}));
        iFound++;
    }
    return iFound;
}

/* What whoever steals the key of this server can do, for those who choose a mode. */
void TELL_REACH()
{
    std::printf("a stolen key of this server could, on a client of mode\n");
    for (const REACH& reach : asctREACH) std::printf("  %-22s %s\n", reach.cpWay, reach.cpReach);
}

/* Result 0: the file cannot be used, and what follows would look at other places. */
int iCHECK_CONFIGURATION()
{
    const std::string sFile = sCONFIG_PLACE();
    const std::string sWhat = "configuration " + sFile;
    std::string       sText;
    struct stat       sctStat {};
    if (stat(sFile.c_str(), &sctStat) != 0) {
        // Without VK_INI a missing file means the defaults.
        if (errno == ENOENT && std::getenv("VK_INI") == nullptr)
            v_GOOD(sWhat + ": none, the defaults hold");
        else
            v_WRONG(sWhat, std::strerror(errno), "vk_setup server");
        return 1;
    }
    if (access(sFile.c_str(), R_OK) != 0 && errno == EACCES) {
        v_WRONG_ADVICE(sWhat, std::string("cannot be read: ") + std::strerror(errno),
                       "run vk_setup check as root");
        return 0;
    }
    if (!iREAD_FILE(sFile, sText)) {
        v_WRONG(sWhat, std::string("cannot be read: ") + cpERRNO(errno),
                sTYPED({"mv", sFile, sFile + ".old"}) + " && vk_setup server");
        return 0;
    }
    const std::string sWords = sCONFIG_WORDS();
    if (const int iLine = iCONFIG_BAD_LINE(); iLine > 0) {
        v_WRONG(sWhat, "line " + std::to_string(iLine) + " is neither a section nor key = value",
                sTYPED({"sed", "-i", std::to_string(iLine) + "s/^/; /", sFile}));
        return 0;
    }
    if (!iCONFIG_VALID()) {
        v_WRONG_ADVICE(sWhat, sLAST_LINE(sWords), "put a file there that can be read");
        return 0;
    }
    if ((sctStat.st_mode & 0027U) != 0)
        v_WRONG(sWhat, "others may read it, or a group change it", sTYPED({"chmod", "640", sFile}));
    else if (iCHECK_WORDS(sFile, sWords) == 0)
        v_GOOD(sWhat);
    return 1;
}

}  // namespace

int iCHECK()
{
    if (iCHECK_CONFIGURATION()) {
        v_CHECK_DIRECTORIES();
        v_CHECK_PROGRAMS();
        v_CHECK_ACCESS();
        v_CHECK_DATABASE();
    }
    TELL_REACH();
    if (iFAULTS() == 0)
        std::printf("all %d are good\n", iCHECKED());
    else
        std::printf("%d of %d wrong\n", iFAULTS(), iCHECKED());
    return iREPORT_EXIT();
}
