#include "program.h"

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
