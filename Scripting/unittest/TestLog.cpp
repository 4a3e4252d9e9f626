#include "Diagnostics/Assert.h"
#include "Scripting/BindingType/ClassBindingBuilder.h"
#include "Scripting/BindingType/ModuleBindingBuilder.h"
#include "Scripting/Runtime/Log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
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

struct Crate
{
    int weight = 0;
    int lift(int by) { return weight += by; }
};

// An application installs the logging handler; the test restores the default one whatever happens.
class ApplicationAssertTest : public LogTest
{
protected:
    void SetUp() override
    {
        LogTest::SetUp();
        setLogHandler(&recordingHandler, nullptr);
        mPrevious = Ovelith::Diagnostics::setAssertHandler(&logAssertAndContinue);
    }
    void TearDown() override
    {
        Ovelith::Diagnostics::setAssertHandler(mPrevious);
        LogTest::TearDown();
    }

    std::vector<std::string> errorTexts() const
    {
        std::vector<std::string> texts;
        for (const LogRecord& record : mRecords)
        {
            EXPECT_EQ(record.level, LogLevel::Error) << record.text;
            texts.push_back(record.text);
        }
        return texts;
    }

    Ovelith::Diagnostics::AssertHandler mPrevious = nullptr;
};

TEST_F(ApplicationAssertTest, TwoMembersOfOneNameAreLoggedAndTheBuildGoesOn)
{
    ModuleBindingBuilder builder(quv::UUID(0x1ull, 0x2ull), "demo", Version(1, 0, 0), false);
    ClassBindingBuilder<Crate> crate("Crate");
    crate.method<&Crate::lift>("lift");
    crate.property<&Crate::weight>("lift");
    builder.classBinding(crate.finish());

    const ModuleBinding binding = builder.build(true, {}, RuntimeConditions{});

    ASSERT_EQ(binding.classBindings.size(), 1u);
    // One report for each of the two records that share the name.
    EXPECT_THAT(errorTexts(),
                testing::AllOf(
                    testing::SizeIs(2),
                    testing::Each(testing::AllOf(
                        testing::HasSubstr("A member with the name 'lift' already exists in class 'Crate'"),
                        testing::HasSubstr("failed check `false`"), testing::HasSubstr("ModuleBindingBuilder.cpp:")))));
}

TEST_F(ApplicationAssertTest, AMismatchedArgumentDescriptionDropsTheMemberAndSaysWhy)
{
    ClassBindingBuilder<Crate> crate("Crate");
    crate.method<&Crate::lift>("lift", ArgumentBindingBuilder<std::string>("by")).release(Version(1, 0, 0));
    crate.property<&Crate::weight>("weight");
    const ClassBinding binding = crate.finish();

    EXPECT_TRUE(binding.functions.empty());
    EXPECT_EQ(binding.properties.size(), 1u);
    const std::vector<std::string> texts = errorTexts();
    ASSERT_FALSE(texts.empty());
    EXPECT_THAT(texts[0], testing::StartsWith("Library misuse: Argument binding type does not match"));
    EXPECT_THAT(texts[0], testing::HasSubstr("failed check `argumentTypesMatch`"));
}

TEST_F(ApplicationAssertTest, ACaptureStillComesFirstAndTheDefaultThrowsAgainOnceRestored)
{
    const std::vector<std::string> captured =
        Ovelith::Diagnostics::collectAsserts([] { OV_ASSERT(false, "captured %d", 1); });
    EXPECT_EQ(captured, std::vector<std::string>{"captured 1"});
    EXPECT_TRUE(mRecords.empty());

    OV_ASSERT(false, "logged %s", "here");
    ASSERT_EQ(mRecords.size(), 1u);
    EXPECT_THAT(mRecords[0].text, testing::StartsWith("Library misuse: logged here (failed check `false` in "));

    EXPECT_EQ(Ovelith::Diagnostics::setAssertHandler(nullptr), &logAssertAndContinue);
    EXPECT_THROW(OV_ASSERT(false, "thrown"), std::runtime_error);
    Ovelith::Diagnostics::setAssertHandler(&logAssertAndContinue);
}
} // namespace
