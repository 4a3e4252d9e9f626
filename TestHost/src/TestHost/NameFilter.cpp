#include "TestHost/NameFilter.h"

#include <algorithm>

namespace Ovelith::TestHost
{
namespace
{
std::vector<std::string> splitPatterns(std::string_view list)
{
    std::vector<std::string> patterns;
    while (!list.empty())
    {
        const size_t end = std::min(list.find(':'), list.size());
        // "a::b" or a trailing ':' are slips, not requests for names that are empty.
        if (end > 0)
        {
            patterns.emplace_back(list.substr(0, end));
        }
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return patterns;
}

bool matchesAny(const std::vector<std::string>& patterns, std::string_view name)
{
    return std::any_of(patterns.begin(), patterns.end(),
                       [&](const std::string& pattern) { return matchesGlob(pattern, name); });
}
} // namespace

bool matchesGlob(std::string_view pattern, std::string_view text)
{
    // Greedy matching that, on a mismatch, lets the most recent '*' swallow one more character. Earlier stars
    // never need revisiting, so this stays linear in practice and cannot recurse deeply on hostile patterns.
    size_t p = 0;
    size_t t = 0;
    size_t starPattern = std::string_view::npos;
    size_t starText = 0;
    while (t < text.size())
    {
        if (p < pattern.size() && pattern[p] == '*')
        {
            starPattern = p++;
            starText = t;
        }
        else if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == text[t]))
        {
            ++p;
            ++t;
        }
        else if (starPattern != std::string_view::npos)
        {
            p = starPattern + 1;
            t = ++starText;
        }
        else
        {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*')
    {
        ++p;
    }
    return p == pattern.size();
}

NameFilter::NameFilter(std::string_view filter)
{
    const size_t dash = filter.find('-');
    mPositive = splitPatterns(filter.substr(0, dash));
    if (dash != std::string_view::npos)
    {
        mNegative = splitPatterns(filter.substr(dash + 1));
    }
}

bool NameFilter::matches(std::string_view name) const
{
    const bool positive = mPositive.empty() || matchesAny(mPositive, name);
    return positive && !matchesAny(mNegative, name);
}

bool NameFilter::names(std::string_view name) const
{
    return matchesAny(mPositive, name);
}
} // namespace Ovelith::TestHost
