#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

// What every fuzz target shares: a reader that turns the input into decisions, and a check that ends the run
// the way libFuzzer records as a finding.

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace Fuzz
{
// Reads the input front to back. Past its end every read gives zeros, so that a target may read freely and
// stop when `exhausted` says so.
class Input
{
public:
    Input(const uint8_t* data, size_t size) : mText(reinterpret_cast<const char*>(data), size) {}

    bool exhausted() const { return mText.empty(); }

    uint8_t byte()
    {
        if (mText.empty())
        {
            return 0;
        }
        const auto value = static_cast<uint8_t>(mText.front());
        mText.remove_prefix(1);
        return value;
    }

    uint16_t u16() { return static_cast<uint16_t>(byte() | (byte() << 8)); }

    uint64_t u64()
    {
        uint64_t value = 0;
        for (int shift = 0; shift < 64; shift += 8)
        {
            value |= static_cast<uint64_t>(byte()) << shift;
        }
        return value;
    }

    // The next `length` bytes, fewer when the input ends first.
    std::string_view take(size_t length)
    {
        const std::string_view taken = mText.substr(0, length);
        mText.remove_prefix(taken.size());
        return taken;
    }

    // Up to the next `separator` (dropped) or the end.
    std::string_view until(char separator)
    {
        const size_t end = mText.find(separator);
        const std::string_view taken = mText.substr(0, end);
        mText.remove_prefix(end == std::string_view::npos ? mText.size() : end + 1);
        return taken;
    }

    std::string_view rest() { return take(mText.size()); }

private:
    std::string_view mText;
};

[[noreturn]] inline void fail(const char* file, int line, const char* what)
{
    std::fprintf(stderr, "%s:%d: invariant broken: %s\n", file, line, what);
    std::abort();
}
} // namespace Fuzz

// Ends the run as a crash, which libFuzzer reports with the input that caused it.
#define FUZZ_CHECK(condition)                                                                                          \
    do                                                                                                                 \
    {                                                                                                                  \
        if (!(condition))                                                                                              \
        {                                                                                                              \
            ::Fuzz::fail(__FILE__, __LINE__, #condition);                                                              \
        }                                                                                                              \
    } while (false)
