#include "ServerOptions.h"

#include "LogOutput.h"
#include "RigVersion.h"

#include <CLI/CLI.hpp>
#include <asio/ip/address_v4.hpp>
#include <cstdio>
#include <mutex>
#include <string>

namespace
{
const char* const kProgram = "rig_test_server";
}

void LogLine(const std::string& line)
{
    // One write per line under one lock: the threads' lines never
    // interleave. Lines the reader cannot take are counted, not waited for,
    // and the count is said as soon as output flows again.
    static std::mutex s_Mutex;
    static unsigned long long s_Dropped = 0;
    std::lock_guard lock(s_Mutex);
    std::string text;
    if (s_Dropped > 0)
        text = "rig_test_server: " + std::to_string(s_Dropped) + " log lines dropped (output not read)\n";
    text += line;
    text += '\n';
    if (WriteLogNow(text))
        s_Dropped = 0;
    else
        ++s_Dropped;
}

std::optional<asio::ip::tcp::endpoint> ParseEndpoint(const std::string& text)
{
    const auto colon = text.rfind(':');
    if (colon == std::string::npos)
        return std::nullopt;
    std::error_code ec;
    const auto address = asio::ip::make_address_v4(text.substr(0, colon), ec);
    const std::string port = text.substr(colon + 1);
    if (ec || port.empty() || port.size() > 5 || port.find_first_not_of("0123456789") != std::string::npos)
        return std::nullopt;
    const unsigned long number = std::stoul(port);
    if (number > 65535)
        return std::nullopt;
    return asio::ip::tcp::endpoint(address, static_cast<std::uint16_t>(number));
}

int ParseServerOptions(int argc, const char* const* argv, ServerOptions& o)
{
    CLI::App app{"Reference server for Rig Inspector's TCP speed test and UDP echo test.", kProgram};
    app.set_version_flag("--version", std::string(kProgram) + " " + RIG_VERSION_TEXT);

    app.add_option("-a,--address", o.m_Address, "IPv4 address to listen on")->capture_default_str();
    app.add_option("--tcp-port", o.m_TcpPort, "TCP port of the speed test")->capture_default_str();
    app.add_option("--udp-port", o.m_UdpPort, "UDP port the pings come to")->capture_default_str();
    app.add_option("--pong-port", o.m_PongPort, "UDP port on the sender's address the pongs go to")
        ->capture_default_str()
        ->check(CLI::Range(1, 65535));
    app.add_option("--threads", o.m_Threads, "threads serving the tests (0: one per core)")
        ->capture_default_str()
        ->check(CLI::Range(0u, 256u));
    app.add_option("--extended-port", o.m_ExtendedPort,
                   "UDP and TCP port of the extended network-quality exchange (0: off)")
        ->capture_default_str();
    app.add_option("--max-connections", o.m_MaxConnections,
                   "TCP connections served at once; more are refused")
        ->capture_default_str()
        ->check(CLI::Range(1u, 1000000u));
    app.add_option("--max-per-source", o.m_MaxPerSource, "TCP connections one source address may hold")
        ->capture_default_str()
        ->check(CLI::Range(1u, 1000000u));
    app.add_option("--min-upload-rate", o.m_MinUploadRate,
                   "end an upload slower than this many bytes per second after its first 2 s (0: never)")
        ->capture_default_str();
    app.add_option("--idle-timeout-ms", o.m_IdleTimeoutMs,
                   "drop a connection that moved no byte either way for this long")
        ->capture_default_str()
        ->check(CLI::PositiveNumber);
    app.add_option("--session-limit-ms", o.m_SessionLimitMs, "drop a connection that lasts longer than this")
        ->capture_default_str()
        ->check(CLI::PositiveNumber);
    app.add_option("--upload-silence-ms", o.m_UploadSilenceMs,
                   "start the download when the upload has been silent this long")
        ->capture_default_str()
        ->check(CLI::PositiveNumber);
    app.add_option(
           "--upload-limit-ms", o.m_UploadLimitMs,
           "start the download this long after the connection at the latest (the client's upload limit)")
        ->capture_default_str()
        ->check(CLI::PositiveNumber);
    app.add_option("--rate-limit", o.m_RateLimit, "pongs per second to one source address (0: no limit)")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 1e9));
    app.add_option("--rate-burst", o.m_RateBurst, "pongs one source address may get at once")
        ->capture_default_str()
        ->check(CLI::Range(1.0, 1e9));

    app.add_option("--pong-budget", o.m_PongBudget, "pongs per second to all sources together (0: no limit)")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 1e9));
    auto* extended = "Extended exchange limits";
    app.add_option(
           "--cookie-key-file", o.m_CookieKeyFile,
           "64 hex digits: the cookie key, shared by instances behind one address (re-read every 30 s)")
        ->group(extended)
        ->check(CLI::ExistingFile);
    app.add_option("--extended-hello-rate", o.m_Extended.m_HellosPerSecond,
                   "handshakes per second one source address gets answered")
        ->group(extended)
        ->capture_default_str()
        ->check(CLI::Range(1.0, 1e6));
    app.add_option("--extended-sessions-per-source", o.m_Extended.m_SessionsPerSource,
                   "extended sessions one source address may hold")
        ->group(extended)
        ->capture_default_str()
        ->check(CLI::Range(1u, 100000u));
    app.add_option("--extended-max-sessions", o.m_Extended.m_MaxSessions, "extended sessions in all")
        ->group(extended)
        ->capture_default_str()
        ->check(CLI::Range(1u, 1000000u));
    app.add_option("--extended-streams-per-source", o.m_Extended.m_StreamsPerSource,
                   "throughput streams one source address may hold")
        ->group(extended)
        ->capture_default_str()
        ->check(CLI::Range(1u, 100000u));
    app.add_option("--extended-stream-budget", o.m_Extended.m_StreamBudget,
                   "throughput streams in all; beyond a quarter of it, only a player's first stream each way")
        ->group(extended)
        ->capture_default_str()
        ->check(CLI::Range(2u, 100000u));
    app.add_option("--metrics", o.m_Metrics, "serve Prometheus metrics over HTTP on ADDRESS:PORT");
    std::string logFormat = "text";
    app.add_option("--log-format", logFormat, "one line per finished test as text or as a JSON object")
        ->capture_default_str()
        ->check(CLI::IsMember({"text", "json"}));

    auto* faults = "Fault modes (for tests and benchmarks)";
    app.add_flag("--silent", o.m_bSilent, "accept and take the upload, never send")->group(faults);
    app.add_option("--stop-reading-after", o.m_StopReadingAfter,
                   "stop reading after N bytes, with a small receive buffer, until the download is sent")
        ->group(faults)
        ->check(CLI::PositiveNumber);
    app.add_option("--close-after", o.m_CloseAfter, "close after sending N bytes")
        ->group(faults)
        ->check(CLI::PositiveNumber);
    app.add_option("--drop-every", o.m_DropEvery, "leave every Nth valid ping unanswered")
        ->group(faults)
        ->check(CLI::PositiveNumber);
    app.add_option("--pong-delay", o.m_PongDelayMs, "delay every pong by N milliseconds")->group(faults);
    app.add_option("--jitter", o.m_JitterMs,
                   "delay every extended echo by a further random 0..N milliseconds")
        ->group(faults);
    app.add_flag("--malformed-pongs", o.m_bMalformedPongs, "answer with pongs the client must reject")
        ->group(faults);

    try
    {
        app.parse(argc, argv);
        // IPv4 only: the client connects by dotted-decimal text and nothing
        // else, and the rate limit keys its table by the 32-bit address.
        std::error_code ec;
        asio::ip::make_address_v4(o.m_Address, ec);
        if (ec)
            throw CLI::ValidationError("--address", "'" + o.m_Address + "' is not an IPv4 address");
        if (!o.m_Metrics.empty() && !ParseEndpoint(o.m_Metrics))
            throw CLI::ValidationError("--metrics", "'" + o.m_Metrics + "' is not IPV4ADDRESS:PORT");
        o.m_bJsonLog = logFormat == "json";
    }
    catch (const CLI::CallForHelp& e)
    {
        return app.exit(e);
    }
    catch (const CLI::CallForVersion& e)
    {
        return app.exit(e);
    }
    catch (const CLI::ParseError& e)
    {
        std::fprintf(stderr, "%s: %s (see --help)\n", kProgram, e.what());
        return 2;
    }
    return -1;
}
