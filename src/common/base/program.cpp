#include "program.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>

[[gnu::weak]] extern const PROGRAM sctPROGRAM{nullptr, "p:", 'p', {}};

const char* cpPROGRAM_NAME()
{
    return sctPROGRAM.cpName != nullptr ? sctPROGRAM.cpName : program_invocation_short_name;
}

std::string sENVIRONMENT(const char* cpName)
{
    const char* cp = std::getenv(cpName);
    return cp != nullptr ? cp : "";
}

std::string sBESIDE(std::string_view svName)
{
    char              szOwn[4096];
    const ssize_t     lLength = readlink("/proc/self/exe", szOwn, sizeof szOwn);
    const std::string sOwn(szOwn, lLength > 0 ? static_cast<size_t>(lLength) : 0);
    return sOwn.substr(0, sOwn.rfind('/') + 1).append(svName);
}
