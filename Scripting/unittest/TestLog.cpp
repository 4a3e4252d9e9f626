#include "Scripting/Runtime/Log.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
using namespace Scripting;

struct LogRecord
{
    void* userData;
    LogLevel level;
    std::string text;
};

std::vector<LogRecord>* sRecords = nullptr;

void recordingHandler(void* userData, LogLevel level, const char* text)
{
    sRecords->push_back({userData, level, text});
}

class LogTest : public testing::Test
{
protected:
    void SetUp() override { sRecords = &mRecords; }
    void TearDown() override
    {
        setLogHandler(nullptr, nullptr);
        sRecords = nullptr;
    }

    std::vector<LogRecord> mRecords;
};

TEST_F(LogTest, HandlerReceivesUserDataLevelAndFormattedText)
{
    int userWord = 0;
    setLogHandler(&recordingHandler, &userWord);
    logMessage(LogLevel::Warning, "{} of {} modules", 2, "three");
    logMessage(LogLevel::Error, "100% {}", "%s");
    logMessage(static_cast<LogLevel>(9), "odd level");

    ASSERT_EQ(mRecords.size(), 3u);
    EXPECT_EQ(mRecords[0].userData, &userWord);
    EXPECT_EQ(mRecords[0].level, LogLevel::Warning);
    EXPECT_EQ(mRecords[0].text, "2 of three modules");
    EXPECT_EQ(mRecords[1].level, LogLevel::Error);
    EXPECT_EQ(mRecords[1].text, "100% %s");
    EXPECT_EQ(static_cast<int>(mRecords[2].level), 9);
}

TEST_F(LogTest, NullHandlerRestoresDefault)
{
    setLogHandler(&recordingHandler, nullptr);
    setLogHandler(nullptr, &mRecords);
    testing::internal::CaptureStdout();
    logMessage(LogLevel::Info, "back to stdout");
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(mRecords.empty());
    EXPECT_EQ(printed, "Scripting Log Info: back to stdout\n");
}

TEST_F(LogTest, DefaultHandlerPrefixesByLevel)
{
    const std::pair<LogLevel, const char*> cases[] = {
        {LogLevel::Info, "Scripting Log Info: text %d\n"},
        {LogLevel::Warning, "Scripting Log Warning: text %d\n"},
        {LogLevel::Error, "Scripting Log Error: text %d\n"},
        {LogLevel::Raw, "text %d\n"},
        {static_cast<LogLevel>(4), "Scripting Log Error: text %d\n"},
        {static_cast<LogLevel>(255), "Scripting Log Error: text %d\n"},
    };
    for (const auto& [level, expected] : cases)
    {
        testing::internal::CaptureStdout();
        logMessage(level, "text %d");
        EXPECT_EQ(testing::internal::GetCapturedStdout(), expected) << "level " << static_cast<int>(level);
    }
}
} // namespace
