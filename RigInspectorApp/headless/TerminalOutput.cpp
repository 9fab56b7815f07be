#include "TerminalOutput.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>

namespace
{
void WriteAll(int fd, std::string_view text)
{
    while (!text.empty())
    {
        const ssize_t n = ::write(fd, text.data(), text.size());
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return; // a closed pipe or a full disk must not stop the checks
        text.remove_prefix(static_cast<std::size_t>(n));
    }
}
} // namespace

void TerminalOutput::WriteLine(std::string_view text)
{
    if (m_lineFd < 0 || text.empty())
        return;
    std::lock_guard<std::mutex> guard(m_lock);
    EraseSpinnerLocked();
    WriteAll(m_lineFd, text);
}

void TerminalOutput::StartSpinner(std::function<std::optional<std::uint32_t>()> busyForMs)
{
    if (m_thread.joinable())
        return;
    m_busyForMs = std::move(busyForMs);
    m_bStop = false;
    m_thread = std::thread([this] { SpinnerLoop(); });
}

void TerminalOutput::StopSpinner()
{
    if (!m_thread.joinable())
        return;
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_bStop = true;
    }
    m_wake.notify_all();
    m_thread.join();
    std::lock_guard<std::mutex> guard(m_lock);
    EraseSpinnerLocked();
}

void TerminalOutput::EraseSpinnerLocked()
{
    if (!m_bDrawn)
        return;
    // The frame was drawn and the cursor moved back to its start: clearing to
    // the end of the line removes exactly the frame.
    WriteAll(STDERR_FILENO, "\x1b[K");
    m_bDrawn = false;
}

void TerminalOutput::SpinnerLoop()
{
    static constexpr char kFrames[] = {'|', '/', '-', '\\'};
    unsigned frame = 0;
    std::unique_lock<std::mutex> guard(m_lock);
    while (!m_bStop)
    {
        const std::optional<std::uint32_t> busy = m_busyForMs();
        if (busy && *busy >= kShowAfterMs)
        {
            const std::string text =
                std::string(" ") + kFrames[frame++ % 4] + " " + std::to_string(*busy / 1000) + "s";
            WriteAll(STDERR_FILENO, text + "\x1b[" + std::to_string(text.size()) + "D");
            m_bDrawn = true;
        }
        else
        {
            EraseSpinnerLocked();
        }
        m_wake.wait_for(guard, std::chrono::milliseconds(100), [this] { return m_bStop; });
    }
}
