#include "TcpChecker.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "share/common/Clock.h"
#include "share/common/Format.h"
#include "share/socket/MSocket.h"

const tstring TcpChecker::s_DefaultHost = u"127.0.0.1";

TcpChecker::TcpChecker(const tstring& name) : zul::Thread(name) {}

TcpChecker::~TcpChecker()
{
    // Run reads the fields until it returns: never let the base join a
    // thread that outlived them.
    Stop();
    Wait(zul::INFINITE_WAIT);
}

void TcpChecker::Reset()
{
    m_bRunning = false;
    m_Host = s_DefaultHost;
    m_Port = 9999;
    m_bConnected = false;
    m_bUploadCompleted = false;
    m_Interval = 1;
    m_Timeout = 10000;
    m_UploadSpeed = 0.0;
    m_DownloadSpeed = 0.0;
    m_UploadBytes = 0;
    m_DownloadBytes = 0;
}

double BytesPerSecond(double bytes, std::uint32_t start, std::uint32_t end)
{
    const std::uint32_t elapsed = std::max<std::uint32_t>(end - start, 1);
    return bytes / (static_cast<double>(elapsed) * 0.001);
}

unsigned int TcpChecker::Run()
{
    m_bRunning = true;
    zul::socket::MSocket socket(0, true);
    // Left to autotuning, a send buffer grows to megabytes and swallows the
    // whole 512 KB at once: the loop would then time the kernel, not the
    // link. A small one keeps each send paced by the link; the upload still
    // ends only once the server has acknowledged the rest (see Upload).
    socket.SetSendBufferSize(kSendBufferSize);
    m_bConnected = socket.IsValid() && socket.Connect(m_Host, m_Port);
    if (m_bConnected)
    {
        if (Upload(socket, kBlockCount))
            m_bUploadCompleted = true;
        Download(socket, kBlockCount);
    }
    socket.Close();
    return 0;
}

bool TcpChecker::Upload(zul::socket::MSocket& socket, int nBlocks)
{
    const std::uint32_t start = zul::GetTickCount();
    int sequence = 0;
    std::uint32_t sent = 0;
    bool completed = true;
    std::array<std::uint8_t, kBlockSize> buffer{};
    for (int block = 0; block < nBlocks; ++block)
    {
        if (!m_bRunning)
            break;
        const std::uint32_t elapsed = zul::GetTickCount() - start;
        if (elapsed > m_Timeout)
        {
            completed = false;
            break;
        }
        buffer.fill(0);
        const tstring text = zul::FormatString(u"ping %06d", sequence);
        ++sequence;
        std::memcpy(buffer.data(), text.c_str(), (text.size() + 1) * sizeof(char16_t));

        // A server that stops reading would hold a plain send for ever; the
        // send gets what is left of the phase instead. Running out of it in
        // the middle of a block is the phase running out of time, measured
        // over what went out, not a failed send.
        int nBytesSent = 0;
        const auto status = socket.SendBlock(buffer.data(), kBlockSize, m_Timeout - elapsed, &nBytesSent);
        if (status == zul::socket::MSocket::SendStatus::Failed)
        {
            m_UploadBytes = sent + static_cast<std::uint32_t>(nBytesSent);
            return false;
        }
        sent += static_cast<std::uint32_t>(nBytesSent);
        m_UploadBytes = sent;
        if (status == zul::socket::MSocket::SendStatus::TimedOut)
        {
            completed = false;
            break;
        }
        zul::Sleep(m_Interval);
    }
    if (completed && m_bRunning && !WaitUntilAcknowledged(socket, start))
        completed = false;
    m_UploadSpeed = BytesPerSecond(static_cast<double>(sent), start, zul::GetTickCount());
    return completed;
}

bool TcpChecker::WaitUntilAcknowledged(zul::socket::MSocket& socket, std::uint32_t start)
{
    // The last sends only reached the kernel: timing the phase there would
    // credit the upload with a send buffer's worth of bytes still on their
    // way, and the download would start its clock while the server was still
    // taking them in. A poll per m_Interval errs by one pause at most.
    while (socket.GetUnacknowledgedBytes() > 0)
    {
        if (!m_bRunning)
            return true;
        if (zul::GetTickCount() - start > m_Timeout)
            return false;
        zul::Sleep(m_Interval);
    }
    return true;
}

void TcpChecker::Download(zul::socket::MSocket& socket, int nBlocks)
{
    const std::uint32_t start = zul::GetTickCount();
    std::uint32_t received = 0;
    int pending = 0;
    int counted = 0;
    std::array<std::uint8_t, kBlockSize> buffer{};
    socket.SetNonBlocking();
    while (counted < nBlocks)
    {
        const std::uint32_t elapsed = zul::GetTickCount() - start;
        if (elapsed > m_Timeout)
            break;
        const int result = socket.Receive(buffer.data(), kBlockSize, 0);
        if (result == 0)
        {
            // Nothing waiting: sleep on the socket until data comes or the
            // phase's time is up, so the next byte is taken as soon as it
            // arrives without a core spent asking for it. The wait ends one
            // tick past the limit, where the check above ends the phase.
            if (socket.WaitReadable(m_Timeout - elapsed + 1) < 0)
                break;
            continue;
        }
        if (result < 0)
            break;
        received += static_cast<std::uint32_t>(result);
        pending += result;
        if (pending >= kBlockSize)
        {
            ++counted;
            pending -= kBlockSize;
            zul::Sleep(m_Interval);
        }
    }
    m_DownloadBytes = received;
    m_DownloadSpeed = BytesPerSecond(static_cast<double>(received), start, zul::GetTickCount());
    socket.SetBlocking();
}
