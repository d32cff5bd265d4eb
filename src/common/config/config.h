/* The configuration of the installation: vk.ini, named by the environment
   variable VK_INI, else /etc/velka/vk.ini. A missing file means defaults only; one
   that VK_INI names is reported. An invalid value, an unknown key and an
   unknown section (keys.h) are reported in one line each on standard error, with file
   and line number, when the file is read; the default is used. Read once, by
   v_set_log_main or by the first question. */
#pragma once

#include <string>
#include <string_view>

/* In the environment of a child run: its parent has told what is wrong with the file. */
inline constexpr const char* cpCONFIG_TOLD = "VK_INI_TOLD";

/* 1 the configuration is usable; 0 the file cannot be read or parsed (told on
   standard error with file and line number). */
int iCONFIG_VALID();

/* The line that cannot be parsed, 0 where that is not the trouble. */
int iCONFIG_BAD_LINE();

/* The next question reads the configuration again: for a program that changes
   its VK_INI while it runs, such as a test. */
void v_CONFIG_FORGET();

/* The file that is read where it is there: VK_INI's, else the system's. */
std::string sCONFIG_PLACE();

/* Text after [section] key, or cpDefault. */
std::string sCONFIG_TEXT(const char* cpSection, const char* cpKey, const char* cpDefault);

/* 1 when vk.ini has the section. */
int iCONFIG_SECTION(const std::string& sSection);

/* The number under a key of keys.h, its default when it is not set or makes no sense. */
int iCONFIG_NUMBER(std::string_view svSection, std::string_view svKey);

/* Numbers of the installation; seconds where they are times. */
// clang-format off
inline int iCONFIG_TRACE_LEVEL() { return iCONFIG_NUMBER("general", "trace_level"); }  // 0: no trace
inline int iCONFIG_PARALLEL() { return iCONFIG_NUMBER("general", "parallel"); }        // at least 1
inline int iCONFIG_STATEMENT_TIMEOUT() { return iCONFIG_NUMBER("database", "statement_timeout"); }  // 0: none
inline int iCONFIG_RETRY_TIME() { return iCONFIG_NUMBER("database", "retry_time"); }  // 0: never
inline int iCONFIG_CONNECT_TIMEOUT() { return iCONFIG_NUMBER("remote", "connect_timeout"); }
inline int iCONFIG_IDLE_TIMEOUT() { return iCONFIG_NUMBER("remote", "idle_timeout"); }
inline int iCONFIG_TOTAL_TIMEOUT() { return iCONFIG_NUMBER("remote", "total_timeout"); }
// clang-format on

/* The number of a variable of keys.h; the environment's goes before the file's. One there
   that makes no sense is told once. */
int iCONFIG_VARIABLE_NUMBER(const char* cpVariable);

/* Seconds. */
inline int iCONFIG_UPDATE_WAIT()
{
    return iCONFIG_VARIABLE_NUMBER("gv_update_wait");
}

/* The number of a variable that limits what a run may do.
   iValue  0 where it is not set
   Result  0: what is set is no number, which is told; the run must not go on without it */
int iCONFIG_BRAKE(const char* cpVariable, int& iValue);

/* Tells every variable of the environment whose name begins so and that there is not, with
   the one that may be meant. */
void v_CONFIG_TELL_UNKNOWN(std::string_view svBegin);
