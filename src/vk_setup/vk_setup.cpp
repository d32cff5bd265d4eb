/* vk_setup: first setup. What is done on a client is here; what is done on a backup
   server is a program of its own, since clients have no database library. */
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "common/base/program.h"
#include "common/text/text.h"
#include "common/unix/cm_hal_pipe.h"
#include "set_client.h"

namespace {

constexpr int         iUSAGE = 2;
constexpr const char* cpSERVER_PROGRAM = "vk_setup_server";

constexpr std::string_view asvServer[] = {"server", "check", "permit", "set_mode", "show"};

void USAGE(FILE* pFile)
{
    std::fputs(
        "usage: vk_setup server [--name NAME] [--conninfo TEXT]\n"
        "       vk_setup check\n"
        "       vk_setup permit [--mode CTRL|VKSSH]\n"
        "       vk_setup set_mode CLIENT MODE [--os SYSTEM]\n"
        "       vk_setup show VARIABLE\n"
        "                             on the backup server: sets it up, looks at everything\n"
        "                             a check needs, prints the line to type on clients,\n"
        "                             stores the access mode of a client and checks it,\n"
        "                             prints a directory or variable of vk.ini\n"
        "       vk_setup set_client SERVER [--mode CTRL|VKSSH] [--packages signed|none|any]\n"
        "                           [--from ADDRESS] [--file FILE] [--config FILE] [KEY...]\n"
        "       vk_setup unset_client SERVER [--mode CTRL|VKSSH] [--file FILE] [--config FILE]\n"
        "                             on a client: admits that server, takes it back\n"
        "vk_setup(8) explains them.\n",
        pFile);
}

/* Becomes the program of the server's side. Returns only when there is none. */
int iSERVER_SIDE(char** argv)
{
    for (const std::string& sPath :
         {sBESIDE(cpSERVER_PROGRAM), std::string("/usr/libexec/velka/") + cpSERVER_PROGRAM}) {
        execv(sPath.c_str(), argv);
        if (errno == ENOENT) continue;
        std::fprintf(stderr, "vk_setup: cannot run \"%s\": %s\n", sPath.c_str(),
                     std::strerror(errno));
        return 1;
    }
    std::fprintf(stderr,
                 "vk_setup: \"%s\" runs on the backup server, with the package "
                 "vk-config-client, which is not installed here\n",
                 argv[1]);
    return 1;
}

}  // namespace

extern const PROGRAM sctPROGRAM{"vk_setup", "", '\0', {}};

int main(int argc, char** argv)
{
    v_STANDARD_DESCRIPTORS();
    const std::string_view   svTask = argc > 1 ? argv[1] : "";
    std::vector<std::string> asArgument;
    for (int i = 2; i < argc; ++i) asArgument.emplace_back(argv[i]);
    const bool bHelp = svTask == "-h" || svTask == "--help" || svTask == "help";
    if (bHelp) USAGE(stdout);
    if (bHelp) return 0;
    if (std::find(std::begin(asvServer), std::end(asvServer), svTask) != std::end(asvServer))
        return iSERVER_SIDE(argv);
    umask(022);
    v_SIGNALS_SETUP();
    if (svTask == "set_client" && !asArgument.empty()) return iSET_CLIENT(asArgument);
    if (svTask == "unset_client" && !asArgument.empty()) return iUNSET_CLIENT(asArgument);
    if (svTask == "set_client" || svTask == "unset_client")
        std::fprintf(stderr, "vk_setup: %s needs the name of the backup server\n", argv[1]);
    else if (!svTask.empty())
        std::fprintf(stderr, "vk_setup: unknown subcommand \"%s\"\n", sONE_LINE(svTask).c_str());
    USAGE(stderr);
    return iUSAGE;
}
