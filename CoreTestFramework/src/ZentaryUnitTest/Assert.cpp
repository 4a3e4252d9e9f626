#include "ZentaryUnitTest/Assert.h"

#include "Diagnostics/Assert.h"

#include <fmt/format.h>

#include <regex>

namespace Ovelith::CoreTestFramework::Assert::Detail
{
namespace
{
std::string shortFunctionName(const char* signature)
{
    static const std::regex sFunctionName(R"(.*(?:::|\s)(\w+)\(.*)", std::regex::ECMAScript);
    std::cmatch match;
    if (std::regex_match(signature, match, sFunctionName))
    {
        return match[1].str();
    }
    return signature;
}

// Compares one asserted message with one expected pattern and reports a mismatch.
void checkAssertMessage(const std::string& actual, const std::string& expected, const ovstd::source_location& location,
                        bool fatal)
{
    const std::regex pattern(expected, std::regex::ECMAScript | std::regex::icase);
    if (!std::regex_match(actual, pattern))
    {
        fail(fmt::format("Actual: `{}`, Expected: `{}`", actual, expected), location, fatal);
    }
}
} // namespace

void fail(const std::string& message, const ovstd::source_location& location, bool fatal,
          std::optional<TestFailureDetails> details)
{
    TestResultListener* listener = getTestResultListener();
    listener->reportFailure(TestFailureReport{shortFunctionName(location.function_name), location.file_name,
                                              std::to_string(location.line), message, std::move(details)});
    if (fatal)
    {
        throw AssertException(message.c_str());
    }
}

std::string vformatMessage(std::string_view format, fmt::format_args arguments)
{
    return fmt::vformat(format, arguments);
}

std::string shortTypeName(std::string_view prettyName)
{
    // prettyName is the signature of prettyTypeName<T>(): the type follows "T = ".
    const size_t start = prettyName.find("T = ");
    if (start == std::string_view::npos)
    {
        return std::string(prettyName);
    }
    std::string_view name = prettyName.substr(start + 4);
    name = name.substr(0, name.find_first_of(";]"));
    // Drop template arguments and then namespaces: "Scripting::Version" reads "Version".
    name = name.substr(0, name.find('<'));
    const size_t scope = name.rfind("::");
    return std::string(scope == std::string_view::npos ? name : name.substr(scope + 2));
}

std::string printPointer(std::string_view typeName, const void* address)
{
    return fmt::format("{}: {}", typeName, address);
}

bool equalIgnoringCase(std::string_view left, std::string_view right)
{
    const auto fold = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    if (left.size() != right.size())
    {
        return false;
    }
    for (size_t i = 0; i < left.size(); ++i)
    {
        if (fold(left[i]) != fold(right[i]))
        {
            return false;
        }
    }
    return true;
}

void CheckDebugAssertsImpl(const std::function<void()>& body, const std::vector<std::string>& expected,
                           const ovstd::source_location& location, bool fatal, bool doContinue,
                           const std::function<std::string()>& message)
{
    if (!doContinue)
    {
        if (expected.size() != 1)
        {
            fail("Only a single assert can be emitted when 'doContinue' is false", location, true);
            return;
        }
        try
        {
            Diagnostics::throwOnAssert<std::string>(
                [&]
                {
                    body();
                    fail(message(), location, fatal);
                });
        }
        catch (const std::string& asserted)
        {
            checkAssertMessage(asserted, expected[0], location, fatal);
        }
        return;
    }

    const std::vector<std::string> asserted = Diagnostics::collectAsserts(body);
    if (asserted.empty())
    {
        fail(message(), location, fatal);
        return;
    }
    if (asserted.size() != expected.size())
    {
        fail(fmt::format("We expected {} asserts and got {} asserts.", expected.size(), asserted.size()), location,
             fatal);
        return;
    }
    for (size_t i = 0; i < asserted.size(); ++i)
    {
        checkAssertMessage(asserted[i], expected[i], location, fatal);
    }
}

void CheckNoDebugAssertsImpl(const std::function<void()>& body, const ovstd::source_location& location, bool fatal,
                             const std::function<std::string()>& message)
{
    try
    {
        Diagnostics::throwOnAssert<std::string>(body);
    }
    catch (...)
    {
        fail(message(), location, fatal);
    }
}
} // namespace Ovelith::CoreTestFramework::Assert::Detail
