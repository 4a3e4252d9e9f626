#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Scripting
{
// One frame of a script backtrace.
struct CallStackEntry
{
    std::string function;
    std::string file;
    int32_t line = -1;

    // Reads one line of the form "    at function (file:line)". A line of another shape gives
    // "<anonymous>" with no file and line -1; an unreadable line number asserts and gives -1.
    static CallStackEntry FromBacktrace(std::string_view line);
};

// Common base of the errors that script-facing calls hand back as values. A plain value type: no virtual
// operations, copied whole.
struct BaseError
{
    // Longer messages are cut to this many characters followed by "..".
    static constexpr size_t MAX_MESSAGE_LENGTH = 1024;

    std::string name;
    std::string message;
    // Free for a runtime to use; nothing in the library reads it.
    std::optional<std::string> fileName;
    std::vector<CallStackEntry> callStack;
    std::optional<std::string> stack;
    // Free for a runtime to use; nothing in the library sets it.
    uint64_t cause = 0;

    BaseError(const std::string& name, const std::string& message);

    // Keeps the raw backtrace and replaces the call stack with its parsed lines.
    void setStack(std::string text);
    const std::optional<std::string>& getStack() const { return stack; }
    const std::vector<CallStackEntry>& getCallStack() const { return callStack; }

    // "name: message" (just the message when there is no name), followed directly by the raw stack.
    std::string toString() const;
};

struct Error : BaseError
{
    explicit Error(const std::string& message);
    // For the members of the family and for errors that embedding code defines.
    Error(const std::string& name, const std::string& message);
};

// An internal failure that a script must not see the details of. Creating one always raises a library
// assert carrying `detail`; the script only gets a fixed message.
struct EngineError : Error
{
    explicit EngineError(const std::string& detail);
};

enum class InvalidArgumentErrorType : uint8_t
{
    Unspecified = 0,
    Empty = 1,
    Duplicate = 2,
    TypeMismatch = 3,
    UnsupportedValue = 4,
    Unknown = 5,
};

struct InvalidArgumentError : Error
{
    InvalidArgumentErrorType type = InvalidArgumentErrorType::Unspecified;
    int32_t index = 0;

    // Worded as for `Unknown`, while `type` stays `Unspecified`.
    InvalidArgumentError(const std::string& detail, uint32_t index);
    InvalidArgumentError(const std::string& detail, InvalidArgumentErrorType type, uint32_t index);
};

struct ArgumentOutOfBoundsError : Error
{
    std::optional<double> value;
    std::optional<double> minValue;
    std::optional<double> maxValue;
    int32_t index = 0;

    ArgumentOutOfBoundsError(const std::string& detail, int32_t index, std::optional<double> value,
                             std::optional<double> minValue, std::optional<double> maxValue);
};

struct PropertyOutOfBoundsError : Error
{
    // 0 for the form without a value.
    double value = 0.0;
    std::optional<double> minValue;
    std::optional<double> maxValue;

    PropertyOutOfBoundsError(const std::string& propertyName, double value, std::optional<double> minValue,
                             std::optional<double> maxValue);
    PropertyOutOfBoundsError(const std::string& propertyName, std::optional<double> minValue,
                             std::optional<double> maxValue);
};

struct RuntimeConditionError : Error
{
    RuntimeConditionError(const std::vector<std::string>& conditions, const std::string& subject);
};

struct UnsupportedFunctionalityError : Error
{
    explicit UnsupportedFunctionalityError(const std::string& what);
};

namespace internal
{
// The one way numbers are written into error messages: a value within 1e-5 of its integer part as that
// integer, anything else with two decimals. So 3.000001 is "3" and 2.5 is "2.50".
std::string formatErrorNumber(double value);
} // namespace internal
} // namespace Scripting
