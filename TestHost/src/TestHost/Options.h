#pragma once

#include "TestHost/Selection.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Ovelith::TestHost
{
enum class ColorMode
{
    Auto,
    Always,
    Never,
};

// What the command line asks of the host.
struct HostOptions
{
    // Empty: the project's module, looked for beside the host.
    std::string modulePath;
    Selection selection;
    bool list = false;
    bool failFast = false;
    bool help = false;
    // Empty: no JUnit report.
    std::string junitPath;
    ColorMode color = ColorMode::Auto;

    // Run cases in worker processes; more than one job, or a timeout, implies it.
    bool isolate = false;
    size_t jobs = 1;
    // Seconds a case may run in a worker; 0 for no limit.
    double timeoutSeconds = 0;
    bool shuffle = false;
    // Without one, a shuffled run picks its own and prints it.
    std::optional<uint64_t> seed;
    size_t repeat = 1;
    // Run only shard `shardIndex` of `shardCount`; the parser accepts one only with the other.
    std::optional<size_t> shardCount;
    std::optional<size_t> shardIndex;

    bool usesWorkers() const { return isolate || jobs > 1 || timeoutSeconds > 0; }
};

struct ParsedArguments
{
    HostOptions options;
    // One line saying what is wrong with the command line; empty when it is fine.
    std::string error;
};

// `arguments` excludes the program name.
ParsedArguments parseArguments(const std::vector<std::string_view>& arguments);

std::string usageText(std::string_view program);
} // namespace Ovelith::TestHost
