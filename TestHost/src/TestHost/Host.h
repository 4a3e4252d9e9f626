#pragma once

#include <filesystem>
#include <iosfwd>
#include <map>
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
    // This program, to look for the project's module beside it.
    std::filesystem::path executable;
    // Whether the output is a terminal, where a person watches the run.
    bool outputIsTerminal = false;
    // Whether colour is wanted when --color is auto: the output is a terminal and NO_COLOR is not set.
    bool colorByDefault = false;
    // The same for the standard error stream, where problems that stop the host are told.
    bool errorColorByDefault = false;
    // The environment variables the host reads (see ENVIRONMENT_VARIABLES), those that are set.
    std::map<std::string, std::string, std::less<>> variables;
    // Where the standard error stream is, for what the host says when a case takes its process down.
    int errorDescriptor = 2;

    const char* variable(std::string_view name) const;
};

// TESTHOST_MODULE names the module to run when the command line names none; GoogleTest's sharding variables.
inline constexpr const char* ENVIRONMENT_VARIABLES[] = {"TESTHOST_MODULE", "GTEST_TOTAL_SHARDS", "GTEST_SHARD_INDEX",
                                                        "GTEST_SHARD_STATUS_FILE"};

// The whole program: parses `arguments` (without the program name), loads the module, selects, runs and
// reports. Results go to `out`; a problem that keeps the host from running goes to `err` as one line. Returns
// the exit code.
int runHost(const std::vector<std::string_view>& arguments, const HostEnvironment& environment, std::ostream& out,
            std::ostream& err);
} // namespace Ovelith::TestHost
