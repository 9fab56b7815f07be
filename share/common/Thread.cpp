#include "Thread.h"

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <thread>

#include "Assert.h"
#include "Platform.h"

namespace zul
{
namespace
{
enum class WaitOutcome
{
    Ended,
    TimedOut,
    Abandoned, // kept for the platforms whose waits report it; never produced here
    Failed
};

/// What the worker and the owner share. The worker holds it too, so it
/// outlives the object should the worker ever run past the destructor.
struct SharedState
{
    std::mutex mutex;
    std::condition_variable changed;
    bool idKnown = false;
    bool released = false;  // a suspended start stays at the gate until this
    bool dismissed = false; // released without running Run (never-resumed start)
    bool ended = false;
    std::uint32_t threadId = 0;
    unsigned int exitCode = 0;
    std::exception_ptr failure;
};
} // namespace

struct Thread::Handle
{
    std::shared_ptr<SharedState> state = std::make_shared<SharedState>();
    std::thread thread;
};

Thread::Thread(const char16_t* name)
    : m_hThreadHandle(nullptr), m_ThreadId(0xFFFFFFFFu), m_Name(name != nullptr ? name : u""), m_LastError(0)
{
}

// Start(true) has no resume operation to follow it, so a suspended thread
// never runs Run: Wait fails at once (EDEADLK) instead of waiting for ever,
// and the destructor dismisses it at its gate and joins it, which neither
// leaks the thread nor hangs.
//
// A started thread that is still running when the object is destroyed is
// joined, not detached or terminated: the owner must have waited for it, and
// joining at least keeps the process alive and the thread's own state valid.
// A subclass that may be destroyed early should Stop and Wait in its own
// destructor, while its Run can still see its fields.
Thread::~Thread()
{
    if (m_hThreadHandle == nullptr)
        return;
    {
        std::lock_guard<std::mutex> lock(m_hThreadHandle->state->mutex);
        if (!m_hThreadHandle->state->released)
        {
            m_hThreadHandle->state->released = true;
            m_hThreadHandle->state->dismissed = true;
            m_hThreadHandle->state->changed.notify_all();
        }
    }
    if (m_hThreadHandle->thread.joinable())
    {
        // A thread destroying its own object cannot join itself; the shared
        // state it holds keeps it safe after the handle is gone.
        if (m_hThreadHandle->thread.get_id() == std::this_thread::get_id())
            m_hThreadHandle->thread.detach();
        else
            m_hThreadHandle->thread.join();
    }
    delete m_hThreadHandle;
    m_hThreadHandle = nullptr;
}

void Thread::Start(bool suspended)
{
    // One thread per object: a second Start would orphan the first.
    ZUL_ASSERT(m_hThreadHandle == NULL);
    // The handle is in place before the thread exists, so the worker reads
    // it without a race.
    m_hThreadHandle = new Handle;
    std::shared_ptr<SharedState> state = m_hThreadHandle->state;
    state->released = !suspended;
    try
    {
        m_hThreadHandle->thread = std::thread(
            [state, this]
            {
                std::unique_lock<std::mutex> lock(state->mutex);
                state->threadId = platform::CurrentThreadId();
                state->idKnown = true;
                state->changed.notify_all();
                state->changed.wait(lock, [&] { return state->released; });
                const bool run = !state->dismissed;
                lock.unlock();
                const unsigned int exitCode = run ? ThreadProc(this) : 0;
                lock.lock();
                state->exitCode = exitCode;
                state->ended = true;
                state->changed.notify_all();
            });
    }
    catch (...) // no thread (std::system_error) or no memory for one
    {
        delete m_hThreadHandle;
        m_hThreadHandle = nullptr;
    }
    ZUL_ASSERT(m_hThreadHandle != NULL);

    // The identifier is known before Start returns, as the creation call
    // reports it on other platforms.
    std::unique_lock<std::mutex> lock(state->mutex);
    state->changed.wait(lock, [&] { return state->idKnown; });
    m_ThreadId = state->threadId;
}

namespace
{
WaitOutcome WaitForEnd(SharedState& state, std::uint32_t timeout, std::uint32_t& error)
{
    std::unique_lock<std::mutex> lock(state.mutex);
    if (state.ended)
        return WaitOutcome::Ended;
    // A thread waiting for itself, or for a suspended thread that nothing
    // can resume, would wait for ever: fail at once instead.
    if (!state.released || (state.idKnown && state.threadId == platform::CurrentThreadId()))
    {
        error = EDEADLK;
        return WaitOutcome::Failed;
    }
    const auto ended = [&] { return state.ended; };
    if (timeout == INFINITE_WAIT)
    {
        state.changed.wait(lock, ended);
        return WaitOutcome::Ended;
    }
    return state.changed.wait_for(lock, std::chrono::milliseconds(timeout), ended) ? WaitOutcome::Ended
                                                                                   : WaitOutcome::TimedOut;
}
} // namespace

bool Thread::Wait(std::uint32_t timeout)
{
    // Waiting for a thread that was never started fails like a wait on an
    // invalid handle, with "no such thread" as the code.
    std::uint32_t error = ESRCH;
    const WaitOutcome outcome = m_hThreadHandle == nullptr
                                    ? WaitOutcome::Failed
                                    : WaitForEnd(*m_hThreadHandle->state, timeout, error);
    switch (outcome)
    {
    case WaitOutcome::Ended:
        return true;
    case WaitOutcome::TimedOut:
    case WaitOutcome::Abandoned:
        return false;
    case WaitOutcome::Failed:
        m_LastError = error;
        return false;
    }
    ZUL_ASSERT(NEVER_GET_HERE);
    return false;
}

// An exception escaping Run would end the process from a worker thread; it is
// kept instead, and the owner asks for it with GetFailure after Wait.
unsigned int Thread::ThreadProc(void* pThread)
{
    Thread* thread = static_cast<Thread*>(pThread);
    try
    {
        return thread->Run();
    }
    catch (...)
    {
        if (thread->m_hThreadHandle != nullptr)
        {
            std::lock_guard<std::mutex> lock(thread->m_hThreadHandle->state->mutex);
            thread->m_hThreadHandle->state->failure = std::current_exception();
        }
        return 0;
    }
}

unsigned int Thread::GetExitCode() const
{
    if (m_hThreadHandle == nullptr)
        return 0;
    std::lock_guard<std::mutex> lock(m_hThreadHandle->state->mutex);
    return m_hThreadHandle->state->ended ? m_hThreadHandle->state->exitCode : 0;
}

std::exception_ptr Thread::GetFailure() const
{
    if (m_hThreadHandle == nullptr)
        return nullptr;
    std::lock_guard<std::mutex> lock(m_hThreadHandle->state->mutex);
    return m_hThreadHandle->state->failure;
}
} // namespace zul
