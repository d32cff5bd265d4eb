/* The usage text. */
#include <cstdio>

#include "vk_config_client.h"

namespace {

// clang-format off
constexpr const char* acpUsage[] = {
    "--------------------------------------------------------------------------------",
    "",
    "Usage: vk_config_client",
    "",
    "     Options for client update:",
    "        -U                   update client package",
    "       [-c clientname]       name of the client to be update",
    "        -F                   force the update by velka version",
    "       [-k]                  run velka service as user saved in the velka db (Windows only)",
    "       [-P <package name>]   path name of package",
    "       [-O options ]         ( Windows only )",
    "       [-e 1]                execute a servicepack update after a successful package update",
    "",
    "     Options for client servicepack update:",
    "        -S                   update client servicepack package",
    "       [-c clientname]       name of the client to be update",
    "        -F                   force the update by velka version",
    "       [-k]                  run velka service as user saved in the velka db (Windows only)",
    "       [-P <package name>]   path name of package",
    "",
    "     Options for remote access:",
    "        -C <r|s>             check client <remote access|qtc connection>",
    "       [-c client name]      name of the client",
    "        -o operating system",
    "       [-l location_id]      default=0",
    "        -i timestamp = identifier of this call",
    "       [-a addr]             ( TCPIP-adr. or 'via_nameserver' = default",
    "       [-m mode]             ( VKSSH(=default)|CTRL|SSH ) remote access mode",
    "                             ( delete )                 deletes client",
    "                             ( testqtc|testbackup )     tests connection to/from client",
    "       [-O options ]",
    "       [-s sender of this call]  default = velka",
    "",
    "     Options for all commands",
    "       [-h]                  help",
    "",
    "  Examples:",
    "    Check remote access for clients clientname",
    "       vk_config_client -c clientname -C r",
    "    Check remote access for all clients:",
    "       vk_config_client -c ALL_CLIENTS -C r",
    "    Check qtc connection for all clients:",
    "       vk_config_client -c ALL_CLIENTS -C s",
    "",
    "    Update a client:",
    "       vk_config_client -U -c clientname",
    "    Update a client including the latest servicepack:",
    "       vk_config_client -U -e 1 -c clientname",
    "    Force the update of a client",
    "       vk_config_client -U -F -c clientname",
    "    Update client using a specific QIR velka package",
    "       vk_config_client -U -c clientname -P /tmp/velka-cli_4.4.1-14.wheezy_amd64.deb",
    "",
    "    Update a client using a servicepack:",
    "       vk_config_client -S -c clientname",
    "    Force the servicepack update of a client",
    "       vk_config_client -S -F -c clientname",
    "    Update client using a specific QIR velka servicepack package",
    "       vk_config_client -S -c clientname -P \"C:\\Temp\\velka_sp_srv-201909171332_2665822_4.4.3.73_windows_x64.exe\"",
    "",
    " Output in day protocol and info-window",
    "",
    "--------------------------------------------------------------------------------",
};
// clang-format on

}  // namespace

void USAGE()
{
    std::printf("%s\n", gszGitId);
    for (const char* cpLine : acpUsage) std::printf("%-80s\n", cpLine);
}
