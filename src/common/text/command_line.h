/* The one place that puts values into command lines. */
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "format.h"

/* Who reads the command line. */
enum SHELL {
    SHELL_POSIX = 0,
    SHELL_WINDOWS = 1,  // the Windows command interpreter
};

/* A word as the shell reads it back: plain words (letters, digits and
   . _ - / : = , + @, for POSIX also %) stand as they are, others are quoted. */
std::string sSHELL_WORD(SHELL eShell, std::string_view svWord);

/* A command line to be typed: the words, quoted where a POSIX shell needs it. */
std::string sTYPED(const std::vector<std::string>& asWord);

/* The same text as it stands between double quotes, without them. */
std::string sSHELL_INSIDE_QUOTES(SHELL eShell, std::string_view svWord);

/* Forms a command line. %s, %d, %ld and %% as in printf. A value stands as it
   is when it is plain; else it is quoted for the shell, or, between double
   quotes of the format (single ones too for POSIX), escaped for that place.
   An empty value that is a word of its own stays one (quotes with nothing between
   them). RAW_TEXT stands as it is.
   Result  1 formed; 0 it does not fit, or holds a character that the shell
           cannot take (a line feed on Windows): szCmd is empty then, and the
           operations refuse an empty command line. */
int iCMD_FORM(char* szCmd, size_t uSize, SHELL eShell, const char* cpFormat,
              std::span<const FORMAT_VALUE> values);

/* The limit in bytes that the last command line which was not formed was too long for;
   0 when it failed for a character. */
size_t uCMD_TOO_LONG();

template<size_t N, class... V>
int iCMD(char (&szCmd)[N], SHELL eShell, const char* cpFormat, const V&... values)
{
    const FORMAT_VALUE asctValue[sizeof...(V) + 1] = {sctVALUE(values)..., {}};
    return iCMD_FORM(szCmd, N, eShell, cpFormat, {asctValue, sizeof...(V)});
}
