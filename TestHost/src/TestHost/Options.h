#pragma once

#include "TestHost/Selection.h"

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
