#include "Scripting/Version.h"

#include "Scripting/internal/Hash.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <fmt/format.h>

namespace Scripting
{
namespace
{
bool isNumericIdentifier(std::string_view identifier)
{
    for (char c : identifier)
    {
        if (!std::isdigit(static_cast<unsigned char>(c)))
        {
            return false;
        }
    }
    return true;
}

// The first identifier of `tag` from `start` on; a separator at the very end starts no further identifier, a
// leading or doubled one yields an empty identifier.
std::string_view identifierFrom(std::string_view tag, size_t start)
{
    const size_t dot = tag.find('.', start);
    return tag.substr(start, (dot == std::string_view::npos ? tag.size() : dot) - start);
}

bool identifierLess(std::string_view x, std::string_view y)
{
    const bool xNumeric = isNumericIdentifier(x);
    const bool yNumeric = isNumericIdentifier(y);
    if (xNumeric && yNumeric)
    {
        return std::atoi(std::string(x).c_str()) < std::atoi(std::string(y).c_str());
    }
    if (xNumeric != yNumeric)
    {
        return xNumeric;
    }
    return x < y;
}

// Where two texts first differ: the shorter length when one is a prefix of the other. Blocks go through memcmp,
// which reads many bytes at a time; a byte loop finds the place within the first block that differs.
size_t firstDifference(std::string_view a, std::string_view b)
{
    constexpr size_t BLOCK = 256;
    const size_t common = a.size() < b.size() ? a.size() : b.size();
    size_t position = 0;
    while (position + BLOCK <= common && std::memcmp(a.data() + position, b.data() + position, BLOCK) == 0)
    {
        position += BLOCK;
    }
    while (position < common && a[position] == b[position])
    {
        ++position;
    }
    return position;
}

// Linear in the tags' length, however many identifiers they hold: a version may come from a script. Up to
// their first differing byte the tags, and so their identifiers, are the same; the pair of identifiers that
// holds that byte decides, or, when that pair is equal too, which tag has identifiers left.
bool prereleaseLess(std::string_view a, std::string_view b)
{
    const size_t lastDot = a.substr(0, firstDifference(a, b)).rfind('.');
    size_t start = lastDot == std::string_view::npos ? 0 : lastDot + 1;
    if (start < a.size() && start < b.size())
    {
        const std::string_view x = identifierFrom(a, start);
        const std::string_view y = identifierFrom(b, start);
        if (x != y)
        {
            return identifierLess(x, y);
        }
        // Equal only when one tag ends where the other has a separator: neither holds a further pair.
        start += x.size() + 1;
    }
    // Equal so far: the one that ran out of identifiers first has fewer.
    return start >= a.size() && start < b.size();
}
} // namespace

bool Version::operator<(const Version& other) const
{
    if (Major != other.Major)
    {
        return Major < other.Major;
    }
    if (Minor != other.Minor)
    {
        return Minor < other.Minor;
    }
    if (Patch != other.Patch)
    {
        return Patch < other.Patch;
    }
    if (hasPrerelease() != other.hasPrerelease())
    {
        return hasPrerelease();
    }
    return prereleaseLess(Prerelease, other.Prerelease);
}

bool Version::satisfies(const Version& requested, bool strict) const
{
    if (Major == 0)
    {
        return *this == requested;
    }
    if (hasPrerelease() && Prerelease == requested.Prerelease)
    {
        return *this == requested;
    }
    if (*this < requested || Major != requested.Major)
    {
        return false;
    }
    if (Prerelease == requested.Prerelease)
    {
        return true;
    }
    return !strict && hasPrerelease() && !requested.hasPrerelease();
}

std::string Version::toString() const
{
    // Texts of versions are for messages only; three inlined std::to_string and their sums made this the
    // largest function of the file, where the formatting library's one entry costs a call.
    std::string text = fmt::format("{}.{}.{}", Major, Minor, Patch);
    if (hasPrerelease())
    {
        text += "-";
        text += Prerelease;
    }
    return text;
}

size_t Version::Hash::operator()(const Version& version) const noexcept
{
    using internal::combineHash;
    using internal::fnv1a64;
    const auto numberHash = [](uint16_t number)
    {
        const unsigned char bytes[2] = {static_cast<unsigned char>(number & 0xff),
                                        static_cast<unsigned char>(number >> 8)};
        return fnv1a64(std::string_view(reinterpret_cast<const char*>(bytes), 2));
    };
    uint64_t seed = 0;
    seed = combineHash(seed, numberHash(version.Major));
    seed = combineHash(seed, numberHash(version.Minor));
    seed = combineHash(seed, numberHash(version.Patch));
    seed = combineHash(seed, fnv1a64(version.Prerelease));
    return static_cast<size_t>(seed);
}
} // namespace Scripting
