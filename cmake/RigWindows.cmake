# The Windows build's own settings: the API level, Unicode, and the third-party
# libraries Debian ships only for the host (header-only ones through a folder
# of symlinks, GoogleTest built from its sources with this toolchain).

# Windows 7 is the oldest system the tool runs on (and what Asio wants).
add_compile_definitions(_WIN32_WINNT=0x0601 WINVER=0x0601 UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX)

# Only the header-only libraries' own folders, never /usr/include as a whole:
# its glibc headers would shadow MinGW's.
set(RIG_WIN_INCLUDE ${CMAKE_BINARY_DIR}/third_party/include)
file(MAKE_DIRECTORY ${RIG_WIN_INCLUDE})
foreach(_entry nlohmann CLI asio asio.hpp)
    if(NOT EXISTS /usr/include/${_entry})
        message(FATAL_ERROR "/usr/include/${_entry} is missing: run scripts/setup.sh")
    endif()
    file(CREATE_LINK /usr/include/${_entry} ${RIG_WIN_INCLUDE}/${_entry} SYMBOLIC)
endforeach()

add_library(rig_win_nlohmann_json INTERFACE)
target_include_directories(rig_win_nlohmann_json SYSTEM INTERFACE ${RIG_WIN_INCLUDE})
add_library(nlohmann_json::nlohmann_json ALIAS rig_win_nlohmann_json)
add_library(rig_win_cli11 INTERFACE)
target_include_directories(rig_win_cli11 SYSTEM INTERFACE ${RIG_WIN_INCLUDE})
add_library(CLI11::CLI11 ALIAS rig_win_cli11)
add_library(rig_win_asio INTERFACE)
target_include_directories(rig_win_asio SYSTEM INTERFACE ${RIG_WIN_INCLUDE})
# The find_package() calls the host build makes find these targets instead of
# Debian's host packages.
set(_rig_redirects ${CMAKE_FIND_PACKAGE_REDIRECTS_DIR})
file(WRITE ${_rig_redirects}/cli11-config.cmake "")
file(WRITE ${_rig_redirects}/nlohmann_json-config.cmake "")
file(WRITE ${_rig_redirects}/nlohmann_json-config-version.cmake
    "set(PACKAGE_VERSION 3)\nset(PACKAGE_VERSION_COMPATIBLE TRUE)\n")
file(WRITE ${_rig_redirects}/gtest-config.cmake "")

if(RIG_BUILD_TESTS)
    set(gtest_force_shared_crt OFF CACHE BOOL "" FORCE)
    set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
    set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
    add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
    # GoogleTest's own sources are not held to the project's warning flags.
    foreach(_t gtest gtest_main gmock gmock_main)
        target_compile_options(${_t} PRIVATE -w)
    endforeach()
endif()

# The tests run under Wine, in a prefix of this build folder.
set(RIG_WINEPREFIX ${CMAKE_BINARY_DIR}/wineprefix)
set(RIG_WINE_RUN ${PROJECT_SOURCE_DIR}/tests/windows/wine_run.sh)
set(RIG_WINE_NETNS_RUN ${PROJECT_SOURCE_DIR}/tests/windows/wine_netns_run.sh)
set(CMAKE_CROSSCOMPILING_EMULATOR ${RIG_WINE_RUN} ${RIG_WINEPREFIX})
