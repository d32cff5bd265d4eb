/* The check: everything that a check of a client needs, one line each. */
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "check.h"
#include "common/common.h"
#include "common/config/config.h"
#include "files.h"
#include "programs.h"
#include "report.h"
#include "setup.h"

namespace {

/* Result 0: the file cannot be used, and what follows would look at other places. */
int iCHECK_CONFIGURATION()
{
    const std::string sFile = sINI_FILE();
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
    if (!iREAD_FILE(sFile, sText)) {
        v_WRONG(sWhat, std::string("cannot be read: ") + std::strerror(errno),
                sTYPED({"mv", sFile, sFile + ".old"}) + " && vk_setup server");
        return 0;
    }
    if (const int iLine = iINI_BAD_LINE(sText); iLine > 0 || !iCONFIG_VALID()) {
        v_WRONG(sWhat, "line " + std::to_string(iLine) + " is neither a section nor key = value",
                sTYPED({"sed", "-i", std::to_string(iLine) + "s/^/; /", sFile}));
        return 0;
    }
    if ((sctStat.st_mode & 0027U) != 0)
        v_WRONG(sWhat, "others may read it, or a group change it", sTYPED({"chmod", "640", sFile}));
    else
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
    if (iFAULTS() == 0)
        std::printf("all %d are good\n", iCHECKED());
    else
        std::printf("%d of %d wrong\n", iFAULTS(), iCHECKED());
    return iREPORT_EXIT();
}
