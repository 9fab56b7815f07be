# rig_add_fuzzer(<name> SOURCES <src...> [LIBS <lib...>] CORPUS <dir> [DICT <file>])
#
# Builds one libFuzzer executable and registers a CTest entry (label "fuzz")
# that runs it for RIG_FUZZ_SECONDS on a copy of its seed corpus, so a run
# never adds files to the repository. A crash leaves its input in
# <build>/<dir>/<name>-artifacts. Used only when RIG_FUZZ is on, where every
# other object carries the coverage instrumentation (-fsanitize=fuzzer-no-link)
# that lets the fuzzer see into the libraries.
#   cmake --preset fuzz -DRIG_FUZZ_SEED=0 -DRIG_FUZZ_SECONDS=600   (a search)
set(RIG_FUZZ_RUN ${CMAKE_CURRENT_LIST_DIR}/../tests/fuzz_run.sh CACHE INTERNAL "")
set(RIG_FUZZ_SECONDS 30 CACHE STRING "How long each fuzzer runs under CTest, in seconds")
# A fixed seed makes a CTest run walk the same inputs every time, so CI fails
# on a change, never on luck. 0 lets libFuzzer pick a new seed each run: use
# it (with more seconds) to search for new findings, then keep what they find
# in the seed corpus.
set(RIG_FUZZ_SEED 1 CACHE STRING "libFuzzer -seed for the CTest runs; 0 picks a new one each run")

if(NOT TARGET rig_fuzzers)
    add_custom_target(rig_fuzzers)
endif()

function(rig_add_fuzzer name)
    cmake_parse_arguments(F "" "CORPUS;DICT" "SOURCES;LIBS" ${ARGN})
    add_executable(${name} ${F_SOURCES})
    target_link_libraries(${name} PRIVATE ${F_LIBS})
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    add_dependencies(rig_fuzzers ${name})

    set(options -seed=${RIG_FUZZ_SEED} -max_total_time=${RIG_FUZZ_SECONDS} -timeout=10 -rss_limit_mb=2048 -print_final_stats=1)
    if(F_DICT)
        get_filename_component(dict ${F_DICT} ABSOLUTE BASE_DIR ${CMAKE_CURRENT_SOURCE_DIR})
        list(APPEND options -dict=${dict})
    endif()
    get_filename_component(corpus ${F_CORPUS} ABSOLUTE BASE_DIR ${CMAKE_CURRENT_SOURCE_DIR})
    add_test(NAME ${name}
        COMMAND ${RIG_FUZZ_RUN} $<TARGET_FILE:${name}> ${corpus}
                ${CMAKE_CURRENT_BINARY_DIR}/${name}-artifacts ${options})
    # Generous beyond the run itself: start-up and the corpus replay under a
    # loaded machine; the fuzzer ends by itself at max_total_time.
    math(EXPR timeout "${RIG_FUZZ_SECONDS} + 240")
    set_tests_properties(${name} PROPERTIES LABELS fuzz TIMEOUT ${timeout})
endfunction()
