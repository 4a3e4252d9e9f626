#include "TestHost/Listing.h"

#include "TestHost/ReportText.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <ostream>

namespace Ovelith::TestHost
{
namespace
{
std::string tagList(const std::vector<std::string>& tags)
{
    return fmt::format("[{}]", fmt::join(tags, ", "));
}

std::string jsonList(const std::vector<std::string>& texts)
{
    std::string list = "[";
    for (const std::string& text : texts)
    {
        list += list.size() > 1 ? ", " : "";
        list += jsonString(text);
    }
    return list + "]";
}
} // namespace

void writeListing(const TestPlan& plan, std::ostream& out)
{
    out << fmt::format("{}: {}, {} ({})\n", plan.moduleName, countOf(plan.classes.size(), "class", "classes"),
                       countOf(plan.caseCount(), "case", "cases"), plan.modulePath);
    for (const PlannedClass& testClass : plan.classes)
    {
        out << fmt::format("{}  {}\n", testClass.name, tagList(testClass.tags));
        for (const PlannedCase& testCase : testClass.cases)
        {
            out << fmt::format("    {}  {}  {}:{}\n", fullName(testClass, testCase), tagList(testCase.tags),
                               testCase.file, testCase.line);
        }
    }
    out << std::flush;
}

void writeJsonListing(const TestPlan& plan, std::ostream& out)
{
    out << fmt::format("{{\n  \"module\": {},\n  \"path\": {},\n  \"classes\": [", jsonString(plan.moduleName),
                       jsonString(plan.modulePath));
    for (size_t classIndex = 0; classIndex < plan.classes.size(); ++classIndex)
    {
        const PlannedClass& testClass = plan.classes[classIndex];
        out << fmt::format("{}\n    {{\"name\": {}, \"tags\": {}, \"cases\": [", classIndex == 0 ? "" : ",",
                           jsonString(testClass.name), jsonList(testClass.tags));
        for (size_t caseIndex = 0; caseIndex < testClass.cases.size(); ++caseIndex)
        {
            const PlannedCase& testCase = testClass.cases[caseIndex];
            out << fmt::format("{}\n      {{\"name\": {}, \"fullName\": {}, \"tags\": {}, \"file\": {}, \"line\": {}}}",
                               caseIndex == 0 ? "" : ",", jsonString(testCase.name),
                               jsonString(fullName(testClass, testCase)), jsonList(testCase.tags),
                               jsonString(testCase.file), testCase.line);
        }
        out << "\n    ]}";
    }
    out << "\n  ]\n}\n" << std::flush;
}
} // namespace Ovelith::TestHost
