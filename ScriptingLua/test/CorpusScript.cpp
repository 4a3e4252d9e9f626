#include "CorpusScript.h"

#include <fmt/format.h>

#include <cctype>

namespace LuaTest::Corpus
{
namespace
{
constexpr std::string_view DIRECTIVE = "-- ";
constexpr std::string_view NEXT_RUN = "--- next run ---";

std::string_view trim(std::string_view text)
{
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())) != 0)
    {
        text.remove_prefix(1);
    }
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())) != 0)
    {
        text.remove_suffix(1);
    }
    return text;
}

bool isQuoted(std::string_view text)
{
    return text.size() >= 2 && text.front() == '"' && text.back() == '"';
}

bool isValueLiteral(std::string_view text)
{
    if (text == "true" || text == "false" || text == "nil" || isQuoted(text))
    {
        return true;
    }
    std::string_view digits = text.starts_with('-') ? text.substr(1) : text;
    if (digits.empty())
    {
        return false;
    }
    for (const char character : digits)
    {
        if (std::isdigit(static_cast<unsigned char>(character)) == 0)
        {
            return false;
        }
    }
    return true;
}

// Reads "ok ...", "error ..." into the expectation, or says what is wrong.
std::string readExpectation(std::string_view text, Expectation& expectation)
{
    text = trim(text);
    if (text == "any")
    {
        expectation.either = true;
        return {};
    }
    if (text == "ok")
    {
        return {};
    }
    if (text.starts_with("ok "))
    {
        const std::string_view value = trim(text.substr(3));
        if (!isValueLiteral(value))
        {
            return fmt::format("'{}' is not an integer, true, false, nil or a quoted string", value);
        }
        expectation.value = std::string(value);
        return {};
    }
    if (text.starts_with("error "))
    {
        expectation.fails = true;
        const std::string_view what = trim(text.substr(6));
        if (what == "any")
        {
            return {};
        }
        // One quoted text, or several joined by " or ".
        std::string_view rest = what;
        while (true)
        {
            const size_t close = rest.size() > 1 ? rest.find('"', 1) : std::string_view::npos;
            if (!rest.starts_with('"') || close == std::string_view::npos || close == 1)
            {
                return fmt::format("after 'error' comes 'any' or non-empty quoted texts joined by 'or', not '{}'",
                                   what);
            }
            expectation.messageParts.emplace_back(rest.substr(1, close - 1));
            rest = trim(rest.substr(close + 1));
            if (rest.empty())
            {
                return {};
            }
            if (!rest.starts_with("or "))
            {
                return fmt::format("after 'error' comes 'any' or non-empty quoted texts joined by 'or', not '{}'",
                                   what);
            }
            rest = trim(rest.substr(3));
        }
    }
    return fmt::format("'{}' is not 'any', 'ok ...' or 'error ...'", text);
}
} // namespace

Parsed parseScript(std::string name, std::string_view text)
{
    Script script;
    script.name = std::move(name);
    script.runs.emplace_back();
    std::vector<bool> expected{false};
    size_t lineNumber = 0;
    while (!text.empty())
    {
        const size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
        ++lineNumber;
        Run& run = script.runs.back();
        if (trim(line) == NEXT_RUN)
        {
            script.runs.emplace_back();
            script.runs.back().source.assign(lineNumber, '\n');
            expected.push_back(false);
            continue;
        }
        // Lines keep their place in the run's source, so that error lines match the file's.
        run.source.append(line).push_back('\n');
        if (!line.starts_with(DIRECTIVE))
        {
            continue;
        }
        const std::string_view directive = trim(line.substr(DIRECTIVE.size()));
        std::string problem;
        if (directive.starts_with("expect:"))
        {
            if (expected.back())
            {
                problem = "a second expect line in one run";
            }
            else
            {
                problem = readExpectation(directive.substr(7), run.expectation);
                expected.back() = true;
            }
        }
        else if (directive.starts_with("watchdog:"))
        {
            if (trim(directive.substr(9)) != "late")
            {
                problem = "the only watchdog directive is 'watchdog: late'";
            }
            script.lateWatchdog = true;
        }
        if (!problem.empty())
        {
            return Parsed{std::nullopt, fmt::format("{}:{}: {}", script.name, lineNumber, problem)};
        }
    }
    for (size_t index = 0; index < expected.size(); ++index)
    {
        if (!expected[index])
        {
            return Parsed{std::nullopt, fmt::format("{}: run {} has no expect line", script.name, index + 1)};
        }
    }
    if (script.lateWatchdog && script.runs.size() < 2)
    {
        return Parsed{std::nullopt, fmt::format("{}: 'watchdog: late' needs a run before the last", script.name)};
    }
    return Parsed{std::move(script), {}};
}
} // namespace LuaTest::Corpus
