#pragma once
// The fuzzers' own assertion: names the broken property before aborting,
// which libFuzzer turns into a crash report with the input saved.
#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(condition)                                                                                \
    do                                                                                                       \
    {                                                                                                        \
        if (!(condition))                                                                                    \
        {                                                                                                    \
            std::fprintf(stderr, "FUZZ_CHECK failed at %s:%d: %s\n", __FILE__, __LINE__, #condition);        \
            std::abort();                                                                                    \
        }                                                                                                    \
    } while (false)
