#pragma once

#include <cstdint>
#include <initializer_list>
#include <set>
#include <string>
#include <vector>

namespace Ovelith::CoreTestFramework
{
// A set of lower-case tags. A class's name is one of its tags; "suite:..." tags pick the suite it runs in.
class TestTags
{
public:
    using const_iterator = std::set<std::string>::const_iterator;

    TestTags() = default;
    TestTags(std::initializer_list<const char*> tags);
    explicit TestTags(const std::vector<std::string>& tags);

    bool operator==(const TestTags& other) const { return mTags == other.mTags; }

    void insert(const TestTags& other);
    bool has(const std::string& tag) const;
    bool isOnly(const std::string& tag) const;
    bool hasAny(const TestTags& other) const;
    bool hasSuiteTag() const;
    bool isSelectable() const;

    size_t size() const { return mTags.size(); }
    bool empty() const { return mTags.empty(); }
    const_iterator begin() const { return mTags.begin(); }
    const_iterator end() const { return mTags.end(); }

    std::vector<std::string> toVector() const;
    std::string toString() const;
    uint64_t hash() const;

private:
    void _insert(const std::string& tag);

    std::set<std::string> mTags;
};
} // namespace Ovelith::CoreTestFramework
