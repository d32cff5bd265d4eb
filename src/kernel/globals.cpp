/* The globals of the tool. */
#include "../common/base/program.h"
#include "vk_config_client.h"

char    tmp_sc[34500];
char    gszRo[512];
char    gszRw[512];
str_log strLog;

namespace {

constexpr std::string_view asvLEFT_TO_FINISH[] = {"vk_execute_update", "vk_execute_update.cmd"};

}  // namespace

extern const PROGRAM sctPROGRAM{"vk_config_client", cpOPTIONS, 'p', asvLEFT_TO_FINISH,
                                iMESSAGE_FOREIGN};
