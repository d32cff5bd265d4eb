/* Makes a client resolvable on the backup server by an entry in its hosts file. */
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "../common/base/descriptor.h"
#include "run_outcome.h"
#include "vk_config_client.h"

namespace {

/* gv_hosts_file, else the place that the server's platform class gives. */
void v_CHOOSE_FILE(const SCT_ARGS* pArg, char (&szHostFile)[1024])
{
    const char* cpConfigured = read_glbv("gv_hosts_file");
    if (cpConfigured[0] != '\0') {
        iTEXT_SET(szHostFile, cpConfigured);
    } else if (bIS(pArg->szVelkaPlatf, "UNIX") || bIS(pArg->szVelkaPlatf, "LINUX")) {
        iTEXT_SET(szHostFile, "/etc/hosts");
    } else {
        const char* cpRoot = std::getenv("SYSTEMROOT");
        x_Snprintf(szHostFile, sizeof szHostFile, "%s\\system32\\drivers\\etc\\hosts",
                   cpRoot != nullptr ? cpRoot : "C:\\Windows");
    }
}

int iFILE_NAMES_CLIENT(const SCT_ARGS* pArg, const char* cpHostFile)
{
    char szName[256];
    iTEXT_SET(szName, pArg->szNodeName);
    return file_exist(cpHostFile) && file_search2(cpHostFile, szName, sizeof szName, 32) != 0;
}

/* Opened for appending. One that is made here can be read by everybody, as every
   program looks into it, whatever the umask. */
STREAM pOPEN(const char* cpHostFile)
{
    constexpr int iFlags = O_WRONLY | O_APPEND | O_CREAT;
    FD            fdFile = fdOPEN_FILE(cpHostFile, iFlags | O_EXCL, 0644);
    if (fdFile.bOpen())
        fchmod(fdFile.iGet(), 0644);
    else
        fdFile = fdOPEN_FILE(cpHostFile, iFlags, 0644);
    return fdFile.bOpen() ? STREAM{fdopen(fdFile.iRelease(), "a")} : nullptr;
}

/* One write carries the whole entry, so entries of several runs never mix. The
   entry begins with its line feed, whatever the file ends with. */
void v_APPEND_ENTRY(FILE* pFile, const std::string& sEntry)
{
    std::setvbuf(pFile, nullptr, _IOFBF, BUFSIZ);
    static_assert(BUFSIZ > 1024, "an entry fits the buffer");
    std::fwrite(sEntry.data(), 1, sEntry.size(), pFile);
}

/* One word; "#" would make the rest of its line a comment. */
bool bHOSTS_ADDRESS(const char* cpAddress)
{
    return !bHAS_CONTROLS(cpAddress) && std::strpbrk(cpAddress, " \t#") == nullptr;
}

}  // namespace

void v_REQUIRE_HOSTS_ADDRESS(SCT_ARGS* pArg)
{
    if (!bGIVEN(pArg->szNodeAddr) || bHOSTS_ADDRESS(pArg->szNodeAddr)) return;
    SCT_ARGS stored = *pArg;
    iTEST_IF_ALREADY_IN_DATABASE(&stored, "");
    char szHostFile[1024];
    v_CHOOSE_FILE(&stored, szHostFile);
    if (bIS(stored.szPlatform, "VMS") || iFILE_NAMES_CLIENT(&stored, szHostFile)) return;
    TELL("option -a: \"%s\" is not allowed in \"%s\"; give an address or via_nameserver",
         pArg->szNodeAddr, szHostFile);
    v_CAUSE("address-unusable");
    v_REFUSE_RUN(pArg);
}

void INSERT_ETC_HOST(SCT_ARGS* pArg)
{
    TRACE("+++ INSERT_ETC_HOST  %s  %s ", pArg->szNodeName, pArg->szNodeAddr);
    if (!bGIVEN(pArg->szNodeAddr)) {
        TRACE("--- INSERT_ETC_HOST has no address");
        return;
    }
    char szHostFile[1024];
    v_CHOOSE_FILE(pArg, szHostFile);
    if (iFILE_NAMES_CLIENT(pArg, szHostFile)) {
        TRACE("--- INSERT_ETC_HOST was ok");
        return;
    }
    TRACE("did not find %s in host-file %s or file not existing", pArg->szNodeName, szHostFile);
    STREAM pFile = pOPEN(szHostFile);
    if (pFile == nullptr) {
        TELL("cannot open \"%s\": %s", szHostFile, cpERRNO(errno));
        v_END_RUN(pArg, VK_WARNING, MSG_E005, szHostFile, 256);
    }
    char szLower[256];
    char szUpper[256];
    iTEXT_SET(szLower, sONE_LINE(pArg->szNodeName));
    iTEXT_SET(szUpper, szLower);
    lowercase(szLower);
    uppercase(szUpper);
    const std::string sAddress = sONE_LINE(pArg->szNodeAddr);
    v_APPEND_ENTRY(pFile.get(), "\n" + sAddress + "   " + szUpper + " " + szLower);
    if (std::fclose(pFile.release()) != 0) i_check_fclose_errno(errno, 1);
    TRACE("wrote into host-file: %s   %s %s", sAddress.c_str(), szUpper, szLower);
    TRACE("--- INSERT_ETC_HOST was ok");
}
