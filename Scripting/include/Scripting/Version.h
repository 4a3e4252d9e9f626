#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Scripting
{
// A semantic version without build metadata. There is no parser: versions are built from numbers and a tag.
struct Version
{
    uint16_t Major = 0;
    uint16_t Minor = 0;
    uint16_t Patch = 0;
    // Dot-separated identifiers such as "beta.11"; empty for a stable version.
    std::string Prerelease;

    Version() = default;
    Version(uint16_t major, uint16_t minor, uint16_t patch) : Major(major), Minor(minor), Patch(patch) {}
    Version(uint16_t major, uint16_t minor, uint16_t patch, std::string prerelease)
        : Major(major), Minor(minor), Patch(patch), Prerelease(std::move(prerelease))
    {
    }

    bool isValid() const { return Major != 0 || Minor != 0 || Patch != 0; }
    bool hasPrerelease() const { return !Prerelease.empty(); }

    bool operator==(const Version& other) const
    {
        return Major == other.Major && Minor == other.Minor && Patch == other.Patch && Prerelease == other.Prerelease;
    }
    bool operator<(const Version& other) const;
    // Kept in terms of == and < only: two numeric identifiers such as "01" and "1" are neither equal nor
    // ordered, and then both `a > b` and `b > a` hold.
    bool operator!=(const Version& other) const { return !(*this == other); }
    bool operator>(const Version& other) const { return !(*this == other) && !(*this < other); }
    bool operator<=(const Version& other) const { return *this == other || *this < other; }
    bool operator>=(const Version& other) const { return !(*this < other); }

    // Whether this version may stand in for `requested`: same major, not lower, never below 1.0.0, and
    // prereleases only for themselves (or, when not strict, for a stable request).
    bool satisfies(const Version& requested, bool strict) const;

    std::string toString() const;

    struct Hash
    {
        size_t operator()(const Version& version) const noexcept;
    };
};
} // namespace Scripting

template <>
struct std::hash<Scripting::Version> : Scripting::Version::Hash
{
};
