#include "Scripting/Version.h"

#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <vector>

using namespace Ovelith::CoreTestFramework;
using Scripting::Version;

ZUT_TEST_CLASS(Scripting_VersionTest);
class Scripting_VersionTest final : public Scripting_VersionTestBase
{
    ZUT_TEST(Construction)
    {
        const Version version(1, 2, 3, "alpha");
        Assert::AreEqual(version.Major, uint16_t{1});
        Assert::AreEqual(version.Minor, uint16_t{2});
        Assert::AreEqual(version.Patch, uint16_t{3});
        Assert::AreEqual(version.Prerelease, std::string("alpha"));
        Assert::IsTrue(version.hasPrerelease());
        Assert::IsTrue(version.isValid());
        Assert::IsFalse(Version().isValid(), false, "A default version is 0.0.0 and not valid");
        Assert::IsFalse(Version(0, 0, 0, "alpha").isValid(), false, "The tag does not make a version valid");
    }

    ZUT_TEST(CreateVersions_Satisfies_Expected)
    {
        struct Row
        {
            Version candidate;
            Version requested;
            bool strict;
            bool expected;
        };
        const std::vector<Row> rows = {
            {{1, 0, 0}, {1, 0, 0}, false, true},
            {{1, 1, 0}, {1, 0, 0}, false, true},
            {{1, 1, 1}, {1, 0, 0}, false, true},
            {{1, 1, 1}, {1, 1, 0}, false, true},
            {{1, 0, 0}, {1, 1, 0}, false, false},
            {{2, 1, 1}, {1, 1, 1}, false, false},
            {{2, 0, 0}, {1, 0, 0, "beta"}, false, false},
            {{2, 0, 0, "beta"}, {1, 0, 0}, false, false},
            {{0, 0, 0}, {0, 1, 0}, false, false},
            {{0, 1, 1}, {0, 1, 0}, false, false},
            {{0, 1, 0}, {0, 1, 0, "beta"}, false, false},
            {{1, 1, 0}, {1, 0, 0, "beta"}, false, false},
            {{1, 1, 0, "beta"}, {1, 0, 0}, false, true},
            {{1, 1, 0, "beta"}, {1, 0, 0}, true, false},
            {{1, 1, 0, "beta"}, {1, 1, 0, "beta"}, false, true},
            {{1, 2, 0, "beta"}, {1, 1, 0, "beta"}, false, false},
            {{1, 1, 0, "beta"}, {1, 2, 0, "beta"}, false, false},
            {{2, 0, 0, "beta"}, {1, 0, 0, "beta"}, false, false},
            {{1, 1, 0, "alpha"}, {1, 1, 0, "beta"}, false, false},
            {{1, 2, 0, "alpha"}, {1, 1, 0, "beta"}, false, false},
            {{1, 1, 0, "beta"}, {1, 1, 0, "alpha"}, false, false},
            {{1, 2, 0, "beta"}, {1, 1, 0, "alpha"}, false, false},
            // Versions below 1 are never promoted, strict or not.
            {{0, 1, 0}, {0, 1, 0}, false, true},
            {{0, 2, 0}, {0, 1, 0}, false, false},
        };
        for (const Row& row : rows)
        {
            Assert::AreEqual(row.candidate.satisfies(row.requested, row.strict), row.expected, false,
                             "{} satisfies {} (strict: {})", row.candidate.toString(), row.requested.toString(),
                             row.strict);
        }
    }

    ZUT_TEST(Less_Than)
    {
        const std::vector<std::pair<Version, Version>> ordered = {
            {{0, 0, 0}, {1, 0, 0}},
            {{0, 0, 1}, {1, 0, 0}},
            {{0, 1, 0}, {1, 0, 0}},
            {{1, 0, 0, "alpha"}, {1, 0, 0}},
            {{1, 0, 0, "alpha"}, {1, 0, 0, "alpha.1"}},
            {{1, 0, 0, "alpha.1"}, {1, 0, 0, "alpha.beta"}},
            {{1, 0, 0, "beta"}, {1, 0, 0, "beta.2"}},
            {{1, 0, 0, "beta.2"}, {1, 0, 0, "beta.11"}},
            {{1, 0, 0, "beta.11"}, {1, 0, 0, "rc.1"}},
            {{1, 0, 0, "rc.1"}, {1, 0, 0}},
        };
        for (const auto& [lesser, greater] : ordered)
        {
            Assert::IsTrue(lesser < greater, false, "{} < {}", lesser.toString(), greater.toString());
            Assert::IsFalse(greater < lesser, false, "not {} < {}", greater.toString(), lesser.toString());
            Assert::IsTrue(greater > lesser, false, "{} > {}", greater.toString(), lesser.toString());
            Assert::IsTrue(lesser <= greater && greater >= lesser, false, "{} <= {}", lesser.toString(),
                           greater.toString());
        }
    }
};
