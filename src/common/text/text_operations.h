/* Small text operations: copying, joining, versions, numbers, letter case. */
#pragma once

#include <features.h>

#include <cstddef>
#include <span>
#include <string_view>

#if !defined(__GLIBC__) || !__GLIBC_PREREQ(2, 38)
/* Copies, or appends so that the whole stays within uSize, terminator
   included. Return the length that was wanted. */
size_t strlcpy(char* cpDest, const char* cpSrc, size_t uSize);
size_t strlcat(char* cpDest, const char* cpSrc, size_t uSize);
#else
#include <string.h>  // has both
#endif

/* Joins texts into szBuf, up to the empty text that closes the list; iNew 1
   starts with an empty buffer, 0 appends. Cut to the array. Returns szBuf. */
char* str_chain_N(char* szBuf, size_t uSize, int iNew, std::span<const char* const> texts);
template<size_t N, class... T>
char* str_chain(char (&szBuf)[N], int iNew, const T*... texts)
{
    const char* const acpText[] = {texts...};
    return str_chain_N(szBuf, N, iNew, acpText);
}

/* Version a.b.c.d or a.b.c-d as one number,
   ((a * 10^5 + b) * 10^5 + c) * 10^5 + d. A suffix after the fourth number that
   begins with - _ ~ + or . is ignored. 0 for null and for anything else (a
   above 9000, another part above 99999, a part missing). */
long l_cli_version(const char* cpVersion);

/* true when the whole text is a number from iMin to iMax: iValue is it. */
bool bNUMBER(std::string_view svText, int iMin, int iMax, int& iValue);

/* Decimal text; valid until the next call. */
const char* intoas(long lNumber);

/* ASCII letters, in place. Return the text. */
char* uppercase(char* cpText);
char* lowercase(char* cpText);
