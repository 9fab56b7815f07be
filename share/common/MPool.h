#pragma once
#include <cstddef>
#include <list>

#include "Assert.h"
#include "CriticalSection.h"
#include "Singleton.h"

namespace zul
{
/// Allocator policy of the pool: a new default-constructed T.
template <class T> class NewAllocator
{
public:
    static T* Allocate() { return new T; }
};

/// A lock policy that does nothing, for a pool that one thread uses alone.
class NoLock
{
public:
    void Enter() {}
    void Leave() {}
};

namespace detail
{
/// Holds any lock with Enter/Leave for one scope, also through exceptions.
template <class Lock> class PoolGuard
{
public:
    explicit PoolGuard(Lock& lock) : m_pLock(&lock) { m_pLock->Enter(); }
    ~PoolGuard() { m_pLock->Leave(); }
    PoolGuard(const PoolGuard&) = delete;
    PoolGuard& operator=(const PoolGuard&) = delete;

private:
    Lock* m_pLock;
};
} // namespace detail

/// Lends objects that are expensive to make and takes them back for reuse.
/// The pool owns every object it created; a user who acquired one borrows it
/// until Release, and must release it exactly once, to this pool. T needs a
/// virtual destructor and whatever Allocator needs to make one.
template <class T, class Allocator = NewAllocator<T>, class Lock = CriticalSection>
class MPool : public Singleton<MPool<T, Allocator, Lock>>
{
public:
    explicit MPool(int nInitial)
    {
        if (nInitial > 0)
            Preallocate(nInitial);
    }

    virtual ~MPool() { Clear(); }

    /// A free resource, oldest first, or a new one; never NULL. The resource
    /// is handed out as it was released: users reset it themselves.
    virtual T* Acquire()
    {
        detail::PoolGuard<Lock> guard(m_Lock);
        T* pResource = NULL;
        if (!m_FreeResources.empty())
        {
            pResource = m_FreeResources.front();
            m_FreeResources.pop_front();
            ZUL_ASSERT(pResource != NULL);
            return pResource;
        }
        pResource = Allocator::Allocate();
        ZUL_ASSERT(pResource != NULL);
        try
        {
            m_Resources.push_back(pResource);
        }
        catch (...)
        {
            // Not owned by the pool yet: without this it would leak.
            DeleteResource(pResource);
            throw;
        }
        return pResource;
    }

    /// Takes the resource back and sets the caller's pointer to NULL. When
    /// the free list cannot take it, the resource is deleted instead and the
    /// pool shrinks by one; Release still returns normally.
    virtual void Release(T*& pResource)
    {
        detail::PoolGuard<Lock> guard(m_Lock);
        ZUL_ASSERT(pResource != NULL);
        try
        {
            m_FreeResources.push_back(pResource);
            ZUL_ASSERT(m_FreeResources.size() <= m_Resources.size());
            pResource = NULL;
        }
        catch (...)
        {
            m_Resources.remove(pResource);
            ZUL_ASSERT(m_FreeResources.size() <= m_Resources.size());
            DeleteResource(pResource);
        }
    }

    /// Creates n free resources in a pool that has made none yet.
    void Preallocate(int n)
    {
        detail::PoolGuard<Lock> guard(m_Lock);
        ZUL_ASSERT(m_Resources.size() == 0);
        ZUL_ASSERT(m_FreeResources.size() == 0);
        for (int i = 0; i < n; ++i)
        {
            T* pResource = Allocator::Allocate();
            ZUL_ASSERT(pResource != NULL);
            try
            {
                m_Resources.push_back(pResource);
            }
            catch (...)
            {
                DeleteResource(pResource);
                throw;
            }
            m_FreeResources.push_back(pResource);
        }
    }

    /// Deletes every resource the pool owns, also those still lent out: their
    /// holders' pointers are no longer valid.
    void Clear()
    {
        detail::PoolGuard<Lock> guard(m_Lock);
        while (!m_Resources.empty())
        {
            try
            {
                DeleteResource(m_Resources.front());
            }
            catch (...)
            {
                // One failing destructor must not keep the rest alive.
            }
            m_Resources.pop_front();
        }
        m_Resources.clear();
        m_FreeResources.clear();
    }

    static void DeleteResource(T*& pResource)
    {
        // The expression text is part of the assertion record: keep it as written.
        // clang-format off
        ZUL_ASSERT(pResource!=NULL);
        // clang-format on
        delete pResource;
        pResource = NULL;
    }

    /// Counts for tests and diagnostics.
    std::size_t GetResourceCount()
    {
        detail::PoolGuard<Lock> guard(m_Lock);
        return m_Resources.size();
    }
    std::size_t GetFreeResourceCount()
    {
        detail::PoolGuard<Lock> guard(m_Lock);
        return m_FreeResources.size();
    }

private:
    std::list<T*> m_FreeResources;
    std::list<T*> m_Resources;
    Lock m_Lock;
};

/// The pool that threads may share: every operation holds its CriticalSection.
template <class T, class Allocator = NewAllocator<T>>
class MThreadedPool : public MPool<T, Allocator, CriticalSection>
{
public:
    explicit MThreadedPool(int nInitial) : MPool<T, Allocator, CriticalSection>(nInitial) {}
    virtual ~MThreadedPool() {}
};
} // namespace zul
