#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <entt/core/hashed_string.hpp>
#include <entt/meta/factory.hpp>
#include <entt/meta/meta.hpp>
#include <entt/meta/resolve.hpp>
#include <entt/meta/template.hpp>
#include <gtest/gtest.h>

namespace
{
using namespace entt::literals;

struct A
{
    int a = 1;
};
struct Other
{
    int o = 0;
};
struct B : A
{
    int b = 2;
};
struct C : Other, B
{
    int c = 3;
};
enum class Kind : std::uint16_t
{
    First
};

class EnttMetaType : public ::testing::Test
{
protected:
    entt::meta_ctx ctx;
};

TEST_F(EnttMetaType, AnyTypeResolvesAndComparesByContextAndHash)
{
    const auto type = entt::resolve<A>(ctx);
    ASSERT_TRUE(type);
    EXPECT_EQ(type, entt::resolve<const A&>(ctx));
    EXPECT_EQ(type.info(), entt::type_id<A>());
    EXPECT_EQ(type.id(), entt::type_id<A>().hash());
    EXPECT_EQ(type.size_of(), sizeof(A));
    EXPECT_EQ(type.base().begin(), type.base().end());
    EXPECT_EQ(type.func().begin(), type.func().end());
    EXPECT_FALSE(type.func("anything"_hs));

    entt::meta_ctx other;
    EXPECT_NE(type, entt::resolve<A>(other));
    EXPECT_NE(type, entt::resolve<B>(ctx));

    const entt::meta_type invalid{};
    EXPECT_FALSE(invalid);
    EXPECT_EQ(invalid, entt::resolve(ctx, "unknown"_hs));
    EXPECT_NE(invalid, type);
}

TEST_F(EnttMetaType, PredicatesDescribeTheCppType)
{
    struct Case
    {
        entt::meta_type type;
        bool arithmetic, integral, is_signed, is_enum, is_class, pointer;
    };
    const Case cases[] = {
        {entt::resolve<int>(ctx), true, true, true, false, false, false},
        {entt::resolve<unsigned char>(ctx), true, true, false, false, false, false},
        {entt::resolve<float>(ctx), true, false, true, false, false, false},
        {entt::resolve<bool>(ctx), true, true, false, false, false, false},
        {entt::resolve<Kind>(ctx), false, false, false, true, false, false},
        {entt::resolve<A>(ctx), false, false, false, false, true, false},
        {entt::resolve<A*>(ctx), false, false, false, false, false, true},
    };

    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.type.info().name());
        EXPECT_EQ(c.type.is_arithmetic(), c.arithmetic);
        EXPECT_EQ(c.type.is_integral(), c.integral);
        EXPECT_EQ(c.type.is_signed(), c.is_signed);
        EXPECT_EQ(c.type.is_enum(), c.is_enum);
        EXPECT_EQ(c.type.is_class(), c.is_class);
        EXPECT_EQ(c.type.is_pointer(), c.pointer);
        EXPECT_FALSE(c.type.is_array());
    }

    EXPECT_EQ(entt::resolve<A*>(ctx).remove_pointer(), entt::resolve<A>(ctx));
    EXPECT_EQ(entt::resolve<A>(ctx).remove_pointer(), entt::resolve<A>(ctx));
}

TEST_F(EnttMetaType, BasesAreListedInRegistrationOrderAndFoundIndirectly)
{
    entt::meta<B>(ctx).base<A>();
    entt::meta<C>(ctx).base<Other>().base<B>();

    std::vector<entt::meta_type> bases;
    for (auto&& [id, base] : entt::resolve<C>(ctx).base())
    {
        bases.push_back(base);
    }
    ASSERT_EQ(bases.size(), 2u);
    EXPECT_EQ(bases[0], entt::resolve<Other>(ctx));
    EXPECT_EQ(bases[1], entt::resolve<B>(ctx));

    const auto c = entt::resolve<C>(ctx);
    EXPECT_TRUE(c.can_cast(entt::resolve<A>(ctx)));
    EXPECT_TRUE(c.can_cast(c));
    EXPECT_FALSE(entt::resolve<A>(ctx).can_cast(c));
    EXPECT_TRUE(c.can_convert(entt::resolve<A>(ctx)));
    EXPECT_FALSE(c.can_convert(entt::resolve<int>(ctx)));
    EXPECT_TRUE(entt::resolve<int>(ctx).can_convert(entt::resolve<Kind>(ctx)));

    // Registering a base again replaces it instead of listing it twice.
    entt::meta<B>(ctx).base<A>();
    std::size_t count = 0;
    for ([[maybe_unused]] auto&& elem : entt::resolve<B>(ctx).base())
    {
        ++count;
    }
    EXPECT_EQ(count, 1u);
}

template <typename...>
struct Box
{
};

struct Plain
{
};

TEST_F(EnttMetaType, TemplateTraitsDescribeNestedSpecializations)
{
    using Inner = std::optional<Plain>;
    using Middle = std::vector<Inner>;
    using Outer = std::optional<Middle>;
    const auto optionalTag = entt::resolve<entt::meta_class_template_tag<std::optional>>(ctx);
    const auto vectorTag = entt::resolve<entt::meta_class_template_tag<std::vector>>(ctx);

    const auto outer = entt::resolve<Outer>(ctx);
    ASSERT_TRUE(outer.is_template_specialization());
    EXPECT_EQ(outer.template_arity(), 1u);
    EXPECT_EQ(outer.template_type(), optionalTag);

    const auto middle = outer.template_arg(0u);
    EXPECT_EQ(middle, entt::resolve<Middle>(ctx));
    EXPECT_EQ(middle.template_type(), vectorTag);
    EXPECT_EQ(middle.template_arity(), 2u) << "the allocator is an argument too";

    const auto inner = middle.template_arg(0u);
    EXPECT_EQ(inner.template_type(), optionalTag);
    EXPECT_EQ(inner.template_arg(0u), entt::resolve<Plain>(ctx));
    EXPECT_FALSE(inner.template_arg(1u));

    const auto variant = entt::resolve<std::variant<int, std::string>>(ctx);
    EXPECT_EQ(variant.template_type(), entt::resolve<entt::meta_class_template_tag<std::variant>>(ctx));
    EXPECT_EQ(variant.template_arg(1u), entt::resolve<std::string>(ctx));
    EXPECT_NE(variant.template_type(), optionalTag);

    const auto box = entt::resolve<Box<int, Plain>>(ctx);
    EXPECT_EQ(box.template_type(), entt::resolve<entt::meta_class_template_tag<Box>>(ctx));
    EXPECT_EQ(box.template_arg(1u), entt::resolve<Plain>(ctx));

    for (const auto& type : {entt::resolve<Plain>(ctx), entt::resolve<int>(ctx), entt::meta_type{}})
    {
        EXPECT_FALSE(type.is_template_specialization());
        EXPECT_EQ(type.template_arity(), 0u);
        EXPECT_FALSE(type.template_type());
    }
}

struct Shape
{
    Shape() = default;
    Shape(int k, double s) : kind{k}, size{s} {}
    Shape(double s, int k) : kind{k + 10}, size{s} {}

    int kind = 0;
    double size = 0.0;
};

Shape makeSquare(int side)
{
    return Shape{4, static_cast<double>(side)};
}

TEST_F(EnttMetaType, ConstructPicksTheBestMatchingConstructor)
{
    entt::meta<Shape>(ctx).ctor<int, double>().ctor<double, int>().ctor<&makeSquare>();

    // Exact types beat conversions.
    auto exact = entt::resolve<Shape>(ctx).construct(1, 2.5);
    ASSERT_TRUE(exact);
    EXPECT_EQ(exact.cast<const Shape&>().kind, 1);
    EXPECT_EQ(exact.cast<const Shape&>().size, 2.5);

    auto square = entt::resolve<Shape>(ctx).construct(3);
    ASSERT_TRUE(square);
    EXPECT_EQ(square.cast<const Shape&>().kind, 4);

    // (int, int) fits both two-argument constructors equally well.
    EXPECT_FALSE(entt::resolve<Shape>(ctx).construct(1, 2));
    EXPECT_FALSE(entt::resolve<Shape>(ctx).construct(std::string{"no"}));

    // With no arguments the implicit default constructor is used.
    auto fallback = entt::resolve<Shape>(ctx).construct();
    ASSERT_TRUE(fallback);
    EXPECT_EQ(fallback.cast<const Shape&>().kind, 0);
}

struct Holder
{
    std::optional<int> value;
    int calls = 0;
};

entt::meta_any viewMutable(Holder& holder)
{
    ++holder.calls;
    return holder.value ? entt::forward_as_meta(*holder.value) : entt::meta_any{};
}

entt::meta_any viewConst(const Holder& holder)
{
    return holder.value ? entt::forward_as_meta(*holder.value) : entt::meta_any{};
}

TEST_F(EnttMetaType, OverloadsOnOneIdAreChosenByConstness)
{
    entt::meta_ctx reversed;
    entt::meta<Holder>(ctx).func<&viewMutable>("view"_hs).func<&viewConst>("view"_hs);
    entt::meta<Holder>(reversed).func<&viewConst>("view"_hs).func<&viewMutable>("view"_hs);

    for (auto* context : {&ctx, &reversed})
    {
        Holder holder{5};
        const auto type = entt::resolve<Holder>(*context);
        entt::meta_any instance = entt::forward_as_meta(*context, holder);

        // The non-const overload for a non-const instance: a writable view.
        auto writable = type.invoke("view"_hs, instance);
        ASSERT_TRUE(writable);
        ASSERT_NE(writable.data(), nullptr);
        writable.cast<int&>() = 6;
        EXPECT_EQ(*holder.value, 6);
        EXPECT_EQ(holder.calls, 1);

        // The const overload for a const one: a read-only view of the same value.
        const entt::meta_any& constInstance = instance;
        auto readable = type.invoke("view"_hs, constInstance);
        ASSERT_TRUE(readable);
        EXPECT_EQ(readable.data(), nullptr);
        EXPECT_EQ(std::as_const(readable).data(), &*holder.value);
        EXPECT_EQ(holder.calls, 1);

        holder.value.reset();
        EXPECT_FALSE(type.invoke("view"_hs, instance)) << "an empty optional gives an empty any";
    }

    std::size_t overloads = 0;
    for (auto func = entt::resolve<Holder>(ctx).func("view"_hs); func; func = func.next())
    {
        ++overloads;
        EXPECT_FALSE(func.is_static());
        EXPECT_EQ(func.arity(), 0u);
        EXPECT_EQ(func.ret(), entt::resolve<entt::meta_any>(ctx));
    }
    EXPECT_EQ(overloads, 2u);

    // The same function again replaces its entry.
    entt::meta<Holder>(ctx).func<&viewConst>("view"_hs);
    overloads = 0;
    for (auto func = entt::resolve<Holder>(ctx).func("view"_hs); func; func = func.next())
    {
        ++overloads;
    }
    EXPECT_EQ(overloads, 2u);
}

struct Account
{
    double balance = 0.0;
    int deposits = 0;
    double deposit(double amount)
    {
        ++deposits;
        return balance += amount;
    }
    [[nodiscard]] double read() const { return balance; }
};

struct Savings : Account
{
};

int twice(int value)
{
    return value * 2;
}

void nothing(Account&) {}

TEST_F(EnttMetaType, InvokeConvertsArgumentsAndSearchesBases)
{
    entt::meta<Account>(ctx)
        .func<&Account::deposit>("deposit"_hs)
        .func<&Account::read>("read"_hs)
        .func<&twice>("twice"_hs)
        .func<&nothing>("nothing"_hs);
    entt::meta<Savings>(ctx).base<Account>();

    Savings savings;
    entt::meta_any instance = entt::forward_as_meta(ctx, savings);
    const auto type = entt::resolve<Savings>(ctx);

    auto result = type.invoke("deposit"_hs, instance, 2);
    ASSERT_TRUE(result) << "the function of the base is found, and the int becomes a double";
    EXPECT_EQ(result.cast<double>(), 2.0);
    EXPECT_EQ(savings.balance, 2.0);

    EXPECT_FALSE(type.invoke("deposit"_hs, instance, std::string{"2"}));
    EXPECT_FALSE(type.invoke("deposit"_hs, instance));
    EXPECT_FALSE(type.invoke("deposit"_hs, instance, 1.0, 2.0));
    EXPECT_EQ(savings.deposits, 1) << "nothing runs unless the arguments fit";

    const entt::meta_any& constInstance = instance;
    EXPECT_EQ(type.invoke("read"_hs, constInstance).cast<double>(), 2.0);

    auto unit = type.invoke("nothing"_hs, instance);
    ASSERT_TRUE(unit);
    EXPECT_EQ(unit.type(), entt::resolve<void>(ctx));

    const auto account = entt::resolve<Account>(ctx);
    EXPECT_EQ(account.invoke("twice"_hs, {}, 21).cast<int>(), 42);
    EXPECT_TRUE(account.func("twice"_hs).is_static());
    EXPECT_TRUE(account.func("read"_hs).is_const());
    EXPECT_EQ(account.func("deposit"_hs).arg(0u), entt::resolve<double>(ctx));
    EXPECT_EQ(account.func("deposit"_hs).ret(), entt::resolve<double>(ctx));

    entt::meta_any wrong{ctx, 3};
    EXPECT_FALSE(account.invoke("deposit"_hs, wrong, 1.0)) << "an instance of another type is refused";
}

int addTo(const int& value, int other)
{
    return value + other;
}

void increment(int& value)
{
    ++value;
}

// Not only a class: a free function whose first parameter is the type itself is a member of it.
TEST_F(EnttMetaType, FreeFunctionOfItsOwnTypeIsAMember)
{
    entt::meta<int>(ctx).func<&twice>("twice"_hs).func<&addTo>("addTo"_hs).func<&increment>("increment"_hs);
    const auto type = entt::resolve<int>(ctx);

    const auto byValue = type.func("twice"_hs);
    EXPECT_FALSE(byValue.is_static());
    EXPECT_FALSE(byValue.is_const());
    EXPECT_EQ(byValue.arity(), 0u);
    const auto byConstRef = type.func("addTo"_hs);
    EXPECT_FALSE(byConstRef.is_static());
    EXPECT_TRUE(byConstRef.is_const());
    EXPECT_EQ(byConstRef.arity(), 1u);
    EXPECT_EQ(byConstRef.arg(0u), entt::resolve<int>(ctx));

    int value = 21;
    entt::meta_any instance = entt::forward_as_meta(ctx, value);
    EXPECT_EQ(type.invoke("twice"_hs, instance).cast<int>(), 42);
    EXPECT_EQ(type.invoke("addTo"_hs, instance, 1).cast<int>(), 22);
    EXPECT_FALSE(type.invoke("twice"_hs, instance, 21)) << "the object is not an argument";
    ASSERT_TRUE(type.invoke("increment"_hs, instance));
    EXPECT_EQ(value, 22);

    const entt::meta_any& constInstance = instance;
    EXPECT_FALSE(type.invoke("increment"_hs, constInstance)) << "a const object only sees const functions";
    EXPECT_EQ(value, 22);
}

TEST_F(EnttMetaType, IdentifiersResetAndContextsAreSeparate)
{
    entt::meta<B>(ctx).type("b"_hs).base<A>().func<&viewConst>("unused"_hs);
    ASSERT_EQ(entt::resolve(ctx, "b"_hs), entt::resolve<B>(ctx));
    EXPECT_EQ(entt::resolve<B>(ctx).id(), "b"_hs.value());
    EXPECT_EQ(entt::resolve(ctx, entt::type_id<B>()), entt::resolve<B>(ctx));
    EXPECT_FALSE(entt::resolve(ctx, entt::type_id<Plain>())) << "only registered types are found by type info";

    entt::meta_ctx other;
    EXPECT_FALSE(entt::resolve(other, "b"_hs));
    EXPECT_EQ(entt::resolve<B>(other).base().begin(), entt::resolve<B>(other).base().end());

    entt::meta<A>(ctx).type("a"_hs);
    entt::meta_reset<B>(ctx);
    EXPECT_FALSE(entt::resolve(ctx, "b"_hs));
    EXPECT_EQ(entt::resolve<B>(ctx).base().begin(), entt::resolve<B>(ctx).base().end());
    EXPECT_FALSE(entt::resolve<B>(ctx).func("unused"_hs));
    EXPECT_EQ(entt::resolve(ctx, "a"_hs), entt::resolve<A>(ctx));

    entt::meta_reset(ctx, "a"_hs);
    EXPECT_FALSE(entt::resolve(ctx, "a"_hs));

    entt::meta<B>(ctx).type("b"_hs);
    entt::meta_reset(ctx);
    EXPECT_EQ(entt::resolve(ctx).begin(), entt::resolve(ctx).end());
    EXPECT_TRUE(entt::resolve<B>(ctx)) << "types stay resolvable after a reset";
}
} // namespace
