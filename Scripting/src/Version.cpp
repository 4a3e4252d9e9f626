#include "Scripting/Version.h"

#include "Scripting/internal/Hash.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string_view>

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

// Splits at every '.'; a trailing separator adds no identifier, a leading or doubled one adds an empty one.
// Calls `visit` until it returns false.
template <typename Visit>
void forEachIdentifier(std::string_view tag, Visit&& visit)
{
    size_t start = 0;
    while (start < tag.size())
    {
        const size_t dot = tag.find('.', start);
        const size_t end = dot == std::string_view::npos ? tag.size() : dot;
        if (!visit(tag.substr(start, end - start)))
        {
            return;
        }
        start = end + 1;
    }
}

size_t countIdentifiers(std::string_view tag)
{
    size_t count = 0;
    forEachIdentifier(tag, [&count](std::string_view) { return ++count, true; });
    return count;
}

std::string_view identifierAt(std::string_view tag, size_t index)
{
    std::string_view found;
    forEachIdentifier(tag,
                      [&](std::string_view identifier)
                      {
                          if (index-- == 0)
                          {
                              found = identifier;
                              return false;
                          }
                          return true;
                      });
    return found;
}

bool prereleaseLess(std::string_view a, std::string_view b)
{
    const size_t countA = countIdentifiers(a);
    const size_t countB = countIdentifiers(b);
    const size_t common = countA < countB ? countA : countB;
    for (size_t i = 0; i < common; ++i)
    {
        const std::string_view x = identifierAt(a, i);
        const std::string_view y = identifierAt(b, i);
        if (x == y)
        {
            continue;
        }
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
    return countA < countB;
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
    std::string text = std::to_string(Major) + "." + std::to_string(Minor) + "." + std::to_string(Patch);
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
