#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

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

// Length of the well-formed UTF-8 sequence at the start of `text`, with its code point, or 0 where the bytes
// are not one (truncated, overlong, a surrogate, beyond U+10FFFF). A byte below 0x80 is a sequence of 1.
size_t utf8SequenceLength(std::string_view text, uint32_t& codePoint);

// `text` as a JSON string, quotes included. Bytes that are not UTF-8 are written as the text "\xNN", so that
// the document stays valid and the bytes stay visible.
std::string jsonString(std::string_view text);

// "1 case", "2 cases".
std::string countOf(size_t count, const char* singular, const char* plural);
} // namespace Ovelith::TestHost
