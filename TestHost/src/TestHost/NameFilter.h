#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Ovelith::TestHost
{
// True when `pattern` matches the whole of `text`: '*' stands for any run of characters, '?' for exactly one.
bool matchesGlob(std::string_view pattern, std::string_view text);

// A name filter as GoogleTest users write it: "POSITIVE[-NEGATIVE]", each side a ':'-separated list of globs.
// A name passes when it matches some positive pattern and no negative one; a missing positive side means "*".
class NameFilter
{
public:
    // Passes every name.
    NameFilter() = default;
    explicit NameFilter(std::string_view filter);

    bool matches(std::string_view name) const;
    // True when a positive pattern matches `name`: the filter asks for it by name, rather than letting it
    // through because it excludes something else.
    bool names(std::string_view name) const;
    // A filter whose patterns are all empty ("", ":::", "-") asks for nothing, which is never what was meant.
    bool hasPatterns() const { return !mPositive.empty() || !mNegative.empty(); }

private:
    std::vector<std::string> mPositive;
    std::vector<std::string> mNegative;
};
} // namespace Ovelith::TestHost
