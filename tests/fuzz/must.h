/* What every fuzzer asks of what it tries. */
#pragma once

#include <cstdint>
#include <cstdlib>

inline void MUST(bool bTrue)
{
    if (!bTrue) abort();
}
