/* Reads the command line into the run record, carries out what ends inside
   (many clients, updates), and prepares a run for one client. */
#include <unistd.h>

#include <algorithm>
#include <bitset>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "../common/config/config.h"
#include "run_outcome.h"
#include "vk_config_client.h"

namespace {

/* The command line while it is read. A value that cannot be taken is told at once and
   ends the run when all options have been read, so that -i and -s name its answer file
   wherever they stand. */
struct COMMAND_LINE {
    SCT_ARGS* pArg = nullptr;
    char (&szMode)[11];  // of -m
    t_LL             LL_ClientList = nullptr;
    std::bitset<128> given;             // letters of the options
    bool             bUnknown = false;  // an option that there is not
    bool             bRefused = false;
};

bool bUPDATE(const SCT_ARGS* pArg)
{
    return pArg->eUpdate == update || pArg->eUpdate == sp_update;
}

bool bALL_CLIENTS(const SCT_ARGS* pArg)
{
    return bIS(pArg->szNodeName, cpALL_CLIENTS);
}

[[noreturn]] void v_PARAMETERS_MISSING(SCT_ARGS* pArg)
{
    v_END_RUN(pArg, VK_ERROR, MSG_E006);
}

[[noreturn]] void v_CLIENT_MISSING(SCT_ARGS* pArg)
{
    TELL("no client is given; name one with -c");
    v_CAUSE("client-not-given");
    v_PARAMETERS_MISSING(pArg);
}

/* -C with another letter than these registers. */
bool bREGISTERS(const SCT_ARGS* pArg)
{
    return !bUPDATE(pArg) &&
           (pArg->szCheck[0] == '\0' || std::strchr("rsd", pArg->szCheck[0]) == nullptr);
}

/* The number at the beginning of an option's value, 0 when there is none. */
int iNUMBER(int iOption)
{
    char*      cpEnd = nullptr;
    const long lNumber = std::strtol(optarg, &cpEnd, 10);
    const int  iTaken = static_cast<int>(std::clamp(lNumber, long{INT_MIN}, long{INT_MAX}));
    if (cpEnd == optarg || *cpEnd != '\0' || iTaken != lNumber)
        TELL("option -%c: \"%s\" is not a number; using %d", iOption, optarg, iTaken);
    return iTaken;
}

/* The same for one of the levels 0 to iMost; another counts as the nearest of them. */
int iLEVEL(int iOption, int iMost)
{
    const int iGiven = iNUMBER(iOption);
    const int iNearest = std::clamp(iGiven, 0, iMost);
    if (iGiven != iNearest)
        TELL("option -%c: %d is not between 0 and %d; using %d", iOption, iGiven, iMost, iNearest);
    return iGiven;
}

/* Copies an option's value. A longer one would be cut, and the run would work on
   something else than was asked for; so it ends. cpHint may be empty. */
template<size_t N>
void v_TAKE(COMMAND_LINE* pLine, char (&szField)[N], int iOption, const char* cpHint,
            const std::string& sValue = optarg)
{
    if (sValue.size() < N) {
        iTEXT_SET(szField, sValue);
        return;
    }
    pLine->bRefused = true;
    if (iOption == 'p')
        TELL("option -p: the password is longer than %zu bytes", N - 1);
    else
        TELL("option -%c: \"%s\" is longer than %zu bytes%s%s", iOption, sValue.c_str(), N - 1,
             cpHint[0] != '\0' ? "; " : "", cpHint);
}

/* Blanks around an address are none of it. */
void v_TAKE_ADDRESS(COMMAND_LINE* pLine)
{
    std::string sAddress = optarg;
    sAddress.erase(sAddress.find_last_not_of(" \t\r\n") + 1);
    sAddress.erase(0, sAddress.find_first_not_of(" \t\r\n"));
    v_TAKE(pLine, pLine->pArg->szNodeAddr, 'a', "give an address or via_nameserver", sAddress);
}

/* A client's name is one line; another could not be told from what surrounds it. */
void v_REFUSE_CONTROLS(COMMAND_LINE* pLine, const char* cpName)
{
    if (!bHAS_CONTROLS(cpName)) return;
    TELL("client name \"%s\" contains a control character", cpName);
    pLine->bRefused = true;
}

void v_TAKE_NAME(COMMAND_LINE* pLine)
{
    v_TAKE(pLine, pLine->pArg->szNodeName, 'c', "");
    v_REFUSE_CONTROLS(pLine, pLine->pArg->szNodeName);
}

/* Once it is read, nobody sees it among the arguments of this process any more. */
void v_TAKE_PASSWORD(COMMAND_LINE* pLine)
{
    v_TAKE(pLine, pLine->pArg->szPassword, 'p', "");
    v_SECRET(pLine->pArg->szPassword);
    explicit_bzero(optarg, std::strlen(optarg));
}

void v_TAKE_OPTIONS_TEXT(COMMAND_LINE* pLine)
{
    if (std::strstr(optarg, "force") != nullptr)
        pLine->pArg->iForceUpdate = 1;
    else
        v_TAKE(pLine, pLine->pArg->szOptions, 'O', "");
}

/* getopt has told an option that there is not, or one whose value is missing. */
void v_WRONG_OPTION(COMMAND_LINE* pLine)
{
    if (optopt != ':' && std::strchr(cpOPTIONS, optopt) != nullptr) return;
    TELL("wrong option %c in command line; only %s allowed", optopt, cpOPTIONS);
    pLine->bUnknown = true;
}

/* One option. Those without a value set a field. */
void v_OPTION(int iOption, COMMAND_LINE* pLine)
{
    SCT_ARGS* pArg = pLine->pArg;
    // clang-format off
    switch (iOption) {
        case 'U': pArg->eUpdate      = update; break;
        case 'S': pArg->eUpdate      = sp_update; break;
        case 'F': pArg->iForceUpdate = 1; break;
        case 'k': pArg->iRunAsUser   = 1; break;
        case 'e': pArg->iServicePack = iNUMBER(iOption); break;
        case 't': pArg->iTest        = iLEVEL(iOption, 2); break;
        case 'v': v_set_log(iLEVEL(iOption, 3), 1, &strLog); break;
        case 'a': v_TAKE_ADDRESS(pLine); break;
        case 'c': v_TAKE_NAME(pLine); break;
        case 'i': v_TAKE(pLine, pArg->szTimeStamp, iOption, ""); break;
        case 'l': v_TAKE(pLine, pArg->szLocationId, iOption, "give the location's short name"); break;
        case 'm': v_TAKE(pLine, pLine->szMode, iOption, "give an access mode such as VKSSH"); break;
        case 'o': v_TAKE(pLine, pArg->szOpersys, iOption, "give an operating system that the server knows"); break;
        case 'P': v_TAKE(pLine, pArg->szPackage, iOption, ""); break;
        case 's': v_TAKE(pLine, pArg->szSender, iOption, ""); break;
        case 'u': v_TAKE(pLine, pArg->szUserComment, iOption, ""); break;
        case 'O': v_TAKE_OPTIONS_TEXT(pLine); break;
        case 'p': v_TAKE_PASSWORD(pLine); break;
        case 'C': pArg->iCheck = 1; v_TAKE(pLine, pArg->szCheck, iOption, "give r, s or d"); break;
        default: v_WRONG_OPTION(pLine); return;
    }
    // clang-format on
    pLine->given.set(static_cast<size_t>(iOption));
}

/* Appends the arguments after the options: each is a client's name. */
void v_COLLECT_CLIENTS(int argc, char** argv, COMMAND_LINE* pLine)
{
    for (int i = optind; i < argc; ++i) {
        char szName[256] = "";
        if (!iTEXT_SET(szName, argv[i])) {
            TELL("client name \"%s\" is longer than %zu bytes", argv[i], sizeof szName - 1);
            pLine->bRefused = true;
        }
        v_REFUSE_CONTROLS(pLine, szName);
        InsLastLLf(pLine->LL_ClientList, sizeof szName, szName);
    }
}

/* The names of the list, joined for people. */
std::string sNAMES(t_LL LL_ClientList)
{
    std::string sNames;
    for (void* pName = FirstElmLL(LL_ClientList); IsElmLL(pName); pName = NextElmLL(pName))
        sNames.append(" ").append(static_cast<const char*>(pName));
    return sNames;
}

bool bNAMED(t_LL LL_ClientList, const char* cpClient)
{
    for (void* pName = FirstElmLL(LL_ClientList); IsElmLL(pName); pName = NextElmLL(pName))
        if (bIS(static_cast<const char*>(pName), cpClient)) return true;
    return false;
}

/* The word for all clients is the name of none: a registration or a removal under it
   would turn every later run over all clients into something else. */
void v_REFUSE_ALL_CLIENTS(COMMAND_LINE* pLine)
{
    const SCT_ARGS* pArg = pLine->pArg;
    if (!bALL_CLIENTS(pArg)) return;
    if (!pArg->iCheck && !bUPDATE(pArg))
        TELL("option -c: ALL_CLIENTS cannot be registered; it stands for all clients");
    else if (pArg->iCheck && pArg->szCheck[0] == 'd')
        TELL("option -C d does not take ALL_CLIENTS; name the clients to remove");
    else
        return;
    pLine->bRefused = true;
}

/* An option that there is not may have been meant to keep the run from what it does:
   nothing is changed then. Checks and registrations go on. */
void v_REFUSE_UNKNOWN(COMMAND_LINE* pLine)
{
    const SCT_ARGS* pArg = pLine->pArg;
    if (pLine->bUnknown && (bUPDATE(pArg) || pArg->szCheck[0] == 'd')) pLine->bRefused = true;
}

/* Options that a run of this kind for one client has no use for. -O stands for -F where
   it left no text. An update goes before what -C asks for, and reaches the client by its
   stored mode. */
const char* cpUNUSED_OPTIONS(const SCT_ARGS* pArg)
{
    const bool bText = pArg->szOptions[0] != '\0';
    if (pArg->eUpdate == update) return "almotupkCS";
    if (pArg->eUpdate == sp_update) return bText ? "almotupkCOeU" : "almotupkCeU";
    if (!bREGISTERS(pArg)) return "lotupkOPeF";
    return bText ? "PeFk" : "PeFkO";
}

/* What a run for one client leaves out of what it was given. */
void v_TELL_UNUSED_OF_ONE(const COMMAND_LINE* pLine)
{
    const SCT_ARGS* pArg = pLine->pArg;
    if (SizeLL(pLine->LL_ClientList) > 0)
        TELL("a registration takes one client by -c; ignored:%s",
             sNAMES(pLine->LL_ClientList).c_str());
    if (pArg->szNodeName[0] == '\0') return;
    for (const char cOption : std::string_view(cpUNUSED_OPTIONS(pArg)))
        if (pLine->given.test(static_cast<size_t>(cOption)))
            TELL("option -%c is not used by this run", cOption);
    if (pArg->iCheck && bREGISTERS(pArg))
        TELL("option -C: \"%s\" is not r, s or d; registering the client", pArg->szCheck);
}

/* What a run for several clients leaves out: the children get little, and the choice
   of clients goes by the list or by one condition. */
void v_TELL_UNUSED_OF_MANY(const COMMAND_LINE* pLine)
{
    const SCT_ARGS* pArg = pLine->pArg;
    const bool      bAll = bALL_CLIENTS(pArg);
    const bool      bLocation = bGIVEN(pArg->szLocationId);
    const bool      bSystem = bGIVEN(pArg->szOpersys);
    const bool      bNames = SizeLL(pLine->LL_ClientList) > 0;
    const bool      bNamesCount = bNames && !(bAll && (bLocation || bSystem));
    if (bNamesCount && pArg->szNodeName[0] != '\0' &&
        !bNAMED(pLine->LL_ClientList, pArg->szNodeName))
        TELL("option -c %s is not used: the names at the end replace it", pArg->szNodeName);
    if (bNames && !bNamesCount)
        TELL("not used with -c ALL_CLIENTS:%s", sNAMES(pLine->LL_ClientList).c_str());
    if (bLocation && !bAll) TELL("option -l is not used: it applies to -c ALL_CLIENTS only");
    if (bSystem && !bAll) TELL("option -o is not used: it applies to -c ALL_CLIENTS only");
    if (bLocation && bSystem && bAll) TELL("option -l is not used: -o takes precedence");
    const char* cpUnused = pArg->iCheck                 ? "USFPOekaimpstuv"
                           : pArg->eUpdate == sp_update ? "Ukaimpstuv"
                                                        : "Skaimpstuv";
    for (const char cOption : std::string_view(cpUnused))
        if (pLine->given.test(static_cast<size_t>(cOption)))
            TELL("option -%c is not passed to the clients' runs", cOption);
}

/* What is stored for the client of a check or an update; -m replaces its access
   mode only by a mode that needs nothing but a key. */
void v_READ_STORED_SETTINGS(SCT_ARGS* pArg, const char* cpAccessMode)
{
    char szReply[256];
    if (iDB_VA(SQL("select accessmode,os,vm_server_type from clients where name='%s'",
                   pArg->szNodeName),
               szReply, sizeof szReply, &strLog, "accessmode", pArg->szAccessMode, "os",
               pArg->szOpersys, "vm_server_type", pArg->szServerType, "d") != 1) {
        if (pArg->szNodeName[0] == '\0') v_CLIENT_MISSING(pArg);
        if (sctDB_ERROR().eKind != DB_FINE) {
            DB_TELL_FAILURE(std::string("settings of ") + pArg->szNodeName + " not read", strLog);
        } else {
            TELL("no such client: %s", pArg->szNodeName);
            v_CAUSE("not-registered");
        }
        v_PARAMETERS_MISSING(pArg);
    }
    if (!bIS(cpAccessMode, "CTRL") && !bIS(cpAccessMode, "VKSSH")) {
        if (cpAccessMode[0] != '\0' && !bIS(cpAccessMode, pArg->szAccessMode) && !bUPDATE(pArg) &&
            !bREGISTERS(pArg))
            TELL("option -m %s is not used: only CTRL and VKSSH replace a stored access mode",
                 cpAccessMode);
        return;
    }
    TRACE("Use access mode %s given via command line parameter -m", cpAccessMode);
    iTEXT_SET(pArg->szAccessMode, cpAccessMode);
}

/* From here on the trace goes to the client's file of the day. */
void v_MOVE_TRACE(const SCT_ARGS* pArg)
{
    char szName[256];
    x_Snprintf(szName, sizeof szName, "vk_config_client-%s_%s.log", pArg->szNodeName,
               read_glbv("gv_daylbl"));
    v_set_log_mover(&strLog, szName);
}

/* Identifier and sender name the answer file of every run, however early it ends. */
void v_IDENTIFY_RUN(SCT_ARGS* pArg)
{
    char szTime[256] = "I";
    if (pArg->szTimeStamp[0] == '\0')
        x_Snprintf(pArg->szTimeStamp, sizeof pArg->szTimeStamp, "config_client_%s",
                   time_get(szTime));
    if (pArg->cStdoutFlg == 'n')
        make_answ_file_name(pArg->szTimeStamp, pArg->szSender, pArg->szAnswerFile);
}

void v_READ_PLATFORM(SCT_ARGS* pArg, DB_REC_LIS* pList)
{
    if (!bGIVEN(pArg->szOpersys)) return;
    char szReply[256] = "";
    if (!iDB_ACCESS(SQL("select oper_systems.platform from oper_systems where oper_systems.os='%s'",
                        pArg->szOpersys),
                    szReply, pList, strLog))
        v_END_RUN(pArg, VK_WARNING, MSG_E004, szReply);
    iDB_SEL_GET(pList, 1, szReply, &strLog, "platform", pArg->szPlatform, "d");
}

/* A registration under -C has read the stored system: where that is not known, the one
   of -o counts, as in every registration. */
void v_TAKE_SYSTEM_GIVEN(SCT_ARGS* pArg, DB_REC_LIS* pList)
{
    if (!bREGISTERS(pArg) || pArg->szPlatform[0] != '\0' || !bGIVEN(pArg->szSystemGiven) ||
        bIS(pArg->szOpersys, pArg->szSystemGiven))
        return;
    iTEXT_SET(pArg->szOpersys, pArg->szSystemGiven);
    v_READ_PLATFORM(pArg, pList);
}

void v_ANNOUNCE(char cKind, const char* cpText)
{
    TRACE("%s", cpText);
    info(cKind, 0, cpText);
    FPROT(0, cpText);
}

/* Makes the record of a run for one client complete. */
void v_PREPARE(SCT_ARGS* pArg, DB_REC_LIS* pList)
{
    v_MOVE_TRACE(pArg);
    if (bUPDATE(pArg)) {
        TRACE("--- ARGUMENTS");
        UPDATE_CLIENT(pArg);
    }
    if (!bGIVEN(pArg->szLocationId)) iTEXT_SET(pArg->szLocationId, "0");
    if (pArg->szNodeName[0] == '\0') v_CLIENT_MISSING(pArg);
    TRACE("operating system=%s, location=%s", pArg->szOpersys, pArg->szLocationId);
    v_READ_PLATFORM(pArg, pList);
    v_TAKE_SYSTEM_GIVEN(pArg, pList);

    char szText[256];
    MESSAGE(szText, MSG_I001, pArg->szNodeName, pArg->szPlatform);
    v_ANNOUNCE('S', szText);
    MESSAGE(szText, MSG_I004, pArg->szAccessMode, pArg->szNodeAddr, pArg->szOpersys);
    v_ANNOUNCE('M', szText);
    TRACE("--- ARGUMENTS %s  %s", pArg->szNodeName, pArg->szNodeAddr);
}

/* The options of a package update have a field of their own. */
void v_MOVE_UPDATE_OPTIONS(SCT_ARGS* pArg)
{
    if (pArg->eUpdate != update || pArg->szOptions[0] == '\0') return;
    iTEXT_SET(pArg->szUpdateOptions, pArg->szOptions);
    pArg->szOptions[0] = '\0';
    TRACE("szUpdateOptions=%s", pArg->szUpdateOptions);
}

}  // namespace

void ARGUMENTS(int argc, char** argv, SCT_ARGS* pArg, char (&cpAccessMode)[11])
{
    COMMAND_LINE line{pArg, cpAccessMode, ConsLL(), {}, false, false};
    DB_REC_LIS   sctList = {"CONFIG_CLIENT", 0, 0, nullptr, nullptr};
    TRACE("+++ ARGUMENTS %s", GET_CALL_PARAM(argc, argv));
    optind = 0;  // a record may be filled again by the same process
    for (int iOption; (iOption = getopt(argc, argv, cpOPTIONS)) != -1;) v_OPTION(iOption, &line);
    v_MOVE_UPDATE_OPTIONS(pArg);
    TRACE("argc=%d, optind=%d", argc, optind);
    v_COLLECT_CLIENTS(argc, argv, &line);
    v_IDENTIFY_RUN(pArg);
    v_REFUSE_ALL_CLIENTS(&line);
    v_REFUSE_UNKNOWN(&line);
    if (line.bRefused) v_REFUSE_RUN(pArg);
    iTEXT_SET(pArg->szSystemGiven, pArg->szOpersys);
    iDB_SEL_GETVALUE("select name from clients where client_id=0", "name", pArg->szVelkaNode,
                     strLog);
    DB_TELL_FAILURE("name of the backup server not read", strLog);
    TRACE("Start looping clients: %d", static_cast<int>(SizeLL(line.LL_ClientList)));

    const bool bTask = pArg->iCheck || bUPDATE(pArg);
    if (bUPDATE(pArg)) v_CONFIG_TELL_UNKNOWN("gv_update_");
    if (bTask && (SizeLL(line.LL_ClientList) > 0 || bALL_CLIENTS(pArg))) {
        v_TELL_UNUSED_OF_MANY(&line);
        MULTI_CLIENT_RUN(pArg, line.LL_ClientList);
    }
    v_TELL_UNUSED_OF_ONE(&line);
    if (bTask) v_READ_STORED_SETTINGS(pArg, cpAccessMode);
    v_PREPARE(pArg, &sctList);
}
