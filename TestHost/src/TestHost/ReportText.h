#pragma once

#include <chrono>
#include <string>

namespace Ovelith::CoreTestFramework
{
struct TestFailureDetails;
}

namespace Ovelith::TestHost
{
// "<left> <comparison> <right>", e.g. "41 == 42": what the failed check expected to hold.
std::string describeComparison(const CoreTestFramework::TestFailureDetails& details);

// Milliseconds below a second, seconds above, three decimals: "0.042 ms", "1.250 s".
std::string formatDuration(std::chrono::nanoseconds duration);

// Seconds with three decimals, as JUnit readers expect: "0.001".
std::string formatSeconds(std::chrono::nanoseconds duration);

// "1 case", "2 cases".
std::string countOf(size_t count, const char* singular, const char* plural);
} // namespace Ovelith::TestHost
