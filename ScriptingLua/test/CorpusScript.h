#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// A hostile script of the corpus and what it must end in. The header grammar, one directive a line, each line
// starting with "-- ":
//   expect: any                the run may fail or not (which limit trips first is a race); the checks after
//                              the run still hold
//   expect: ok                 the run returns a value, any value
//   expect: ok <value>         ... equal to <value>: an integer, true, false, nil or a "quoted string"
//   expect: error any          the run fails, with any message
//   expect: error "<text>"     the run fails, and the message holds <text>
//   expect: error "<a>" or "<b>"  ... holds one of them (a bomb that either limit may stop first)
//   watchdog: late             the watchdog is enabled only before the last run, not at the context's start
// A line "--- next run ---" starts another run in the same context; each run has its own expect line.
namespace LuaTest::Corpus
{
struct Expectation
{
    bool fails = false;
    // Either outcome will do.
    bool either = false;
    // For a run that succeeds: the value's text as valueText() prints it, or none for any value.
    std::optional<std::string> value;
    // For a run that fails: texts of which the message must hold one; empty for any message.
    std::vector<std::string> messageParts;
};

struct Run
{
    std::string source;
    Expectation expectation;
};

struct Script
{
    std::string name;
    std::vector<Run> runs;
    bool lateWatchdog = false;
};

// The script, or a description of what is wrong with its header.
struct Parsed
{
    std::optional<Script> script;
    std::string problem;
};

Parsed parseScript(std::string name, std::string_view text);
} // namespace LuaTest::Corpus
