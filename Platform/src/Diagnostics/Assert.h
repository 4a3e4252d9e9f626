#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Ovelith::Diagnostics
{
// Reports a failed library assert. Returns true when the caller should break into the debugger.
// `message` is a printf format for the trailing arguments; a capture sees the formatted text.
// Without a capture on the calling thread this throws std::runtime_error.
bool reportAssert(const char* message, const char* expression, unsigned line, const char* file,
                  const char* functionSignature, ...);

/// @brief One failed library assert, as an application's handler receives it.
struct AssertReport
{
    /// The message with its arguments formatted in.
    std::string_view message;
    /// The condition as written, or "false" for an unconditional assert.
    const char* expression;
    const char* file;
    unsigned line;
    /// The signature of the function that asserted.
    const char* function;
};

/// @brief What an application does with a library assert that no capture took.
///
/// Returning false lets the library carry on after the assert, as it does under a capture: the builder drops
/// the member, a stale handle answers empty. Returning true asks for assertBreak().
using AssertHandler = bool (*)(const AssertReport& report);

/// @brief Replaces the handler of asserts that no capture on the calling thread takes.
///
/// Without one (the default, and after passing nullptr) such an assert throws std::runtime_error naming only
/// the place, which is what test hosts expect. A capture (interceptAsserts) still comes first.
/// @param handler The new handler, or nullptr for the default.
/// @return The handler that was installed before, nullptr for the default.
AssertHandler setAssertHandler(AssertHandler handler);

/// @brief The handler installed now, nullptr for the default.
/// @return The current handler.
AssertHandler getAssertHandler();

// Traps into an attached debugger; only reached when reportAssert asked for it.
void assertBreak();

bool debuggerIsEnabled();

// When set, an uncaptured assert asks for a break instead of throwing. Nothing sets it by default.
extern bool assertsBreakIntoDebugger;

// Runs `body` with every library assert on this thread handed to `handler` as its formatted message.
// Captures do not nest: the capture ends, by return or by exception, with no capture active.
void interceptAsserts(const std::function<void()>& body, const std::function<void(std::string)>& handler);

// Runs `body` under interceptAsserts and returns the messages of the asserts it raised, in order.
std::vector<std::string> collectAsserts(const std::function<void()>& body);

// Runs `body`; the first library assert it raises is thrown as its message, a T.
template <typename T>
void throwOnAssert(const std::function<void()>& body);

template <>
void throwOnAssert<std::string>(const std::function<void()>& body);
} // namespace Ovelith::Diagnostics

// The one assert of the library and the framework. The code after it always runs: every assert
// needs a defined continuation for the case where a capture swallowed it.
#define OV_ASSERT(condition, message, ...)                                                                             \
    do                                                                                                                 \
    {                                                                                                                  \
        if (!(condition)) [[unlikely]]                                                                                 \
        {                                                                                                              \
            if (::Ovelith::Diagnostics::reportAssert((message), #condition, __LINE__, __FILE__,                        \
                                                     __PRETTY_FUNCTION__ __VA_OPT__(, ) __VA_ARGS__))                  \
            {                                                                                                          \
                ::Ovelith::Diagnostics::assertBreak();                                                                 \
            }                                                                                                          \
        }                                                                                                              \
    } while (false)
