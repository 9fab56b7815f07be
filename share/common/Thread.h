#pragma once
#include <cstdint>
#include <exception>

#include "TString.h"

namespace zul
{
/// Wait time-out that never expires.
constexpr std::uint32_t INFINITE_WAIT = 0xFFFFFFFFu;

/// Base of an object that owns one worker thread running Run(). The owner
/// constructs it, sets parameters, Start(false), Wait(INFINITE_WAIT), reads the
/// results and destroys it. The thread never owns or deletes the object.
class Thread
{
public:
    explicit Thread(const char16_t* name);
    explicit Thread(const tstring& name) : Thread(name.c_str()) {}
    virtual ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// A request to Run to finish early; this base does nothing.
    virtual void Stop() {}
    /// The thread body; its result is the thread's exit code.
    virtual unsigned int Run() = 0;

    /// Creates the thread. Failure to create it is the assertion failure
    /// "m_hThreadHandle != NULL". See Thread.cpp for what suspended means here.
    void Start(bool suspended);

    /// Waits up to timeout ms: true when the thread has ended; false on time-out,
    /// abandonment or failure (then GetLastError() holds the code).
    bool Wait(std::uint32_t timeout);

    /// The entry function: runs pThread->Run() and keeps any exception that
    /// escapes it instead of letting it end the process.
    static unsigned int ThreadProc(void* pThread);

    std::uint32_t GetLastError() const { return m_LastError; }
    std::uint32_t GetThreadId() const { return m_ThreadId; }
    const tstring& GetName() const { return m_Name; }
    /// Run's result once the thread has ended (0 before, or after an exception).
    unsigned int GetExitCode() const;
    /// The exception that escaped Run, if any; valid after Wait returned true.
    std::exception_ptr GetFailure() const;

private:
    struct Handle;
    Handle* m_hThreadHandle;
    std::uint32_t m_ThreadId;
    tstring m_Name;
    std::uint32_t m_LastError;
};
} // namespace zul
