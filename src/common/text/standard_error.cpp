/* Lines on standard error, and the forming of lines in general. */
#include "standard_error.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <set>

#include "immortal.h"
#include "program.h"
#include "secret.h"
#include "text.h"

namespace {

void STDERR_LINE(const std::string& sText)
{
    iWRITE_WHOLE(STDERR_FILENO, std::string(cpPROGRAM_NAME()) + ": " + sSAFE_LINE(sText) + "\n");
}

}  // namespace

std::string sFORMATTED(const char* cpFormat, va_list args)
{
    va_list again;
    va_copy(again, args);
    const int   iLength = std::vsnprintf(nullptr, 0, cpFormat, args);
    std::string s(iLength > 0 ? static_cast<size_t>(iLength) : 0, '\0');
    if (iLength > 0) std::vsnprintf(s.data(), s.size() + 1, cpFormat, again);
    va_end(again);
    return s;
}

std::string sSAFE_LINE(const std::string& sText)
{
    return sONE_LINE(sMASKED(sText));
}

int iWRITE_WHOLE(int iFd, const std::string& sText)
{
    errno = ENOSPC;  // what a write that stopped halfway means
    const ssize_t iWritten = write(iFd, sText.data(), sText.size());
    return iWritten == static_cast<ssize_t>(sText.size());
}

void v_STDERR(const char* cpFormat, ...)
{
    va_list args;
    va_start(args, cpFormat);
    const std::string sText = sFORMATTED(cpFormat, args);
    va_end(args);
    STDERR_LINE(sText);
}

void v_STDERR_ONCE(const char* cpKey, const char* cpFormat, ...)
{
    static IMMORTAL<std::set<std::string>> told;
    if (!told.Get().insert(cpKey).second) return;
    va_list args;
    va_start(args, cpFormat);
    const std::string sText = sFORMATTED(cpFormat, args);
    va_end(args);
    STDERR_LINE(sText);
}
