/* The server half of vk_setup: first setup, check, permits, access modes. vk_setup(8)
   starts it for the subcommands server, check, permit, set_mode and show. */
#include <cstdio>
#include <cstring>
#include <string_view>
#include <vector>

#include "../server_name.h"
#include "common/base/program.h"
#include "common/common.h"
#include "common/config/config.h"
#include "common/unix/cm_hal_pipe.h"
#include "setup.h"

// What it says comes from vk_setup, which is what was typed.
const PROGRAM sctPROGRAM = {"vk_setup", "", '\0', {}};

namespace {

constexpr char szUSAGE[] =
    "usage: vk_setup server [--name NAME] [--conninfo TEXT]\n"
    "       vk_setup check\n"
    "       vk_setup permit [--mode CTRL|VKSSH]\n"
    "       vk_setup set_mode CLIENT MODE [--os SYSTEM]\n"
    "       vk_setup show VARIABLE\n";

enum SUBCOMMAND { SUB_NONE, SUB_SERVER, SUB_CHECK, SUB_PERMIT, SUB_MODE, SUB_SHOW };

SUBCOMMAND eSUBCOMMAND(const char* cpWord)
{
    constexpr const char* acpWord[] = {"", "server", "check", "permit", "set_mode", "show"};
    for (int i = SUB_SERVER; i <= SUB_SHOW; i++)
        if (std::strcmp(cpWord, acpWord[i]) == 0) return static_cast<SUBCOMMAND>(i);
    return SUB_NONE;
}

/* An option with its value, as two words or as --NAME=VALUE. */
struct OPTION {
    SUBCOMMAND  eOf;
    const char* cpName;
    std::string SETUP_ARGS::*pValue;
};
constexpr OPTION asctOption[] = {
    {SUB_SERVER, "--name", &SETUP_ARGS::sName},
    {SUB_SERVER, "--conninfo", &SETUP_ARGS::sConninfo},
    {SUB_PERMIT, "--mode", &SETUP_ARGS::sMode},
    {SUB_MODE, "--os", &SETUP_ARGS::sSystem},
};

/* Takes a word that is no option. Result 0: there is no place for it. */
int iTAKE_WORD(SUBCOMMAND eSub, const char* cpWord, SETUP_ARGS& args)
{
    std::vector<std::string*> place;
    if (eSub == SUB_MODE) place = {&args.sClient, &args.sMode};
    if (eSub == SUB_SHOW) place = {&args.sVariable};
    for (std::string* pPlace : place) {
        if (!pPlace->empty()) continue;
        *pPlace = cpWord;
        return 1;
    }
    return 0;
}

/* Takes the option at *piAt. Result 0: it is none of this subcommand, or has no value. */
int iTAKE_OPTION(SUBCOMMAND eSub, int argc, char** argv, int* piAt, SETUP_ARGS& args)
{
    const std::string_view svWord = argv[*piAt];
    for (const OPTION& option : asctOption) {
        const std::string_view svName = option.cpName;
        if (option.eOf != eSub || !svWord.starts_with(svName)) continue;
        if (svWord.size() > svName.size() && svWord[svName.size()] == '=') {
            args.*option.pValue = svWord.substr(svName.size() + 1);
            return 1;
        }
        if (svWord != svName) continue;
        if (*piAt + 1 == argc || *argv[*piAt + 1] == '\0') {
            v_STDERR("option %s needs a value", option.cpName);
            return 0;
        }
        args.*option.pValue = argv[++*piAt];
        return 1;
    }
    if (!svWord.starts_with('-') && iTAKE_WORD(eSub, argv[*piAt], args)) return 1;
    v_STDERR("unknown argument \"%s\"", argv[*piAt]);
    return 0;
}

int iREFUSED(const char* cpOption, const char* cpCause)
{
    v_STDERR("option %s: %s", cpOption, cpCause);
    return 0;
}

/* What cannot be the name of a server, or is no mode. */
int iVALID(SUBCOMMAND eSub, SETUP_ARGS& args)
{
    if (eSub == SUB_MODE) {
        if (!args.sMode.empty()) return 1;
        v_STDERR("set_mode needs the name of a client and its access mode");
        return 0;
    }
    if (eSub == SUB_SHOW) {
        if (!args.sVariable.empty()) return 1;
        v_STDERR("show needs the name of a variable, such as gv_rw_work");
        return 0;
    }
    if (!args.sName.empty() && !bSERVER_NAME(args.sName))
        return iREFUSED("--name", "not a host name");
    if (args.sMode.empty()) args.sMode = acpKeyMode[0];
    for (const char* cpMode : acpKeyMode)
        if (args.sMode == cpMode) return 1;
    return iREFUSED("--mode", "the mode is CTRL or VKSSH");
}

}  // namespace

int main(int argc, char** argv)
{
    v_STANDARD_DESCRIPTORS();
    v_MEMORY_SETUP();
    const SUBCOMMAND eSub = argc > 1 ? eSUBCOMMAND(argv[1]) : SUB_NONE;
    SETUP_ARGS       args;
    if (eSub == SUB_NONE) {
        const bool bHelp =
            argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0);
        std::fputs(szUSAGE, bHelp ? stdout : stderr);
        return bHelp ? 0 : 2;
    }
    for (int i = 2; i < argc; i++)
        if (!iTAKE_OPTION(eSub, argc, argv, &i, args)) return 2;
    if (!iVALID(eSub, args)) return 2;
    if (eSub == SUB_CHECK) return iCHECK();
    if (!iCONFIG_VALID()) return 2;  // told by the library; the check says what mends it
    if (eSub == SUB_MODE) return iSET_MODE(args);
    if (eSub == SUB_SHOW) return iSHOW(args);
    return eSub == SUB_SERVER ? iSERVER(args) : iPERMIT(args);
}
