# rig_add_test(<name> SOURCES <src...> [LIBS <lib...>] LABELS <label...> [NETNS] [ENV <k=v...>] [TIMEOUT <s>])
#
# Builds one test executable and registers it with CTest. NETNS runs it in a
# private network namespace with only loopback up, so tests that bind fixed
# ports (20000, 9998, 9999) never collide with each other under parallel CTest
# or with a server already running on the machine. In the Windows build the
# test runs under Wine (the build's emulator) and needs the wine fixture.
set(RIG_NETNS_RUN ${CMAKE_CURRENT_LIST_DIR}/../tests/netns_run.sh CACHE INTERNAL "")

function(rig_add_test name)
    cmake_parse_arguments(T "NETNS;NOGTEST" "TIMEOUT" "SOURCES;LIBS;LABELS;ENV" ${ARGN})
    add_executable(${name} ${T_SOURCES})
    target_link_libraries(${name} PRIVATE ${T_LIBS})
    if(WIN32)
        target_sources(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/windows/WinsockForTests.cpp)
        target_link_libraries(${name} PRIVATE ws2_32)
    endif()
    if(NOT T_NOGTEST)
        find_package(GTest REQUIRED)
        target_link_libraries(${name} PRIVATE GTest::gtest GTest::gtest_main GTest::gmock)
    endif()
    if(T_NETNS AND WIN32)
        add_test(NAME ${name} COMMAND ${RIG_WINE_NETNS_RUN} ${RIG_WINEPREFIX} $<TARGET_FILE:${name}>)
    elseif(T_NETNS)
        add_test(NAME ${name} COMMAND ${RIG_NETNS_RUN} $<TARGET_FILE:${name}>)
    else()
        add_test(NAME ${name} COMMAND ${name})
    endif()
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 300)
    endif()
    set_tests_properties(${name} PROPERTIES LABELS "${T_LABELS}" TIMEOUT ${T_TIMEOUT}
        WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
    if(WIN32)
        set_tests_properties(${name} PROPERTIES FIXTURES_REQUIRED wine)
    endif()
    if(T_ENV)
        set_tests_properties(${name} PROPERTIES ENVIRONMENT "${T_ENV}")
    endif()
    rig_keep_state_in_build(${name})
endfunction()

# A run keeps its history in a folder of the build tree, one per test, never
# in the home folder. (Wine's own prefix, in the build tree, holds the Windows
# runs' per-user folders.)
function(rig_keep_state_in_build name)
    # Under Wine the path reaches the Windows program as it is; Wine reads a
    # path from the root on the drive of the working folder, which maps /.
    set_property(TEST ${name} APPEND PROPERTY ENVIRONMENT_MODIFICATION
        "RIG_INSPECTOR_STATE_DIR=set:${CMAKE_CURRENT_BINARY_DIR}/state/${name}")
endfunction()
