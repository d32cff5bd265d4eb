/* Small text operations: versions, numbers, letter case, joining. */
#include "text_operations.h"

#include <charconv>
#include <cstring>

#include "text.h"

namespace {

constexpr long lFIRST_MAX = 9000;  // a * 10^15 must fit a long
constexpr long lPART_MAX = 99999;

/* Takes a decimal number off the front of sv. Result 0: there is none, or it is
   above lMax. */
int iTAKE_NUMBER(std::string_view& sv, long lMax, long& lNumber)
{
    if (sv.empty() || sv[0] < '0' || sv[0] > '9') return 0;
    const auto [cpEnd, eError] = std::from_chars(sv.data(), sv.data() + sv.size(), lNumber);
    if (eError != std::errc() || lNumber > lMax) return 0;
    sv.remove_prefix(static_cast<size_t>(cpEnd - sv.data()));
    return 1;
}

int iTAKE_ONE_OF(std::string_view& sv, const char* cpCharacters)
{
    if (sv.empty() || std::strchr(cpCharacters, sv[0]) == nullptr) return 0;
    sv.remove_prefix(1);
    return 1;
}

}  // namespace

#if !defined(__GLIBC__) || !__GLIBC_PREREQ(2, 38)
size_t strlcpy(char* cpDest, const char* cpSrc, size_t uSize)
{
    iTEXT_COPY(cpDest, uSize, cpSrc);
    return std::strlen(cpSrc);
}

size_t strlcat(char* cpDest, const char* cpSrc, size_t uSize)
{
    const size_t uOld = strnlen(cpDest, uSize);
    if (uOld < uSize) iTEXT_COPY(cpDest + uOld, uSize - uOld, cpSrc);
    return uOld + std::strlen(cpSrc);
}
#endif

char* str_chain_N(char* szBuf, size_t uSize, int iNew, std::span<const char* const> texts)
{
    if (uSize == 0) return szBuf;
    size_t uUsed = iNew != 0 ? 0 : strnlen(szBuf, uSize - 1);
    szBuf[uUsed] = '\0';
    for (const char* cpText : texts) {
        if (cpText == nullptr || *cpText == '\0') break;
        if (!iTEXT_COPY(szBuf + uUsed, uSize - uUsed, cpText)) break;
        uUsed += std::strlen(szBuf + uUsed);
    }
    return szBuf;
}

long l_cli_version(const char* cpVersion)
{
    if (cpVersion == nullptr) return 0;
    constexpr const char* acpSeparator[] = {".", ".", ".-"};
    std::string_view      sv = cpVersion;
    long                  lVersion = 0;
    if (!iTAKE_NUMBER(sv, lFIRST_MAX, lVersion)) return 0;
    for (const char* cpSeparator : acpSeparator) {
        long lPart = 0;
        if (!iTAKE_ONE_OF(sv, cpSeparator) || !iTAKE_NUMBER(sv, lPART_MAX, lPart)) return 0;
        lVersion = lVersion * (lPART_MAX + 1) + lPart;
    }
    return sv.empty() || iTAKE_ONE_OF(sv, "-_~+.") ? lVersion : 0;
}

bool bNUMBER(std::string_view svText, int iMin, int iMax, int& iValue)
{
    const char* cpEnd = svText.data() + svText.size();
    const auto [cpStop, eError] = std::from_chars(svText.data(), cpEnd, iValue);
    return eError == std::errc() && cpStop == cpEnd && iValue >= iMin && iValue <= iMax;
}

const char* intoas(long lNumber)
{
    static char szNumber[24];
    x_Snprintf(szNumber, sizeof szNumber, "%ld", lNumber);
    return szNumber;
}

char* uppercase(char* cpText)
{
    for (char* cp = cpText; *cp != '\0'; cp++)
        if (*cp >= 'a' && *cp <= 'z') *cp = static_cast<char>(*cp - 'a' + 'A');
    return cpText;
}

char* lowercase(char* cpText)
{
    for (char* cp = cpText; *cp != '\0'; cp++)
        if (*cp >= 'A' && *cp <= 'Z') *cp = static_cast<char>(*cp - 'A' + 'a');
    return cpText;
}
