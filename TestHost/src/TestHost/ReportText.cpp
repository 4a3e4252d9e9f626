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

size_t utf8SequenceLength(std::string_view text, uint32_t& codePoint)
{
    const auto byte = [&](size_t index) { return static_cast<unsigned char>(text[index]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80)
    {
        codePoint = lead;
        return 1;
    }
    size_t length = 0;
    if ((lead & 0xE0) == 0xC0)
    {
        length = 2;
        codePoint = lead & 0x1F;
    }
    else if ((lead & 0xF0) == 0xE0)
    {
        length = 3;
        codePoint = lead & 0x0F;
    }
    else if ((lead & 0xF8) == 0xF0)
    {
        length = 4;
        codePoint = lead & 0x07;
    }
    else
    {
        return 0;
    }
    if (text.size() < length)
    {
        return 0;
    }
    for (size_t index = 1; index < length; ++index)
    {
        if ((byte(index) & 0xC0) != 0x80)
        {
            return 0;
        }
        codePoint = (codePoint << 6) | (byte(index) & 0x3F);
    }
    constexpr uint32_t SMALLEST[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool overlong = codePoint < SMALLEST[length];
    const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
    return overlong || surrogate || codePoint > 0x10FFFF ? 0 : length;
}

std::string jsonString(std::string_view text)
{
    std::string quoted = "\"";
    quoted.reserve(text.size() + 2);
    while (!text.empty())
    {
        uint32_t codePoint = 0;
        const size_t length = utf8SequenceLength(text, codePoint);
        if (length == 0)
        {
            quoted += fmt::format("\\\\x{:02X}", static_cast<unsigned char>(text.front()));
            text.remove_prefix(1);
            continue;
        }
        const char c = text.front();
        if (length > 1)
        {
            quoted.append(text.substr(0, length));
        }
        else if (c == '"' || c == '\\')
        {
            quoted += '\\';
            quoted += c;
        }
        else if (c == '\n')
        {
            quoted += "\\n";
        }
        else if (c == '\t')
        {
            quoted += "\\t";
        }
        else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
        {
            quoted += fmt::format("\\u{:04x}", static_cast<unsigned char>(c));
        }
        else
        {
            quoted += c;
        }
        text.remove_prefix(length);
    }
    quoted += '"';
    return quoted;
}

std::string countOf(size_t count, const char* singular, const char* plural)
{
    return fmt::format("{} {}", count, count == 1 ? singular : plural);
}
} // namespace Ovelith::TestHost
