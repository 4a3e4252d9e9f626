#pragma once

#include "Scripting/Version.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace Scripting
{
/// The first major version that no longer holds a record.
class RemovedInMajorVersion
{
public:
    /**
     * @brief Wraps the major version.
     * @param major First major version without the record.
     */
    constexpr explicit RemovedInMajorVersion(uint16_t major) : mMajor(major) {}
    /** @return The major version. */
    constexpr uint16_t get() const { return mMajor; }

    /**
     * @brief Equal when the majors are.
     * @return Whether the two limits are equal.
     */
    friend constexpr bool operator==(RemovedInMajorVersion, RemovedInMajorVersion) = default;

private:
    uint16_t mMajor;
};

/** @brief How a Release decides whether a version holds its record. */
enum class ReleaseComparison : uint32_t
{
    /** @brief From a lower version on, below an optional major limit. */
    AtLeastVersion = 0,
    /** @brief Versions whose prerelease text equals the rule's. */
    PreReleaseTag = 1,
    /** @brief Versions without prerelease text. */
    NotPreRelease = 2,
};

/// One inclusion rule of a record.
/// Rules of one record are combined by the build that resolves the module.
struct Release
{
    /** @brief Kind of the rule. */
    ReleaseComparison comparison = ReleaseComparison::AtLeastVersion;
    /// AtLeastVersion: the first version holding the record. PreReleaseTag: only the prerelease text counts.
    Version inclusiveLowerVersion;
    /** @brief AtLeastVersion: first major version that no longer holds the record, if any. */
    std::optional<RemovedInMajorVersion> exclusiveMajorVersionLimit;

    /**
     * @brief Tests one module version against this rule alone.
     * @param version Module version.
     * @return Whether the rule admits the version.
     */
    bool satisfies(const Version& version) const;
};

/// Base of every binding record: the versions of its module in which the record exists. No releases means
/// untagged, and the build decides what an untagged record does.
struct TaggedBinding
{
    /** @brief Inclusion rules, in the order they were added. */
    std::vector<Release> releases;

    /// From `inclusiveLowerVersion` on, up to the limit's major version if one is given.
    /// A limit at or below the lower major asserts (and is kept, matching nothing).
    /// @param inclusiveLowerVersion First version holding the record.
    /// @param exclusiveMajorVersionLimit First major version without it.
    /// @return This record, for chaining.
    TaggedBinding& release(Version inclusiveLowerVersion,
                           std::optional<RemovedInMajorVersion> exclusiveMajorVersionLimit = std::nullopt);
    /// In any version tagged "beta", and in builds that enable "beta".
    /// @return This record, for chaining.
    TaggedBinding& beta();
    /// Never in a prerelease version, whatever the other rules say.
    /// @return This record, for chaining.
    TaggedBinding& notBeta();
};
} // namespace Scripting
