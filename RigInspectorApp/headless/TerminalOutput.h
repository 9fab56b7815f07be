#pragma once
// The CLI's terminal output: the live report lines on one stream and, while a
// step runs longer than a moment, a spinner with the elapsed seconds on
// standard error. Both write under one lock, so a line never lands in the
// middle of a spinner frame.
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>

class TerminalOutput
{
public:
    /// lineFd: where the live lines go; nothing is written there when -1.
    explicit TerminalOutput(int lineFd) : m_lineFd(lineFd) {}
    ~TerminalOutput() { StopSpinner(); }
    TerminalOutput(const TerminalOutput&) = delete;
    TerminalOutput& operator=(const TerminalOutput&) = delete;

    void WriteLine(std::string_view text);

    /// Starts the drawing thread. busyForMs tells how long the UI thread has
    /// been inside a step (nothing between steps); it is only read, so the
    /// step itself runs exactly as without the spinner.
    void StartSpinner(std::function<std::optional<std::uint32_t>()> busyForMs);
    void StopSpinner();

private:
    void SpinnerLoop();
    void EraseSpinnerLocked();

    static constexpr std::uint32_t kShowAfterMs = 300;

    int m_lineFd;
    std::mutex m_lock;
    std::condition_variable m_wake;
    bool m_bStop = false;
    bool m_bDrawn = false;
    std::function<std::optional<std::uint32_t>()> m_busyForMs;
    std::thread m_thread;
};
