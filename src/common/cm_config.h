/* The configuration of the installation: vk.ini, named by the environment
   variable VK_INI, else /etc/velka/vk.ini. A missing file means defaults only.
   A value that makes no sense is told once on standard error with key and
   value, and its default holds. Read once, by v_set_log_main or by the first
   question. */
#pragma once

#include <string>

/* 1 the configuration is usable; 0 the file cannot be read or parsed (told on
   standard error with file and line number). */
int iCONFIG_VALID();

/* The next question reads the configuration again: for a program that changes
   its VK_INI while it runs, such as a test. */
void v_CONFIG_FORGET();

/* The file that was read, "" when there is none. */
const char* cpCONFIG_FILE();

/* A configuration variable (gv_...): the environment variable of that name,
   else [variables] of vk.ini, else the built-in default. Directory values end
   with their separator.
   Result  0 the variable is neither set nor has a default */
int iCONFIG_VARIABLE(const char* cpName, std::string& sValue);

/* Text after [section] key, or cpDefault. */
std::string sCONFIG_TEXT(const char* cpSection, const char* cpKey, const char* cpDefault);

/* Numbers of the installation, checked; seconds where they are times. */
int iCONFIG_TRACE_LEVEL();        // 0: no trace
int iCONFIG_PARALLEL();           // at least 1
int iCONFIG_STATEMENT_TIMEOUT();  // 0: none
int iCONFIG_CONNECT_TIMEOUT();
int iCONFIG_IDLE_TIMEOUT();
int iCONFIG_TOTAL_TIMEOUT();
int iCONFIG_UPDATE_WAIT();  // gv_update_wait

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

/* Makes sDirectory and its parents (mode 0750). Result 0: errno says why. */
int iMAKE_DIRECTORY(const std::string& sDirectory);
