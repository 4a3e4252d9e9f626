#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Scripting
{
/// One frame of a script backtrace.
struct CallStackEntry
{
    /** @brief Function name as the runtime reported it, `<anonymous>` when it had none. */
    std::string function;
    /** @brief Chunk or file name; empty when unknown. */
    std::string file;
    /** @brief Line number, -1 when unknown. */
    int32_t line = -1;

    /// Reads one line of the form "    at function (file:line)". A line of another shape gives
    /// "<anonymous>" with no file and line -1; an unreadable line number asserts and gives -1.
    /// @param line One backtrace line.
    /// @return The parsed frame.
    static CallStackEntry FromBacktrace(std::string_view line);
};

/// Common base of the errors that script-facing calls hand back as values. A plain value type: no virtual
/// operations, copied whole.
/// Its `name` tells a script which error of the family it got.
struct BaseError
{
    /// Longer messages are cut to this many characters followed by "..".
    static constexpr size_t MAX_MESSAGE_LENGTH = 1024;

    /** @brief Name of the error type, as scripts see it (`"InvalidArgumentError"`...); may be empty. */
    std::string name;
    /** @brief Human-readable text, at most MAX_MESSAGE_LENGTH characters plus the cut mark. */
    std::string message;
    /// Free for a runtime to use; nothing in the library reads it.
    std::optional<std::string> fileName;
    /** @brief Parsed frames of stack, innermost first. */
    std::vector<CallStackEntry> callStack;
    /** @brief Raw backtrace as the runtime gave it, if any. */
    std::optional<std::string> stack;
    /// Free for a runtime to use; nothing in the library sets it.
    uint64_t cause = 0;

    /**
     * @brief Builds an error without a stack.
     * @param name Error type name.
     * @param message Text; longer than MAX_MESSAGE_LENGTH is cut.
     */
    BaseError(const std::string& name, const std::string& message);

    /// Keeps the raw backtrace and replaces the call stack with its parsed lines.
    /// @param text Backtrace, one `    at function (file:line)` frame a line.
    void setStack(std::string text);
    /** @return The raw backtrace, if one was set. */
    const std::optional<std::string>& getStack() const { return stack; }
    /** @return The parsed frames, empty when no stack was set. */
    const std::vector<CallStackEntry>& getCallStack() const { return callStack; }

    /// "name: message" (just the message when there is no name), followed directly by the raw stack.
    /// @return The printable form.
    std::string toString() const;
};

/**
 * @brief The error value of the library: what a failed script call or failed `Result` carries.
 *
 * The subclasses below only build their name and message; any of them can be stored and copied as an Error.
 */
struct Error : BaseError
{
    /**
     * @brief Builds an error named `"Error"`.
     * @param message Text of the error.
     */
    explicit Error(const std::string& message);
    /// For the members of the family and for errors that embedding code defines.
    /// @param name Error type name, as scripts see it.
    /// @param message Text of the error.
    Error(const std::string& name, const std::string& message);
};

/// An internal failure that a script must not see the details of. Creating one always raises a library
/// assert carrying `detail`; the script only gets a fixed message.
struct EngineError : Error
{
    /**
     * @brief Asserts with the detail and builds the fixed, script-safe error.
     * @param detail What went wrong, for the assert handler only.
     */
    explicit EngineError(const std::string& detail);
};

/** @brief What was wrong with an argument; picks the wording of an InvalidArgumentError. */
enum class InvalidArgumentErrorType : uint8_t
{
    /** @brief No reason given. */
    Unspecified = 0,
    /** @brief A value was needed and missing (nil, empty). */
    Empty = 1,
    /** @brief A value repeats one that must be unique. */
    Duplicate = 2,
    /** @brief The value has the wrong type; the detail names the expected type. */
    TypeMismatch = 3,
    /** @brief The value is not one of the accepted values (an enum, for example). */
    UnsupportedValue = 4,
    /** @brief Some other fault, described by the detail. */
    Unknown = 5,
};

/** @brief An argument a script passed is missing, of the wrong type or not accepted. */
struct InvalidArgumentError : Error
{
    /** @brief The reason, as given to the constructor. */
    InvalidArgumentErrorType type = InvalidArgumentErrorType::Unspecified;
    /** @brief Position of the argument, counted from 0. */
    int32_t index = 0;

    /// Worded as for `Unknown`, while `type` stays `Unspecified`.
    /// @param detail What was wrong.
    /// @param index Position of the argument, from 0.
    InvalidArgumentError(const std::string& detail, uint32_t index);
    /**
     * @brief Builds the message that fits `type`.
     * @param detail What was wrong (for TypeMismatch: the expected type); unused for UnsupportedValue.
     * @param type The reason.
     * @param index Position of the argument, from 0.
     */
    InvalidArgumentError(const std::string& detail, InvalidArgumentErrorType type, uint32_t index);
};

/** @brief An argument is outside the range its binding accepts, or outside its native type's range. */
struct ArgumentOutOfBoundsError : Error
{
    /** @brief The value that was passed, if it could be read as a number. */
    std::optional<double> value;
    /** @brief Lower bound, if there is one. */
    std::optional<double> minValue;
    /** @brief Upper bound, if there is one. */
    std::optional<double> maxValue;
    /** @brief Position of the argument, counted from 0. */
    int32_t index = 0;

    /**
     * @brief Builds the message from whichever of value and bounds are present.
     * @param detail Extra text; may be empty.
     * @param index Position of the argument, from 0.
     * @param value The value passed.
     * @param minValue Lower bound.
     * @param maxValue Upper bound.
     */
    ArgumentOutOfBoundsError(const std::string& detail, int32_t index, std::optional<double> value,
                             std::optional<double> minValue, std::optional<double> maxValue);
};

/** @brief A value set on a property is outside the property's bounds. */
struct PropertyOutOfBoundsError : Error
{
    /// 0 for the form without a value.
    double value = 0.0;
    /** @brief Lower bound, if there is one. */
    std::optional<double> minValue;
    /** @brief Upper bound, if there is one. */
    std::optional<double> maxValue;

    /**
     * @brief Builds the message naming the property, the value and the bounds.
     * @param propertyName Property that refused the value.
     * @param value The value that was set.
     * @param minValue Lower bound.
     * @param maxValue Upper bound.
     */
    PropertyOutOfBoundsError(const std::string& propertyName, double value, std::optional<double> minValue,
                             std::optional<double> maxValue);
    /**
     * @brief Builds the message without a value, for a value that is not a number.
     * @param propertyName Property that refused the value.
     * @param minValue Lower bound.
     * @param maxValue Upper bound.
     */
    PropertyOutOfBoundsError(const std::string& propertyName, std::optional<double> minValue,
                             std::optional<double> maxValue);
};

/** @brief A call needs runtime conditions the context was not given. */
struct RuntimeConditionError : Error
{
    /**
     * @brief Builds "<subject> is missing these runtime conditions: a, b".
     * @param conditions The missing conditions.
     * @param subject What needed them (a function, a property).
     */
    RuntimeConditionError(const std::vector<std::string>& conditions, const std::string& subject);
};

/** @brief Something the runtime or the binding does not offer was asked for. */
struct UnsupportedFunctionalityError : Error
{
    /**
     * @brief Builds "Unsupported functionality: <what>".
     * @param what What was asked for.
     */
    explicit UnsupportedFunctionalityError(const std::string& what);
};

namespace internal
{
// The one way numbers are written into error messages: a value within 1e-5 of its integer part as that
// integer, anything else with two decimals. So 3.000001 is "3" and 2.5 is "2.50".
std::string formatErrorNumber(double value);
} // namespace internal
} // namespace Scripting
