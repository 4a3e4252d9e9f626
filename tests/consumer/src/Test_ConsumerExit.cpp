// A class whose middle case ends the process with a successful status: the tests made of it must fail that case
// and still run the case after it.
#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <cstdlib>

using namespace Ovelith::CoreTestFramework;

ZUT_TEST_CLASS(Consumer_ExitTests, "exits");
class Consumer_ExitTests final : public Consumer_ExitTestsBase
{
    ZUT_TEST(Before) { Assert::IsTrue(true); }
    ZUT_TEST(Exits) { std::exit(0); }
    ZUT_TEST(After) { Assert::IsTrue(true); }
};
