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

enum class ListFormat
{
    Text,
    Json,
};

// What the command line asks of the host.
struct HostOptions
{
    // Empty: the module TESTHOST_MODULE names, else the project's module beside the host.
    std::string modulePath;
    Selection selection;
    bool list = false;
    ListFormat listFormat = ListFormat::Text;
    bool failFast = false;
    // Stop once this many cases failed; 0 for no limit.
    size_t maxFailures = 0;
    bool help = false;
    bool version = false;
    // Empty: no such report.
    std::string junitPath;
    std::string jsonPath;
    ColorMode color = ColorMode::Auto;
    // Name each case as it starts, also where a crash could not hide which one it was (in workers).
    bool verbose = false;
    // Print failed cases only, and the summary.
    bool brief = false;
    // After the run, list this many of the slowest cases.
    size_t durations = 0;

    // Run cases in worker processes; more than one job, or a timeout, implies it.
    bool isolate = false;
    size_t jobs = 1;
    // Seconds a case may run in a worker; 0 for no limit.
    double timeoutSeconds = 0;
    bool shuffle = false;
    // Without one, a shuffled run picks its own and prints it.
    std::optional<uint64_t> seed;
    size_t repeat = 1;
    // Run the selection round after round until a round has a failure; `repeat` is then ignored.
    bool repeatUntilFail = false;
    // Run only shard `shardIndex` of `shardCount`; the parser accepts one only with the other.
    std::optional<size_t> shardCount;
    std::optional<size_t> shardIndex;

    bool usesWorkers() const { return isolate || jobs > 1 || timeoutSeconds > 0; }
    // --fail-fast is --max-failures 1.
    size_t failureLimit() const { return failFast ? 1 : maxFailures; }
};

struct ParsedArguments
{
    HostOptions options;
    // One line saying what is wrong with the command line; empty when it is fine.
    std::string error;
};

// `arguments` excludes the program name.
ParsedArguments parseArguments(const std::vector<std::string_view>& arguments);

// The sharding GoogleTest users configure through GTEST_TOTAL_SHARDS and GTEST_SHARD_INDEX (null when unset),
// applied where the command line sets none. Returns one line saying what is wrong, or nothing.
std::optional<std::string> applyShardEnvironment(HostOptions& options, const char* totalShards, const char* shardIndex);

std::string usageText(std::string_view program);
} // namespace Ovelith::TestHost
