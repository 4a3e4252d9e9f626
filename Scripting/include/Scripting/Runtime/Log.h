#pragma once

#include <cstdint>
#include <string>

#include "Diagnostics/Assert.h"

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

/// @brief The assert handler for applications: logs the reason of a library assert, the failed expression and
/// the place as one error line, and lets the library carry on with its defined continuation (a builder drops the
/// member it could not add).
///
/// Install it with `Ovelith::Diagnostics::setAssertHandler(&Scripting::logAssertAndContinue)`; `Lua::Scripts`
/// does so while it lives. Test hosts keep the default handler, which throws.
/// @param report The failed assert.
/// @return false: never break into a debugger.
bool logAssertAndContinue(const Ovelith::Diagnostics::AssertReport& report);

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
