// Backtrace text from a script runtime: each line against a model of the frame rule, the stack split into its
// lines, and exactly one assert per line whose number cannot be read.
#include "FuzzSupport.h"

#include "Diagnostics/Assert.h"
#include "Scripting/Runtime/Error.h"

#include <cstdint>
#include <string>
#include <vector>

namespace
{
using Scripting::CallStackEntry;

struct ModelFrame
{
    CallStackEntry entry;
    bool asserts = false;
};

// "    at function (file:line)": the name runs from after " at " to the blank before the first '(', the file
// from there to the next ':', the number from there to the next ')'.
ModelFrame modelFrame(std::string_view line)
{
    const size_t at = line.find(" at ");
    const size_t open = line.find('(');
    const size_t colon = open == std::string_view::npos ? open : line.find(':', open);
    const size_t close = colon == std::string_view::npos ? colon : line.find(')', colon);
    if (at == std::string_view::npos || close == std::string_view::npos)
    {
        return {{"<anonymous>", "", -1}, false};
    }
    ModelFrame frame;
    const size_t nameBegin = at + 4;
    if (open >= nameBegin + 2)
    {
        frame.entry.function = line.substr(nameBegin, open - 1 - nameBegin);
    }
    frame.entry.file = line.substr(open + 1, colon - open - 1);

    // An optional '-' and as many digits as follow; nothing else may come first.
    std::string_view number = line.substr(colon + 1, close - colon - 1);
    const bool negative = !number.empty() && number.front() == '-';
    number.remove_prefix(negative ? 1 : 0);
    int64_t value = 0;
    size_t digits = 0;
    while (digits < number.size() && number[digits] >= '0' && number[digits] <= '9' && value <= INT32_MAX + 1LL)
    {
        value = value * 10 + (number[digits++] - '0');
    }
    const bool more = digits < number.size() && number[digits] >= '0' && number[digits] <= '9';
    value = negative ? -value : value;
    if (digits == 0 || more || value > INT32_MAX || value < INT32_MIN)
    {
        frame.entry.line = -1;
        frame.asserts = true;
    }
    else
    {
        frame.entry.line = static_cast<int32_t>(value);
    }
    return frame;
}

bool sameEntry(const CallStackEntry& a, const CallStackEntry& b)
{
    return a.function == b.function && a.file == b.file && a.line == b.line;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);

    // The whole input as one line, line feeds and all.
    const ModelFrame whole = modelFrame(text);
    CallStackEntry entry;
    const std::vector<std::string> lineAsserts =
        Ovelith::Diagnostics::collectAsserts([&] { entry = CallStackEntry::FromBacktrace(text); });
    FUZZ_CHECK(sameEntry(entry, whole.entry));
    FUZZ_CHECK(lineAsserts.size() == (whole.asserts ? 1u : 0u));

    // As a stack: one frame per line feed, and one for text after the last.
    std::vector<ModelFrame> expected;
    size_t start = 0;
    for (size_t i = 0; i <= text.size(); ++i)
    {
        if (i < text.size() ? text[i] == '\n' : i > start)
        {
            expected.push_back(modelFrame(std::string_view(text).substr(start, i - start)));
            start = i + 1;
        }
    }
    size_t expectedAsserts = 0;
    for (const ModelFrame& frame : expected)
    {
        expectedAsserts += frame.asserts ? 1 : 0;
    }

    Scripting::Error error("boom");
    const std::vector<std::string> stackAsserts = Ovelith::Diagnostics::collectAsserts([&] { error.setStack(text); });
    FUZZ_CHECK(stackAsserts.size() == expectedAsserts);
    for (const std::string& message : stackAsserts)
    {
        FUZZ_CHECK(message == "Failed to parse line number from backtrace");
    }
    const std::vector<CallStackEntry>& frames = error.getCallStack();
    FUZZ_CHECK(frames.size() == expected.size());
    for (size_t i = 0; i < frames.size(); ++i)
    {
        FUZZ_CHECK(sameEntry(frames[i], expected[i].entry));
    }
    FUZZ_CHECK(error.getStack() == text);
    FUZZ_CHECK(error.toString() == "Error: boom" + text);
    return 0;
}
