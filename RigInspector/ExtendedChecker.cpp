#include "ExtendedChecker.h"

#include <algorithm>
#include <array>
#include <asio/connect.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/ip/udp.hpp>
#include <asio/read.hpp>
#include <asio/steady_timer.hpp>
#include <asio/write.hpp>
#include <chrono>
#include <cmath>
#include <memory>
#include <random>

#include "ExtendedWire.h"
#include "PathTracer.h"

using extended::Message;
using extended::Type;

int InboundTries(std::optional<double> lossUpPercent)
{
    constexpr int kFew = 3, kMost = 10;
    if (!lossUpPercent)
        return kMost;
    const double q = *lossUpPercent / 100.0;
    if (q <= 0.0)
        return kFew;
    if (q >= 1.0)
        return kMost;
    return std::clamp(static_cast<int>(std::ceil(std::log(0.001) / std::log(q))), kFew, kMost);
}

std::optional<bool> InboundVerdict(bool bArrived, int sent, std::optional<double> lossUpPercent)
{
    if (bArrived)
        return true;
    if (!lossUpPercent || std::pow(*lossUpPercent / 100.0, sent) > 0.001)
        return std::nullopt;
    return false;
}

namespace
{
using Clock = std::chrono::steady_clock;
using Millis = std::chrono::milliseconds;
constexpr Millis kBucket{50};
constexpr std::size_t kChunk = 64 * 1024;
// Kept back from the budget for the closing requests (counts, inbound).
constexpr Millis kClosingReserve{1500};

// What the streams of one phase share: how many the server took, and when
// the first one was through (the server counts from then).
struct PhaseStreams
{
    std::uint32_t connected = 0;
    Clock::time_point firstConnected;
    std::uint32_t busy = 0;
    std::uint64_t retryAfterMs = 0;
};

// One TCP stream of a throughput phase. The server answers a stream it
// cannot take with one Busy record and closes it; it writes nothing else on
// an upload, and download data never begins with a record.
class Stream : public std::enable_shared_from_this<Stream>
{
public:
    enum class State
    {
        Connecting,
        Up,
        Busy,  // the server said so
        Failed // refused, reset or closed early
    };

    Stream(asio::io_context& io, Type type, std::vector<std::uint64_t>& buckets, Clock::time_point phaseStart,
           PhaseStreams& phase)
        : m_Socket(io), m_Type(type), m_Buckets(buckets), m_PhaseStart(phaseStart), m_Buffer(kChunk),
          m_Phase(phase)
    {
    }

    void Start(const asio::ip::tcp::endpoint& server, const asio::ip::address_v4& local,
               const extended::Bytes& header)
    {
        m_Header = header;
        std::error_code ec;
        m_Socket.open(asio::ip::tcp::v4(), ec);
        if (!ec && !local.is_unspecified())
            m_Socket.bind({local, 0}, ec);
        if (ec)
        {
            m_State = State::Failed;
            return;
        }
        m_Socket.async_connect(server,
                               [self = shared_from_this()](const std::error_code& ec)
                               {
                                   if (ec)
                                       return self->Fail();
                                   asio::async_write(self->m_Socket, asio::buffer(self->m_Header),
                                                     [self](const std::error_code& ec2, std::size_t)
                                                     {
                                                         if (ec2)
                                                             return self->Fail();
                                                         self->OnConnected();
                                                     });
                               });
    }

    State GetState() const { return m_State; }

    /// Resets the connection: what is still queued in either direction is
    /// thrown away instead of competing with the next phase.
    void Close()
    {
        m_bClosed = true;
        std::error_code ignored;
        // Cancelled first: a send that a peer who stopped reading holds up
        // must end now, not when that peer lets go. Under Wine a close alone
        // leaves it pending, and the event loop then waits for it on the way
        // out.
        m_Socket.cancel(ignored);
        m_Socket.set_option(asio::socket_base::linger(true, 0), ignored);
        m_Socket.close(ignored);
    }

private:
    void OnConnected()
    {
        m_State = State::Up;
        if (m_Phase.connected++ == 0)
            m_Phase.firstConnected = Clock::now();
        // The first record says whether the server took the stream.
        asio::async_read(m_Socket, asio::buffer(m_First),
                         [self = shared_from_this()](const std::error_code& ec, std::size_t n)
                         {
                             if (ec)
                                 return self->Fail();
                             const auto record = extended::Decode(self->m_First.data(), n);
                             if (record && record->type == Type::Busy)
                             {
                                 self->m_State = State::Busy;
                                 ++self->m_Phase.busy;
                                 self->m_Phase.retryAfterMs = std::max(self->m_Phase.retryAfterMs, record->a);
                                 return self->Close();
                             }
                             if (self->m_Type == Type::Upload)
                                 return self->Fail(); // an upload is never answered
                             self->Count(n);
                             self->Pump();
                         });
        if (m_Type == Type::Upload)
            Pump();
    }

    void Fail()
    {
        if (!m_bClosed && m_State != State::Busy)
            m_State = State::Failed;
    }

    void Count(std::size_t n)
    {
        const auto slot = static_cast<std::size_t>((Clock::now() - m_PhaseStart) / kBucket);
        if (slot < m_Buckets.size())
            m_Buckets[slot] += n;
    }

    void Pump()
    {
        auto self = shared_from_this();
        if (m_Type == Type::Upload)
            return m_Socket.async_write_some(asio::buffer(m_Buffer),
                                             [self](const std::error_code& ec, std::size_t)
                                             {
                                                 if (ec)
                                                     return self->Fail();
                                                 self->Pump();
                                             });
        m_Socket.async_read_some(asio::buffer(m_Buffer),
                                 [self](const std::error_code& ec, std::size_t n)
                                 {
                                     if (ec)
                                         return self->Fail();
                                     self->Count(n);
                                     self->Pump();
                                 });
    }

    asio::ip::tcp::socket m_Socket;
    Type m_Type;
    std::vector<std::uint64_t>& m_Buckets;
    Clock::time_point m_PhaseStart;
    std::vector<std::uint8_t> m_Buffer;
    std::array<std::uint8_t, extended::kMinMessage> m_First{};
    PhaseStreams& m_Phase;
    extended::Bytes m_Header;
    State m_State = State::Connecting;
    bool m_bClosed = false;
};

class Exchange
{
public:
    Exchange(const ExtendedSettings& settings, const ExtendedChecker::Progress& progress)
        : m_S(settings), m_Progress(progress), m_Udp(m_Io), m_Game(m_Io), m_Ticker(m_Io),
          m_Random(std::random_device{}())
    {
    }

    ExtendedResult Run()
    {
        m_Start = Clock::now();
        m_Deadline = m_Start + Millis(m_S.budgetMs);
        ExtendedResult result;
        result.ran = true;
        result.streams = m_S.streams;
        result.phaseMs = m_S.phaseMs;
        result.warmupMs = m_S.warmupMs;
        result.gamePort = m_S.gamePort;
        Measure(result);
        Close();
        result.durationMs = static_cast<std::uint32_t>(ElapsedMs());
        return result;
    }

private:
    void Measure(ExtendedResult& result)
    {
        std::error_code ec;
        const auto address = asio::ip::make_address_v4(m_S.host, ec);
        if (ec)
        {
            result.failure = "the server address " + m_S.host + " is not an IPv4 address";
            return;
        }
        m_Server = {address, m_S.port};
        if (!m_S.localAddress.empty())
            m_Local = asio::ip::make_address_v4(m_S.localAddress, ec);
        if (ec)
        {
            result.failure = "the local address " + m_S.localAddress + " is not an IPv4 address";
            return;
        }
        m_Udp.open(asio::ip::udp::v4(), ec);
        if (!ec && !m_Local.is_unspecified())
            m_Udp.bind({m_Local, 0}, ec);
        if (!ec)
            m_Udp.connect(m_Server, ec); // only the server's datagrams reach this socket
        if (ec)
        {
            result.failure = "no UDP socket: " + ec.message();
            return;
        }
        ReceiveUdp();
        // Bound before anything is sent, and nothing is ever sent from it.
        m_Game.open(asio::ip::udp::v4(), ec);
        if (!ec)
            m_Game.bind({asio::ip::udp::v4(), m_S.gamePort}, ec);
        const bool bGamePort = !ec;
        if (bGamePort)
            ReceiveGame();

        Report("handshake");
        m_HelloNonce = m_Random() | 1;
        const auto welcome = Ask({Type::Hello, 0, 0, m_HelloNonce}, Type::Welcome, 4, Millis(300),
                                 [this](const Message& m) { return m.a == m_HelloNonce && m.cookie != 0; });
        if (m_RetryAfterMs)
            return ReportBusy(result);
        if (!welcome)
        {
            result.failure =
                "no answer from the extended service at " + m_S.host + ":" + std::to_string(m_S.port);
            return;
        }
        m_Cookie = welcome->cookie;

        Report("idle latency");
        m_TickStart = Clock::now();
        Tick(0);
        RunUntil([this] { return m_bProbesDone || m_RetryAfterMs; }, m_Deadline - kClosingReserve);
        m_Ticker.cancel();
        if (m_RetryAfterMs)
        {
            StopStreams();
            return ReportBusy(result);
        }
        // Out of time in the middle of a phase: what it got so far is judged
        // like a whole phase.
        if (m_Phase == 1 || m_Phase == 2)
            EndPhase(m_Phase - 1);
        if (!m_bDownloadMeasured && m_Phase == 2)
            MeasureDownload();

        // The server's clock for the upload starts when the first stream is
        // through; the client stopped sending phaseMs after it began to connect.
        const std::uint64_t connectMs =
            m_PhaseStreams[0].connected == 0
                ? 0
                : std::chrono::duration_cast<Millis>(m_PhaseStreams[0].firstConnected - m_UploadStart)
                      .count();
        const std::uint64_t windowEnd = m_S.phaseMs - std::min<std::uint64_t>(connectMs, m_S.phaseMs);
        const auto stats = Ask({Type::StatsRequest, m_Cookie, 0, m_S.warmupMs, windowEnd}, Type::Stats, 3,
                               Millis(250), [](const Message&) { return true; });
        std::optional<std::uint32_t> serverReceived;
        // Streams that stayed open but carried nothing (a server that took
        // them and never read) loaded nothing either.
        if (!stats || stats->a == 0)
            m_bPhaseMeasured[0] = false;
        if (stats)
        {
            serverReceived = stats->seq;
            // Whole buckets only, as the server sums them.
            const std::uint64_t bucket = kBucket.count();
            const std::uint64_t windowMs =
                windowEnd / bucket * bucket -
                std::min(windowEnd / bucket * bucket, m_S.warmupMs / bucket * bucket);
            if (m_bPhaseMeasured[0] && windowMs > 0)
                result.uploadKBs = static_cast<double>(stats->a) / 1024.0 / (windowMs / 1000.0);
        }
        // A phase without load says nothing about latency under load.
        for (int phase = 0; phase < 2; ++phase)
            if (!m_bPhaseMeasured[phase])
                m_Log.Unload(m_PhaseFirstSeq[phase], m_PhaseFirstSeq[phase + 1]);
        m_Log.Summarize(result, serverReceived);
        result.downloadKBs = m_DownloadKBs;
        NoteUnmeasured(result);

        if (bGamePort)
        {
            Report("inbound");
            m_InboundNonce = m_Random() | 1;
            const int tries = InboundTries(result.lossUpPercent);
            int sent = 0;
            while (sent < tries && !m_bInbound && Clock::now() < m_Deadline)
            {
                Send({Type::InboundRequest, m_Cookie, 0, m_InboundNonce});
                // Any later wait still takes an earlier request's answer, so
                // only the last waits a whole 300 ms.
                const Millis wait = ++sent == tries ? Millis(300) : Millis(120);
                RunUntil([this] { return m_bInbound; }, std::min(m_Deadline, Clock::now() + wait));
            }
            result.inboundReached = InboundVerdict(m_bInbound, sent, result.lossUpPercent);
            if (!result.inboundReached)
            {
                result.inboundUnknown = true;
                result.notes.push_back({"extended_inbound_unknown",
                                        "No unsolicited datagram reached the game port, but so many packets "
                                        "to the server were lost that the requests for it may all have "
                                        "been: whether port forwarding is needed is not known."});
            }
        }
    }

    // The 20 ms beat drives everything after the handshake: probe k goes at
    // k x interval, and the phases change on fixed beats.
    void Tick(std::uint32_t k)
    {
        const std::uint32_t phaseTicks = m_S.phaseMs / m_S.intervalMs;
        const std::uint32_t uploadAt = m_S.idleProbes, downloadAt = uploadAt + phaseTicks,
                            tailAt = downloadAt + phaseTicks, endAt = tailAt + m_S.tailMs / m_S.intervalMs;
        m_PhaseFirstSeq[0] = uploadAt;
        m_PhaseFirstSeq[1] = downloadAt;
        m_PhaseFirstSeq[2] = tailAt;
        if (k == uploadAt)
        {
            Report("upload under load");
            StartStreams(Type::Upload);
            m_UploadStart = m_PhaseStart;
            m_Phase = 1;
        }
        else if (k == downloadAt)
        {
            EndPhase(0);
            Report("download under load");
            StartStreams(Type::Download);
            m_Phase = 2;
        }
        else if (k == tailAt)
        {
            EndPhase(1);
            MeasureDownload();
            Report("last echoes");
            m_Phase = 3;
        }
        if (k >= endAt)
        {
            m_bProbesDone = true;
            return;
        }
        if (k < tailAt)
        {
            const std::int64_t now = NowUs();
            m_Log.OnSent(k, m_Phase == 0 ? ProbePhase::Idle : ProbePhase::Loaded, now);
            Send({Type::Probe, m_Cookie, k, static_cast<std::uint64_t>(now)});
        }
        if (k % 50 == 0 && k != 0)
            Report(nullptr);
        m_Ticker.expires_at(m_TickStart + Millis(m_S.intervalMs) * (k + 1));
        m_Ticker.async_wait(
            [this, k](const std::error_code& ec)
            {
                if (!ec)
                    Tick(k + 1);
            });
    }

    void StartStreams(Type type)
    {
        m_bPhaseStarted[type == Type::Upload ? 0 : 1] = true;
        m_PhaseStart = Clock::now();
        if (type == Type::Download)
            m_DownBuckets.assign(m_S.phaseMs / kBucket.count() + 1, 0);
        // The server stops a download a little after the client's own end,
        // so the last bucket is still full.
        const std::uint64_t duration = m_S.phaseMs + (type == Type::Download ? 1000 : 0);
        const auto header = extended::Encode({type, m_Cookie, 0, duration});
        for (std::uint32_t i = 0; i < m_S.streams; ++i)
        {
            auto stream = std::make_shared<Stream>(m_Io, type, m_DownBuckets, m_PhaseStart,
                                                   m_PhaseStreams[type == Type::Upload ? 0 : 1]);
            stream->Start({m_Server.address(), m_S.port}, m_Local, header);
            m_Streams.push_back(stream);
        }
    }

    // A phase is measured when at least one stream carried it to its end and
    // none broke off on the way; a stream the server declined for want of
    // room (Busy) leaves the others' figure true.
    void EndPhase(int phase)
    {
        bool bCarried = false, bBroken = false;
        for (const auto& stream : m_Streams)
        {
            bCarried = bCarried || stream->GetState() == Stream::State::Up;
            bBroken = bBroken || stream->GetState() == Stream::State::Failed;
        }
        m_bPhaseMeasured[phase] = bCarried && !bBroken;
        StopStreams();
    }

    void NoteUnmeasured(ExtendedResult& result) const
    {
        if ((m_bPhaseMeasured[0] || !m_bPhaseStarted[0]) && (m_bPhaseMeasured[1] || !m_bPhaseStarted[1]))
            return;
        const PhaseStreams& up = m_PhaseStreams[0];
        const PhaseStreams& down = m_PhaseStreams[1];
        const std::uint64_t retryMs = std::max(up.retryAfterMs, down.retryAfterMs);
        const bool bBusyOnly = (m_bPhaseMeasured[0] || up.busy > 0) && (m_bPhaseMeasured[1] || down.busy > 0);
        if (bBusyOnly)
        {
            result.retryAfterMs = static_cast<std::uint32_t>(retryMs);
            result.notes.push_back(
                {"extended_busy", "The test server had no room for the throughput streams; "
                                  "try again in " +
                                      std::to_string((retryMs + 999) / 1000) + " s."});
        }
        else
            result.notes.push_back({"extended_streams_refused",
                                    "The throughput streams were refused, reset or never accepted, so the "
                                    "line was not loaded: no throughput and no latency under load."});
    }

    void ReportBusy(ExtendedResult& result)
    {
        result.retryAfterMs = static_cast<std::uint32_t>(*m_RetryAfterMs);
        result.failure = "the extended service is busy; try again in " +
                         std::to_string((*m_RetryAfterMs + 999) / 1000) + " s";
        result.notes.push_back({"extended_busy", "The test server is serving as many players as it can; "
                                                 "try again in " +
                                                     std::to_string((*m_RetryAfterMs + 999) / 1000) + " s."});
    }

    void StopStreams()
    {
        for (auto& stream : m_Streams)
            stream->Close();
        m_Streams.clear();
    }

    void MeasureDownload()
    {
        m_bDownloadMeasured = true;
        const auto endMs = std::min<std::int64_t>(
            m_S.phaseMs, std::chrono::duration_cast<Millis>(Clock::now() - m_PhaseStart).count());
        if (endMs <= static_cast<std::int64_t>(m_S.warmupMs))
        {
            m_bPhaseMeasured[1] = false; // cut off before slow start was over
            return;
        }
        std::uint64_t bytes = 0;
        for (std::size_t i = m_S.warmupMs / kBucket.count();
             i < static_cast<std::size_t>(endMs / kBucket.count()) && i < m_DownBuckets.size(); ++i)
            bytes += m_DownBuckets[i];
        const double seconds =
            static_cast<double>(endMs / kBucket.count() * kBucket.count() - m_S.warmupMs) / 1000.0;
        // No stream got through: nothing was measured, which is not 0 KB/s.
        if (bytes == 0)
            m_bPhaseMeasured[1] = false;
        if (seconds > 0 && m_bPhaseMeasured[1])
            m_DownloadKBs = static_cast<double>(bytes) / 1024.0 / seconds;
    }

    template <class Accept>
    std::optional<Message> Ask(const Message& request, Type replyType, int tries, Millis wait, Accept accept)
    {
        m_Reply.reset();
        m_ReplyType = replyType;
        for (int i = 0; i < tries && Clock::now() < m_Deadline; ++i)
        {
            Send(request);
            RunUntil([&] { return (m_Reply && accept(*m_Reply)) || m_RetryAfterMs; },
                     std::min(m_Deadline, Clock::now() + wait));
            if (m_Reply && accept(*m_Reply))
                return m_Reply;
        }
        return std::nullopt;
    }

    void Send(const Message& message)
    {
        std::error_code ignored; // a lost request is retried; a lost probe is loss
        m_Udp.send(asio::buffer(extended::Encode(message)), 0, ignored);
    }

    void ReceiveUdp()
    {
        m_Udp.async_receive(asio::buffer(m_UdpBuffer),
                            [this](const std::error_code& ec, std::size_t n)
                            {
                                if (ec == asio::error::operation_aborted || !m_Udp.is_open())
                                    return;
                                if (!ec)
                                    OnDatagram(n);
                                ReceiveUdp();
                            });
    }

    void OnDatagram(std::size_t n)
    {
        const auto message = extended::Decode(m_UdpBuffer.data(), n);
        if (!message)
            return;
        // Before the Welcome a Busy names the Hello's nonce; after it, the cookie.
        if (message->type == Type::Busy &&
            ((m_Cookie == 0 && message->c == m_HelloNonce) || (m_Cookie != 0 && message->cookie == m_Cookie)))
            m_RetryAfterMs = message->a;
        if (message->type != Type::Welcome && message->cookie != m_Cookie)
            return;
        if (message->type == Type::Echo)
            m_Log.OnEcho(message->seq, static_cast<std::int64_t>(message->a), NowUs());
        else if (message->type == m_ReplyType)
            m_Reply = message;
    }

    void ReceiveGame()
    {
        m_Game.async_receive_from(asio::buffer(m_GameBuffer), m_GameSender,
                                  [this](const std::error_code& ec, std::size_t n)
                                  {
                                      if (ec == asio::error::operation_aborted || !m_Game.is_open())
                                          return;
                                      const auto message = extended::Decode(m_GameBuffer.data(), n);
                                      if (!ec && message && message->type == Type::Inbound &&
                                          message->cookie == m_Cookie && message->a == m_InboundNonce)
                                          m_bInbound = true;
                                      ReceiveGame();
                                  });
    }

    template <class Done> void RunUntil(Done done, Clock::time_point until)
    {
        while (!done())
        {
            const auto now = Clock::now();
            if (now >= until)
                return;
            m_Io.restart();
            m_Io.run_one_for(until - now);
        }
    }

    void Close()
    {
        std::error_code ignored;
        m_Ticker.cancel();
        StopStreams();
        // The server frees the session now instead of when it idles out.
        if (m_Cookie != 0 && m_Udp.is_open())
            Send({Type::Bye, m_Cookie});
        m_Udp.close(ignored);
        m_Game.close(ignored);
        // Let the cancelled handlers run, so nothing outlives this object.
        m_Io.restart();
        m_Io.run_for(Millis(200));
    }

    void Report(const char* phase)
    {
        if (phase != nullptr)
            m_PhaseText = phase;
        if (m_Progress)
            m_Progress(m_PhaseText, static_cast<std::uint32_t>(ElapsedMs()), m_S.budgetMs);
    }

    std::int64_t ElapsedMs() const
    {
        return std::chrono::duration_cast<Millis>(Clock::now() - m_Start).count();
    }
    std::int64_t NowUs() const
    {
        return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - m_Start).count();
    }

    const ExtendedSettings& m_S;
    const ExtendedChecker::Progress& m_Progress;
    asio::io_context m_Io{1};
    asio::ip::udp::socket m_Udp;
    asio::ip::udp::socket m_Game;
    asio::steady_timer m_Ticker;
    std::mt19937_64 m_Random;
    asio::ip::udp::endpoint m_Server;
    asio::ip::udp::endpoint m_GameSender;
    // Room for any UDP datagram: a receive too small for one fails at once
    // with WSAEMSGSIZE on Windows, and Asio 1.22 then completes that
    // operation twice (once at once, once from the completion port),
    // corrupting the heap by the end of the run.
    std::vector<std::uint8_t> m_UdpBuffer = std::vector<std::uint8_t>(65536);
    std::vector<std::uint8_t> m_GameBuffer = std::vector<std::uint8_t>(65536);
    Clock::time_point m_Start, m_Deadline, m_TickStart, m_PhaseStart;
    asio::ip::address_v4 m_Local;
    std::uint64_t m_Cookie = 0;
    std::uint64_t m_HelloNonce = 0;
    std::uint64_t m_InboundNonce = 0;
    std::optional<std::uint64_t> m_RetryAfterMs; // the server said it is busy
    bool m_bPhaseStarted[2] = {false, false};
    bool m_bPhaseMeasured[2] = {false, false};    // upload, download
    std::uint32_t m_PhaseFirstSeq[3] = {0, 0, 0}; // upload, download, tail
    std::optional<Message> m_Reply;
    Type m_ReplyType = Type::Welcome;
    ProbeLog m_Log;
    int m_Phase = 0; // idle, upload, download, tail
    bool m_bProbesDone = false;
    PhaseStreams m_PhaseStreams[2]; // upload, download
    Clock::time_point m_UploadStart;
    bool m_bDownloadMeasured = false;
    bool m_bInbound = false;
    std::optional<double> m_DownloadKBs;
    std::vector<std::uint64_t> m_DownBuckets;
    std::vector<std::shared_ptr<Stream>> m_Streams;
    const char* m_PhaseText = "";
};
} // namespace

ExtendedResult ExtendedChecker::Run(const Progress& progress)
{
    // The path is traced alongside the other phases; the whole step stays within 15 s.
    const auto start = Clock::now();
    PathTraceTask path;
    path.Start(m_Settings.host, Millis(m_Settings.budgetMs));
    ExtendedResult result = Exchange(m_Settings, progress).Run();
    result.path = path.Finish(result);
    result.durationMs =
        static_cast<std::uint32_t>(std::chrono::duration_cast<Millis>(Clock::now() - start).count());
    return result;
}
