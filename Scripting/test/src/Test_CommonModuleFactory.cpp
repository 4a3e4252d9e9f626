#include "Scripting/BindingFactory/CommonModuleFactory.h"

#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <fmt/format.h>

#include <optional>
#include <string>
#include <vector>

using namespace Ovelith::CoreTestFramework;
using namespace Scripting;

ZUT_REGISTER_TEST_CLASS(Scripting_CommonModuleFactoryTests);
struct Scripting_CommonModuleFactoryTestsBase : ZentaryUnitTest::TestClass<Scripting_CommonModuleFactoryTests>
{
    static const ClassBinding* findClass(const ModuleBinding& binding, const std::string& name)
    {
        for (const ClassBinding& classBinding : binding.classBindings)
        {
            if (classBinding.name == name)
            {
                return &classBinding;
            }
        }
        return nullptr;
    }
};

class Scripting_CommonModuleFactoryTests final : public Scripting_CommonModuleFactoryTestsBase
{
    ZUT_TEST(HasReleaseVersions)
    {
        const CommonModuleFactory factory;
        std::vector<std::string> versions;
        for (const Version& version : factory.getSupportedVersions())
        {
            versions.push_back(version.toString());
        }
        Assert::IsTrue(versions == std::vector<std::string>{"1.0.0", "1.1.0", "1.2.0"}, false, "Versions: {}",
                       fmt::format("{}", fmt::join(versions, ", ")));
        Assert::AreEqual(factory.getName(), std::string("@zentary/common"));
        Assert::AreEqual(factory.getUUID().asString(), std::string("77ec12b4-1b2b-4c98-8d34-d1cd63f849d5"));
    }

    ZUT_TEST(HasNoNumberRangeBindingInV100)
    {
        CommonModuleFactory factory;
        const std::optional<ModuleBinding> binding = factory.createModuleBinding(Version(1, 0, 0), std::nullopt);
        Assert::IsTrue(binding.has_value(), true);
        Assert::IsTrue(findClass(*binding, "NumberRange") == nullptr, false, "NumberRange is in 1.0.0");
        Assert::AreEqual(binding->errorBindings.size(), size_t{2}, false, "Errors of 1.0.0");
    }

    ZUT_TEST(HasNumberRangeBindingInV110)
    {
        CommonModuleFactory factory;
        const std::optional<ModuleBinding> binding = factory.createModuleBinding(Version(1, 1, 0), std::nullopt);
        Assert::IsTrue(binding.has_value(), true);
        const ClassBinding* numberRange = findClass(*binding, "NumberRange");
        Assert::IsTrue(numberRange != nullptr, true, "NumberRange is missing from 1.1.0");
        Assert::AreEqual(numberRange->properties.size(), size_t{2}, true);
        Assert::AreEqual(numberRange->properties[0].name, std::string("min"));
        Assert::AreEqual(numberRange->properties[1].name, std::string("max"));
    }
};
