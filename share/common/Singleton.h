#pragma once
#include <cstddef>

#include "Assert.h"

namespace zul
{
/// Makes T a single-instance object: constructing a second T while one
/// exists, or asking for the instance when there is none, is an assertion
/// failure. The instance is whatever T object was constructed; this class
/// neither creates nor deletes it.
template <class T> class Singleton
{
public:
    Singleton()
    {
        ZUL_ASSERT(!cs_Singleton);
        cs_Singleton = this;
    }

    // May throw the assertion failure, so it is not noexcept.
    virtual ~Singleton() noexcept(false)
    {
        ZUL_ASSERT(cs_Singleton);
        cs_Singleton = NULL;
    }

    Singleton(const Singleton&) = delete;
    Singleton& operator=(const Singleton&) = delete;

    static T* GetInstance()
    {
        ZUL_ASSERT(cs_Singleton);
        return static_cast<T*>(cs_Singleton);
    }

private:
    // Kept as the base: the T is not yet built while this constructor runs,
    // so the cast to T waits until someone asks for the finished instance.
    static inline Singleton* cs_Singleton = NULL;
};
} // namespace zul
