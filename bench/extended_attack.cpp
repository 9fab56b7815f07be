// bench_extended_attack MODE [options]: one attack on rig_test_server's
// extended service from loopback, bounded in count and time, with one line of
// key=value figures at the end. For the fault suite and extended_attacks.sh.
//
//   predict  N        collect N Welcomes on N ports of one host, then try each
//                     cookie (and its neighbours) from ports it was not issued
//                     to: accepted= must stay 0
//   sessions N [SECS] N Hello+Probe pairs from one host, as fast as it can;
//                     again and again for SECS
//   hellos RATE SECS  a Hello flood from one host
//   echoes RATE SECS  one session's probes at RATE a second: echoes= must stay
//                     near the session's pace, whatever the rate
//   silent N SECS     N TCP connections to the extended port that never
//                     send a byte, each made again when the server closes it
//   --when-session M  start once the server (metrics on 127.0.0.1:M) has
//                     opened a session, the honest client's
//   serve HOW SECS    be a server that refuses streams (HOW: silent, busy or
//                     close) and serves the rest, on 127.0.0.1
//   metrics M         print the server's metrics from 127.0.0.1:M
//   crowd N           N honest extended runs starting together, each from an
//                     address of its own (127.0.1.x): how many got figures
//
// With RIG_CROWD_VERBOSE set, the crowd names on stderr each player that
// got no figures, and why.
// The attacking host is 127.0.0.66 (crowd: 127.0.1.1 and up), so the honest
// client on 127.0.0.1 is another host. Server on 127.0.0.1:9997 unless
// --port says otherwise.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <latch>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "RigInspector/ExtendedChecker.h"
#include "RigInspector/ExtendedWire.h"

namespace
{
using Clock = std::chrono::steady_clock;
using extended::Message;
using extended::Type;

constexpr const char* kAttacker = "127.0.0.66";
std::uint16_t g_Port = 9997;

sockaddr_in At(const char* address, std::uint16_t port)
{
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    ::inet_pton(AF_INET, address, &a.sin_addr);
    return a;
}

int Udp(const char* from)
{
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_in local = At(from, 0);
    if (fd < 0 || ::bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0)
    {
        std::perror("udp socket");
        std::exit(1);
    }
    return fd;
}

void Send(int fd, const Message& m)
{
    const auto bytes = extended::Encode(m);
    const sockaddr_in to = At("127.0.0.1", g_Port);
    ::sendto(fd, bytes.data(), bytes.size(), MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&to), sizeof to);
}

std::optional<Message> Receive(int fd, int timeoutMs)
{
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, timeoutMs) != 1)
        return std::nullopt;
    std::uint8_t buffer[2048];
    const ssize_t n = ::recv(fd, buffer, sizeof buffer, MSG_DONTWAIT);
    return n > 0 ? extended::Decode(buffer, static_cast<std::size_t>(n)) : std::nullopt;
}

// The server's metrics page (with the HTTP header), empty when unreachable.
std::string FetchMetrics(std::uint16_t port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in to = At("127.0.0.1", port);
    std::string response;
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0)
    {
        const std::string request = "GET /metrics HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
        ::send(fd, request.data(), request.size(), MSG_NOSIGNAL);
        char buffer[4096];
        pollfd p{fd, POLLIN, 0};
        for (int reads = 0; reads < 256 && ::poll(&p, 1, 2000) == 1; ++reads)
        {
            const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
            if (n <= 0)
                break;
            response.append(buffer, static_cast<std::size_t>(n));
        }
    }
    ::close(fd);
    return response;
}

// The value of a counter in the server's metrics, or -1.
double Metric(std::uint16_t port, const std::string& name)
{
    const std::string response = FetchMetrics(port);
    const auto at = response.find("\n" + name + " ");
    return at == std::string::npos ? -1.0 : std::atof(response.c_str() + at + name.size() + 2);
}

// Waits, at most a minute, until the server has opened a session: the honest
// client's, whose run the attack is to meet.
bool WaitForSession(std::uint16_t metricsPort)
{
    const auto end = Clock::now() + std::chrono::seconds(60);
    while (Clock::now() < end)
    {
        if (Metric(metricsPort, "rig_extended_sessions_opened_total") >= 1.0)
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50)); // polling the endpoint's counter
    }
    return false;
}

int Predict(int count)
{
    // Welcomes at a pace the Hello limit answers, so that every one comes.
    std::vector<int> sockets;
    std::vector<std::uint64_t> cookies;
    for (int i = 0; i < count; ++i)
    {
        const int fd = Udp(kAttacker);
        std::optional<Message> welcome;
        for (int tries = 0; tries < 20 && !welcome; ++tries)
        {
            Send(fd, {Type::Hello, 0, 0, static_cast<std::uint64_t>(i + 1)});
            welcome = Receive(fd, 50);
            if (welcome && welcome->type != Type::Welcome)
                welcome.reset();
        }
        if (!welcome)
            continue;
        sockets.push_back(fd);
        cookies.push_back(welcome->cookie);
    }
    // Each cookie, and the values a generator's next output would be
    // guessed as, from a port it was not issued to.
    int tried = 0, accepted = 0;
    const std::size_t n = cookies.size();
    for (std::size_t i = 0; i + 1 < n; ++i)
    {
        const int fd = sockets[(i + 1) % n];
        for (const std::uint64_t guess :
             {cookies[i], cookies[i] + 1, cookies[i] ^ cookies[i + 1], 2 * cookies[i + 1] - cookies[i]})
        {
            if (guess == cookies[(i + 1) % n])
                continue;
            ++tried;
            Send(fd, {Type::Probe, guess, 0, 1});
            if (const auto echo = Receive(fd, 5); echo && echo->type == Type::Echo)
                ++accepted;
        }
    }
    for (const int fd : sockets)
        ::close(fd);
    std::printf("welcomes=%zu tried=%d accepted=%d\n", n, tried, accepted);
    return accepted == 0 && n > 0 ? 0 : 1;
}

int Sessions(int count, double seconds)
{
    std::vector<int> sockets;
    int pairs = 0, welcomes = 0, busy = 0, echoes = 0;
    // The batch again each time the last one is through, until the time is up:
    // a table that empties by idling out is filled again at once.
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    for (int i = 0; i < 100 * count && (i % count != 0 || i == 0 || Clock::now() < end); ++i)
    {
        if (i % count == 0)
        {
            for (const int fd : sockets)
                ::close(fd);
            sockets.clear();
        }
        ++pairs;
        const int fd = Udp(kAttacker);
        sockets.push_back(fd);
        Send(fd, {Type::Hello, 0, 0, 7});
        const auto reply = Receive(fd, 2);
        if (!reply)
            continue;
        if (reply->type == Type::Busy)
        {
            ++busy;
            continue;
        }
        ++welcomes;
        Send(fd, {Type::Probe, reply->cookie, 0, 1});
        const auto answer = Receive(fd, 2);
        busy += answer && answer->type == Type::Busy;
        echoes += answer && answer->type == Type::Echo;
    }
    for (const int fd : sockets)
        ::close(fd);
    std::printf("pairs=%d welcomes=%d busy=%d sessions=%d\n", pairs, welcomes, busy, echoes);
    return 0;
}

int Hellos(double rate, double seconds)
{
    const int fd = Udp(kAttacker);
    const auto start = Clock::now();
    const auto end = start + std::chrono::duration<double>(seconds);
    std::uint64_t sent = 0, answered = 0;
    while (Clock::now() < end)
    {
        const auto due = start + std::chrono::duration<double>(static_cast<double>(sent) / rate);
        std::this_thread::sleep_until(due); // pacing the flood, not waiting for an event
        Send(fd, {Type::Hello, 0, 0, sent + 1});
        ++sent;
        while (Receive(fd, 0))
            ++answered;
    }
    ::close(fd);
    std::printf("hellos=%llu answered=%llu rate=%.0f\n", static_cast<unsigned long long>(sent),
                static_cast<unsigned long long>(answered), static_cast<double>(sent) / seconds);
    return 0;
}

// One session of the attacker's that sends probes at rate a second, far past
// the protocol's pace: how many echoes came back, and how fast.
int Echoes(double rate, double seconds)
{
    const int fd = Udp(kAttacker);
    std::optional<Message> welcome;
    for (int tries = 0; tries < 20 && !welcome; ++tries)
    {
        Send(fd, {Type::Hello, 0, 0, 9});
        welcome = Receive(fd, 50);
        if (welcome && welcome->type != Type::Welcome)
            welcome.reset();
    }
    if (!welcome)
    {
        ::close(fd);
        std::printf("probes=0 echoes=0 echoes_per_s=0 welcome=0\n");
        return 1;
    }
    const auto start = Clock::now();
    const auto end = start + std::chrono::duration<double>(seconds);
    std::uint64_t sent = 0, echoes = 0;
    while (Clock::now() < end)
    {
        const auto due = start + std::chrono::duration<double>(static_cast<double>(sent) / rate);
        std::this_thread::sleep_until(due); // pacing the flood, not waiting for an event
        Send(fd, {Type::Probe, welcome->cookie, static_cast<std::uint32_t>(sent), 0});
        ++sent;
        while (const auto reply = Receive(fd, 0))
            echoes += reply->type == Type::Echo;
    }
    while (const auto reply = Receive(fd, 100)) // the last echoes on their way
        echoes += reply->type == Type::Echo;
    ::close(fd);
    std::printf("probes=%llu echoes=%llu echoes_per_s=%.0f welcome=1\n",
                static_cast<unsigned long long>(sent), static_cast<unsigned long long>(echoes),
                static_cast<double>(echoes) / seconds);
    return 0;
}

int Connect()
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const sockaddr_in local = At(kAttacker, 0), to = At("127.0.0.1", g_Port);
    ::bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local);
    ::connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    return fd;
}

int Silent(int count, double seconds)
{
    // Each place is made again once the server has closed it, after a pause:
    // 64 connections held all the time, not a connect flood (which would
    // leave the kernel hundreds of thousands of closed connections to age
    // out, and measure that instead).
    constexpr auto kPause = std::chrono::milliseconds(100);
    std::vector<pollfd> held;
    std::vector<Clock::time_point> again(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        held.push_back({Connect(), POLLIN, 0});
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    std::uint64_t closedByServer = 0, made = static_cast<std::uint64_t>(count);
    while (Clock::now() < end)
    {
        ::poll(held.data(), held.size(), 20);
        const auto now = Clock::now();
        for (std::size_t i = 0; i < held.size(); ++i)
        {
            pollfd& p = held[i];
            if (p.fd < 0 && now >= again[i])
            {
                p.fd = Connect();
                ++made;
                continue;
            }
            if (p.fd < 0 || p.revents == 0)
                continue;
            char byte;
            if (::recv(p.fd, &byte, 1, MSG_DONTWAIT) > 0)
                continue;
            ::close(p.fd);
            p.fd = -1; // poll skips it until it is made again
            ++closedByServer;
            again[i] = now + kPause;
        }
    }
    for (const auto& p : held)
        if (p.fd >= 0)
            ::close(p.fd);
    std::printf("held=%d connections=%llu closed_by_server=%llu\n", count,
                static_cast<unsigned long long>(made), static_cast<unsigned long long>(closedByServer));
    return 0;
}

// A stand-in for the extended service that welcomes, echoes and counts
// probes like the real one, but treats every stream its own way: "silent"
// takes it and never reads or writes, "busy" sends a Busy record and holds
// it, "close" closes it at once.
int Serve(const std::string& how, double seconds)
{
    const int udp = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int tcp = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in at = At("127.0.0.1", g_Port);
    const int one = 1;
    ::setsockopt(tcp, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    if (::bind(udp, reinterpret_cast<const sockaddr*>(&at), sizeof at) != 0 ||
        ::bind(tcp, reinterpret_cast<const sockaddr*>(&at), sizeof at) != 0 || ::listen(tcp, 64) != 0)
    {
        std::perror("serve");
        return 1;
    }
    std::printf("serving %s on %u\n", how.c_str(), g_Port);
    std::fflush(stdout);
    std::vector<int> held;
    std::uint32_t probes = 0, streams = 0;
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    while (Clock::now() < end)
    {
        pollfd p[2] = {{udp, POLLIN, 0}, {tcp, POLLIN, 0}};
        if (::poll(p, 2, 100) <= 0)
            continue;
        if (p[1].revents != 0)
        {
            const int stream = ::accept4(tcp, nullptr, nullptr, SOCK_CLOEXEC);
            ++streams;
            if (how == "close")
                ::close(stream);
            else
            {
                if (how == "busy")
                {
                    const auto busy = extended::Encode({Type::Busy, 0, 0, 7000, 2});
                    ::send(stream, busy.data(), busy.size(), MSG_NOSIGNAL);
                }
                held.push_back(stream);
            }
        }
        if (p[0].revents == 0)
            continue;
        std::uint8_t buffer[2048];
        sockaddr_in from{};
        socklen_t length = sizeof from;
        const ssize_t n =
            ::recvfrom(udp, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &length);
        const auto m = n > 0 ? extended::Decode(buffer, static_cast<std::size_t>(n)) : std::nullopt;
        if (!m)
            continue;
        Message reply = *m;
        if (m->type == Type::Hello)
            reply = {Type::Welcome, 42, 0, m->a};
        else if (m->type == Type::Probe)
        {
            ++probes;
            reply.type = Type::Echo;
        }
        else if (m->type == Type::StatsRequest)
            reply = {Type::Stats, 42, probes, 0, 0};
        else
            continue;
        const auto bytes = extended::Encode(reply);
        ::sendto(udp, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&from), length);
    }
    for (const int fd : held)
        ::close(fd);
    ::close(udp);
    ::close(tcp);
    std::printf("probes=%u streams=%u\n", probes, streams);
    return 0;
}

int Crowd(int players)
{
    std::vector<ExtendedResult> results(static_cast<std::size_t>(players));
    std::vector<std::thread> threads;
    std::latch ready(players);
    for (int i = 0; i < players; ++i)
        threads.emplace_back(
            [i, &results, &ready]
            {
                ExtendedSettings settings;
                settings.port = g_Port;
                settings.gamePort = 0;
                settings.localAddress = "127.0.1." + std::to_string(i + 1);
                // Together, as a crowd does: each waits for all to be made.
                ready.arrive_and_wait();
                results[static_cast<std::size_t>(i)] = ExtendedChecker(settings).Run();
            });
    for (auto& thread : threads)
        thread.join();
    int measured = 0, busy = 0, unmeasured = 0, failed = 0, uploadOnly = 0, downloadOnly = 0;
    std::uint32_t longest = 0;
    for (const auto& r : results)
    {
        longest = std::max(longest, r.durationMs);
        bool bBusy = false;
        for (const auto& note : r.notes)
            bBusy = bBusy || note.code == "extended_busy";
        if (r.uploadKBs && r.downloadKBs)
            ++measured;
        else if (bBusy)
        {
            if (std::getenv("RIG_CROWD_VERBOSE") != nullptr)
                std::fprintf(stderr, "player %zu: busy up=%d down=%d stats=%d\n",
                             static_cast<std::size_t>(&r - results.data()) + 1, r.uploadKBs.has_value(),
                             r.downloadKBs.has_value(), r.lossUpPercent.has_value());
            ++busy;
        }
        else if (!r.failure.empty())
            ++failed;
        else
        {
            if (std::getenv("RIG_CROWD_VERBOSE") != nullptr)
                std::fprintf(stderr, "player %zu: %s %s stats=%d\n",
                             static_cast<std::size_t>(&r - results.data()) + 1,
                             r.notes.empty() ? "-" : r.notes[0].code.c_str(), r.failure.c_str(),
                             r.lossUpPercent.has_value());
            ++unmeasured;
            uploadOnly += r.uploadKBs.has_value();
            downloadOnly += r.downloadKBs.has_value();
        }
    }
    std::printf("players=%d measured=%d busy=%d unmeasured=%d (upload only %d, download only %d) failed=%d "
                "longest_ms=%u\n",
                players, measured, busy, unmeasured, uploadOnly, downloadOnly, failed, longest);
    return 0;
}
} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    std::uint16_t metricsPort = 0;
    for (std::size_t i = 0; i + 1 < args.size();)
    {
        if (args[i] != "--port" && args[i] != "--when-session")
        {
            ++i;
            continue;
        }
        (args[i] == "--port" ? g_Port : metricsPort) =
            static_cast<std::uint16_t>(std::atoi(args[i + 1].c_str()));
        args.erase(args.begin() + static_cast<long>(i), args.begin() + static_cast<long>(i) + 2);
    }
    if (metricsPort != 0 && !WaitForSession(metricsPort))
    {
        std::fprintf(stderr, "bench_extended_attack: no session opened on the server within a minute\n");
        return 1;
    }
    const auto number = [&](std::size_t i, double fallback)
    { return i < args.size() ? std::atof(args[i].c_str()) : fallback; };
    const std::string mode = args.empty() ? "" : args[0];
    // Bounds: no attack runs for more than a minute or past its count.
    if (mode == "metrics")
        return std::printf("%s", FetchMetrics(static_cast<std::uint16_t>(number(1, 9995))).c_str()) > 0 ? 0
                                                                                                        : 1;
    if (mode == "predict")
        return Predict(static_cast<int>(std::min(number(1, 312), 2000.0)));
    if (mode == "sessions")
        return Sessions(static_cast<int>(std::min(number(1, 1024), 20000.0)), std::min(number(2, 0), 60.0));
    if (mode == "hellos")
        return Hellos(std::min(number(1, 2300), 100000.0), std::min(number(2, 10), 60.0));
    if (mode == "echoes")
        return Echoes(std::min(number(1, 20000), 100000.0), std::min(number(2, 10), 60.0));
    if (mode == "silent")
        return Silent(static_cast<int>(std::min(number(1, 64), 1000.0)), std::min(number(2, 10), 60.0));
    if (mode == "serve")
        return Serve(args.size() > 1 ? args[1] : "silent", std::min(number(2, 60), 300.0));
    if (mode == "crowd")
        return Crowd(static_cast<int>(std::min(number(1, 20), 250.0)));
    std::fprintf(stderr,
                 "usage: bench_extended_attack [--port P] predict|sessions|hellos|echoes|silent|crowd ...\n");
    return 2;
}
