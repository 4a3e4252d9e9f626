#include "TestHost/ReportText.h"

#include "ZentaryUnitTest/TestResult.h"

#include <fmt/format.h>

namespace Ovelith::TestHost
{
std::string describeComparison(const CoreTestFramework::TestFailureDetails& details)
{
    return fmt::format("{} {} {}", details.left, details.comparison, details.right);
}

std::string formatDuration(std::chrono::nanoseconds duration)
{
    const double milliseconds = std::chrono::duration<double, std::milli>(duration).count();
    if (milliseconds < 1000.0)
    {
        return fmt::format("{:.3f} ms", milliseconds);
    }
    return fmt::format("{:.3f} s", milliseconds / 1000.0);
}

std::string formatSeconds(std::chrono::nanoseconds duration)
{
    return fmt::format("{:.3f}", std::chrono::duration<double>(duration).count());
}

std::string countOf(size_t count, const char* singular, const char* plural)
{
    return fmt::format("{} {}", count, count == 1 ? singular : plural);
}
} // namespace Ovelith::TestHost
