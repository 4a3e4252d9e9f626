#include <array>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>

#include <entt/core/hashed_string.hpp>
#include <entt/meta/factory.hpp>
#include <entt/meta/meta.hpp>
#include <entt/meta/resolve.hpp>
#include <entt/meta/template.hpp>
#include <gtest/gtest.h>

namespace
{
using namespace entt::literals;

// Counts live instances so that owning, referring and copying can be told apart.
struct Tracked
{
    static inline int alive = 0;
    static inline int copies = 0;

    explicit Tracked(int v = 0) : value{v} { ++alive; }
    Tracked(const Tracked& other) : value{other.value}
    {
        ++alive;
        ++copies;
    }
    Tracked(Tracked&& other) noexcept : value{other.value} { ++alive; }
    Tracked& operator=(const Tracked&) = default;
    Tracked& operator=(Tracked&&) = default;
    ~Tracked() { --alive; }

    bool operator==(const Tracked& other) const { return value == other.value; }

    int value;
};

// Too large for the small buffer: lives on the heap when owned.
struct BigTracked : Tracked
{
    using Tracked::Tracked;
    std::array<double, 8> padding{};
};

class EnttMetaAny : public ::testing::Test
{
protected:
    void SetUp() override
    {
        Tracked::alive = 0;
        Tracked::copies = 0;
    }

    entt::meta_ctx ctx;
};

template <typename Type>
void expectOwningCopiesAreIndependent(entt::meta_ctx& ctx)
{
    {
        entt::meta_any original{ctx, Type{1}};
        ASSERT_TRUE(original);
        EXPECT_EQ(Tracked::alive, 1);

        entt::meta_any copy = original;
        EXPECT_EQ(Tracked::alive, 2);
        EXPECT_NE(copy.data(), original.data());
        copy.cast<Type&>().value = 2;
        EXPECT_EQ(original.cast<const Type&>().value, 1);

        // The value lives on in the target. A moved-from any is good for reset, assignment and destruction only:
        // what it still answers is not promised, but whatever it kept must end with it, exactly once.
        entt::meta_any moved = std::move(copy);
        EXPECT_EQ(moved.cast<const Type&>().value, 2);
        copy.reset();
        EXPECT_FALSE(copy);
        EXPECT_EQ(Tracked::alive, 2);

        entt::meta_any again = std::move(moved);
        moved = std::move(again);
        EXPECT_EQ(moved.cast<const Type&>().value, 2);
        again = entt::meta_any{ctx, Type{3}};
        EXPECT_EQ(again.cast<const Type&>().value, 3);
        EXPECT_EQ(Tracked::alive, 3);
        again.reset();
        EXPECT_EQ(Tracked::alive, 2);

        moved.reset();
        EXPECT_FALSE(moved);
        EXPECT_EQ(Tracked::alive, 1);
    }
    EXPECT_EQ(Tracked::alive, 0);
}

TEST_F(EnttMetaAny, OwningAnyOwnsItsValueInlineAndOnTheHeap)
{
    expectOwningCopiesAreIndependent<Tracked>(ctx);
    expectOwningCopiesAreIndependent<BigTracked>(ctx);
}

TEST_F(EnttMetaAny, NoexceptAsUpstream)
{
    struct Case
    {
        const char* what;
        bool isNoexcept;
    };
    const Case cases[] = {
        {"meta_any()", std::is_nothrow_default_constructible_v<entt::meta_any>},
        {"meta_any(meta_ctx_arg_t, const meta_ctx&)",
         std::is_nothrow_constructible_v<entt::meta_any, entt::meta_ctx_arg_t, const entt::meta_ctx&>},
        {"meta_any(meta_any&&)", std::is_nothrow_move_constructible_v<entt::meta_any>},
        {"operator=(meta_any&&)", std::is_nothrow_move_assignable_v<entt::meta_any>},
        {"meta_handle(meta_any&)", std::is_nothrow_constructible_v<entt::meta_handle, entt::meta_any&>},
        {"meta_handle(const meta_any&)", std::is_nothrow_constructible_v<entt::meta_handle, const entt::meta_any&>},
        {"meta_handle(Type&)", std::is_nothrow_constructible_v<entt::meta_handle, Tracked&>},
        {"meta_handle(const meta_ctx&, Type&)",
         std::is_nothrow_constructible_v<entt::meta_handle, const entt::meta_ctx&, Tracked&>},
        {"meta_handle(meta_handle&&)", std::is_nothrow_move_constructible_v<entt::meta_handle>},
    };
    for (const Case& row : cases)
    {
        EXPECT_TRUE(row.isNoexcept) << row.what;
    }
    // Building a value may throw whatever the value's constructor throws.
    EXPECT_FALSE((std::is_nothrow_constructible_v<entt::meta_any, const entt::meta_ctx&, std::string>));
}

TEST_F(EnttMetaAny, PolicyTellsOwnersFromReferences)
{
    Tracked object{1};
    const entt::meta_any value{ctx, Tracked{2}};
    const entt::meta_any ref = entt::forward_as_meta(ctx, object);
    const entt::meta_any cref = entt::forward_as_meta(ctx, std::as_const(object));

    EXPECT_EQ(value.policy(), entt::meta_any_policy::owner);
    EXPECT_EQ(ref.policy(), entt::meta_any_policy::ref);
    EXPECT_EQ(cref.policy(), entt::meta_any_policy::cref);
    EXPECT_EQ(entt::meta_any(ref).policy(), entt::meta_any_policy::owner) << "a copy owns its value";
    EXPECT_EQ(std::as_const(value).as_ref().policy(), entt::meta_any_policy::cref);
    EXPECT_EQ(entt::meta_any(entt::meta_ctx_arg, ctx).policy(), entt::meta_any_policy::owner);
    EXPECT_EQ(entt::meta_any(ctx, std::in_place_type<void>).policy(), entt::meta_any_policy::owner);
}

TEST_F(EnttMetaAny, ReferenceSeesWritesAndCopyOfReferenceOwnsACopy)
{
    Tracked object{1};
    {
        entt::meta_any ref = entt::forward_as_meta(ctx, object);
        EXPECT_EQ(Tracked::alive, 1);
        EXPECT_EQ(ref.data(), &object);

        ref.cast<Tracked&>().value = 2;
        EXPECT_EQ(object.value, 2);
        object.value = 3;
        EXPECT_EQ(ref.try_cast<int>(), nullptr) << "a cast to an unrelated type must not reinterpret";
    }
    {
        entt::meta_any ref = entt::forward_as_meta(ctx, object);
        EXPECT_EQ(ref.cast<const Tracked&>().value, 3);

        // A copy of a reference is a value of its own.
        entt::meta_any copy = ref;
        EXPECT_EQ(Tracked::copies, 1);
        EXPECT_NE(copy.data(), &object);
        copy.cast<Tracked&>().value = 4;
        EXPECT_EQ(object.value, 3);

        // Destroying a reference leaves the object alone.
        ref.reset();
        copy.reset();
        EXPECT_EQ(Tracked::alive, 1);
    }
    EXPECT_EQ(object.value, 3);
}

TEST_F(EnttMetaAny, ConstReferenceRefusesMutableAccess)
{
    Tracked object{5};
    const Tracked& constObject = object;
    entt::meta_any cref = entt::forward_as_meta(ctx, constObject);

    EXPECT_EQ(std::as_const(cref).data(), &object);
    EXPECT_EQ(cref.data(), nullptr);
    EXPECT_EQ(cref.try_cast<Tracked>(), nullptr);
    EXPECT_EQ(cref.try_cast<const Tracked>(), &object);
    EXPECT_EQ(cref.cast<Tracked>().value, 5);

    EXPECT_FALSE(cref.allow_cast<Tracked&>());
    EXPECT_TRUE(cref.allow_cast<const Tracked&>());
    EXPECT_TRUE(cref.allow_cast<Tracked>());

    EXPECT_FALSE(cref.assign(entt::meta_any{ctx, Tracked{6}}));
    EXPECT_EQ(object.value, 5);
}

TEST_F(EnttMetaAny, AsRefFollowsTheSourceAndKeepsConstness)
{
    entt::meta_any owner{ctx, Tracked{1}};
    entt::meta_any ref = owner.as_ref();
    EXPECT_EQ(ref.data(), owner.data());
    ref.cast<Tracked&>().value = 2;
    EXPECT_EQ(owner.cast<const Tracked&>().value, 2);

    entt::meta_any viaConst = std::as_const(owner).as_ref();
    EXPECT_EQ(viaConst.data(), nullptr);
    EXPECT_EQ(std::as_const(viaConst).data(), owner.data());

    // A reference of a const reference stays const.
    EXPECT_EQ(viaConst.as_ref().data(), nullptr);

    EXPECT_EQ(Tracked::alive, 1);
}

TEST_F(EnttMetaAny, EmplaceAndAssignWorkOnTheHeldObject)
{
    entt::meta_any any{ctx, Tracked{1}};
    any.emplace<Tracked>(2);
    EXPECT_EQ(Tracked::alive, 1);
    EXPECT_EQ(any.cast<const Tracked&>().value, 2);

    Tracked object{3};
    entt::meta_any ref = entt::forward_as_meta(ctx, object);
    EXPECT_TRUE(ref.assign(entt::meta_any{ctx, Tracked{4}}));
    EXPECT_EQ(object.value, 4) << "assign through a reference writes the referenced object";

    entt::meta_any number{ctx, 1.5};
    EXPECT_TRUE(number.assign(entt::meta_any{ctx, 7}));
    EXPECT_EQ(number.cast<double>(), 7.0);
    EXPECT_FALSE(number.assign(entt::meta_any{ctx, std::string{"x"}}));
    EXPECT_EQ(number.cast<double>(), 7.0);

    any = std::string{"text"};
    EXPECT_EQ(any.type(), entt::resolve<std::string>(ctx));
    EXPECT_EQ(Tracked::alive, 1);
}

TEST_F(EnttMetaAny, EqualityComparesValuesOrIdentity)
{
    struct NoEquality
    {
        int value;
    };

    EXPECT_EQ(entt::meta_any(ctx, 3), entt::meta_any(ctx, 3));
    EXPECT_NE(entt::meta_any(ctx, 3), entt::meta_any(ctx, 4));
    EXPECT_NE(entt::meta_any(ctx, 3), entt::meta_any(ctx, 3u));
    EXPECT_EQ(entt::meta_any(ctx, std::string{"a"}), entt::meta_any(ctx, std::string{"a"}));

    entt::meta_any opaque{ctx, NoEquality{1}};
    EXPECT_EQ(opaque, opaque.as_ref());
    EXPECT_NE(opaque, entt::meta_any(opaque)) << "without operator== only the same object is equal";

    const entt::meta_any none{entt::meta_ctx_arg, ctx};
    const entt::meta_any nothing{ctx, std::in_place_type<void>};
    EXPECT_FALSE(none);
    EXPECT_TRUE(nothing);
    EXPECT_EQ(nothing.data(), nullptr);
    EXPECT_EQ(nothing, entt::meta_any(ctx, std::in_place_type<void>));
    EXPECT_NE(none, nothing);
}

TEST_F(EnttMetaAny, OpaquePointersAndTagsMakeReferencesOrValues)
{
    Tracked object{1};
    const auto type = entt::resolve<Tracked>(ctx);

    entt::meta_any fromPointer = type.from_void(static_cast<void*>(&object));
    ASSERT_TRUE(fromPointer);
    EXPECT_EQ(fromPointer.data(), &object);
    entt::meta_any fromConstPointer = type.from_void(static_cast<const void*>(&object));
    EXPECT_EQ(fromConstPointer.data(), nullptr);
    EXPECT_EQ(std::as_const(fromConstPointer).data(), &object);
    EXPECT_FALSE(type.from_void(static_cast<void*>(nullptr)));

    entt::meta_any byTag{ctx, std::in_place_type<Tracked&>, object};
    EXPECT_EQ(byTag.data(), &object);
    entt::meta_any made{ctx, std::in_place_type<Tracked>, 2};
    EXPECT_EQ(made.cast<const Tracked&>().value, 2);
    entt::meta_any moved = entt::forward_as_meta(ctx, Tracked{3});
    EXPECT_NE(moved.data(), nullptr);
    EXPECT_EQ(moved.cast<const Tracked&>().value, 3) << "an rvalue is taken over, not referred to";
    EXPECT_EQ(Tracked::alive, 3);
}

enum class Colour : std::uint8_t
{
    Red = 1,
    Green = 2
};

TEST_F(EnttMetaAny, BuiltInArithmeticAndEnumConversionsConvertInPlace)
{
    entt::meta_any number{ctx, 3.75};
    ASSERT_TRUE(number.allow_cast<int>());
    EXPECT_EQ(number.type(), entt::resolve<int>(ctx));
    EXPECT_EQ(number.cast<int>(), 3);

    EXPECT_TRUE(number.allow_cast<bool>());
    EXPECT_TRUE(number.cast<bool>());

    entt::meta_any colour{ctx, Colour::Green};
    ASSERT_TRUE(colour.allow_cast<int>());
    EXPECT_EQ(colour.cast<int>(), 2);
    ASSERT_TRUE(colour.allow_cast(entt::resolve<Colour>(ctx)));
    EXPECT_EQ(colour.cast<Colour>(), Colour::Green);

    // Converting a reference replaces the reference by a new value; the source is untouched.
    int source = 9;
    entt::meta_any ref = entt::forward_as_meta(ctx, source);
    ASSERT_TRUE(ref.allow_cast<double>());
    ref.cast<double&>() = 1.0;
    EXPECT_EQ(source, 9);

    // The const form hands out the converted value and leaves the any alone.
    const entt::meta_any integer{ctx, 4};
    const auto converted = integer.allow_cast<float>();
    EXPECT_EQ(converted.cast<float>(), 4.0f);
    EXPECT_EQ(integer.type(), entt::resolve<int>(ctx));

    entt::meta_any text{ctx, std::string{"4"}};
    EXPECT_FALSE(text.allow_cast<int>());
    EXPECT_EQ(text.cast<const std::string&>(), "4");
    EXPECT_FALSE(integer.allow_cast<int&>()) << "no mutable reference out of a const any";
}

struct BaseA
{
    int a = 1;
};
struct Unrelated
{
    double filler = 0.0;
};
// Unrelated first, so that the BaseA part sits at an offset: a cast must adjust the pointer.
struct Derived : Unrelated, BaseA
{
    int d = 2;
};
struct MoreDerived : Derived
{
    int m = 3;
};

TEST_F(EnttMetaAny, CastsWalkRegisteredBasesAndAdjustPointers)
{
    entt::meta<Derived>(ctx).base<Unrelated>().base<BaseA>();
    entt::meta<MoreDerived>(ctx).base<Derived>();

    MoreDerived object;
    entt::meta_any any = entt::forward_as_meta(ctx, object);

    BaseA* base = any.try_cast<BaseA>();
    ASSERT_NE(base, nullptr);
    EXPECT_EQ(base, static_cast<BaseA*>(&object));
    EXPECT_EQ(any.try_cast<Derived>(), static_cast<Derived*>(&object));
    EXPECT_EQ(any.try_cast<int>(), nullptr);

    // A cast to a base is a view: the any keeps its type and writes reach the object.
    ASSERT_TRUE(any.allow_cast<BaseA&>());
    EXPECT_EQ(any.type(), entt::resolve<MoreDerived>(ctx));
    any.cast<BaseA&>().a = 10;
    EXPECT_EQ(object.a, 10);

    // Without registration there is no way up.
    entt::meta_ctx other;
    entt::meta_any plain{other, Derived{}};
    EXPECT_EQ(plain.try_cast<BaseA>(), nullptr);
    EXPECT_FALSE(plain.allow_cast<BaseA&>());
}

struct Metres
{
    double value;
    [[nodiscard]] double asDouble() const { return value; }
};

struct Feet
{
    double value;
    explicit Feet(const Metres& metres) : value{metres.value * 3.0} {}
};

double doubleTheInt(const int& value)
{
    return value * 2.0;
}

TEST_F(EnttMetaAny, RegisteredConversionsApplyAndWinOverBuiltInOnes)
{
    entt::meta<Metres>(ctx).conv<&Metres::asDouble>().conv<Feet>();

    entt::meta_any metres{ctx, Metres{2.0}};
    EXPECT_TRUE(metres.type().can_convert(entt::resolve<Feet>(ctx)));
    ASSERT_TRUE(metres.allow_cast<Feet>());
    EXPECT_EQ(metres.cast<const Feet&>().value, 6.0);

    entt::meta_any again{ctx, Metres{2.5}};
    ASSERT_TRUE(again.allow_cast<double>());
    EXPECT_EQ(again.cast<double>(), 2.5);

    entt::meta<int>(ctx).conv<&doubleTheInt>();
    entt::meta_any integer{ctx, 21};
    ASSERT_TRUE(integer.allow_cast<double>());
    EXPECT_EQ(integer.cast<double>(), 42.0);
}

TEST_F(EnttMetaAny, InvokeCallsFunctionsOfTheHeldType)
{
    struct Counter
    {
        int count = 0;
        int add(int amount) { return count += amount; }
    };
    entt::meta<Counter>(ctx).func<&Counter::add>("add"_hs);

    entt::meta_any counter{ctx, Counter{}};
    auto result = counter.invoke("add"_hs, 3);
    ASSERT_TRUE(result);
    EXPECT_EQ(result.cast<int>(), 3);
    EXPECT_EQ(counter.cast<const Counter&>().count, 3);

    // A const any only reaches const functions, and this one is not.
    EXPECT_FALSE(std::as_const(counter).invoke("add"_hs, 1));
    EXPECT_EQ(counter.cast<const Counter&>().count, 3);
    EXPECT_FALSE(counter.invoke("missing"_hs));
}
} // namespace
