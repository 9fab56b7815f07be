// bench_extended_probe HOST PORT: runs the extended network-quality step
// once against rig_test_server and prints its figures as key=value lines
// (empty value: not measured), for extended_accuracy.sh.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "RigInspector/ExtendedChecker.h"

namespace
{
void Print(const char* key, const std::optional<double>& value)
{
    if (value)
        std::printf("%s=%.2f\n", key, *value);
    else
        std::printf("%s=\n", key);
}
} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        std::fprintf(stderr, "usage: bench_extended_probe HOST PORT\n");
        return 2;
    }
    ExtendedSettings settings;
    settings.host = argv[1];
    settings.port = static_cast<std::uint16_t>(std::atoi(argv[2]));
    const ExtendedResult r = ExtendedChecker(settings).Run();
    std::printf("failure=%s\nduration_ms=%u\n", r.failure.c_str(), r.durationMs);
    Print("idle_p50", r.idle.p50);
    Print("idle_p90", r.idle.p90);
    Print("idle_min", r.idle.min);
    Print("loaded_p50", r.loaded.p50);
    Print("loaded_p90", r.loaded.p90);
    std::printf("grade=%s\nsent=%u\n", r.grade.c_str(), r.sent);
    Print("loss_up", r.lossUpPercent);
    Print("loss_down", r.lossDownPercent);
    Print("jitter", r.jitterMs);
    std::printf("reordered=%u\nduplicates=%u\nlate=%u\n", r.reordered, r.duplicates, r.late);
    Print("upload_kbs", r.uploadKBs);
    Print("download_kbs", r.downloadKBs);
    std::printf("inbound=%s\n", !r.inboundReached ? "" : *r.inboundReached ? "1" : "0");
    return r.failure.empty() ? 0 : 1;
}
