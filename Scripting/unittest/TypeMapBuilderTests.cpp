#include "Diagnostics/Assert.h"
#include "Scripting/BindingType/ModuleBindingBuilder.h"
#include "Scripting/BindingType/TypeMapBuilder.h"
#include "Scripting/Reflection/Reflection.h"

#include <entt/meta/factory.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace
{
using Ovelith::Diagnostics::collectAsserts;
using namespace Scripting;
using testing::ElementsAre;
using testing::IsEmpty;

struct MapBase
{
};

struct MapDerived : MapBase
{
};

struct Unrelated
{
};

ClassBinding keyedClass(const std::string& name, entt::meta_type type,
                        std::function<entt::meta_any(WeakLifetimeScope&)> factory, const char* keyName = "mapId")
{
    ClassBinding binding;
    binding.name = name;
    binding.type = type;
    ConstantFactory& key = binding.constants.emplace_back();
    key.name = keyName;
    key.factory = std::move(factory);
    return binding;
}

auto giving(entt::meta_any value)
{
    return [value](WeakLifetimeScope&) { return value; };
}

std::vector<std::string> keysOf(const TypeMapBinding& map)
{
    std::vector<std::string> keys;
    for (const auto& entry : map.entries)
    {
        keys.push_back(entry.key + "=" + entry.mappedName);
    }
    return keys;
}

TEST(TypeMapBuilderTest, ConstructionReportsEmptyNamesAndGoesOn)
{
    std::unique_ptr<TypeMapBuilder> builder;
    EXPECT_THAT(collectAsserts([&] { builder = std::make_unique<TypeMapBuilder>("", "", entt::meta_type{}); }),
                ElementsAre("Type Map needs a valid name", "Type Map needs a valid key name"));
    builder->addMapping("k", "C", {}, {});
    EXPECT_EQ(builder->build().entries.size(), 1u);
}

TEST(TypeMapBuilderTest, BuildHandsOverTagsAndEntriesOnce)
{
    TaggedBinding classTag;
    classTag.release(Version(2, 0, 0));
    TaggedBinding constantTag;
    constantTag.beta();
    TypeMapBuilder builder("MappedClassTypeMap", "mapId", Reflection::resolve<MapBase>());
    builder.release(Version(1, 0, 0));
    builder.addMapping("derived", "DerivedClass", classTag, constantTag);

    const TypeMapBinding map = builder.build();
    EXPECT_EQ(map.name, "MappedClassTypeMap");
    ASSERT_EQ(map.releases.size(), 1u);
    EXPECT_EQ(map.releases[0].inclusiveLowerVersion, Version(1, 0, 0));
    ASSERT_EQ(map.entries.size(), 1u);
    EXPECT_EQ(map.entries[0].classTag.releases[0].inclusiveLowerVersion, Version(2, 0, 0));
    EXPECT_EQ(map.entries[0].constantTag.releases[0].comparison, ReleaseComparison::PreReleaseTag);

    const TypeMapBinding spent = builder.build();
    EXPECT_TRUE(spent.name.empty());
    EXPECT_THAT(spent.releases, IsEmpty());
    EXPECT_THAT(spent.entries, IsEmpty());
    EXPECT_THAT(builder.releases, IsEmpty());
}

TEST(TypeMapBuilderTest, KeysMustBeTextAndOnlyDerivedClassesCount)
{
    entt::meta<MapDerived>(Reflection::context()).base<MapBase>();
    const entt::meta_type base = Reflection::resolve<MapBase>();
    const entt::meta_type derived = Reflection::resolve<MapDerived>();
    const char* const nullText = nullptr;

    ModuleBindingBuilder builder(quv::UUID(1, 1), "test_module", Version(1, 0, 0), false);
    builder.classBinding(keyedClass("Base", base, giving(std::string("base"))));
    ClassBinding& tagged = builder.classBinding(keyedClass("Text", derived, giving(std::string("text"))));
    tagged.release(Version(1, 0, 0));
    tagged.constants[0].beta();
    builder.classBinding(keyedClass("CText", derived, giving(entt::meta_any{"ctext"})));
    builder.classBinding(keyedClass("NullCText", derived, giving(entt::meta_any{nullText})));
    builder.classBinding(keyedClass("Number", derived, giving(entt::meta_any{7})));
    builder.classBinding(keyedClass("NoFactory", derived, {}));
    builder.classBinding(keyedClass("OtherKey", derived, giving(std::string("other")), "otherId"));
    builder.classBinding(keyedClass("Unrelated", Reflection::resolve<Unrelated>(), giving(std::string("no"))));

    TypeMapBuilder typeMap("MappedClassTypeMap", "mapId", base);
    EXPECT_THAT(collectAsserts([&] { builder.createTypeMap(typeMap); }),
                ElementsAre("Type map keys must be of string type, NullCText constant mapId is not a string.",
                            "Type map keys must be of string type, Number constant mapId is not a string.",
                            "Type map keys must be of string type, NoFactory constant mapId is not a string."));
    // A class added after the map is not in it.
    builder.classBinding(keyedClass("Late", derived, giving(std::string("late"))));

    const ModuleBinding module = builder.build(true, {"beta"}, {});
    ASSERT_EQ(module.typeMaps.size(), 1u);
    const TypeMapBinding& map = module.typeMaps[0];
    EXPECT_THAT(keysOf(map), ElementsAre("text=Text", "ctext=CText"));
    EXPECT_EQ(map.entries[0].classTag.releases.size(), 1u);
    EXPECT_EQ(map.entries[0].constantTag.releases[0].comparison, ReleaseComparison::PreReleaseTag);
}
} // namespace
