// The host's name filters against a model: globs matched by a table over every pair of positions, and the
// filter's sides and lists split as GoogleTest users write them.
#include "FuzzSupport.h"

#include "TestHost/NameFilter.h"

#include <string>
#include <vector>

namespace
{
using Ovelith::TestHost::matchesGlob;
using Ovelith::TestHost::NameFilter;

// matches[i][j]: the first i characters of the pattern match the first j of the text.
bool modelGlob(std::string_view pattern, std::string_view text)
{
    std::vector<std::vector<bool>> matches(pattern.size() + 1, std::vector<bool>(text.size() + 1, false));
    matches[0][0] = true;
    for (size_t i = 1; i <= pattern.size(); ++i)
    {
        const char p = pattern[i - 1];
        matches[i][0] = p == '*' && matches[i - 1][0];
        for (size_t j = 1; j <= text.size(); ++j)
        {
            matches[i][j] = p == '*' ? matches[i - 1][j] || matches[i][j - 1]
                                     : (p == '?' || p == text[j - 1]) && matches[i - 1][j - 1];
        }
    }
    return matches[pattern.size()][text.size()];
}

std::vector<std::string_view> patterns(std::string_view list)
{
    std::vector<std::string_view> found;
    size_t start = 0;
    for (size_t i = 0; i <= list.size(); ++i)
    {
        if (i == list.size() || list[i] == ':')
        {
            if (i > start)
            {
                found.push_back(list.substr(start, i - start));
            }
            start = i + 1;
        }
    }
    return found;
}

bool anyMatches(const std::vector<std::string_view>& globs, std::string_view name)
{
    for (const std::string_view glob : globs)
    {
        if (modelGlob(glob, name))
        {
            return true;
        }
    }
    return false;
}

bool modelFilter(std::string_view filter, std::string_view name)
{
    const size_t dash = filter.find('-');
    const std::vector<std::string_view> positive = patterns(filter.substr(0, dash));
    const std::vector<std::string_view> negative =
        dash == std::string_view::npos ? std::vector<std::string_view>{} : patterns(filter.substr(dash + 1));
    return (positive.empty() || anyMatches(positive, name)) && !anyMatches(negative, name);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // The filter, then names, each ended by a NUL byte.
    Fuzz::Input input(data, size);
    const std::string_view filter = input.until('\0');
    std::vector<std::string_view> names;
    while (!input.exhausted() && names.size() < 16)
    {
        names.push_back(input.until('\0'));
    }
    if (names.empty())
    {
        names.push_back(filter);
    }

    const NameFilter nameFilter{filter};
    for (const std::string_view name : names)
    {
        // The table costs the product of the lengths; past that a run proves no more than it costs.
        if (filter.size() * name.size() > 1'000'000)
        {
            continue;
        }
        FUZZ_CHECK(matchesGlob(filter, name) == modelGlob(filter, name));
        FUZZ_CHECK(nameFilter.matches(name) == modelFilter(filter, name));
    }
    return 0;
}
