#pragma once
// The TCP speed test's worker: 512 KB up, then 512 KB down, over one
// connection; the check reads the figures once the thread has ended.
#include <atomic>
#include <cstdint>

#include "share/common/TString.h"
#include "share/common/Thread.h"

namespace zul::socket
{
class MSocket;
}

class TcpChecker : public zul::Thread
{
public:
    static const tstring s_DefaultHost;

    static constexpr int kBlockSize = 1024;
    static constexpr int kBlockCount = 512;
    /// What the client's kernel may hold of the upload (the kernel doubles
    /// it for its own bookkeeping). See Run for why it is small.
    static constexpr int kSendBufferSize = 16 * 1024;

    explicit TcpChecker(const tstring& name);
    ~TcpChecker() override;

    void Stop() override { m_bRunning = false; }
    unsigned int Run() override;

    void Reset();
    /// False when the phase ran out of time or a send failed.
    bool Upload(zul::socket::MSocket& socket, int nBlocks);
    void Download(zul::socket::MSocket& socket, int nBlocks);
    /// Waits until the peer has acknowledged every byte sent, at most until
    /// the phase that began at tick start runs out of time (then false).
    bool WaitUntilAcknowledged(zul::socket::MSocket& socket, std::uint32_t start);

    // Configuration (before Start) and results (after Wait).
    std::atomic<bool> m_bRunning{false};
    tstring m_Host;
    std::uint16_t m_Port = 0;
    bool m_bConnected = false;
    bool m_bUploadCompleted = false;
    std::uint32_t m_Interval = 0;
    std::uint32_t m_Timeout = 0;
    double m_UploadSpeed = 0.0;
    double m_DownloadSpeed = 0.0;
    /// Bytes each phase moved: what its rate was computed over.
    std::uint32_t m_UploadBytes = 0;
    std::uint32_t m_DownloadBytes = 0;
};

/// Bytes per second over a phase that began at tick start. A phase that ended
/// in the tick it began counts as 1 ms: a finite, if generous, figure rather
/// than a division by zero.
double BytesPerSecond(double bytes, std::uint32_t start, std::uint32_t end);
