// bench_rtt_fidelity: runs the real UDP echo test (UdpChecker with its own
// defaults: ten pings, one turn per 50 ms) several times against a server on
// this machine and prints what the report would show for each run.
//
//   bench_rtt_fidelity [--runs N] [--host A.B.C.D] [--port P]
//
// One line per run: "run <i> sent <s> answered <a> min <ms> avg <ms> max <ms>",
// with avg computed as the report computes it (total over pings sent). Then
// key=value lines for the benchmark script:
//   runs, pings_sent, pings_answered, pings_lost
//   pongs_refused       datagrams the test took and did not accept (with only
//                       the server on the port: pongs refused for their round
//                       trip of 0 ms)
//   min_lo, min_hi      smallest and largest reported minimum over the runs
//   avg_mean            mean of the reported averages (runs that sent pings)
//   max_lo, max_hi      smallest and largest reported maximum
//   rtt_below_turn      runs whose minimum came in below one turn (read in
//                       the turn the ping was sent in)
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "RigInspector/UdpChecker.h"
#include "share/common/StringUtil.h"
#include "share/socket/Socket.h"

int main(int argc, char** argv)
{
    int nRuns = 10;
    std::string host = "127.0.0.1";
    int port = 9998;
    for (int i = 1; i + 1 < argc; i += 2)
    {
        const std::string arg = argv[i];
        if (arg == "--runs")
            nRuns = std::clamp(std::atoi(argv[i + 1]), 1, 100);
        else if (arg == "--host")
            host = argv[i + 1];
        else if (arg == "--port")
            port = std::atoi(argv[i + 1]);
        else
        {
            std::fprintf(stderr, "usage: bench_rtt_fidelity [--runs N] [--host A.B.C.D] [--port P]\n");
            return 2;
        }
    }
    zul::socket::Startup();

    long sent = 0;
    long answered = 0;
    long refused = 0;
    int minLo = -1;
    int minHi = -1;
    int maxLo = -1;
    int maxHi = -1;
    double avgSum = 0.0;
    int avgRuns = 0;
    int belowTurn = 0;
    for (int run = 0; run < nRuns; ++run)
    {
        UdpChecker checker(u"UdpChecker");
        checker.Reset();
        checker.m_Host = zul::ToWide(host);
        checker.m_Port = static_cast<std::uint16_t>(port);
        const std::uint32_t interval = checker.m_Interval;
        checker.Start(false);
        checker.Wait(zul::INFINITE_WAIT);

        const int s = checker.SentCount();
        const int a = checker.AnsweredCount();
        const int avg = s == 0 ? -1 : static_cast<int>(checker.m_TotalPing / static_cast<std::uint32_t>(s));
        std::printf("run %2d sent %2d answered %2d min %3d avg %3d max %3d\n", run + 1, s, a,
                    checker.m_MinPing, avg, checker.m_MaxPing);
        std::fflush(stdout);
        sent += s;
        answered += a;
        refused += static_cast<long>(checker.m_IgnoredCount);
        if (checker.m_MinPing >= 0)
        {
            minLo = minLo < 0 ? checker.m_MinPing : std::min(minLo, checker.m_MinPing);
            minHi = std::max(minHi, checker.m_MinPing);
            maxLo = maxLo < 0 ? checker.m_MaxPing : std::min(maxLo, checker.m_MaxPing);
            maxHi = std::max(maxHi, checker.m_MaxPing);
            if (checker.m_MinPing < static_cast<int>(interval))
                ++belowTurn;
        }
        if (s > 0)
        {
            avgSum += avg;
            ++avgRuns;
        }
    }
    std::printf("runs=%d\npings_sent=%ld\npings_answered=%ld\npings_lost=%ld\npongs_refused=%ld\n", nRuns,
                sent, answered, sent - answered, refused);
    std::printf("min_lo=%d\nmin_hi=%d\navg_mean=%.1f\nmax_lo=%d\nmax_hi=%d\nrtt_below_turn=%d\n", minLo,
                minHi, avgRuns == 0 ? -1.0 : avgSum / avgRuns, maxLo, maxHi, belowTurn);
    return 0;
}
