#pragma once

#include <filesystem>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace Ovelith::TestHost
{
inline constexpr int EXIT_ALL_PASSED = 0;
inline constexpr int EXIT_CASE_FAILED = 1;
inline constexpr int EXIT_BAD_INPUT = 2;

// What the host learns from the process it runs in rather than from its command line.
struct HostEnvironment
{
    std::string program = "testhost";
    // The project's module as the build placed it; may be empty or gone.
    std::filesystem::path builtModule;
    // This program, to look for the project's module relative to it.
    std::filesystem::path executable;
    // Whether colour is wanted when --color is auto: the output is a terminal and NO_COLOR is not set.
    bool colorByDefault = false;
};

// The whole program: parses `arguments` (without the program name), loads the module, selects, runs and
// reports. Results go to `out`; a problem that keeps the host from running goes to `err` as one line. Returns
// the exit code.
int runHost(const std::vector<std::string_view>& arguments, const HostEnvironment& environment, std::ostream& out,
            std::ostream& err);
} // namespace Ovelith::TestHost
