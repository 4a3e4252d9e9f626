#include "Scripting/BindingType/OptionalHelper.h"

#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <entt/meta/factory.hpp>

#include <optional>
#include <vector>

using namespace Ovelith::CoreTestFramework;
using namespace Scripting;

namespace
{
template <typename T>
struct Holder
{
    T value;
};

// Builds an optional through its meta constructor, as a runtime would, and reads the LocalClass back.
template <typename LocalClass>
void checkConstructAndRead(int stored)
{
    const entt::meta_type type = Reflection::resolve<std::optional<LocalClass>>();
    entt::meta_any any = type.construct(LocalClass{stored});
    Assert::IsTrue(static_cast<bool>(any), true, "the optional's constructor from its value is registered");
    Assert::IsTrue(OptionalHelper::isOptionalAny(any.type()), false, "an optional is recognised");
    const entt::meta_any value = OptionalHelper::getValue(any);
    Assert::IsTrue(value.type() == Reflection::resolve<LocalClass>(), true, "getValue gives the held type");
    Assert::AreEqual(value.template cast<const LocalClass&>().value, stored);
}
} // namespace

ZUT_REGISTER_TEST_CLASS(Scripting_OptionalHelperTests);
struct Scripting_OptionalHelperTestsBase : ZentaryUnitTest::TestClass<Scripting_OptionalHelperTests>
{
    // Cases reuse the names of local types, which clang's type names do not tell apart, so each case starts from
    // an empty meta context: a host need not call onAfterTest, and an earlier suite may have registered anything.
    static void startFromEmptyContext() { entt::meta_reset(Reflection::context()); }
    void onAfterTest() override { entt::meta_reset(Reflection::context()); }
};

class Scripting_OptionalHelperTests final : public Scripting_OptionalHelperTestsBase
{
    ZUT_TEST(RegisterOptional_UseOptionalType_WorksAsExpected)
    {
        startFromEmptyContext();
        struct LocalClass
        {
            int value = 0;
        };
        OptionalHelper::registerOptional<LocalClass>();
        checkConstructAndRead<LocalClass>(42);
        Assert::IsFalse(OptionalHelper::isOptionalAny(Reflection::resolve<int>()));
        Assert::IsFalse(OptionalHelper::isOptionalAny(entt::meta_type{}));
        Assert::IsFalse(OptionalHelper::isOptionalAny(Reflection::resolve<Holder<LocalClass>>()), false,
                        "another template is no optional");

        entt::meta_any empty = std::optional<LocalClass>{};
        Assert::IsFalse(static_cast<bool>(OptionalHelper::getValue(empty)), false,
                        "a disengaged optional gives an empty any");
    }

    ZUT_TEST(RegisterOptional_UseOptionalTypeAsTemplateArgument_WorksAsExpected)
    {
        startFromEmptyContext();
        struct LocalClass
        {
            int value = 0;
        };
        // The optional reaches the registration as a template argument of another template.
        []<typename Optional>(Holder<Optional>*)
        {
            OptionalHelper::registerOptional<typename Optional::value_type>();
            Assert::IsTrue(OptionalHelper::isOptionalAny(Reflection::resolve<Optional>()));
        }(static_cast<Holder<std::optional<LocalClass>>*>(nullptr));
        checkConstructAndRead<LocalClass>(7);
    }

    ZUT_TEST(RegisterOptional_UseNestedOptional_WorksAsExpected)
    {
        startFromEmptyContext();
        struct LocalClass
        {
            int value = 0;
        };
        using Inner = std::optional<LocalClass>;
        using Vector = std::vector<Inner>;
        using Outer = std::optional<Vector>;
        OptionalHelper::registerOptional<LocalClass>();
        OptionalHelper::registerOptional<Vector>();

        entt::meta_any outer = Outer{Vector{Inner{LocalClass{5}}}};
        Assert::IsTrue(OptionalHelper::isOptionalAny(outer.type()));
        entt::meta_any vector = OptionalHelper::getValue(outer);
        Assert::IsTrue(vector.type() == Reflection::resolve<Vector>(), true, "one level is peeled");
        Assert::IsFalse(OptionalHelper::isOptionalAny(vector.type()));

        Vector& items = vector.cast<Vector&>();
        Assert::AreEqual(items.size(), size_t{1}, true);
        Assert::IsTrue(&items == &*outer.cast<Outer&>(), false, "the vector is a view, not a copy");
        entt::meta_any inner = entt::forward_as_meta(items.front());
        entt::meta_any value = OptionalHelper::getValue(inner);
        Assert::IsTrue(value.type() == Reflection::resolve<LocalClass>(), true);
        Assert::AreEqual(value.cast<LocalClass&>().value, 5);
    }

    ZUT_TEST(RegisterOptional_UseContainerOfOptionalType_WorksAsExpected)
    {
        startFromEmptyContext();
        struct LocalClass
        {
            int value = 0;
        };
        OptionalHelper::registerOptional<LocalClass>();
        OptionalHelper::registerOptional<LocalClass>();
        checkConstructAndRead<LocalClass>(3);

        Assert::CheckDebugAsserts(
            []
            {
                entt::meta_any notOptional = 3;
                Assert::IsFalse(static_cast<bool>(OptionalHelper::getValue(notOptional)));
            },
            "Expected optional");
    }
};
