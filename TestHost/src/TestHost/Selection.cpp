#include "TestHost/Selection.h"

#include "TestHost/NameFilter.h"
#include "ZentaryUnitTest/TestDescription.h"

#include <algorithm>
#include <cctype>

namespace Ovelith::TestHost
{
namespace
{
std::string toLower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::vector<std::string> toLower(const std::vector<std::string>& tags)
{
    std::vector<std::string> lowered;
    lowered.reserve(tags.size());
    for (const std::string& tag : tags)
    {
        lowered.push_back(toLower(tag));
    }
    return lowered;
}

// A case holds a tag through its own set or its class's. The two sets are not merged into one TestTags, since
// the framework asserts on a tag present in both.
bool holdsAny(const CoreTestFramework::TestTags& classTags, const CoreTestFramework::TestTags& caseTags,
              const std::vector<std::string>& lowerCaseTags)
{
    return std::any_of(lowerCaseTags.begin(), lowerCaseTags.end(),
                       [&](const std::string& tag) { return classTags.has(tag) || caseTags.has(tag); });
}

bool isSelectedByTags(const CoreTestFramework::TestTags& classTags, const CoreTestFramework::TestTags& caseTags,
                      const std::vector<std::string>& include, bool namedByFilter)
{
    if (include.empty())
    {
        static const std::vector<std::string> PERF = {PERF_SUITE_TAG};
        return namedByFilter || !holdsAny(classTags, caseTags, PERF);
    }
    return std::find(include.begin(), include.end(), ALL_TAG) != include.end() ||
           holdsAny(classTags, caseTags, include);
}
} // namespace

size_t TestPlan::caseCount() const
{
    size_t count = 0;
    for (const PlannedClass& testClass : classes)
    {
        count += testClass.cases.size();
    }
    return count;
}

std::string fullName(const PlannedClass& testClass, const PlannedCase& testCase)
{
    return testClass.name + "." + testCase.name;
}

std::string functionId(const PlannedClass& testClass, const PlannedCase& testCase)
{
    return testClass.name + "." + testCase.function;
}

std::vector<PlannedClass> selectCases(const std::vector<CoreTestFramework::TestClassDescription>& classes,
                                      const Selection& selection, const GeneratedCaseMap& generated)
{
    const std::vector<std::string> include = toLower(selection.includeTags);
    const std::vector<std::string> exclude = toLower(selection.excludeTags);
    const NameFilter filter = selection.filter ? NameFilter(*selection.filter) : NameFilter();

    std::vector<PlannedClass> planned;
    for (const CoreTestFramework::TestClassDescription& description : classes)
    {
        PlannedClass testClass{description.name, description.tags.toVector(), {}};
        const auto select = [&](const CoreTestFramework::TestFunctionDescription& function, bool isGenerated)
        {
            PlannedCase testCase{function.name,
                                 CoreTestFramework::getTestName(function.name),
                                 function.file,
                                 function.line,
                                 function.tags.toVector(),
                                 isGenerated};
            const std::string name = fullName(testClass, testCase);
            if (!isSelectedByTags(description.tags, function.tags, include, filter.names(name)) ||
                holdsAny(description.tags, function.tags, exclude) || !filter.matches(name))
            {
                return;
            }
            testClass.cases.push_back(std::move(testCase));
        };
        const std::vector<CoreTestFramework::TestFunctionDescription>& functions = description.functions;
        if (selection.moduleOrder)
        {
            std::for_each(functions.begin(), functions.end(), [&](const auto& function) { select(function, false); });
        }
        else
        {
            std::for_each(functions.rbegin(), functions.rend(), [&](const auto& function) { select(function, false); });
        }
        if (const auto found = generated.find(description.name); found != generated.end())
        {
            for (const CoreTestFramework::TestFunctionDescription& function : found->second)
            {
                select(function, true);
            }
        }
        if (!testClass.cases.empty())
        {
            planned.push_back(std::move(testClass));
        }
    }
    if (!selection.moduleOrder)
    {
        std::reverse(planned.begin(), planned.end());
    }
    return planned;
}
} // namespace Ovelith::TestHost
