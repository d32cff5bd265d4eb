/* Objects that are never destroyed. What the end of the process still uses
   (texts handed out until then, the database connection, the known passwords)
   must not be destroyed by the destructors of static objects, whose order is not
   fixed. The storage is static, so nothing counts as lost.

   Such an object belongs to one run of the program. A process that is
   forked to begin another run makes them anew (v_RUN_OBJECTS_ANEW), except the
   LASTING ones, which belong to both. */
#pragma once

#include <cstddef>
#include <memory>
#include <new>

/* Destroys and makes anew all that belongs to a run. */
void v_RUN_OBJECTS_ANEW();

/* A place in the list of those that belong to a run. */
class RUN_OBJECT {
public:
    explicit RUN_OBJECT(void (*pAnew)(RUN_OBJECT*));
    RUN_OBJECT(const RUN_OBJECT&) = delete;
    RUN_OBJECT& operator=(const RUN_OBJECT&) = delete;

private:
    friend void v_RUN_OBJECTS_ANEW();

    void (*m_pAnew)(RUN_OBJECT*);
    RUN_OBJECT* m_pNext;
};

template<class T>
class LASTING {
public:
    LASTING() { ::new (static_cast<void*>(m_storage)) T(); }
    LASTING(const LASTING&) = delete;
    LASTING& operator=(const LASTING&) = delete;
    T&       Get() { return *std::launder(reinterpret_cast<T*>(m_storage)); }

private:
    alignas(T) std::byte m_storage[sizeof(T)]{};
};

template<class T>
class IMMORTAL : RUN_OBJECT {
public:
    IMMORTAL() : RUN_OBJECT(Anew) {}
    T& Get() { return m_object.Get(); }

private:
    static void Anew(RUN_OBJECT* pObject)
    {
        T& object = static_cast<IMMORTAL*>(pObject)->Get();
        std::destroy_at(&object);
        ::new (static_cast<void*>(&object)) T();
    }

    LASTING<T> m_object;
};
