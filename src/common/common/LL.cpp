/* Doubly linked list. */
#include "LL.h"

#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "../base/immortal.h"
#include "../text/pattern.h"
#include "../text/text.h"

namespace {

/* The link stands right before the data of its element, aligned so that any
   plain record may follow. The end value of a walk is null. */
struct alignas(std::max_align_t) ELEMENT {
    l_list link;
};

/* Lists and elements live until the process ends, so one owner holds all of them. */
struct OWNER {
    std::deque<s_LL>                         lists;
    std::deque<std::unique_ptr<std::byte[]>> elements;
};

OWNER& OWN()
{
    static IMMORTAL<OWNER> owner;
    return owner.Get();
}

l_list* pLINK(void* pElement)
{
    return &(static_cast<ELEMENT*>(pElement) - 1)->link;
}

void* pDATA(l_list* pLink)
{
    return pLink != nullptr ? reinterpret_cast<ELEMENT*>(pLink) + 1 : nullptr;
}

}  // namespace

t_LL ConsLL()
{
    s_LL& list = OWN().lists.emplace_back();
    list.links.u.ll = {nullptr, nullptr, 0};
    return &list;
}

void* InsLastLLf(t_LL pList, size_t uSize, const void* pData)
{
    if (pList == nullptr || (pData == nullptr && uSize > 0)) return nullptr;
    // A terminator of its own: elements are read as texts.
    auto pBytes = std::make_unique_for_overwrite<std::byte[]>(sizeof(ELEMENT) + uSize + 1);
    pBytes[sizeof(ELEMENT) + uSize] = std::byte{0};
    l_list& head = pList->links.u.ll;
    l_list* pLast = head.backward;
    l_list* pNew = &(::new (static_cast<void*>(pBytes.get())) ELEMENT)->link;
    OWN().elements.push_back(std::move(pBytes));
    *pNew = {nullptr, pLast, uSize};
    (pLast != nullptr ? pLast->forward : head.forward) = pNew;
    head.backward = pNew;
    head.size++;
    if (uSize > 0) std::memcpy(pDATA(pNew), pData, uSize);
    return pDATA(pNew);
}

size_t SizeLL(t_LL pList)
{
    return pList != nullptr ? pList->links.u.ll.size : 0;
}

void* FirstElmLL(t_LL pList)
{
    return pList != nullptr ? pDATA(pList->links.u.ll.forward) : nullptr;
}

void* NextElmLL(void* pElement)
{
    return pElement != nullptr ? pDATA(pLINK(pElement)->forward) : nullptr;
}

int IsElmLL(const void* pElement)
{
    return pElement != nullptr;
}

void* LastElmLL(t_LL pList)
{
    return pList != nullptr ? pDATA(pList->links.u.ll.backward) : nullptr;
}

int i_LL_search(t_LL pList, char* cpPattern, size_t uSize)
{
    if (uSize == 0) return 0;
    const std::string sPattern(cpPattern, strnlen(cpPattern, uSize));
    for (void* p = FirstElmLL(pList); IsElmLL(p); p = NextElmLL(p)) {
        const auto*            cpText = static_cast<const char*>(p);
        const std::string_view svLine(cpText, strnlen(cpText, pLINK(p)->size));
        if (!iPATTERN_HIT(sPattern, svLine)) continue;
        iTEXT_COPY(cpPattern, uSize, svLine);
        return 1;
    }
    return 0;
}
