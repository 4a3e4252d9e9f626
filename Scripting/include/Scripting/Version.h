#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Scripting
{
/// A semantic version without build metadata. There is no parser: versions are built from numbers and a tag.
/// Ordered as semantic versioning orders versions: a prerelease comes before its stable version.
struct Version
{
    /** @brief Major number: versions of one major are compatible. */
    uint16_t Major = 0;
    /** @brief Minor number. */
    uint16_t Minor = 0;
    /** @brief Patch number. */
    uint16_t Patch = 0;
    /// Dot-separated identifiers such as "beta.11"; empty for a stable version.
    std::string Prerelease;

    /** @brief 0.0.0, which isValid() rejects. */
    Version() = default;
    /**
     * @brief A stable version.
     * @param major Major number.
     * @param minor Minor number.
     * @param patch Patch number.
     */
    Version(uint16_t major, uint16_t minor, uint16_t patch) : Major(major), Minor(minor), Patch(patch) {}
    /**
     * @brief A version with a prerelease tag.
     * @param major Major number.
     * @param minor Minor number.
     * @param patch Patch number.
     * @param prerelease Dot-separated identifiers; empty for stable.
     */
    Version(uint16_t major, uint16_t minor, uint16_t patch, std::string prerelease)
        : Major(major), Minor(minor), Patch(patch), Prerelease(std::move(prerelease))
    {
    }

    /**
     * @brief Whether any number is set.
     * @return False only for 0.0.0.
     */
    bool isValid() const { return Major != 0 || Minor != 0 || Patch != 0; }
    /**
     * @brief Whether the version has a prerelease tag.
     * @return True for a prerelease.
     */
    bool hasPrerelease() const { return !Prerelease.empty(); }

    /**
     * @brief Equal when numbers and tag are, byte for byte.
     * @param other Another version.
     * @return Whether the versions are equal.
     */
    bool operator==(const Version& other) const
    {
        return Major == other.Major && Minor == other.Minor && Patch == other.Patch && Prerelease == other.Prerelease;
    }
    /**
     * @brief Semantic-version order: numbers, then the tag's identifiers, a stable version last.
     * @param other Another version.
     * @return Whether this version comes first.
     */
    bool operator<(const Version& other) const;
    /// Kept in terms of == and < only: two numeric identifiers such as "01" and "1" are neither equal nor
    /// ordered, and then both `a > b` and `b > a` hold.
    /// @param other Another version.
    /// @return Not equal.
    bool operator!=(const Version& other) const { return !(*this == other); }
    /**
     * @brief Neither equal nor less.
     * @param other Another version.
     * @return Whether this version comes after.
     */
    bool operator>(const Version& other) const { return !(*this == other) && !(*this < other); }
    /**
     * @brief Equal or less.
     * @param other Another version.
     * @return Whether this version does not come after.
     */
    bool operator<=(const Version& other) const { return *this == other || *this < other; }
    /**
     * @brief Not less.
     * @param other Another version.
     * @return Whether this version does not come first.
     */
    bool operator>=(const Version& other) const { return !(*this < other); }

    /// Whether this version may stand in for `requested`: same major, not lower, never below 1.0.0, and
    /// prereleases only for themselves (or, when not strict, for a stable request).
    /// @param requested The version asked for.
    /// @param strict Whether a prerelease may stand in only for itself.
    /// @return True when this version may be given for the request.
    bool satisfies(const Version& requested, bool strict) const;

    /**
     * @brief `major.minor.patch`, then `-prerelease` if there is one.
     * @return The text.
     */
    std::string toString() const;

    /** @brief Hash of a version, for unordered containers. */
    struct Hash
    {
        /**
         * @brief Hashes numbers and tag.
         * @param version The version.
         * @return Its hash.
         */
        size_t operator()(const Version& version) const noexcept;
    };
};
} // namespace Scripting

/** @brief Version::Hash as the standard hash. */
template <>
struct std::hash<Scripting::Version> : Scripting::Version::Hash
{
};
