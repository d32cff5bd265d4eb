/* Configuration variables, directories and symbolic paths. */
#pragma once

#include <cstddef>
#include <string>

struct str_log;

/* A configuration variable (gv_...): the environment variable of that name,
   else [variables] of vk.ini, else the built-in default. Directory values end
   with their separator.
   Result  0 the variable is neither set nor has a default */
int iCONFIG_VARIABLE(const char* cpName, std::string& sValue);

/* Value of a configuration variable, "" when it has none; valid until the
   process ends. */
const char* read_glbv(const char* cpName);

/* Copies the variable's value into szBuf, cut to the array, "" when it has none;
   cRead is 'r'. Returns szBuf. */
char* glbv_N(char cRead, const char* cpName, char* szBuf, size_t uSize);
template<size_t N>
char* glbv(char cRead, const char* cpName, char (&szBuf)[N])
{
    return glbv_N(cRead, cpName, szBuf, N);
}

/* Default of a setting: cpKey under [defaults], else the variable. szBuf stays
   as it was when neither is set; nothing is traced. Result 1 set, 0 not. */
int i_get_default2_N(const char* cpKey, const char* cpVariable, char* szBuf, size_t uSize);
template<size_t N>
int i_get_default2(const char* cpKey, const char* cpVariable, char (&szBuf)[N],
                   const str_log& /*sctLog*/)
{
    return i_get_default2_N(cpKey, cpVariable, szBuf, N);
}

/* The ssh configuration file of an access mode, its symbolic path resolved on
   the server; empty: the administrator's own configuration.
   Result  0 the mode has no [access MODE] section and none by default (VKSSH,
           SSH and CTRL have) */
int iCONFIG_ACCESS(const char* cpMode, std::string& sSshConfig);

/* The directory that cpKey (such as "gv_rw_work") names on clients of a
   platform class: [directories CLASS], else LINUX's; Windows classes have
   defaults of their own. Ends with its separator.
   Result  0 unknown key */
int iCONFIG_CLIENT_DIRECTORY(const char* cpPlatform, const char* cpKey, std::string& sDirectory);

/* Resolves a symbolic path ("gv_ro:skel/x") on the server; a path without a
   known form of key stands as it is.
   Result  0 unknown key: sReason says which */
int iCONFIG_SERVER_PATH(const char* cpPath, std::string& sPath, std::string& sReason);

/* 1 for platform classes whose clients run the Windows command interpreter. */
int iWINDOWS_CLASS(const char* cpPlatform);
