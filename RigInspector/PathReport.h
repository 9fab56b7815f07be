#pragma once
// Where on the way to the test server loss begins: one row per hop, and the
// verdict drawn from them and from the extended echo's end-to-end loss. The
// path tracer fills it; the JSON, the terminal, the details views, the advice
// and the bundle read it.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct PathHop
{
    int ttl = 0;
    std::optional<std::string> address; // dotted IPv4; nothing when no hop answered
    std::uint32_t sent = 0;
    std::uint32_t answered = 0;
    double lossPercent = 0.0;
    std::optional<double> rttMinMs, rttP50Ms, rttMaxMs; // nothing without answers
    bool rateLimited = false;                           // loss that does not carry on to later hops
    bool homeNetwork = false;                           // hop 1 and the private hops right after it
};

struct PathReport
{
    bool ran = false;
    std::string target; // the server's IPv4 address
    std::uint32_t probesPerHop = 0;
    std::vector<PathHop> hops;
    bool reached = false;
    std::optional<int> lossStartsAtHop;   // a ttl; nothing when there is no loss
    std::optional<bool> lossStartsInHome; // set with lossStartsAtHop
    std::string verdictCode;              // stable snake_case, for scripts
    std::string verdictText;              // one or two sentences, for players
};
