#include "immortal.h"

namespace {

RUN_OBJECT* pLast = nullptr;  // made last; the others follow

}  // namespace

RUN_OBJECT::RUN_OBJECT(void (*pAnew)(RUN_OBJECT*)) : m_pAnew(pAnew), m_pNext(pLast)
{
    pLast = this;
}

void v_RUN_OBJECTS_ANEW()
{
    for (RUN_OBJECT* pObject = pLast; pObject != nullptr; pObject = pObject->m_pNext)
        pObject->m_pAnew(pObject);
}
