#pragma once

#include <cstdint>
#include <initializer_list>
#include <set>
#include <string>
#include <vector>

namespace Ovelith::CoreTestFramework
{
/// A set of lower-case tags. A class's name is one of its tags; "suite:..." tags pick the suite it runs in.
/// Tags are folded to lower case; adding one that is there already asserts.
class TestTags
{
public:
    /** @brief Iterates the tags in order. */
    using const_iterator = std::set<std::string>::const_iterator;

    /** @brief No tags. */
    TestTags() = default;
    /**
     * @brief From literals.
     * @param tags The tags.
     */
    TestTags(std::initializer_list<const char*> tags);
    /**
     * @brief From strings.
     * @param tags The tags.
     */
    explicit TestTags(const std::vector<std::string>& tags);

    /**
     * @brief Equal when the sets are.
     * @param other Other tags.
     * @return Whether the sets are equal.
     */
    bool operator==(const TestTags& other) const { return mTags == other.mTags; }

    /**
     * @brief Adds the other set's tags.
     * @param other Tags to add.
     */
    void insert(const TestTags& other);
    /**
     * @brief Whether a tag is there, whatever its case.
     * @param tag A tag.
     * @return True when it is.
     */
    bool has(const std::string& tag) const;
    /**
     * @brief Whether the set holds exactly this tag.
     * @param tag A tag.
     * @return True for a set of that one tag.
     */
    bool isOnly(const std::string& tag) const;
    /**
     * @brief Whether the sets share a tag.
     * @param other Other tags.
     * @return True when they do.
     */
    bool hasAny(const TestTags& other) const;
    /**
     * @brief Whether a tag starts with "suite:".
     * @return True when one does.
     */
    bool hasSuiteTag() const;
    /**
     * @brief Whether a host may pick the owner by its tags: not empty and without "none".
     * @return True when selectable.
     */
    bool isSelectable() const;

    /** @return Number of tags. */
    size_t size() const { return mTags.size(); }
    /** @return Whether there is no tag. */
    bool empty() const { return mTags.empty(); }
    /** @return First tag. */
    const_iterator begin() const { return mTags.begin(); }
    /** @return Past the last tag. */
    const_iterator end() const { return mTags.end(); }

    /**
     * @brief The tags in order.
     * @return A copy of them.
     */
    std::vector<std::string> toVector() const;
    /**
     * @brief The tags in order, separated by ", ".
     * @return The text.
     */
    std::string toString() const;
    /**
     * @brief A hash of the set.
     * @return The hash.
     */
    uint64_t hash() const;

private:
    void _insert(const std::string& tag);

    std::set<std::string> mTags;
};
} // namespace Ovelith::CoreTestFramework
