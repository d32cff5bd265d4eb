/* Which known word somebody may have meant. */
#include "likeness.h"

#include <algorithm>

namespace {

constexpr size_t uNEAR = 2;

char cSMALL(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/* Bytes that both begin with, letter case included. */
size_t uSAME_BEGINNING(std::string_view svOne, std::string_view svOther)
{
    const size_t uMost = std::min(svOne.size(), svOther.size());
    size_t       u = 0;
    while (u < uMost && svOne[u] == svOther[u]) u++;
    return u;
}

}  // namespace

size_t uDISTANCE(std::string_view svOne, std::string_view svOther)
{
    const size_t        uWidth = svOther.size() + 1;
    std::vector<size_t> cost(uWidth * (svOne.size() + 1));
    const auto          at = [&](size_t u, size_t v) -> size_t& { return cost[u * uWidth + v]; };
    const auto          bSame = [&](size_t u, size_t v) {
        return cSMALL(svOne[u - 1]) == cSMALL(svOther[v - 1]);
    };
    for (size_t u = 0; u <= svOne.size(); u++) {
        for (size_t v = 0; v <= svOther.size(); v++) {
            if (u == 0 || v == 0) {
                at(u, v) = u + v;
                continue;
            }
            at(u, v) = std::min(
                {at(u - 1, v) + 1, at(u, v - 1) + 1, at(u - 1, v - 1) + (bSame(u, v) ? 0 : 1)});
            if (u > 1 && v > 1 && cSMALL(svOne[u - 1]) == cSMALL(svOther[v - 2]) &&
                cSMALL(svOne[u - 2]) == cSMALL(svOther[v - 1]))
                at(u, v) = std::min(at(u, v), at(u - 2, v - 2) + 1);
        }
    }
    return cost.back();
}

std::string_view svNEAREST(std::string_view svWord, const std::vector<std::string_view>& known)
{
    std::string_view svBest;
    size_t           uBest = std::min(uNEAR + 1, (svWord.size() + 1) / 2);
    if (svWord.size() > 256) return svBest;
    for (const std::string_view svKnown : known) {
        const size_t uAway = uDISTANCE(svWord, svKnown);
        const bool   bNearer = uAway == uBest && !svBest.empty() &&
                             uSAME_BEGINNING(svWord, svKnown) > uSAME_BEGINNING(svWord, svBest);
        if (uAway >= uBest && !bNearer) continue;
        uBest = uAway;
        svBest = svKnown;
    }
    return svBest;
}
