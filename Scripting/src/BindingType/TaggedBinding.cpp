#include "Scripting/BindingType/TaggedBinding.h"

#include "Diagnostics/Assert.h"

namespace Scripting
{
bool Release::satisfies(const Version& version) const
{
    switch (comparison)
    {
    case ReleaseComparison::AtLeastVersion:
        if (version < inclusiveLowerVersion)
        {
            return false;
        }
        return !exclusiveMajorVersionLimit.has_value() || version.Major < exclusiveMajorVersionLimit->get();
    case ReleaseComparison::PreReleaseTag:
        return version.Prerelease == inclusiveLowerVersion.Prerelease;
    case ReleaseComparison::NotPreRelease:
        return version.Prerelease.empty();
    }
    OV_ASSERT(false, "Invalid comparison type.");
    return false;
}

TaggedBinding& TaggedBinding::release(Version inclusiveLowerVersion,
                                      std::optional<RemovedInMajorVersion> exclusiveMajorVersionLimit)
{
    // A limit at or below the lower major leaves a rule that no version satisfies; it is kept all the same so
    // that the record's tags read as written.
    OV_ASSERT(!exclusiveMajorVersionLimit.has_value() ||
                  (inclusiveLowerVersion.Major < exclusiveMajorVersionLimit.value().get()),
              "Upper limit major must be greater than lower limit major.");
    releases.push_back(
        Release{ReleaseComparison::AtLeastVersion, std::move(inclusiveLowerVersion), exclusiveMajorVersionLimit});
    return *this;
}

TaggedBinding& TaggedBinding::beta()
{
    releases.push_back(Release{ReleaseComparison::PreReleaseTag, Version(0, 0, 0, "beta"), std::nullopt});
    return *this;
}

TaggedBinding& TaggedBinding::notBeta()
{
    releases.push_back(Release{ReleaseComparison::NotPreRelease, Version(), std::nullopt});
    return *this;
}
} // namespace Scripting
