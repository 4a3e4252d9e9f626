#include <cstdint>
#include <string>
#include <string_view>

#include <entt/core/hashed_string.hpp>
#include <entt/core/type_info.hpp>
#include <entt/locator/locator.hpp>
#include <gtest/gtest.h>

namespace
{
using namespace entt::literals;

// Compile-time hashing is what lets function ids be constants.
static_assert("getValue"_hs == 0xF55160ECu);
static_assert(entt::hashed_string::value("getValue") == 0xF55160ECu);

TEST(EnttCore, HashedStringIsThirtyTwoBitFnv1a)
{
    struct Case
    {
        const char* text;
        entt::id_type hash;
    };
    // Published FNV-1a 32-bit test vectors, plus the one function id the library relies on.
    const Case cases[] = {{"", 0x811C9DC5u}, {"a", 0xE40C292Cu}, {"foobar", 0xBF9CF968u}, {"getValue", 0xF55160ECu}};

    for (const auto& c : cases)
    {
        const std::string runtime{c.text};
        EXPECT_EQ(entt::hashed_string::value(runtime.c_str()), c.hash) << c.text;
        EXPECT_EQ(entt::hashed_string{runtime.c_str()}.value(), c.hash) << c.text;
        EXPECT_EQ(entt::hashed_string(runtime.data(), runtime.size()).value(), c.hash) << c.text;
    }

    const entt::hashed_string named{"getValue"};
    EXPECT_EQ(named.size(), 8u);
    EXPECT_STREQ(named.data(), "getValue");
    EXPECT_EQ(static_cast<entt::id_type>(named), "getValue"_hs.value());
}

struct TypeInfoProbe
{
};

TEST(EnttCore, TypeInfoDropsQualifiersAndNamesTypesAsTheCompilerDoes)
{
    EXPECT_EQ(entt::type_id<int>().name(), std::string_view{"int"});
    EXPECT_EQ(entt::type_id<float>().name(), std::string_view{"float"});

    // One identity for a type whatever its qualifiers.
    EXPECT_EQ(entt::type_id<const int&>(), entt::type_id<int>());
    EXPECT_EQ(&entt::type_id<volatile int>(), &entt::type_id<int>());
    EXPECT_EQ(entt::type_id(42), entt::type_id<int>());

    // The hash is the hashed name, so it is stable across binaries.
    const auto name = entt::type_id<TypeInfoProbe>().name();
    EXPECT_NE(name.find("TypeInfoProbe"), std::string_view::npos);
    EXPECT_EQ(entt::type_id<TypeInfoProbe>().hash(), entt::hashed_string::value(name.data(), name.size()));
    EXPECT_EQ(entt::type_hash<TypeInfoProbe>::value(), entt::type_id<TypeInfoProbe>().hash());

    EXPECT_NE(entt::type_id<int>(), entt::type_id<unsigned int>());
    EXPECT_NE(entt::type_id<int>().index(), entt::type_id<float>().index());
    EXPECT_EQ(entt::type_index<int>::value(), entt::type_id<int>().index());
}

struct LocatedService
{
    explicit LocatedService(int initial = 0) : value{initial} {}
    int value;
};

TEST(EnttCore, LocatorMakesTheServiceOnceAndSharesHandles)
{
    using locator = entt::locator<LocatedService>;
    locator::reset();
    ASSERT_FALSE(locator::has_value());

    auto& first = locator::value_or(7);
    EXPECT_EQ(first.value, 7);
    // An existing service is returned as it is; the arguments are not used.
    auto& second = locator::value_or(99);
    EXPECT_EQ(&first, &second);
    EXPECT_EQ(second.value, 7);

    auto handle = locator::handle();
    locator::emplace(3);
    EXPECT_EQ(locator::value().value, 3);
    EXPECT_NE(&locator::value(), &first);

    // Restoring the handle brings back the very first object, which the handle kept alive.
    locator::reset(handle);
    EXPECT_EQ(&locator::value(), &first);
    EXPECT_EQ(locator::value().value, 7);

    locator::reset();
    EXPECT_FALSE(locator::has_value());
}
} // namespace
