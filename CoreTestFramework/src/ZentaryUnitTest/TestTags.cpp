#include "ZentaryUnitTest/TestTags.h"

#include "Diagnostics/Assert.h"
#include "Hash/Fnv1a.h"

#include <algorithm>
#include <cctype>

namespace Ovelith::CoreTestFramework
{
namespace
{
std::string toLower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}
} // namespace

TestTags::TestTags(std::initializer_list<const char*> tags)
{
    for (const char* tag : tags)
    {
        _insert(tag);
    }
}

TestTags::TestTags(const std::vector<std::string>& tags)
{
    for (const std::string& tag : tags)
    {
        _insert(tag);
    }
}

void TestTags::_insert(const std::string& tag)
{
    const bool wasAdded = mTags.insert(toLower(tag)).second;
    OV_ASSERT(wasAdded,
              "Found a duplicate test tag: %s. Test tags must be unique. Note: test class names are tags already.",
              tag.c_str());
}

void TestTags::insert(const TestTags& other)
{
    for (const std::string& tag : other.mTags)
    {
        _insert(tag);
    }
}

bool TestTags::has(const std::string& tag) const
{
    return mTags.count(toLower(tag)) != 0;
}

bool TestTags::isOnly(const std::string& tag) const
{
    return mTags.size() == 1 && *mTags.begin() == toLower(tag);
}

bool TestTags::hasAny(const TestTags& other) const
{
    return std::any_of(other.begin(), other.end(), [this](const std::string& tag) { return mTags.count(tag) != 0; });
}

bool TestTags::hasSuiteTag() const
{
    return std::any_of(mTags.begin(), mTags.end(), [](const std::string& tag) { return tag.starts_with("suite:"); });
}

bool TestTags::isSelectable() const
{
    return !mTags.empty() && mTags.count("none") == 0;
}

std::vector<std::string> TestTags::toVector() const
{
    return {mTags.begin(), mTags.end()};
}

std::string TestTags::toString() const
{
    std::string text;
    for (const std::string& tag : mTags)
    {
        if (!text.empty())
        {
            text += ", ";
        }
        text += tag;
    }
    return text;
}

uint64_t TestTags::hash() const
{
    uint64_t seed = 0;
    for (const std::string& tag : mTags)
    {
        seed ^= (seed << 6) + Hash::fnv1a64(tag) + (seed >> 2) + 0x9e3779b9ull;
    }
    return seed;
}
} // namespace Ovelith::CoreTestFramework
