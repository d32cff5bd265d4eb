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

/* A number from iMin to iMax out of sText, which stands under [section] key;
   iDefault when it is empty, and, told once on standard error, when it is none. */
int iCONFIG_NUMBER(const char* cpSection, const char* cpKey, const std::string& sText, int iDefault,
                   int iMin, int iMax);
