#pragma once

#include <cstdint>
#include <string>

#include <fmt/core.h>

namespace Scripting
{
enum class LogLevel : uint8_t
{
    Info = 0,
    Warning = 1,
    Error = 2,
    // The text as it is, without a prefix.
    Raw = 3,
};

// Receives every log line of the library. `text` is the finished line without a line feed; it is valid only
// during the call.
using LogHandler = void (*)(void* userData, LogLevel level, const char* text);

// Replaces the process-wide handler and its user data. A null handler restores the default, which prints to
// standard output, and clears the user data. Unguarded: set it before any context runs.
void setLogHandler(LogHandler handler, void* userData);

namespace internal
{
void dispatchLog(LogLevel level, const char* text);
} // namespace internal

template <typename... Args>
void logMessage(LogLevel level, fmt::format_string<Args...> format, Args&&... args)
{
    const std::string text = fmt::vformat(format, fmt::make_format_args(args...));
    internal::dispatchLog(level, text.c_str());
}
} // namespace Scripting
