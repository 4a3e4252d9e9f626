#pragma once

#include "ZentaryUnitTest/SourceLocation.h"
#include "ZentaryUnitTest/TestResult.h"

#include <fmt/core.h>

#include <cmath>
#include <exception>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace Ovelith::CoreTestFramework::Assert
{
/// Thrown by a fatal check after it has reported; runTest ends the case on it silently.
struct AssertException : std::exception
{
    /**
     * @brief Keeps the message.
     * @param message The check's message.
     */
    explicit AssertException(const char* message) : mMessage(message) {}
    /**
     * @brief The check's message.
     * @return The text, owned by the exception.
     */
    const char* what() const noexcept override { return mMessage.c_str(); }

    /** @brief The check's message. */
    std::string mMessage;
};

namespace Detail
{
// A check's message with the place of the call; converts implicitly from text so a check's last
// parameter captures its caller's location.
template <typename... Args>
struct FormatStringAndSourceLocationImpl
{
    template <typename Text>
    requires std::is_convertible_v<const Text&, std::string_view>
    FormatStringAndSourceLocationImpl(const Text& text,
                                      ovstd::source_location location = ovstd::source_location::current())
    noexcept : format(text), location(location) {}

    std::string_view format;
    ovstd::source_location location;
};

template <typename... Args>
using FormatStringAndSourceLocation = FormatStringAndSourceLocationImpl<std::type_identity_t<Args>...>;

inline constexpr const char* DEFAULT_MESSAGE = "Assertion failed";

// The one failure path of every check: report to the listener, then throw if fatal.
void fail(const std::string& message, const ovstd::source_location& location, bool fatal,
          std::optional<TestFailureDetails> details = std::nullopt);

std::string vformatMessage(std::string_view format, fmt::format_args arguments);

template <typename Message, typename... Args>
std::string formatMessage(const Message& message, const Args&... arguments)
{
    if constexpr (sizeof...(Args) == 0)
    {
        return std::string(message.format);
    }
    else
    {
        return vformatMessage(message.format, fmt::make_format_args(arguments...));
    }
}

std::string shortTypeName(std::string_view prettyName);

template <typename T>
constexpr std::string_view prettyTypeName()
{
    return __PRETTY_FUNCTION__;
}

std::string printPointer(std::string_view typeName, const void* address);

// Text of an operand for a failure report. Types without a printer of their own show their short type
// name and their address.
template <typename T>
std::string toPrintable(const T& value)
{
    if constexpr (std::is_same_v<T, bool>)
    {
        return value ? "true" : "false";
    }
    else if constexpr (std::is_arithmetic_v<T>)
    {
        return fmt::format("{}", value);
    }
    else if constexpr (std::is_enum_v<T>)
    {
        return fmt::format("{}", static_cast<std::underlying_type_t<T>>(value));
    }
    else if constexpr (std::is_convertible_v<const T&, std::string_view>)
    {
        return std::string(std::string_view(value));
    }
    else if constexpr (std::is_null_pointer_v<T>)
    {
        return "nullptr";
    }
    else if constexpr (std::is_pointer_v<T>)
    {
        return fmt::format("{}", static_cast<const void*>(value));
    }
    else
    {
        return printPointer(shortTypeName(prettyTypeName<T>()), &value);
    }
}

template <typename L, typename R>
TestFailureDetails makeDetails(const char* comparison, const L& left, const R& right)
{
    return {comparison, toPrintable(left), toPrintable(right)};
}

bool equalIgnoringCase(std::string_view left, std::string_view right);

void CheckDebugAssertsImpl(const std::function<void()>& body, const std::vector<std::string>& expected,
                           const ovstd::source_location& location, bool fatal, bool doContinue,
                           const std::function<std::string()>& message);

void CheckNoDebugAssertsImpl(const std::function<void()>& body, const ovstd::source_location& location, bool fatal,
                             const std::function<std::string()>& message);

inline std::vector<std::string> toExpectedMessages(const char* expected)
{
    return {expected};
}
inline std::vector<std::string> toExpectedMessages(std::initializer_list<const char*> expected)
{
    return {expected.begin(), expected.end()};
}
inline std::vector<std::string> toExpectedMessages(const std::vector<std::string>& expected)
{
    return expected;
}

template <typename Expected, typename... Args>
void CheckDebugAsserts(const std::function<void()>& body, const Expected& expected, bool fatal, bool doContinue,
                       const FormatStringAndSourceLocationImpl<Args...>& message, Args&&... arguments)
{
    CheckDebugAssertsImpl(body, toExpectedMessages(expected), message.location, fatal, doContinue,
                          [&] { return formatMessage(message, arguments...); });
}
} // namespace Detail

/**
 * @brief A check's message: a {fmt} format for `Args`, with the place of the call.
 * @tparam Args Types of the format's arguments.
 */
template <typename... Args>
using Message = Detail::FormatStringAndSourceLocation<Args...>;

// Every check takes `fatal` (report and throw AssertException) and a message with optional {fmt} arguments.

/**
 * @brief Fails unless `condition` holds.
 * @tparam Args Types of the message's arguments.
 * @param condition What must hold.
 * @param fatal Whether a failure ends the case.
 * @param message {fmt} format of the failure message.
 * @param arguments Its arguments.
 */
template <typename... Args>
void IsTrue(bool condition, bool fatal = false, Message<Args...> message = Detail::DEFAULT_MESSAGE, Args&&... arguments)
{
    if (!condition)
    {
        Detail::fail(Detail::formatMessage(message, arguments...), message.location, fatal);
    }
}

/**
 * @brief Fails when `condition` holds.
 * @tparam Args Types of the message's arguments.
 * @param condition What must not hold.
 * @param fatal Whether a failure ends the case.
 * @param message {fmt} format of the failure message.
 * @param arguments Its arguments.
 */
template <typename... Args>
void IsFalse(bool condition, bool fatal = false, Message<Args...> message = Detail::DEFAULT_MESSAGE,
             Args&&... arguments)
{
    IsTrue(!condition, fatal, message, std::forward<Args>(arguments)...);
}

#define ZUT_DEFINE_COMPARISON(Name, Operator, Passes)                                                                  \
    template <typename L, typename R, typename... Args>                                                                \
    void Name(const L& left, const R& right, bool fatal = false, Message<Args...> message = Detail::DEFAULT_MESSAGE,   \
              Args && ... arguments)                                                                                   \
    {                                                                                                                  \
        if (!(Passes))                                                                                                 \
        {                                                                                                              \
            Detail::fail(Detail::formatMessage(message, arguments...), message.location, fatal,                        \
                         Detail::makeDetails(Operator, left, right));                                                  \
        }                                                                                                              \
    }

/**
 * @brief Fails unless `left == right`; the report shows both operands.
 * @tparam L Type of the left operand.
 * @tparam R Type of the right operand.
 * @tparam Args Types of the message's arguments.
 * @param left Left operand.
 * @param right Right operand.
 * @param fatal Whether a failure ends the case.
 * @param message {fmt} format of the failure message.
 * @param arguments Its arguments.
 */
ZUT_DEFINE_COMPARISON(AreEqual, "==", left == right)
/**
 * @brief Fails unless `left != right`; the report shows both operands.
 * @tparam L Type of the left operand.
 * @tparam R Type of the right operand.
 * @tparam Args Types of the message's arguments.
 * @param left Left operand.
 * @param right Right operand.
 * @param fatal Whether a failure ends the case.
 * @param message {fmt} format of the failure message.
 * @param arguments Its arguments.
 */
ZUT_DEFINE_COMPARISON(AreNotEqual, "!=", left != right)
/**
 * @brief Fails unless `left` is less than `right`; the report shows both operands.
 * @tparam L Type of the left operand.
 * @tparam R Type of the right operand.
 * @tparam Args Types of the message's arguments.
 * @param left Left operand.
 * @param right Right operand.
 * @param fatal Whether a failure ends the case.
 * @param message {fmt} format of the failure message.
 * @param arguments Its arguments.
 */
ZUT_DEFINE_COMPARISON(IsLessThan, "<", left < right)
#undef ZUT_DEFINE_COMPARISON

/// String equality, folding ASCII letters when `ignoreCase` is set. Both flags must be real bools, so that
/// a message text is never taken for one.
/// @tparam IgnoreCase bool.
/// @tparam Fatal bool.
/// @tparam Args Types of the message's arguments.
/// @param left A string.
/// @param right A string.
/// @param ignoreCase Whether ASCII case is folded.
/// @param fatal Whether a failure ends the case.
/// @param message {fmt} format of the failure message.
/// @param arguments Its arguments.
template <typename IgnoreCase, typename Fatal, typename... Args>
requires std::is_same_v<IgnoreCase, bool> && std::is_same_v<Fatal, bool>
void AreEqual(std::string_view left, std::string_view right, IgnoreCase ignoreCase, Fatal fatal,
              Message<Args...> message = Detail::DEFAULT_MESSAGE, Args&&... arguments)
{
    const bool equal = ignoreCase ? Detail::equalIgnoringCase(left, right) : left == right;
    if (!equal)
    {
        Detail::fail(Detail::formatMessage(message, arguments...), message.location, fatal,
                     Detail::makeDetails("==", left, right));
    }
}

/// Passes unless the distance exceeds the tolerance, so a NaN operand passes.
/// @tparam L Type of the left operand.
/// @tparam R Type of the right operand.
/// @tparam T Type of the tolerance.
/// @tparam Args Types of the message's arguments.
/// @param left A number.
/// @param right A number.
/// @param tolerance Largest distance allowed; its sign is ignored.
/// @param fatal Whether a failure ends the case.
/// @param message {fmt} format of the failure message.
/// @param arguments Its arguments.
template <typename L, typename R, typename T, typename... Args>
void AreClose(const L& left, const R& right, const T& tolerance, bool fatal = false,
              Message<Args...> message = Detail::DEFAULT_MESSAGE, Args&&... arguments)
{
    if (std::fabs(left - right) > std::fabs(tolerance))
    {
        Detail::fail(Detail::formatMessage(message, arguments...), message.location, fatal,
                     Detail::makeDetails("==", left, right));
    }
}

/// `body` must raise library asserts matching `expected` (case-insensitive whole-text patterns, one or a
/// list). With `doContinue` false the first assert stops the body, so exactly one may be expected.
/// @tparam Expected A pattern, a list of them, or a vector of strings.
/// @param body Code that must assert.
/// @param expected Patterns of the expected messages.
/// @param fatal Whether a failure ends the case.
/// @param doContinue Whether the body goes on after each assert.
/// @param message The failure message.
template <typename Expected>
void CheckDebugAsserts(const std::function<void()>& body, const Expected& expected, bool fatal = false,
                       bool doContinue = true, Message<> message = "Assert not raised.")
{
    Detail::CheckDebugAsserts(body, expected, fatal, doContinue, message);
}
/**
 * @brief CheckDebugAsserts() with a braced list of patterns.
 * @param body Code that must assert.
 * @param expected Patterns of the expected messages.
 * @param fatal Whether a failure ends the case.
 * @param doContinue Whether the body goes on after each assert.
 * @param message The failure message.
 */
inline void CheckDebugAsserts(const std::function<void()>& body, std::initializer_list<const char*> expected,
                              bool fatal = false, bool doContinue = true, Message<> message = "Assert not raised.")
{
    Detail::CheckDebugAsserts(body, expected, fatal, doContinue, message);
}

/// `body` must raise no library assert and throw nothing.
/// @param body Code that must not assert.
/// @param fatal Whether a failure ends the case.
/// @param message The failure message.
inline void CheckNoDebugAsserts(const std::function<void()>& body, bool fatal = false,
                                Message<> message = "Unexpected assert raised.")
{
    Detail::CheckNoDebugAssertsImpl(body, message.location, fatal, [&] { return std::string(message.format); });
}
} // namespace Ovelith::CoreTestFramework::Assert
