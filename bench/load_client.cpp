// bench_load_client: load for rig_test_server from one process, event-driven
// (epoll), so that what is measured is the server and not the client.
//
//   bench_load_client tcp [--server A:P] [--clients N] [--sources K]
//                         [--interval-ms I] [--limit-ms T]
//     N speed tests at once, each from its own connection bound to one of K
//     source addresses 127.0.0.2, 127.0.0.3, ...: 512 blocks of 1024 bytes
//     up (a pause of I ms after each block, as the analyzer does), then
//     524288 bytes down. Per test: up KB/s = 512 / (first download byte -
//     connected), down KB/s = 512 / (last byte - last block written); the
//     server sends only once it holds the whole upload, so the first figure
//     is the upload as the server took it in.
//     Prints clients, connected, completed, failed, up/down min and median
//     KB/s, worst_kbs (the lowest of any test's two figures) and wall_ms.
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
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
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
    int blocksSent = 0;
    int blockOffset = 0; // bytes of the current block already sent
    Clock::time_point due;
    std::uint64_t received = 0;
    Clock::time_point connected;
    Clock::time_point uploadWritten;
    Clock::time_point firstByte;
    Clock::time_point lastByte;
};

void Fail(Test& test)
{
    test.state = Test::State::Failed;
    ::close(test.fd);
    test.fd = -1;
}

void Upload(Test& test, const char* block, int intervalMs, Clock::time_point now)
{
    while (test.state == Test::State::Uploading && test.bWritable && now >= test.due)
    {
        const ssize_t n = ::send(test.fd, block + test.blockOffset, kBlockSize - test.blockOffset,
                                 MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n < 0)
        {
            if (errno == EAGAIN || errno == EWOULDBLOCK)
                test.bWritable = false;
            else
                Fail(test);
            return;
        }
        test.blockOffset += static_cast<int>(n);
        if (test.blockOffset < kBlockSize)
            continue;
        test.blockOffset = 0;
        if (++test.blocksSent == kBlockCount)
        {
            test.state = Test::State::Downloading;
            test.uploadWritten = now;
        }
        test.due = now + std::chrono::milliseconds(intervalMs);
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
                test.state = Test::State::Done;
                ::close(test.fd);
                test.fd = -1;
                return;
            }
            continue;
        }
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return;
        Fail(test); // closed or reset before the whole download
        return;
    }
}

int RunTcp(const Options& options)
{
    const sockaddr_in server = ParseEndpoint(options.server.empty() ? "127.0.0.1" : options.server, 9999);
    const int epoll = ::epoll_create1(0);
    std::vector<Test> tests(static_cast<std::size_t>(options.clients));
    const auto start = Clock::now();
    for (std::size_t i = 0; i < tests.size(); ++i)
    {
        Test& test = tests[i];
        test.fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
        const sockaddr_in source = SourceAddress(static_cast<int>(i) % options.sources, 0);
        if (test.fd < 0 || ::bind(test.fd, reinterpret_cast<const sockaddr*>(&source), sizeof source) != 0 ||
            (::connect(test.fd, reinterpret_cast<const sockaddr*>(&server), sizeof server) != 0 &&
             errno != EINPROGRESS))
        {
            std::fprintf(stderr, "bench_load_client: connection %zu: %s\n", i, std::strerror(errno));
            Fail(test);
            continue;
        }
        epoll_event event{};
        event.events = EPOLLIN | EPOLLOUT | EPOLLET;
        event.data.u64 = i;
        ::epoll_ctl(epoll, EPOLL_CTL_ADD, test.fd, &event);
    }

    char block[kBlockSize] = {};
    std::vector<epoll_event> events(1024);
    const auto deadline = start + std::chrono::milliseconds(options.limitMs);
    for (;;)
    {
        const auto now = Clock::now();
        bool bActive = false;
        auto nextDue = deadline;
        for (auto& test : tests)
        {
            if (test.state == Test::State::Done || test.state == Test::State::Failed)
                continue;
            bActive = true;
            if (test.state == Test::State::Uploading && test.bWritable)
                nextDue = std::min(nextDue, test.due);
        }
        if (!bActive || now >= deadline)
            break;
        const auto waitMs = std::chrono::ceil<std::chrono::milliseconds>(nextDue - now).count();
        const int n = ::epoll_wait(epoll, events.data(), static_cast<int>(events.size()),
                                   static_cast<int>(std::max<long long>(0, waitMs)));
        const auto after = Clock::now();
        for (int e = 0; e < n; ++e)
        {
            Test& test = tests[events[static_cast<std::size_t>(e)].data.u64];
            if (test.fd < 0)
                continue;
            const auto flags = events[static_cast<std::size_t>(e)].events;
            if (test.state == Test::State::Connecting && (flags & (EPOLLOUT | EPOLLERR | EPOLLHUP)))
            {
                int error = 0;
                socklen_t length = sizeof error;
                ::getsockopt(test.fd, SOL_SOCKET, SO_ERROR, &error, &length);
                if (error != 0)
                {
                    Fail(test);
                    continue;
                }
                test.state = Test::State::Uploading;
                test.connected = test.due = after;
            }
            if (flags & EPOLLOUT)
                test.bWritable = true;
            if (test.state == Test::State::Downloading && (flags & (EPOLLIN | EPOLLHUP | EPOLLERR)))
                Download(test, after);
            else if (test.state == Test::State::Uploading && (flags & (EPOLLHUP | EPOLLERR)))
                Fail(test);
        }
        for (auto& test : tests)
        {
            if (test.state != Test::State::Uploading)
                continue;
            Upload(test, block, options.intervalMs, after);
            // Edge-triggered: whatever came before the switch raised no new
            // event.
            if (test.state == Test::State::Downloading)
                Download(test, after);
        }
    }
    const double wallMs = MsBetween(start, Clock::now());

    int connected = 0;
    int completed = 0;
    int failed = 0;
    std::vector<double> up;
    std::vector<double> down;
    std::vector<double> worst;
    for (auto& test : tests)
    {
        if (test.connected != Clock::time_point{})
            ++connected;
        if (test.state == Test::State::Failed)
            ++failed;
        if (test.state != Test::State::Done)
        {
            if (test.fd >= 0)
                ::close(test.fd);
            continue;
        }
        ++completed;
        // The download is timed from the last block written, not from the
        // first byte back: a lone test's whole download is often waiting by
        // the time the loop sees its first byte. The tail of the upload that
        // was still in buffers then counts against the download.
        const double upKbs = 512.0 / (std::max(MsBetween(test.connected, test.firstByte), 0.001) / 1000.0);
        const double downKbs =
            512.0 / (std::max(MsBetween(test.uploadWritten, test.lastByte), 0.001) / 1000.0);
        up.push_back(upKbs);
        down.push_back(downKbs);
        worst.push_back(std::min(upKbs, downKbs));
    }
    ::close(epoll);
    // A test that did not complete counts as 0 KB/s in the worst figure.
    const double worstKbs = completed == options.clients ? Min(worst) : 0.0;
    std::printf("clients=%d\nconnected=%d\ncompleted=%d\nfailed=%d\n", options.clients, connected, completed,
                failed);
    std::printf("up_min_kbs=%.1f\nup_median_kbs=%.1f\ndown_min_kbs=%.1f\ndown_median_kbs=%.1f\n", Min(up),
                Median(up), Min(down), Median(down));
    std::printf("worst_kbs=%.1f\nwall_ms=%.0f\n", worstKbs, wallMs);
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
    std::fprintf(stderr, "usage: bench_load_client tcp|udp [--server A:P] [--clients N] [--sources K]\n"
                         "       [--interval-ms I] [--limit-ms T] [--window W] [--duration-ms D]\n");
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
