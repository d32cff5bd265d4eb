/* Reads the command line into the run record, carries out what ends inside
   (many clients, updates), and prepares a run for one client. */
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "vk_config_client.h"

namespace {

/* The number at the beginning of a text, 0 when there is none. */
int iNUMBER(const char* cpText)
{
    return static_cast<int>(
        std::clamp(std::strtol(cpText, nullptr, 10), long{INT_MIN}, long{INT_MAX}));
}

bool bUPDATE(const SCT_ARGS* pArg)
{
    return pArg->eUpdate == update || pArg->eUpdate == sp_update;
}

[[noreturn]] void v_PARAMETERS_MISSING(SCT_ARGS* pArg)
{
    char szMsg[256];
    MESSAGE(szMsg, MSG_E006);
    ZFINISH(szMsg, VK_ERROR, 'n', pArg);
}

/* Copies an option's value. A longer one would be cut, and the run would work on
   something else than was asked for; so it ends. cpHint may be empty. */
template<size_t N>
void v_TAKE(SCT_ARGS* pArg, char (&szField)[N], int iOption, const char* cpHint)
{
    const char* cpBreak = cpHint[0] != '\0' ? "; " : "";
    if (std::strlen(optarg) < N) {
        iTEXT_SET(szField, optarg);
        return;
    }
    if (iOption == 'p')
        v_STDERR("option -p: the password is longer than %zu bytes", N - 1);
    else
        v_STDERR("option -%c: \"%s\" is longer than %zu bytes%s%s", iOption, optarg, N - 1, cpBreak,
                 cpHint);
    v_PARAMETERS_MISSING(pArg);
}

void v_TAKE_OPTIONS_TEXT(SCT_ARGS* pArg)
{
    if (std::strstr(optarg, "force") != nullptr)
        pArg->iForceUpdate = 1;
    else
        v_TAKE(pArg, pArg->szOptions, 'O', "");
}

/* One option. Those without a value set a field; getopt tells an unknown one by
   itself, and the run goes on. */
void v_OPTION(int iOption, SCT_ARGS* pArg, char (&cpAccessMode)[11])
{
    // clang-format off
    switch (iOption) {
        case 'U': pArg->eUpdate      = update; break;
        case 'S': pArg->eUpdate      = sp_update; break;
        case 'F': pArg->iForceUpdate = 1; break;
        case 'k': pArg->iRunAsUser   = 1; break;
        case 'e': pArg->iServicePack = iNUMBER(optarg); break;
        case 't': pArg->iTest        = iNUMBER(optarg); break;
        case 'v': v_set_log(iNUMBER(optarg), 1, &strLog); break;
        case 'a': v_TAKE(pArg, pArg->szNodeAddr, iOption, "give an address or via_nameserver"); break;
        case 'c': v_TAKE(pArg, pArg->szNodeName, iOption, ""); break;
        case 'i': v_TAKE(pArg, pArg->szTimeStamp, iOption, ""); break;
        case 'l': v_TAKE(pArg, pArg->szLocationId, iOption, "give the location's short name"); break;
        case 'm': v_TAKE(pArg, cpAccessMode, iOption, "give an access mode such as VKSSH"); break;
        case 'o': v_TAKE(pArg, pArg->szOpersys, iOption, "give an operating system that the server knows"); break;
        case 'P': v_TAKE(pArg, pArg->szPackage, iOption, ""); break;
        case 's': v_TAKE(pArg, pArg->szSender, iOption, ""); break;
        case 'u': v_TAKE(pArg, pArg->szUserComment, iOption, ""); break;
        case 'O': v_TAKE_OPTIONS_TEXT(pArg); break;
        case 'p': v_TAKE(pArg, pArg->szPassword, iOption, ""); break;
        case 'C': pArg->iCheck = 1; v_TAKE(pArg, pArg->szCheck, iOption, "give r, s or d"); break;
        default: v_STDERR("wrong option %c in command line; only %s allowed", optopt, cpOPTIONS); break;
    }
    // clang-format on
}

/* Appends the arguments after the options: each is a client's name. */
void v_COLLECT_CLIENTS(int argc, char** argv, SCT_ARGS* pArg, t_LL LL_ClientList)
{
    for (int i = optind; i < argc; ++i) {
        char szName[256] = "";
        if (!iTEXT_SET(szName, argv[i])) {
            v_STDERR("client name \"%s\" is longer than %zu bytes", argv[i], sizeof szName - 1);
            v_PARAMETERS_MISSING(pArg);
        }
        InsLastLLf(LL_ClientList, sizeof szName, szName);
    }
}

/* What is stored for the client of a check or an update; -m replaces its access
   mode only by a mode that needs nothing but a key. */
void v_READ_STORED_SETTINGS(SCT_ARGS* pArg, const char* cpAccessMode)
{
    char szReply[256];
    char szSql[2048];
    iSQL(szSql, "select accessmode,os,vm_server_type from clients where name='%s'",
         pArg->szNodeName);
    if (iDB_VA(szSql, szReply, sizeof szReply, &strLog, "accessmode", pArg->szAccessMode, "os",
               pArg->szOpersys, "vm_server_type", pArg->szServerType, "d") != 1)
        v_PARAMETERS_MISSING(pArg);
    if (std::strcmp(cpAccessMode, "CTRL") != 0 && std::strcmp(cpAccessMode, "VKSSH") != 0) return;
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

void v_IDENTIFY_RUN(SCT_ARGS* pArg)
{
    if (pArg->szTimeStamp[0] != '\0') return;
    char szTime[256] = "I";
    x_Snprintf(pArg->szTimeStamp, sizeof pArg->szTimeStamp, "config_client_%s", time_get(szTime));
}

void v_READ_PLATFORM(SCT_ARGS* pArg, DB_REC_LIS* pList)
{
    if (!bGIVEN(pArg->szOpersys)) return;
    char szReply[256] = "";
    char szSql[2048];
    iSQL(szSql, "select oper_systems.platform from oper_systems where oper_systems.os='%s'",
         pArg->szOpersys);
    if (!iDB_ACCESS(szSql, szReply, pList, strLog)) {
        char szMsg[1024];
        MESSAGE_FITTED(szMsg, MSG_E004, szReply);
        ZFINISH(szMsg, VK_WARNING, 'n', pArg);
    }
    iDB_SEL_GET(pList, 1, szReply, &strLog, "platform", pArg->szPlatform, "d");
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
    if (pArg->szNodeName[0] == '\0') v_PARAMETERS_MISSING(pArg);
    v_IDENTIFY_RUN(pArg);
    TRACE("operating system=%s, location=%s", pArg->szOpersys, pArg->szLocationId);
    if (pArg->cStdoutFlg == 'n')
        make_answ_file_name(pArg->szTimeStamp, pArg->szSender, pArg->szAnswerFile);
    v_READ_PLATFORM(pArg, pList);

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
    const t_LL LL_ClientList = ConsLL();
    DB_REC_LIS sctList = {"CONFIG_CLIENT", 0, 0, nullptr, nullptr};
    TRACE("+++ ARGUMENTS %s", GET_CALL_PARAM(argc, argv));
    for (int iOption; (iOption = getopt(argc, argv, cpOPTIONS)) != -1;)
        v_OPTION(iOption, pArg, cpAccessMode);
    v_MOVE_UPDATE_OPTIONS(pArg);
    TRACE("argc=%d, optind=%d", argc, optind);
    v_COLLECT_CLIENTS(argc, argv, pArg, LL_ClientList);
    iDB_SEL_GETVALUE("select name from clients where client_id=0", "name", pArg->szVelkaNode,
                     strLog);
    TRACE("Start looping clients: %d", static_cast<int>(SizeLL(LL_ClientList)));

    if (pArg->iCheck || bUPDATE(pArg)) {
        if (SizeLL(LL_ClientList) > 0 || std::strcmp(pArg->szNodeName, "ALL_CLIENTS") == 0)
            MULTI_CLIENT_RUN(pArg, LL_ClientList);
        v_READ_STORED_SETTINGS(pArg, cpAccessMode);
    }
    v_PREPARE(pArg, &sctList);
}
