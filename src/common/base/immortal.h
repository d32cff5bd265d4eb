/* An object that is never destroyed. What the end of the process still uses
   (texts handed out until then, the database connection, the known passwords)
   must not fall to the destructors of static objects, which run in an order of
   their own. The storage is static, so nothing counts as lost. */
#pragma once

#include <cstddef>
#include <new>

template<class T>
class IMMORTAL {
public:
    IMMORTAL() { ::new (static_cast<void*>(m_storage)) T(); }
    IMMORTAL(const IMMORTAL&) = delete;
    IMMORTAL& operator=(const IMMORTAL&) = delete;
    T&        Get() { return *std::launder(reinterpret_cast<T*>(m_storage)); }

private:
    alignas(T) std::byte m_storage[sizeof(T)]{};
};
