/* Standard error, and what every output line has in common: made
   harmless, and written by one write. */
#pragma once

#include <cstdarg>
#include <string>

/* One line on standard error, control characters made harmless, passwords
   masked. v_STDERR_ONCE tells a text with the same cpKey only once per run. */
void v_STDERR(const char* cpFormat, ...) __attribute__((format(printf, 1, 2)));
void v_STDERR_ONCE(const char* cpKey, const char* cpFormat, ...)
    __attribute__((format(printf, 2, 3)));

/* Formats like vprintf. */
std::string sFORMATTED(const char* cpFormat, va_list args) __attribute__((format(printf, 1, 0)));

/* The same; passwords are masked in the values of %s, never in the format's own words. */
std::string sFORMATTED_MASKED(const char* cpFormat, va_list args)
    __attribute__((format(printf, 1, 0)));

/* "cannot VERB "OBJECT": CAUSE" by errno; iCANNOT puts it into sReason, and gives 0. */
std::string sCANNOT(const char* cpVerb, const std::string& sObject);
int         iCANNOT(const char* cpVerb, const std::string& sObject, std::string& sReason);

/* Puts a text into sReason, and gives 0. */
int iREASON(std::string& sReason, std::string sText);

/* Passwords masked, control characters and invalid UTF-8 replaced. */
std::string sSAFE_LINE(const std::string& sText);
