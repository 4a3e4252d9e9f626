// Version order and satisfies against a model that splits tags into lists, as the rule is worded; the order's
// own laws on every triple; and the printed form read back.
#include "FuzzSupport.h"

#include "Scripting/Version.h"

#include <cctype>
#include <charconv>
#include <cstdlib>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace
{
using Scripting::Version;

std::vector<std::string_view> identifiers(std::string_view tag)
{
    std::vector<std::string_view> parts;
    size_t start = 0;
    for (size_t i = 0; i <= tag.size(); ++i)
    {
        if (i == tag.size() || tag[i] == '.')
        {
            parts.push_back(tag.substr(start, i - start));
            start = i + 1;
        }
    }
    // The piece after a final separator is no identifier, and an empty tag has none at all.
    if (tag.empty() || tag.back() == '.')
    {
        parts.pop_back();
    }
    return parts;
}

bool numeric(std::string_view identifier)
{
    for (const char c : identifier)
    {
        if (!std::isdigit(static_cast<unsigned char>(c)))
        {
            return false;
        }
    }
    return true;
}

bool modelIdentifierLess(std::string_view x, std::string_view y)
{
    if (numeric(x) && numeric(y))
    {
        return std::atoi(std::string(x).c_str()) < std::atoi(std::string(y).c_str());
    }
    if (numeric(x) != numeric(y))
    {
        return numeric(x);
    }
    return x < y;
}

bool modelLess(const Version& a, const Version& b)
{
    if (a.Major != b.Major || a.Minor != b.Minor || a.Patch != b.Patch)
    {
        return std::tie(a.Major, a.Minor, a.Patch) < std::tie(b.Major, b.Minor, b.Patch);
    }
    if (a.Prerelease.empty() != b.Prerelease.empty())
    {
        return !a.Prerelease.empty();
    }
    const std::vector<std::string_view> x = identifiers(a.Prerelease);
    const std::vector<std::string_view> y = identifiers(b.Prerelease);
    for (size_t i = 0; i < x.size() && i < y.size(); ++i)
    {
        if (x[i] != y[i])
        {
            return modelIdentifierLess(x[i], y[i]);
        }
    }
    return x.size() < y.size();
}

bool modelEqual(const Version& a, const Version& b)
{
    return std::tie(a.Major, a.Minor, a.Patch, a.Prerelease) == std::tie(b.Major, b.Minor, b.Patch, b.Prerelease);
}

bool modelSatisfies(const Version& candidate, const Version& requested, bool strict)
{
    if (candidate.Major == 0 || (!candidate.Prerelease.empty() && candidate.Prerelease == requested.Prerelease))
    {
        return modelEqual(candidate, requested);
    }
    if (modelLess(candidate, requested) || candidate.Major != requested.Major)
    {
        return false;
    }
    if (candidate.Prerelease == requested.Prerelease)
    {
        return true;
    }
    return !strict && !candidate.Prerelease.empty() && requested.Prerelease.empty();
}

// Tags that spell their identifiers one way only: no final separator ("a." and "a" hold the same list), and
// numeric identifiers without a leading zero, not empty and within 32 bits ("01", "1" and "4294967297" are
// one number to atoi). Among such tags the order is total; elsewhere it is only a strict partial order.
bool canonical(std::string_view tag)
{
    if (!tag.empty() && tag.back() == '.')
    {
        return false;
    }
    for (const std::string_view identifier : identifiers(tag))
    {
        if (numeric(identifier) &&
            (identifier.empty() || identifier.size() > 9 || (identifier.size() > 1 && identifier.front() == '0')))
        {
            return false;
        }
    }
    return true;
}

std::optional<Version> parse(std::string_view text)
{
    uint16_t numbers[3] = {};
    for (int i = 0; i < 3; ++i)
    {
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), numbers[i]);
        if (error != std::errc() || (i < 2 && (end == text.data() + text.size() || *end != '.')))
        {
            return std::nullopt;
        }
        text.remove_prefix(static_cast<size_t>(end - text.data()) + (i < 2 ? 1 : 0));
    }
    if (text.empty())
    {
        return Version(numbers[0], numbers[1], numbers[2]);
    }
    // An empty tag prints no '-', so a '-' with nothing after it is no form toString gives.
    if (text.front() != '-' || text.size() == 1)
    {
        return std::nullopt;
    }
    return Version(numbers[0], numbers[1], numbers[2], std::string(text.substr(1)));
}

// Small numbers mostly, so that versions tie on them and the tags decide; now and then any 16-bit number.
uint16_t readNumber(Fuzz::Input& input)
{
    const uint8_t choice = input.byte();
    return choice < 0xF0 ? static_cast<uint16_t>(choice % 3) : input.u16();
}

// A prefix of the previous tag and bytes of its own: tags that share long prefixes reach deep identifiers.
Version readVersion(Fuzz::Input& input, const std::string& previousTag)
{
    const uint16_t major = readNumber(input);
    const uint16_t minor = readNumber(input);
    const uint16_t patch = readNumber(input);
    const size_t kept = input.u16() % (previousTag.size() + 1);
    std::string tag = previousTag.substr(0, kept);
    tag += input.take(input.byte());
    return Version(major, minor, patch, std::move(tag));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Fuzz::Input input(data, size);
    std::vector<Version> versions;
    std::string previousTag;
    for (int i = 0; i < 3; ++i)
    {
        versions.push_back(readVersion(input, previousTag));
        previousTag = versions.back().Prerelease;
    }

    for (const Version& a : versions)
    {
        FUZZ_CHECK(!(a < a));
        FUZZ_CHECK(a.satisfies(a, true) && a.satisfies(a, false));
        const std::optional<Version> printed = parse(a.toString());
        FUZZ_CHECK(printed && *printed == a);
        FUZZ_CHECK(Version::Hash{}(*printed) == Version::Hash{}(a));
        for (const Version& b : versions)
        {
            const bool less = a < b;
            FUZZ_CHECK(less == modelLess(a, b));
            FUZZ_CHECK(!(less && b < a));
            FUZZ_CHECK((a == b) == modelEqual(a, b));
            FUZZ_CHECK(a.satisfies(b, false) == modelSatisfies(a, b, false));
            FUZZ_CHECK(a.satisfies(b, true) == modelSatisfies(a, b, true));
            // A strict match is a match.
            FUZZ_CHECK(!a.satisfies(b, true) || a.satisfies(b, false));
            if (canonical(a.Prerelease) && canonical(b.Prerelease))
            {
                FUZZ_CHECK(less + (b < a) + (a == b) == 1);
            }
            for (const Version& c : versions)
            {
                FUZZ_CHECK(!(less && b < c) || a < c);
            }
        }
    }
    return 0;
}
