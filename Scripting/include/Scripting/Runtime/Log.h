#pragma once

#include <cstdint>
#include <string>

#include "Diagnostics/Assert.h"

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

template <typename... Args>
void logMessage(LogLevel level, fmt::format_string<Args...> format, Args&&... args)
{
    const std::string text = fmt::vformat(format, fmt::make_format_args(args...));
    internal::dispatchLog(level, text.c_str());
}
} // namespace Scripting
