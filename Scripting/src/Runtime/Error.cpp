#include "Scripting/Runtime/Error.h"

#include "Diagnostics/Assert.h"

#include <charconv>
#include <cmath>

#include <fmt/format.h>

namespace Scripting
{
namespace
{
constexpr double INTEGER_TOLERANCE = 1e-5;

std::string cutMessage(const std::string& message)
{
    if (message.size() <= BaseError::MAX_MESSAGE_LENGTH)
    {
        return message;
    }
    std::string cut;
    cut.reserve(BaseError::MAX_MESSAGE_LENGTH + 2);
    cut.append(message, 0, BaseError::MAX_MESSAGE_LENGTH);
    cut.append("..");
    return cut;
}

std::string invalidArgumentMessage(const std::string& detail, InvalidArgumentErrorType type, uint32_t index)
{
    switch (type)
    {
    case InvalidArgumentErrorType::Unspecified:
    case InvalidArgumentErrorType::Unknown:
        return fmt::format("Invalid value passed to argument [{}]. {}", index, detail);
    case InvalidArgumentErrorType::Empty:
        return fmt::format("Invalid value passed to argument [{}]. Missing or empty: {}", index, detail);
    case InvalidArgumentErrorType::Duplicate:
        return fmt::format("Invalid value passed to argument [{}]. Duplicate: {}", index, detail);
    case InvalidArgumentErrorType::TypeMismatch:
        return fmt::format("Invalid type passed to function argument [{}]. Expected type: {}", index, detail);
    case InvalidArgumentErrorType::UnsupportedValue:
        return fmt::format("Invalid value passed to argument [{}]. Value did not match one of the supported values.",
                           index);
    }
    // A value outside the enumeration, e.g. one that came across from a script as a number.
    return {};
}

// Appends " <label> bounds: [min, max]", or the one bound that is present.
void appendBounds(std::string& text, std::string_view label, const std::optional<double>& minValue,
                  const std::optional<double>& maxValue)
{
    if (minValue && maxValue)
    {
        text += fmt::format(" {} bounds: [{}, {}]", label, internal::formatErrorNumber(*minValue),
                            internal::formatErrorNumber(*maxValue));
    }
    else if (minValue)
    {
        text += fmt::format(" {} min: {}", label, internal::formatErrorNumber(*minValue));
    }
    else if (maxValue)
    {
        text += fmt::format(" {} max: {}", label, internal::formatErrorNumber(*maxValue));
    }
}

std::string argumentOutOfBoundsMessage(const std::string& detail, int32_t index, const std::optional<double>& value,
                                       const std::optional<double>& minValue, const std::optional<double>& maxValue)
{
    std::string text = fmt::format("Unsupported or out of bounds value passed to function argument [{}]", index);
    const bool hasBound = minValue.has_value() || maxValue.has_value();
    if (!detail.empty())
    {
        text += ": ";
        text += detail;
        if (value.has_value() || hasBound)
        {
            text += ',';
        }
    }
    else
    {
        text += '.';
    }
    if (value)
    {
        text += " Value: ";
        text += internal::formatErrorNumber(*value);
        if (hasBound)
        {
            text += ',';
        }
    }
    appendBounds(text, "Argument", minValue, maxValue);
    return text;
}

std::string propertyOutOfBoundsMessage(const std::string& propertyName, const std::optional<double>& value,
                                       const std::optional<double>& minValue, const std::optional<double>& maxValue)
{
    std::string text = "Unsupported or out of bounds value set on Property: ";
    text += propertyName;
    if (value)
    {
        text += ", Value: ";
        text += internal::formatErrorNumber(*value);
    }
    text += ',';
    appendBounds(text, "Property", minValue, maxValue);
    return text;
}

std::string runtimeConditionMessage(const std::vector<std::string>& conditions, const std::string& subject)
{
    std::string text = subject;
    text += " is missing these runtime conditions: ";
    for (size_t i = 0; i < conditions.size(); ++i)
    {
        if (i != 0)
        {
            text += ", ";
        }
        text += conditions[i];
    }
    return text;
}
} // namespace

namespace internal
{
std::string formatErrorNumber(double value)
{
    const double integerPart = std::trunc(value);
    // Only the distance to the integer part counts: 3.000001 prints as 3, but 2.999999 keeps its decimals.
    // Nudging the value away from zero before the cut, as one might, could never cross an integer here.
    if (std::fabs(value - integerPart) < INTEGER_TOLERANCE)
    {
        // The integer conversion also turns -0 into "0"; beyond 64 bits every double is whole anyway.
        if (integerPart >= -0x1p63 && integerPart < 0x1p63)
        {
            return fmt::format("{}", static_cast<int64_t>(integerPart));
        }
        return fmt::format("{:.0f}", integerPart);
    }
    return fmt::format("{:.2f}", value);
}
} // namespace internal

CallStackEntry CallStackEntry::FromBacktrace(std::string_view line)
{
    constexpr std::string_view AT = " at ";
    const CallStackEntry fallback{"<anonymous>", {}, -1};

    const size_t atPos = line.find(AT);
    if (atPos == std::string_view::npos)
    {
        return fallback;
    }
    const size_t openPos = line.find('(');
    if (openPos == std::string_view::npos)
    {
        return fallback;
    }
    const size_t colonPos = line.find(':', openPos);
    if (colonPos == std::string_view::npos)
    {
        return fallback;
    }
    const size_t closePos = line.find(')', colonPos);
    if (closePos == std::string_view::npos)
    {
        return fallback;
    }

    CallStackEntry entry;
    // The character before '(' is the blank that separates name and location. A '(' that comes before the
    // name ends gives no name rather than a negative length.
    const size_t nameBegin = atPos + AT.size();
    const size_t nameEnd = openPos > 0 ? openPos - 1 : 0;
    if (nameEnd > nameBegin)
    {
        entry.function = line.substr(nameBegin, nameEnd - nameBegin);
    }
    entry.file = line.substr(openPos + 1, colonPos - openPos - 1);

    const char* first = line.data() + colonPos + 1;
    const char* last = line.data() + closePos;
    int32_t number = -1;
    // An optional '-' and the digits that follow it; text after the digits is ignored. No digit at all, or a
    // value beyond 32 bits, means the runtime wrote something this reader does not understand.
    if (std::from_chars(first, last, number).ec != std::errc{})
    {
        OV_ASSERT(false, "Failed to parse line number from backtrace");
        number = -1;
    }
    entry.line = number;
    return entry;
}

BaseError::BaseError(const std::string& name, const std::string& message) : name(name), message(cutMessage(message)) {}

void BaseError::setStack(std::string text)
{
    stack = std::move(text);
    callStack.clear();
    std::string_view rest = *stack;
    for (size_t lineFeed = rest.find('\n'); lineFeed != std::string_view::npos; lineFeed = rest.find('\n'))
    {
        callStack.push_back(CallStackEntry::FromBacktrace(rest.substr(0, lineFeed)));
        rest.remove_prefix(lineFeed + 1);
    }
    if (!rest.empty())
    {
        callStack.push_back(CallStackEntry::FromBacktrace(rest));
    }
}

std::string BaseError::toString() const
{
    std::string text;
    if (!name.empty())
    {
        text += name;
        text += ": ";
    }
    text += message;
    if (stack)
    {
        text += *stack;
    }
    return text;
}

Error::Error(const std::string& message) : BaseError("Error", message) {}

Error::Error(const std::string& name, const std::string& message) : BaseError(name, message) {}

EngineError::EngineError(const std::string& detail) : Error("EngineError", "An internal engine error occurred.")
{
    // The detail goes to the developer through the assert, never to the script.
    OV_ASSERT(false, "Script EngineError thrown: %s", detail.c_str());
}

InvalidArgumentError::InvalidArgumentError(const std::string& detail, uint32_t index)
    : Error("InvalidArgumentError", invalidArgumentMessage(detail, InvalidArgumentErrorType::Unknown, index)),
      type(InvalidArgumentErrorType::Unspecified), index(static_cast<int32_t>(index))
{
}

InvalidArgumentError::InvalidArgumentError(const std::string& detail, InvalidArgumentErrorType type, uint32_t index)
    : Error("InvalidArgumentError", invalidArgumentMessage(detail, type, index)), type(type),
      index(static_cast<int32_t>(index))
{
}

ArgumentOutOfBoundsError::ArgumentOutOfBoundsError(const std::string& detail, int32_t index,
                                                   std::optional<double> value, std::optional<double> minValue,
                                                   std::optional<double> maxValue)
    : Error("ArgumentOutOfBoundsError", argumentOutOfBoundsMessage(detail, index, value, minValue, maxValue)),
      value(value), minValue(minValue), maxValue(maxValue), index(index)
{
}

PropertyOutOfBoundsError::PropertyOutOfBoundsError(const std::string& propertyName, double value,
                                                   std::optional<double> minValue, std::optional<double> maxValue)
    : Error("PropertyOutOfBoundsError", propertyOutOfBoundsMessage(propertyName, value, minValue, maxValue)),
      value(value), minValue(minValue), maxValue(maxValue)
{
}

PropertyOutOfBoundsError::PropertyOutOfBoundsError(const std::string& propertyName, std::optional<double> minValue,
                                                   std::optional<double> maxValue)
    : Error("PropertyOutOfBoundsError", propertyOutOfBoundsMessage(propertyName, std::nullopt, minValue, maxValue)),
      minValue(minValue), maxValue(maxValue)
{
}

RuntimeConditionError::RuntimeConditionError(const std::vector<std::string>& conditions, const std::string& subject)
    : Error("RuntimeConditionError", runtimeConditionMessage(conditions, subject))
{
}

UnsupportedFunctionalityError::UnsupportedFunctionalityError(const std::string& what)
    : Error("UnsupportedFunctionalityError", "Unsupported functionality: " + what)
{
}
} // namespace Scripting
