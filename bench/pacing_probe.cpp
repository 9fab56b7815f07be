// bench_pacing_probe: what the check sequence's own waits really cost on this
// machine. A full run is mostly sleeps and busy-waits of fixed nominal length;
// the overhead benchmark needs their real length to tell pacing from waste.
//
// Prints key=value lines (milliseconds, as decimals) for the benchmark script,
// each as the mean, with <key>_median and <key>_max beside it:
//   sleep1_ms   mean real length of zul::Sleep(1), over one TCP phase's 512 calls
//   sleep10_ms  mean real length of zul::Sleep(10), the sequence loop's poll
//   sleep50_ms  mean real length of zul::Sleep(50), the UDP echo test's turn
//   cpu_ms      one MeasureCpuSpeed() call
//   ports_ms    probing the default local port range 20000..20030 once
//   video_ms    one GetVideoMemory() call (the probe may start a child process)
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "RigInspector/SystemProbes.h"
#include "share/common/Clock.h"
#include "share/socket/PortProbe.h"
#include "share/socket/Socket.h"

namespace
{
using SteadyClock = std::chrono::steady_clock;

double MsSince(SteadyClock::time_point start)
{
    return std::chrono::duration<double, std::milli>(SteadyClock::now() - start).count();
}

struct Sample
{
    double mean = 0.0;
    double median = 0.0;
    double max = 0.0;
};

template <class F> Sample Measure(int nRuns, F&& f)
{
    std::vector<double> times;
    times.reserve(static_cast<std::size_t>(nRuns));
    for (int i = 0; i < nRuns; ++i)
    {
        const auto start = SteadyClock::now();
        f();
        times.push_back(MsSince(start));
    }
    Sample s;
    for (double t : times)
        s.mean += t;
    s.mean /= static_cast<double>(times.size());
    std::sort(times.begin(), times.end());
    s.median = times[times.size() / 2];
    s.max = times.back();
    return s;
}

void PrintSample(const char* key, const Sample& s)
{
    std::printf("%s=%.4f\n%s_median=%.4f\n%s_max=%.4f\n", key, s.mean, key, s.median, key, s.max);
}
} // namespace

int main()
{
    zul::socket::Startup();

    // Exactly the count one TCP phase sleeps; the mean is what a phase pays.
    PrintSample("sleep1_ms", Measure(512, [] { zul::Sleep(1); }));
    PrintSample("sleep10_ms", Measure(50, [] { zul::Sleep(10); }));
    PrintSample("sleep50_ms", Measure(11, [] { zul::Sleep(50); }));
    PrintSample("cpu_ms", Measure(3, [] { (void)MeasureCpuSpeed(); }));
    PrintSample("ports_ms",
                Measure(5,
                        []
                        {
                            for (int port = 20000; port < 20031; ++port)
                                (void)zul::socket::IsUdpPortFree(static_cast<std::uint16_t>(port));
                        }));
    PrintSample("video_ms", Measure(3,
                                    []
                                    {
                                        std::uint32_t total = 0;
                                        std::uint32_t free = 0;
                                        (void)GetVideoMemory(total, free);
                                    }));
    return 0;
}
