#include "program.h"

#include <cerrno>

[[gnu::weak]] extern const PROGRAM sctPROGRAM{nullptr, "p:", 'p', {}};

const char* cpPROGRAM_NAME()
{
    return sctPROGRAM.cpName != nullptr ? sctPROGRAM.cpName : program_invocation_short_name;
}
