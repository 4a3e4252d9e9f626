#include "Diagnostics/Assert.h"
#include "Scripting/Runtime/Error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace
{
using namespace Scripting;

constexpr const char* LINE_ASSERT = "Failed to parse line number from backtrace";

struct BacktraceCase
{
    std::string line;
    std::string function;
    std::string file;
    int32_t lineNumber;
    bool asserts;
};

TEST(CallStackTest, FromBacktraceReadsFrameOrFallsBack)
{
    const BacktraceCase cases[] = {
        {"    at foo (main.js:12)", "foo", "main.js", 12, false},
        {"    at Foo.bar baz (lib/a.js:0)", "Foo.bar baz", "lib/a.js", 0, false},
        {"    at <eval> (eval.js:7)", "<eval>", "eval.js", 7, false},
        {"    at foo (main.js:12:7)", "foo", "main.js", 12, false},
        {"    at foo (main.js:-5)", "foo", "main.js", -5, false},
        {"    at foo (main.js:2147483647)", "foo", "main.js", 2147483647, false},
        {"    at foo (main.js:-2147483648)", "foo", "main.js", -2147483647 - 1, false},
        {"    at foo (main.js:12abc)", "foo", "main.js", 12, false},
        {"    at foo (main.js:12)\r", "foo", "main.js", 12, false},
        // The character before '(' is dropped as the separating blank, whatever it is.
        {"    at foo(main.js:3)", "fo", "main.js", 3, false},
        {"    at (main.js:3)", "", "main.js", 3, false},
        {"(main.js:3) at foo", "", "main.js", 3, false},
        // Shapes that are not frames.
        {"", "<anonymous>", "", -1, false},
        {"at", "<anonymous>", "", -1, false},
        {"at foo (main.js:12)", "<anonymous>", "", -1, false},
        {"    at foo", "<anonymous>", "", -1, false},
        {"    at foo (main.js)", "<anonymous>", "", -1, false},
        {"    at foo (main.js:12", "<anonymous>", "", -1, false},
        {"    at foo main.js:12)", "<anonymous>", "", -1, false},
        {"Error: boom", "<anonymous>", "", -1, false},
        // A frame whose line number cannot be read keeps its function and file.
        {"    at foo (main.js:x)", "foo", "main.js", -1, true},
        {"    at foo (main.js:)", "foo", "main.js", -1, true},
        {"    at foo (main.js:-)", "foo", "main.js", -1, true},
        {"    at foo (main.js:+3)", "foo", "main.js", -1, true},
        {"    at foo (main.js: 3)", "foo", "main.js", -1, true},
        {"    at foo (main.js:2147483648)", "foo", "main.js", -1, true},
        {"    at foo (main.js:-2147483649)", "foo", "main.js", -1, true},
        {"    at foo (main.js:99999999999999999999)", "foo", "main.js", -1, true},
        // The first ':' ends the file name, so a drive letter takes the line number with it.
        {"    at foo (C:\\src\\main.js:3)", "foo", "C", -1, true},
    };
    for (const BacktraceCase& c : cases)
    {
        SCOPED_TRACE(c.line);
        std::vector<std::string> asserts;
        CallStackEntry entry;
        Ovelith::Diagnostics::interceptAsserts([&] { entry = CallStackEntry::FromBacktrace(c.line); },
                                               [&](std::string message) { asserts.push_back(std::move(message)); });
        EXPECT_EQ(entry.function, c.function);
        EXPECT_EQ(entry.file, c.file);
        EXPECT_EQ(entry.line, c.lineNumber);
        if (c.asserts)
        {
            EXPECT_THAT(asserts, testing::ElementsAre(LINE_ASSERT));
        }
        else
        {
            EXPECT_THAT(asserts, testing::IsEmpty());
        }
    }
}

TEST(CallStackTest, UnreadableLineNumberThrowsOutsideCapture)
{
    EXPECT_THROW(CallStackEntry::FromBacktrace("    at foo (main.js:x)"), std::runtime_error);
}

std::vector<std::string> functionsOf(const BaseError& error)
{
    std::vector<std::string> names;
    for (const CallStackEntry& entry : error.getCallStack())
    {
        names.push_back(entry.function);
    }
    return names;
}

TEST(CallStackTest, SetStackParsesEachLine)
{
    using testing::ElementsAre;
    const std::string frames = "    at a (x.js:1)\n    at b (x.js:2)\n    at c (x.js:3)";
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {frames, {"a", "b", "c"}},
        {frames + "\n", {"a", "b", "c"}},
        {"", {}},
        {"\n", {"<anonymous>"}},
        {"    at a (x.js:1)\n\n    at b (x.js:2)", {"a", "<anonymous>", "b"}},
        {"Error: boom\n    at a (x.js:1)", {"<anonymous>", "a"}},
    };
    for (const auto& [text, functions] : cases)
    {
        SCOPED_TRACE(text);
        Error error("boom");
        error.setStack(text);
        EXPECT_EQ(functionsOf(error), functions);
        EXPECT_EQ(error.getStack(), text);
    }

    Error error("boom");
    error.setStack(frames);
    ASSERT_EQ(error.getCallStack().size(), 3u);
    EXPECT_EQ(error.getCallStack()[2].file, "x.js");
    EXPECT_EQ(error.getCallStack()[2].line, 3);
    // A second stack replaces the first, it does not add to it.
    error.setStack("    at z (y.js:9)");
    EXPECT_THAT(functionsOf(error), ElementsAre("z"));
}
} // namespace
