/* Search patterns and Perl-compatible matching. */
#include "pattern.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>
#include <strings.h>

#include <cstring>
#include <list>
#include <memory>

#include "../base/holder.h"
#include "../base/immortal.h"

namespace {

/* Ends a match that would go on for minutes: far above what any package name
   needs, far below a second. */
constexpr uint32_t uMATCH_LIMIT = 100'000;
constexpr uint32_t uDEPTH_LIMIT = 10'000;
constexpr uint32_t uHEAP_KIB = 20'000;

using CODE = std::unique_ptr<pcre2_code, FREE_BY<pcre2_code_free>>;
using MATCH_DATA = std::unique_ptr<pcre2_match_data, FREE_BY<pcre2_match_data_free>>;
using MATCH_CONTEXT = std::unique_ptr<pcre2_match_context, FREE_BY<pcre2_match_context_free>>;

bool bWORD_END(std::string_view sv, size_t u)
{
    return u >= sv.size() || std::strchr(" \t\r\n", sv[u]) != nullptr;
}

int iNAME_HIT(std::string_view svName, std::string_view svLine)
{
    if (svName.empty()) return 0;
    svLine = svLine.substr(0, svLine.find('#'));
    for (size_t u = 0; u + svName.size() <= svLine.size(); u++)
        if ((u == 0 || bWORD_END(svLine, u - 1)) && bWORD_END(svLine, u + svName.size()) &&
            strncasecmp(svName.data(), svLine.data() + u, svName.size()) == 0)
            return 1;
    return 0;
}

/* A text that stays until the process ends. */
char* cpKEPT(const char* cpText, size_t uLength)
{
    static IMMORTAL<std::list<std::string>> texts;
    return texts.Get().emplace_back(cpText, uLength).data();
}

char* cpCAPTURE(pcre2_match_data* pMatch, const char* cpSubject, uint32_t uGroup)
{
    const PCRE2_SIZE* puOffset = pcre2_get_ovector_pointer(pMatch);
    if (uGroup >= pcre2_get_ovector_count(pMatch)) return nullptr;
    const PCRE2_SIZE uBegin = puOffset[2 * size_t{uGroup}];
    const PCRE2_SIZE uEnd = puOffset[2 * size_t{uGroup} + 1];
    if (uBegin == PCRE2_UNSET || uEnd < uBegin) return nullptr;
    return cpKEPT(cpSubject + uBegin, uEnd - uBegin);
}

}  // namespace

int iPATTERN_HIT(std::string_view svPattern, std::string_view svLine)
{
    if (!svPattern.ends_with('^')) return iNAME_HIT(svPattern, svLine);
    svPattern.remove_suffix(1);
    while (true) {
        const size_t           uBar = svPattern.find('|');
        const std::string_view svPiece = svPattern.substr(0, uBar);
        if (!svPiece.empty() && svPiece != "OR" && svLine.find(svPiece) != svLine.npos) return 1;
        if (uBar == svPattern.npos) return 0;
        svPattern.remove_prefix(uBar + 1);
    }
}

void pscanf(const char* cpSubject, const char* cpPattern, char** ppFirst, char** ppSecond)
{
    *ppFirst = nullptr;
    *ppSecond = nullptr;
    if (cpSubject == nullptr || cpPattern == nullptr) return;
    int        iError = 0;
    PCRE2_SIZE uError = 0;
    const CODE pCode{pcre2_compile(reinterpret_cast<PCRE2_SPTR>(cpPattern), PCRE2_ZERO_TERMINATED,
                                   0, &iError, &uError, nullptr)};
    if (!pCode) return;
    const MATCH_DATA    pMatch{pcre2_match_data_create_from_pattern(pCode.get(), nullptr)};
    const MATCH_CONTEXT pContext{pcre2_match_context_create(nullptr)};
    if (!pMatch || !pContext) return;
    pcre2_set_match_limit(pContext.get(), uMATCH_LIMIT);
    pcre2_set_depth_limit(pContext.get(), uDEPTH_LIMIT);
    pcre2_set_heap_limit(pContext.get(), uHEAP_KIB);
    if (pcre2_match(pCode.get(), reinterpret_cast<PCRE2_SPTR>(cpSubject), std::strlen(cpSubject), 0,
                    0, pMatch.get(), pContext.get()) < 0)
        return;
    *ppFirst = cpCAPTURE(pMatch.get(), cpSubject, 1);
    *ppSecond = cpCAPTURE(pMatch.get(), cpSubject, 2);
}
