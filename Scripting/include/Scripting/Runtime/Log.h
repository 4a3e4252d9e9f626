#pragma once

#include <cstdint>
#include <string>

#include <fmt/core.h>

namespace Scripting
{
/** @brief Severity of a log line; picks its prefix. */
enum class LogLevel : uint8_t
{
    /** @brief Information. */
    Info = 0,
    /** @brief Something looks wrong but the call went on. */
    Warning = 1,
    /** @brief A failure. */
    Error = 2,
    /// The text as it is, without a prefix.
    Raw = 3,
};

/// Receives every log line of the library. `text` is the finished line without a line feed; it is valid only
/// during the call.
using LogHandler = void (*)(void* userData, LogLevel level, const char* text);

/// Replaces the process-wide handler and its user data. A null handler restores the default, which prints to
/// standard output, and clears the user data. Unguarded: set it before any context runs.
/// @param handler New handler, or null for the default.
/// @param userData Passed to every call of the handler.
void setLogHandler(LogHandler handler, void* userData);

namespace internal
{
void dispatchLog(LogLevel level, const char* text);
} // namespace internal

/**
 * @brief Formats a line with {fmt} and hands it to the current handler.
 * @tparam Args Types of the format arguments.
 * @param level Severity.
 * @param format {fmt} format string, checked at compile time.
 * @param args Format arguments.
 */
template <typename... Args>
void logMessage(LogLevel level, fmt::format_string<Args...> format, Args&&... args)
{
    const std::string text = fmt::vformat(format, fmt::make_format_args(args...));
    internal::dispatchLog(level, text.c_str());
}
} // namespace Scripting
