#include "Scripting/BindingType/OptionalHelper.h"
#include "Scripting/BindingType/VariantHelper.h"

#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <optional>
#include <string>
#include <variant>

using namespace Ovelith::CoreTestFramework;
using namespace Scripting;

ZUT_REGISTER_TEST_CLASS(Scripting_BindingTypesTests);
struct Scripting_BindingTypesTestsBase : ZentaryUnitTest::TestClass<Scripting_BindingTypesTests>
{
    using Optional = std::optional<std::string>;
    using Variant = std::variant<int, std::string>;

    // Each case registers for itself: a host need not call a hook, and other suites reset the meta context after
    // their cases. Registering again replaces the same entries.
    static void registerTypes()
    {
        OptionalHelper::registerOptional<std::string>();
        VariantHelper::registerVariant<int, std::string>();
    }

    // A non-const view must reach the held string itself: writing through it changes the container.
    template <typename Container, typename GetValue>
    static void checkWriteThrough(Container& container, GetValue getValue)
    {
        entt::meta_any any = entt::forward_as_meta(container);
        Assert::IsTrue(any.template try_cast<Container>() == &container, true, "the any refers to the container");
        entt::meta_any value = getValue(any);
        std::string* text = value.template try_cast<std::string>();
        Assert::IsTrue(text != nullptr, true, "getValue gives a non-const view of the string");
        *text = "bar";
    }

    // A const view of the container gives a const view of "foo", also through the non-const overload.
    static void checkConstView(entt::meta_any value)
    {
        Assert::IsTrue(static_cast<bool>(value), true, "getValue gives a value");
        Assert::IsTrue(value.template try_cast<std::string>() == nullptr, false, "the view is const");
        const std::string* text = value.template try_cast<const std::string>();
        Assert::IsTrue(text != nullptr, true, "the view holds a string");
        Assert::AreEqual(*text, std::string("foo"));
    }
};

class Scripting_BindingTypesTests final : public Scripting_BindingTypesTestsBase
{
    ZUT_TEST(modifyOptionalAny)
    {
        registerTypes();
        Optional optional = "foo";
        checkWriteThrough(optional, [](entt::meta_any& any) { return OptionalHelper::getValue(any); });
        Assert::AreEqual(*optional, std::string("bar"));
    }

    ZUT_TEST(OptionalBinding_getCRefOptionalAny)
    {
        registerTypes();
        const Optional optional = "foo";
        entt::meta_any any = entt::forward_as_meta(optional);
        checkConstView(OptionalHelper::getValue(any));
        Assert::AreEqual(*optional, std::string("foo"));
    }

    ZUT_TEST(getConstOptionalAny)
    {
        registerTypes();
        Optional optional = "foo";
        const entt::meta_any any = entt::forward_as_meta(optional);
        checkConstView(OptionalHelper::getValue(any));
    }

    ZUT_TEST(VariantBindind_modifyVariantAny)
    {
        registerTypes();
        Variant variant = std::string("foo");
        checkWriteThrough(variant, [](entt::meta_any& any) { return VariantHelper::getValue(any); });
        Assert::AreEqual(variant.index(), size_t{1});
        Assert::AreEqual(std::get<std::string>(variant), std::string("bar"));
    }

    ZUT_TEST(VariantBindind_getCRefVariantAny)
    {
        registerTypes();
        const Variant variant = std::string("foo");
        entt::meta_any any = entt::forward_as_meta(variant);
        checkConstView(VariantHelper::getValue(any));
        Assert::AreEqual(std::get<std::string>(variant), std::string("foo"));
    }

    ZUT_TEST(VariantBindind_getConstVariantAny)
    {
        registerTypes();
        Variant variant = std::string("foo");
        const entt::meta_any any = entt::forward_as_meta(variant);
        checkConstView(VariantHelper::getValue(any));
    }
};
