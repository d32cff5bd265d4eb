/* The configuration of the installation: vk.ini, named by the environment
   variable VK_INI, else /etc/velka/vk.ini. A missing file means defaults only; one
   that VK_INI names is told. A value that makes no sense, an unknown key and an
   unknown section (keys.h) are told in one line each on standard error, with file
   and line number, when the file is read; the default holds. Read once, by
   v_set_log_main or by the first question. */
#pragma once

#include <string>
#include <string_view>

/* In the environment of a child run: its parent has told what is wrong with the file. */
inline constexpr const char* cpCONFIG_TOLD = "VK_INI_TOLD";

/* 1 the configuration is usable; 0 the file cannot be read or parsed (told on
   standard error with file and line number). */
int iCONFIG_VALID();

/* The next question reads the configuration again: for a program that changes
   its VK_INI while it runs, such as a test. */
void v_CONFIG_FORGET();

/* The file that was read, "" when there is none. */
const char* cpCONFIG_FILE();

/* Text after [section] key, or cpDefault. */
std::string sCONFIG_TEXT(const char* cpSection, const char* cpKey, const char* cpDefault);

/* Numbers of the installation, checked; seconds where they are times. */
int iCONFIG_TRACE_LEVEL();        // 0: no trace
int iCONFIG_PARALLEL();           // at least 1
int iCONFIG_STATEMENT_TIMEOUT();  // 0: none
int iCONFIG_RETRY_TIME();         // of a busy or restarting database; 0: never
int iCONFIG_CONNECT_TIMEOUT();
int iCONFIG_IDLE_TIMEOUT();
int iCONFIG_TOTAL_TIMEOUT();

/* 1 when vk.ini has the section. */
int iCONFIG_SECTION(const std::string& sSection);

/* The number under a key of keys.h, its default when it is not set or makes no sense. */
int iCONFIG_NUMBER(std::string_view svSection, std::string_view svKey);

/* The number of a variable of keys.h, of which the environment has sText (empty: it
   has none); one that makes no sense is told once. */
int iCONFIG_NUMBER_OF(const char* cpVariable, const std::string& sText);
