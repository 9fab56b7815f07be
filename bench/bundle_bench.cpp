// What keeping the history and writing the bundle add to a run, with a full
// history: the run's line appended (the file at its limit, so rewritten),
// the history read back, the bundle rendered and written. Prints the
// bundle's size and the time, median and slowest of the repeats.
//
// usage: bench_bundle <results.json> <report.html> <work dir> [repeats]
// The results and the report come from a real run (bench/bundle.sh makes
// them); the kept runs are that run's document with its figures varied and
// a twelve-hop path added, so every line is as large as a line gets.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "RigInspectorApp/Bundle.h"
#include "RigInspectorApp/RunHistory.h"
#include "RigInspectorApp/RunRecord.h"

using nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;

namespace
{
std::string ReadAll(const char* path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

ordered_json PastRun(const ordered_json& model, int i)
{
    ordered_json run = model;
    const double wave = std::sin(i * 0.7);
    run["finished_at"] = IsoLocalTime(std::time(nullptr) - static_cast<std::time_t>(100 - i) * 5400);
    run["checks"]["udp"]["avg_ping_ms"] = 30 + static_cast<int>(20 * wave);
    run["checks"]["udp"]["loss_percent"] = i % 9 == 0 ? 10.0 : 0.0;
    run["checks"]["tcp"]["upload_kb_per_sec"] = 900.0 + 300.0 * wave;
    run["checks"]["tcp"]["download_kb_per_sec"] = 2400.0 - 500.0 * wave;
    ordered_json hops = ordered_json::array();
    for (int ttl = 1; ttl <= 12; ++ttl)
        hops.push_back({{"ttl", ttl},
                        {"address", "198.18.0." + std::to_string(ttl)},
                        {"sent", 10},
                        {"answered", 10},
                        {"loss_percent", 0.0},
                        {"rtt_ms", {{"min", ttl * 1.5}, {"p50", ttl * 2.0}, {"max", ttl * 3.5}}},
                        {"rate_limited", false}});
    run["extended"]["path"] = {
        {"target", "198.18.0.12"},
        {"probes_per_hop", 10},
        {"hops", hops},
        {"reached", true},
        {"loss_starts_at_hop", nullptr},
        {"verdict", {{"code", "clean"}, {"text", "No hop on the way loses packets."}}}};
    return run;
}
} // namespace

int main(int argc, char** argv)
{
    if (argc < 4)
    {
        std::fprintf(stderr, "usage: bench_bundle <results.json> <report.html> <work dir> [repeats]\n");
        return 2;
    }
    const ordered_json model = ordered_json::parse(ReadAll(argv[1]));
    const std::string report = ReadAll(argv[2]);
    const std::filesystem::path work = argv[3];
    const int repeats = argc > 4 ? std::max(1, std::atoi(argv[4])) : 20;

    const RunHistory history(work / "state");
    std::string why;
    for (int i = 0; i < static_cast<int>(RunHistory::kKeptRuns); ++i)
        if (!history.Append(PastRun(model, i), why))
        {
            std::fprintf(stderr, "bench_bundle: %s\n", why.c_str());
            return 1;
        }
    const ordered_json current = PastRun(model, 100);
    const std::filesystem::path out = work / "bundle.html";

    std::vector<double> totalMs, appendMs, renderMs;
    std::size_t size = 0, lineBytes = current.dump().size();
    for (int r = 0; r < repeats; ++r)
    {
        const auto t0 = Clock::now();
        if (!history.Append(current, why))
            return 1;
        const auto t1 = Clock::now();
        BundleInput input;
        input.pResults = &current;
        input.resultsText = ResultsText(current);
        input.reportDocument = report;
        input.history = history.Load();
        const std::string html = RenderBundle(input);
        std::ofstream(out, std::ios::binary | std::ios::trunc)
            .write(html.data(), static_cast<std::streamsize>(html.size()));
        const auto t2 = Clock::now();
        size = html.size();
        appendMs.push_back(std::chrono::duration<double, std::milli>(t1 - t0).count());
        renderMs.push_back(std::chrono::duration<double, std::milli>(t2 - t1).count());
        totalMs.push_back(std::chrono::duration<double, std::milli>(t2 - t0).count());
    }
    const auto median = [](std::vector<double> v)
    {
        std::sort(v.begin(), v.end());
        return v[v.size() / 2];
    };
    std::printf("history: %zu runs, %zu bytes a line, file %ju bytes\n", history.Load().size(), lineBytes,
                static_cast<std::uintmax_t>(std::filesystem::file_size(history.GetFile())));
    std::printf("bundle: %zu bytes (%.1f KB)\n", size, size / 1024.0);
    std::printf("added to a run over %d repeats: median %.2f ms (append %.2f, read + render + write %.2f), "
                "slowest %.2f ms\n",
                repeats, median(totalMs), median(appendMs), median(renderMs),
                *std::max_element(totalMs.begin(), totalMs.end()));
    std::printf("RESULT|bundle|bundle size with 100 runs (KB)|%.1f|< 300|%s\n", size / 1024.0,
                size < 300 * 1024 ? "yes" : "no");
    std::printf("RESULT|bundle|history and bundle time added to a run (ms, median)|%.2f|< 50|%s\n",
                median(totalMs), median(totalMs) < 50 ? "yes" : "no");
    return 0;
}
