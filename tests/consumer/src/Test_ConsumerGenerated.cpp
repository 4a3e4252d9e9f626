// Generated cases whose names hold the characters of the host's filter syntax, or close a CMake bracket argument:
// a test per case must still run exactly that case.
#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"
#include "ZentaryUnitTest/TestClassHolder.h"

#include <string>

using namespace Ovelith::CoreTestFramework;

ZUT_TEST_CLASS(Consumer_GeneratedTests, "odd_names");
class Consumer_GeneratedTests final : public Consumer_GeneratedTestsBase
{
    ZUT_TEST(Plain) { Assert::IsTrue(true); }
    ZUT_TEST_GENERATOR(Names)
    {
        for (const char* name : {"with-dash", "with:colon", "with*star", "with?mark", "with]=]bracket"})
        {
            data.addGeneratedTest(name, file, line, TestTags{},
                                  [](gsl::not_null<ZentaryUnitTest::TestClassBase*>) { Assert::IsTrue(true); });
        }
        onTestGenerationFinished();
    }
};
