#pragma once

#include "Scripting/Version.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace Scripting
{
// The first major version that no longer holds a record.
class RemovedInMajorVersion
{
public:
    constexpr explicit RemovedInMajorVersion(uint16_t major) : mMajor(major) {}
    constexpr uint16_t get() const { return mMajor; }

    friend constexpr bool operator==(RemovedInMajorVersion, RemovedInMajorVersion) = default;

private:
    uint16_t mMajor;
};

enum class ReleaseComparison : uint32_t
{
    AtLeastVersion = 0,
    PreReleaseTag = 1,
    NotPreRelease = 2,
};

// One inclusion rule of a record.
struct Release
{
    ReleaseComparison comparison = ReleaseComparison::AtLeastVersion;
    // AtLeastVersion: the first version holding the record. PreReleaseTag: only the prerelease text counts.
    Version inclusiveLowerVersion;
    std::optional<RemovedInMajorVersion> exclusiveMajorVersionLimit;

    bool satisfies(const Version& version) const;
};

// Base of every binding record: the versions of its module in which the record exists. No releases means
// untagged, and the build decides what an untagged record does.
struct TaggedBinding
{
    std::vector<Release> releases;

    // From `inclusiveLowerVersion` on, up to the limit's major version if one is given.
    TaggedBinding& release(Version inclusiveLowerVersion,
                           std::optional<RemovedInMajorVersion> exclusiveMajorVersionLimit = std::nullopt);
    // In any version tagged "beta", and in builds that enable "beta".
    TaggedBinding& beta();
    // Never in a prerelease version, whatever the other rules say.
    TaggedBinding& notBeta();
};
} // namespace Scripting
