/* What the service reads of the database: hosts, their passwords, the server's
   interface. No other file of the service reads the tables. */
#include "host.h"

#include <strings.h>
#include <unistd.h>

#include <climits>
#include <map>

#include "../base/immortal.h"
#include "../cm_db_access.h"
#include "../config/variables.h"
#include "../lines/secret.h"
#include "../text/text.h"
#include "../text/text_operations.h"
#include "cm_remote.h"

namespace {

std::map<std::string, HOST>& HOSTS()
{
    static IMMORTAL<std::map<std::string, HOST>> hosts;
    return hosts.Get();
}

bool bNAME_OF_THIS_MACHINE(const std::string& sName)
{
    char szOwn[256] = "";
    if (gethostname(szOwn, sizeof szOwn - 1) != 0) return false;
    const std::string sOwn = szOwn;
    return strcasecmp(sName.c_str(), szOwn) == 0 ||
           strcasecmp(sName.c_str(), sOwn.substr(0, sOwn.find('.')).c_str()) == 0;
}

HOST sctREAD_HOST(const std::string& sName, const str_log& sctLog)
{
    char szReply[256];
    char szId[32] = "";
    char szMode[256] = "";
    char szUser[256] = "";
    char szMover[256] = "";
    char szPlatform[256] = "";
    char szPassword[2048] = "";
    char szOsPassword[2048] = "";
    iDB_VA(SQL("select client_id,accessmode,os_user,data_mover,platform,password,os_password from "
               "clients left join oper_systems on oper_systems.os=clients.os where name='%s'",
               std::string_view(sName)),
           szReply, static_cast<int>(sizeof szReply), &sctLog, "client_id", szId, "accessmode",
           szMode, "os_user", szUser, "data_mover", szMover, "platform", szPlatform, "password",
           szPassword, "os_password", szOsPassword, "d");
    for (const char* cpPassword : {szPassword, szOsPassword}) v_SECRET_SEEN(cpPassword);
    HOST host;
    host.sName = sName;
    // The reply of a statement that ran is a number of rows.
    if (int iRows = 0; !bNUMBER(szReply, 0, INT_MAX, iRows)) {
        host.sUnread = szReply;
        host.sUnreadCause = sctDB_ERROR().cpCause;
    }
    host.sStoredMode = szMode;
    host.sUser = szUser;
    host.sDataMover = szMover;
    host.sPlatform = szPlatform;
    host.bClient = szId[0] != '\0';
    host.bLocal = std::string_view(szId) == "0" || bNAME_OF_THIS_MACHINE(sName);
    return host;
}

}  // namespace

HOST& sctHOST(const char* cpName, const char* cpAccessMode, const str_log& sctLog)
{
    const auto [entry, bNew] = HOSTS().try_emplace(cpName);
    HOST& host = entry->second;
    if (bNew || !host.sUnread.empty()) host = sctREAD_HOST(cpName, sctLog);
    if (cpAccessMode != nullptr && *cpAccessMode != '\0') host.sAccessMode = cpAccessMode;
    if (host.sAccessMode.empty()) host.sAccessMode = host.sStoredMode;
    if (host.sAccessMode.empty()) host.sAccessMode = "VKSSH";
    return host;
}

void v_HOST_PLATFORM(const HOST& host, const char* cpPlatform)
{
    HOSTS()[host.sName].sPlatform = cpPlatform;
}

SHELL eSHELL_OF(const HOST& host)
{
    return !host.bLocal && iWINDOWS_CLASS(host.sPlatform.c_str()) ? SHELL_WINDOWS : SHELL_POSIX;
}

SHELL eHOST_SHELL(const char* cpHost)
{
    return eSHELL_OF(sctHOST(cpHost, "", str_log{}));
}

int i_CHECK_AND_SET_INTERFACE(char* cpInterface, const char* cpServerNode, str_log sctLog)
{
    char szName[256] = "";
    // A bare name has no scheme, port or path.
    const int iFound = iDB_SEL_GETVALUE(
        "select i_name from interfaces where client_id=0 and i_name not like '%:%' and i_name not "
        "like '%/%' and i_name<>'' order by i_order limit 1",
        "i_name", szName, sctLog);
    const bool bFound = iFound && szName[0] != '\0';
    DB_TELL_FAILURE("interface of the backup server not read", sctLog);
    iTEXT_COPY(cpInterface, 256, bFound ? szName : cpServerNode);
    return bFound;
}

int i_GET_TASK_OR_CLIENT_PASSWORD(const char*, const char* cpClient, char* cpUser, const char*,
                                  const char*, char* cpPassword, str_log sctLog)
{
    char      szReply[256];
    char      szUser[256] = "";
    char      szPassword[2048] = "";
    char      szOsUser[256] = "";
    char      szOsPassword[2048] = "";
    const int iRet = iDB_VA(
        SQL("select user_name,password,os_user,os_password from clients where name='%s'", cpClient),
        szReply, static_cast<int>(sizeof szReply), &sctLog, "user_name", szUser, "password",
        szPassword, "os_user", szOsUser, "os_password", szOsPassword, "d");
    DB_TELL_FAILURE(std::string("user and password of ") + cpClient + " not read", sctLog);
    const bool bOwn = szUser[0] != '\0';
    iTEXT_COPY(cpUser, 256, bOwn ? szUser : szOsUser);
    iTEXT_COPY(cpPassword, 2048, bOwn ? szPassword : szOsPassword);
    v_SECRET(cpPassword);
    return iRet == 1;
}
