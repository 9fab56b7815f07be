// bench_load_client: load for rig_test_server from one process, event-driven
// (epoll), so that what is measured is the server and not the client.
//
//   bench_load_client tcp [--server A:P] [--clients N] [--sources K]
//                         [--interval-ms I] [--limit-ms T] [--procs P]
//     N speed tests at once, spread over P processes, each test from its own
//     connection bound to one of K source addresses 127.0.0.2, 127.0.0.3, ...:
//     the analyzer's 512 blocks of 1024 bytes up at its pace (at most one
//     block per I ms), then 524288 bytes down. Per test: up KB/s = 512 /
//     (first download byte - connected), down KB/s = 512 / (last byte - last
//     block written); the server sends only once it holds the whole upload,
//     so the first figure is the upload as the server took it in.
//     Prints clients, connected, completed, failed, within_limit (both
//     phases inside the analyzer's 10 s), up/down min and median KB/s,
//     worst_kbs (the lowest of any test's two figures), peak_concurrent (the
//     most tests between connected and ended at one moment) and wall_ms.
//
//   bench_load_client udp [--server A:P] [--sources K] [--window W]
//                         [--duration-ms D]
//     A ping flood: each of K sources has a socket on 127.0.0.x:20000 (where
//     the server sends its pongs) and keeps W pings in flight from it.
//     Prints pings, pongs, bad (pongs that do not parse), pongs_per_s over D.
//
// Every loop ends by its time limit; nothing waits without one.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "RigInspector/EchoText.h"

namespace
{
using Clock = std::chrono::steady_clock;

constexpr int kBlockSize = 1024;
constexpr int kBlockCount = 512;
constexpr std::uint64_t kExchangeBytes = 524288;

struct Options
{
    std::string server;
    int clients = 1;
    int sources = 100;
    int intervalMs = 1;
    int limitMs = 60000;
    int window = 4;
    int durationMs = 3000;
    int procs = 1;
};

double MsBetween(Clock::time_point a, Clock::time_point b)
{
    return std::chrono::duration<double, std::milli>(b - a).count();
}

sockaddr_in MakeAddress(const std::string& host, std::uint16_t port)
{
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    ::inet_pton(AF_INET, host.c_str(), &addr.sin_addr);
    return addr;
}

sockaddr_in ParseEndpoint(const std::string& text, std::uint16_t defaultPort)
{
    const auto colon = text.find(':');
    if (colon == std::string::npos)
        return MakeAddress(text, defaultPort);
    return MakeAddress(text.substr(0, colon),
                       static_cast<std::uint16_t>(std::atoi(text.c_str() + colon + 1)));
}

/// The i-th source address: 127.0.0.2 ... 127.0.0.254, then 127.0.1.2 ...
sockaddr_in SourceAddress(int i, std::uint16_t port)
{
    const int third = i / 253;
    const int fourth = 2 + i % 253;
    return MakeAddress("127.0." + std::to_string(third) + "." + std::to_string(fourth), port);
}

void RaiseFileLimit()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max)
    {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

double Median(std::vector<double> values)
{
    if (values.empty())
        return 0.0;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double Min(const std::vector<double>& values)
{
    return values.empty() ? 0.0 : *std::min_element(values.begin(), values.end());
}

// ---- TCP speed tests -------------------------------------------------------

constexpr int kMaxBurst = 16;
// The analyzer's own send buffer: the kernel cannot swallow the upload.
constexpr int kSendBuffer = 16 * 1024;
// Doubled by the kernel: bounds what 10,000 downloads hold in kernel memory
// (tcp_mem) at 640 MB, where autotuning would let each grow to megabytes.
constexpr int kReceiveBuffer = 32 * 1024;
// The analyzer's time limit for each phase.
constexpr double kPhaseLimitMs = 10000.0;

/// The upload's byte stream as the analyzer sends it: 512 blocks, each
/// opening with "ping %06d" of its number in UTF-16LE.
const std::vector<char>& UploadBytes()
{
    static const std::vector<char> s_Bytes = []
    {
        std::vector<char> bytes(kExchangeBytes, 0);
        for (int block = 0; block < kBlockCount; ++block)
        {
            char label[16];
            std::snprintf(label, sizeof label, "ping %06d", block);
            for (int i = 0; label[i] != 0; ++i)
                bytes[static_cast<std::size_t>(block * kBlockSize + 2 * i)] = label[i];
        }
        return bytes;
    }();
    return s_Bytes;
}

struct Test
{
    enum class State
    {
        Connecting,
        Uploading,
        Downloading,
        Done,
        Failed
    };

    int fd = -1;
    State state = State::Connecting;
    bool bWritable = false;
    std::uint32_t upSent = 0;   // bytes of the upload written
    std::uint32_t upTarget = 0; // where the blocks due so far end
    Clock::time_point lastBurst;
    std::uint64_t received = 0;
    Clock::time_point connected;
    Clock::time_point uploadWritten;
    Clock::time_point firstByte;
    Clock::time_point lastByte;
    Clock::time_point ended;
};

/// What the parent learns of one test; written by the process that ran it
/// into memory shared with the parent.
struct Outcome
{
    bool bConnected;
    bool bDone;
    bool bFailed;
    double upMs;    // connected → first download byte: the upload as the server took it in
    double downMs;  // last block written → last byte
    double beganMs; // connected and ended, from the parent's start: how
    double endedMs; // many tests ran at once
};

class TcpSlice
{
public:
    TcpSlice(const Options& options, sockaddr_in server, int first, int step, Clock::time_point epoch)
        : m_Options(options), m_Server(server), m_Interval(std::chrono::milliseconds(options.intervalMs)),
          m_Epoch(epoch)
    {
        for (int i = first; i < options.clients; i += step)
            m_Index.push_back(i);
        m_Tests.resize(m_Index.size());
    }

    void Run(Outcome* outcomes)
    {
        m_Epoll = ::epoll_create1(0);
        for (std::size_t t = 0; t < m_Tests.size(); ++t)
            Open(t);
        std::vector<epoll_event> events(1024);
        const auto deadline = Clock::now() + std::chrono::milliseconds(m_Options.limitMs);
        auto lastPass = Clock::time_point{};
        while (m_Active > 0)
        {
            const auto now = Clock::now();
            if (now >= deadline)
                break;
            const int n = ::epoll_wait(m_Epoll, events.data(), static_cast<int>(events.size()), 1);
            const auto after = Clock::now();
            for (int e = 0; e < n; ++e)
                OnEvent(m_Tests[events[static_cast<std::size_t>(e)].data.u64],
                        events[static_cast<std::size_t>(e)].events, after);
            // The pace is kept by a pass over every uploading test each
            // millisecond at most, not by a timer per test.
            if (after - lastPass >= std::chrono::milliseconds(1))
            {
                lastPass = after;
                for (auto& test : m_Tests)
                    if (test.state == Test::State::Uploading)
                        Upload(test, after);
            }
        }
        for (std::size_t t = 0; t < m_Tests.size(); ++t)
        {
            const Test& test = m_Tests[t];
            Outcome& outcome = outcomes[m_Index[t]];
            outcome.bConnected = test.connected != Clock::time_point{};
            outcome.bDone = test.state == Test::State::Done;
            outcome.bFailed = test.state == Test::State::Failed;
            outcome.upMs = MsBetween(test.connected, test.firstByte);
            outcome.downMs = MsBetween(test.uploadWritten, test.lastByte);
            outcome.beganMs = MsBetween(m_Epoch, test.connected);
            outcome.endedMs = MsBetween(m_Epoch, test.ended);
            if (test.fd >= 0)
                ::close(test.fd);
        }
        ::close(m_Epoll);
    }

private:
    void Open(std::size_t t)
    {
        Test& test = m_Tests[t];
        ++m_Active;
        test.fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
        const sockaddr_in source = SourceAddress(m_Index[t] % m_Options.sources, 0);
        if (test.fd < 0)
            return Fail(test, "socket");
        ::setsockopt(test.fd, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
        ::setsockopt(test.fd, SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof kReceiveBuffer);
        if (::bind(test.fd, reinterpret_cast<const sockaddr*>(&source), sizeof source) != 0)
            return Fail(test, "bind");
        if (::connect(test.fd, reinterpret_cast<const sockaddr*>(&m_Server), sizeof m_Server) != 0 &&
            errno != EINPROGRESS)
            return Fail(test, "connect");
        epoll_event event{};
        event.events = EPOLLIN | EPOLLOUT | EPOLLET;
        event.data.u64 = t;
        ::epoll_ctl(m_Epoll, EPOLL_CTL_ADD, test.fd, &event);
    }

    void Fail(Test& test, const char* what)
    {
        // Said once per process: thousands of the same line hide the cause.
        if (!m_bFailureSaid)
            std::fprintf(stderr, "bench_load_client: %s: %s\n", what, std::strerror(errno));
        m_bFailureSaid = true;
        End(test, Test::State::Failed);
    }

    void End(Test& test, Test::State state)
    {
        test.state = state;
        test.ended = Clock::now();
        if (test.fd >= 0)
            ::close(test.fd);
        test.fd = -1;
        --m_Active;
    }

    void OnEvent(Test& test, std::uint32_t flags, Clock::time_point now)
    {
        if (test.fd < 0)
            return;
        if (test.state == Test::State::Connecting && (flags & (EPOLLOUT | EPOLLERR | EPOLLHUP)))
        {
            int error = 0;
            socklen_t length = sizeof error;
            ::getsockopt(test.fd, SOL_SOCKET, SO_ERROR, &error, &length);
            if (error != 0)
            {
                errno = error;
                return Fail(test, "connect");
            }
            test.state = Test::State::Uploading;
            test.connected = now;
            test.lastBurst = now - m_Interval; // the first block goes at once
        }
        if (flags & EPOLLOUT)
            test.bWritable = true;
        if (test.state == Test::State::Uploading)
        {
            if (flags & (EPOLLHUP | EPOLLERR))
                return Fail(test, "upload");
            Upload(test, now);
        }
        else if (test.state == Test::State::Downloading && (flags & (EPOLLIN | EPOLLHUP | EPOLLERR)))
            Download(test, now);
    }

    // At most one block per interval on average, like the analyzer's pause
    // after each block; a test the loop comes back to late writes the
    // blocks that fell due meanwhile in one send, as Nagle would join them
    // on a slow link. The byte stream is the analyzer's either way.
    void Upload(Test& test, Clock::time_point now)
    {
        if (!test.bWritable)
            return;
        if (test.upSent == test.upTarget)
        {
            const auto elapsed = now - test.lastBurst;
            if (elapsed < m_Interval)
                return;
            const long long due =
                m_Interval.count() == 0 ? kMaxBurst : std::min<long long>(kMaxBurst, elapsed / m_Interval);
            test.upTarget = static_cast<std::uint32_t>(
                std::min<long long>(kExchangeBytes, (test.upSent / kBlockSize + due) * kBlockSize));
            test.lastBurst = now;
        }
        while (test.upSent < test.upTarget)
        {
            const ssize_t n = ::send(test.fd, UploadBytes().data() + test.upSent, test.upTarget - test.upSent,
                                     MSG_NOSIGNAL | MSG_DONTWAIT);
            if (n < 0)
            {
                if (errno == EAGAIN || errno == EWOULDBLOCK)
                    test.bWritable = false;
                else
                    Fail(test, "upload");
                return;
            }
            test.upSent += static_cast<std::uint32_t>(n);
        }
        if (test.upSent == kExchangeBytes)
        {
            test.state = Test::State::Downloading;
            test.uploadWritten = now;
            // Edge-triggered: what came before the switch raised no new event.
            Download(test, now);
        }
    }

    void Download(Test& test, Clock::time_point now)
    {
        static char s_Sink[65536];
        for (;;)
        {
            const ssize_t n = ::recv(test.fd, s_Sink, sizeof s_Sink, MSG_DONTWAIT);
            if (n > 0)
            {
                if (test.received == 0)
                    test.firstByte = now;
                test.received += static_cast<std::uint64_t>(n);
                if (test.received >= kExchangeBytes)
                {
                    test.lastByte = now;
                    return End(test, Test::State::Done);
                }
                continue;
            }
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
                return;
            return Fail(test, "download"); // closed or reset before the whole download
        }
    }

    const Options& m_Options;
    const sockaddr_in m_Server;
    const std::chrono::milliseconds m_Interval;
    const Clock::time_point m_Epoch;
    std::vector<int> m_Index; // the tests' numbers among all clients
    std::vector<Test> m_Tests;
    int m_Epoll = -1;
    int m_Active = 0;
    bool m_bFailureSaid = false;
};

/// Splits the tests over --procs processes (each its own event loop, so the
/// load can use every core the server leaves free) and sums up.
int RunTcp(const Options& options)
{
    const sockaddr_in server = ParseEndpoint(options.server.empty() ? "127.0.0.1" : options.server, 9999);
    const std::size_t bytes = sizeof(Outcome) * static_cast<std::size_t>(options.clients);
    void* shared = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED)
    {
        std::perror("bench_load_client: mmap");
        return 1;
    }
    auto* outcomes = static_cast<Outcome*>(shared);
    std::fill(outcomes, outcomes + options.clients, Outcome{});
    UploadBytes(); // built once, before the fork
    const auto start = Clock::now();
    std::vector<pid_t> children;
    for (int p = 0; p < options.procs; ++p)
    {
        const pid_t pid = ::fork();
        if (pid == 0)
        {
            TcpSlice(options, server, p, options.procs, start).Run(outcomes);
            std::fflush(stderr);
            ::_exit(0);
        }
        if (pid < 0)
            std::perror("bench_load_client: fork");
        else
            children.push_back(pid);
    }
    // Each child ends by its own time limit.
    for (const pid_t pid : children)
        ::waitpid(pid, nullptr, 0);
    const double wallMs = MsBetween(start, Clock::now());

    int connected = 0;
    int completed = 0;
    int failed = 0;
    int withinLimit = 0;
    std::vector<double> up;
    std::vector<double> down;
    std::vector<double> worst;
    std::vector<std::pair<double, int>> edges; // +1 as a test begins, -1 as it ends
    for (int i = 0; i < options.clients; ++i)
    {
        const Outcome& outcome = outcomes[i];
        connected += outcome.bConnected ? 1 : 0;
        if (outcome.bConnected && (outcome.bDone || outcome.bFailed))
        {
            edges.emplace_back(outcome.beganMs, 1);
            edges.emplace_back(outcome.endedMs, -1);
        }
        failed += outcome.bFailed ? 1 : 0;
        if (!outcome.bDone)
            continue;
        ++completed;
        // The download is timed from the last block written, not from the
        // first byte back: a lone test's whole download is often waiting by
        // the time the loop sees its first byte. The tail of the upload that
        // was still in buffers then counts against the download.
        const double upKbs = 512.0 / (std::max(outcome.upMs, 0.001) / 1000.0);
        const double downKbs = 512.0 / (std::max(outcome.downMs, 0.001) / 1000.0);
        up.push_back(upKbs);
        down.push_back(downKbs);
        worst.push_back(std::min(upKbs, downKbs));
        if (outcome.upMs <= kPhaseLimitMs && outcome.downMs <= kPhaseLimitMs)
            ++withinLimit;
    }
    ::munmap(shared, bytes);
    std::sort(edges.begin(), edges.end()); // at a tie the end comes first
    int running = 0;
    int peak = 0;
    for (const auto& edge : edges)
        peak = std::max(peak, running += edge.second);
    // A test that did not complete counts as 0 KB/s in the worst figure.
    const double worstKbs = completed == options.clients ? Min(worst) : 0.0;
    std::printf("clients=%d\nprocs=%d\nconnected=%d\ncompleted=%d\nfailed=%d\nwithin_limit=%d\n",
                options.clients, options.procs, connected, completed, failed, withinLimit);
    std::printf("up_min_kbs=%.1f\nup_median_kbs=%.1f\ndown_min_kbs=%.1f\ndown_median_kbs=%.1f\n", Min(up),
                Median(up), Min(down), Median(down));
    std::printf("worst_kbs=%.1f\npeak_concurrent=%d\nwall_ms=%.0f\n", worstKbs, peak, wallMs);
    return 0;
}

// ---- UDP ping flood --------------------------------------------------------

struct Source
{
    int fd = -1;
    int inFlight = 0;
    Clock::time_point lastPong;
};

constexpr int kBatch = 64;

/// Sends nCount pings from source, in one call where the platform allows.
int SendPings(Source& source, const sockaddr_in& server, const EchoText::Bytes& ping, int nCount)
{
    mmsghdr messages[kBatch];
    iovec iov{const_cast<std::uint8_t*>(ping.data()), ping.size()};
    int sent = 0;
    while (sent < nCount)
    {
        const int batch = std::min(kBatch, nCount - sent);
        for (int i = 0; i < batch; ++i)
        {
            messages[i] = {};
            messages[i].msg_hdr.msg_name = const_cast<sockaddr_in*>(&server);
            messages[i].msg_hdr.msg_namelen = sizeof server;
            messages[i].msg_hdr.msg_iov = &iov;
            messages[i].msg_hdr.msg_iovlen = 1;
        }
        const int n = ::sendmmsg(source.fd, messages, static_cast<unsigned>(batch), MSG_DONTWAIT);
        if (n <= 0)
            break;
        sent += n;
    }
    source.inFlight += sent;
    return sent;
}

int RunUdp(const Options& options)
{
    const sockaddr_in server = ParseEndpoint(options.server.empty() ? "127.0.0.1" : options.server, 9998);
    const int epoll = ::epoll_create1(0);
    std::vector<Source> sources(static_cast<std::size_t>(options.sources));
    const EchoText::Bytes ping = EchoText::FormatPing(7, 123456);
    for (std::size_t i = 0; i < sources.size(); ++i)
    {
        // One socket per source, on the port the pongs come to: the pings
        // leave from it too, which the server does not mind.
        Source& source = sources[i];
        source.fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
        const sockaddr_in local = SourceAddress(static_cast<int>(i), 20000);
        if (source.fd < 0 || ::bind(source.fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0)
        {
            std::fprintf(stderr, "bench_load_client: cannot bind source %zu on port 20000: %s\n", i,
                         std::strerror(errno));
            return 1;
        }
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u64 = i;
        ::epoll_ctl(epoll, EPOLL_CTL_ADD, source.fd, &event);
    }

    std::uint64_t pings = 0;
    std::uint64_t pongs = 0;
    std::uint64_t bad = 0;
    std::uint64_t measuredPongs = 0;
    const auto start = Clock::now();
    // A short warm-up, then the measured span.
    const auto measureFrom = start + std::chrono::milliseconds(300);
    const auto deadline = measureFrom + std::chrono::milliseconds(options.durationMs);
    // Pings the server dropped (its buffer full) would shrink the window for
    // good: a source silent this long gets a fresh window.
    constexpr auto kRefill = std::chrono::milliseconds(20);
    for (auto& source : sources)
    {
        source.lastPong = start;
        pings += static_cast<std::uint64_t>(SendPings(source, server, ping, options.window));
    }

    std::vector<epoll_event> events(256);
    std::uint8_t buffers[kBatch][128];
    iovec iovs[kBatch];
    mmsghdr messages[kBatch];
    for (;;)
    {
        const auto now = Clock::now();
        if (now >= deadline)
            break;
        const int n = ::epoll_wait(epoll, events.data(), static_cast<int>(events.size()), 5);
        const auto after = Clock::now();
        const bool bMeasuring = after >= measureFrom;
        for (int e = 0; e < n; ++e)
        {
            Source& source = sources[events[static_cast<std::size_t>(e)].data.u64];
            for (int i = 0; i < kBatch; ++i)
            {
                iovs[i] = {buffers[i], sizeof buffers[i]};
                messages[i] = {};
                messages[i].msg_hdr.msg_iov = &iovs[i];
                messages[i].msg_hdr.msg_iovlen = 1;
            }
            const int got = ::recvmmsg(source.fd, messages, kBatch, MSG_DONTWAIT, nullptr);
            if (got <= 0)
                continue;
            for (int i = 0; i < got; ++i)
            {
                if (!EchoText::ParsePong(buffers[i], messages[i].msg_len))
                    ++bad;
            }
            pongs += static_cast<std::uint64_t>(got);
            if (bMeasuring)
                measuredPongs += static_cast<std::uint64_t>(got);
            source.inFlight = std::max(0, source.inFlight - got);
            source.lastPong = after;
            pings +=
                static_cast<std::uint64_t>(SendPings(source, server, ping, options.window - source.inFlight));
        }
        for (auto& source : sources)
        {
            if (after - source.lastPong >= kRefill)
            {
                source.inFlight = 0;
                source.lastPong = after;
                pings += static_cast<std::uint64_t>(SendPings(source, server, ping, options.window));
            }
        }
    }
    for (auto& source : sources)
        ::close(source.fd);
    ::close(epoll);
    std::printf("sources=%d\nwindow=%d\npings=%llu\npongs=%llu\nbad=%llu\n", options.sources, options.window,
                static_cast<unsigned long long>(pings), static_cast<unsigned long long>(pongs),
                static_cast<unsigned long long>(bad));
    std::printf("pongs_per_s=%.0f\nwall_ms=%.0f\n",
                static_cast<double>(measuredPongs) / (options.durationMs / 1000.0),
                MsBetween(start, Clock::now()));
    return 0;
}

int Usage()
{
    std::fprintf(stderr,
                 "usage: bench_load_client tcp|udp [--server A:P] [--clients N] [--sources K]\n"
                 "       [--interval-ms I] [--limit-ms T] [--procs P] [--window W] [--duration-ms D]\n");
    return 2;
}
} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
        return Usage();
    const std::string mode = argv[1];
    Options options;
    for (int i = 2; i + 1 < argc; i += 2)
    {
        const std::string key = argv[i];
        const char* value = argv[i + 1];
        if (key == "--server")
            options.server = value;
        else if (key == "--clients")
            options.clients = std::max(1, std::atoi(value));
        else if (key == "--sources")
            options.sources = std::clamp(std::atoi(value), 1, 253 * 200);
        else if (key == "--interval-ms")
            options.intervalMs = std::max(0, std::atoi(value));
        else if (key == "--limit-ms")
            options.limitMs = std::clamp(std::atoi(value), 1, 600000);
        else if (key == "--window")
            options.window = std::clamp(std::atoi(value), 1, 1024);
        else if (key == "--procs")
            options.procs = std::clamp(std::atoi(value), 1, 64);
        else if (key == "--duration-ms")
            options.durationMs = std::clamp(std::atoi(value), 100, 600000);
        else
            return Usage();
    }
    RaiseFileLimit();
    if (mode == "tcp")
        return RunTcp(options);
    if (mode == "udp")
        return RunUdp(options);
    return Usage();
}
