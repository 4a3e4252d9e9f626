// The one suite of a project that uses the library and its test framework from outside this tree.
#include "Scripting/Version.h"
#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

using namespace Ovelith::CoreTestFramework;

ZUT_TEST_CLASS(Consumer_VersionTests, "consumer");
class Consumer_VersionTests final : public Consumer_VersionTestsBase
{
    ZUT_TEST(Orders) { Assert::IsTrue(Scripting::Version(1, 2, 3) < Scripting::Version(1, 3, 0)); }
    ZUT_TEST(Prints) { Assert::AreEqual(Scripting::Version(1, 2, 3).toString(), std::string("1.2.3")); }
};
