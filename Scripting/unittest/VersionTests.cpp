#include "Scripting/Version.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace
{
using Scripting::Version;

struct TagOrder
{
    const char* lesser;
    const char* greater;
};

// How a tag splits into identifiers decides the order; each pair is strictly ordered.
TEST(VersionOrderTest, IdentifiersSplitAtEveryDot)
{
    const TagOrder cases[] = {
        {"a", "a.b"},      // more identifiers are greater
        {"a.", "a.b"},     // a trailing separator adds no identifier
        {"a.", "a.."},     // ... but a doubled one adds an empty identifier
        {".b", "a"},       // a leading separator yields an empty, numeric identifier, which comes first
        {"a..b", "a.1.b"}, // an empty identifier is numeric and counts as 0
        {"a.", "a.0"},     // "a." has one identifier, "a.0" two
        {"9", "10"},       // numbers compare as numbers
        {"beta.9", "beta.10"},
        {"999", "a"},   // numeric before alphanumeric
        {"1a", "1b"},   // a digit then a letter is alphanumeric: bytes decide
        {"B", "a"},     // bytes, so case-sensitive
        {"a", "a\x80"}, // bytes above 127 compare unsigned, shorter first
        {"\x7f", "\x80"},
    };
    for (const TagOrder& order : cases)
    {
        const Version lesser(1, 0, 0, order.lesser);
        const Version greater(1, 0, 0, order.greater);
        EXPECT_TRUE(lesser < greater) << order.lesser << " < " << order.greater;
        EXPECT_FALSE(greater < lesser) << order.greater << " < " << order.lesser;
        EXPECT_FALSE(lesser > greater) << order.lesser << " > " << order.greater;
    }
}

TEST(VersionOrderTest, NumbersEqualAsNumbersButNotAsTextAreUnordered)
{
    const Version a(1, 0, 0, "rc.01");
    const Version b(1, 0, 0, "rc.1");
    EXPECT_FALSE(a < b);
    EXPECT_FALSE(b < a);
    EXPECT_FALSE(a == b);
    EXPECT_TRUE(a > b && b > a);
}

// A tag of n identifiers joined by dots, with `last` as the final one.
std::string longTag(size_t identifiers, const std::string& last)
{
    std::string tag;
    tag.reserve(identifiers * 2 + last.size());
    for (size_t i = 0; i + 1 < identifiers; ++i)
    {
        tag += (i % 2 == 0) ? "1." : "x.";
    }
    return tag + last;
}

// A hundred thousand identifiers are a script's work of a moment; comparing them must stay linear. Each pair
// agrees up to its last identifier, so the whole of both tags is read.
TEST(VersionOrderTest, HundredThousandIdentifiersCompare)
{
    constexpr size_t IDENTIFIERS = 100000;
    const Version low(1, 0, 0, longTag(IDENTIFIERS, "9"));
    const Version high(1, 0, 0, longTag(IDENTIFIERS, "10"));
    const Version alpha(1, 0, 0, longTag(IDENTIFIERS, "a"));
    const Version longer(1, 0, 0, longTag(IDENTIFIERS, "9") + ".0");

    EXPECT_TRUE(low < high);
    EXPECT_FALSE(high < low);
    EXPECT_TRUE(high < alpha);
    EXPECT_TRUE(low < longer);
    EXPECT_FALSE(longer < low);
    EXPECT_FALSE(low < Version(low));
    EXPECT_TRUE(low <= Version(low));

    // Only separators: every identifier is empty, and the one with more of them is greater.
    const Version dots(1, 0, 0, std::string(IDENTIFIERS, '.'));
    const Version moreDots(1, 0, 0, std::string(IDENTIFIERS + 1, '.'));
    EXPECT_TRUE(dots < moreDots);
    EXPECT_FALSE(moreDots < dots);

    EXPECT_TRUE(low.satisfies(Version(low), true));
    EXPECT_FALSE(high.satisfies(low, false)) << "two different tags never meet";
    const Version higherMinor(1, 1, 0, low.Prerelease);
    EXPECT_FALSE(higherMinor.satisfies(low, false)) << "a prerelease is never promoted";
    EXPECT_TRUE(higherMinor.satisfies(Version(1, 0, 0), false));
    EXPECT_FALSE(higherMinor.satisfies(Version(1, 0, 0), true));
}

// The text of messages and failure reports: every number in full, the tag after a dash only when there is one.
TEST(VersionTextTest, NumbersInFullAndTagAfterADash)
{
    const std::pair<Version, const char*> cases[] = {
        {Version(0, 0, 0), "0.0.0"},
        {Version(1, 2, 3), "1.2.3"},
        {Version(10, 0, 200), "10.0.200"},
        {Version(65535, 65535, 65535), "65535.65535.65535"},
        {Version(1, 0, 0, "beta.1"), "1.0.0-beta.1"},
        {Version(2, 1, 0, ""), "2.1.0"},
    };
    for (const auto& [version, text] : cases)
    {
        EXPECT_EQ(version.toString(), text);
    }
}
} // namespace
