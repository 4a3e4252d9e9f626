#include "Scripting/BindingType/ClassBindingBuilder.h"
#include "Scripting/BindingType/ModuleBindingBuilder.h"
#include "Scripting/BindingType/TypeMapBuilder.h"

#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <string>
#include <utility>
#include <vector>

using namespace Ovelith::CoreTestFramework;
using namespace Scripting;

ZUT_REGISTER_TEST_CLASS(Scripting_TypeMapBuilderTests);
struct Scripting_TypeMapBuilderTestsBase : ZentaryUnitTest::TestClass<Scripting_TypeMapBuilderTests>
{
    struct MappedClass
    {
    };
    struct IntermediateClass : MappedClass
    {
    };
    struct DerivedClass : IntermediateClass
    {
    };
    struct DerivedClassV1DeprecatedV3 : MappedClass
    {
    };
    struct DerivedClassV2 : MappedClass
    {
    };
    struct DerivedClassV3KeyedInV4 : MappedClass
    {
    };

    static inline const quv::UUID MODULE_UUID = quv::UUID::fromString("9c3f6a1e-2b4d-4e8f-a1c7-5d0e3b6f2a84");
    static constexpr const char* MAP_NAME = "MappedClassTypeMap";
    static constexpr const char* KEY = "mapId";

    // A builder per case: a host may run several cases on one object, and a build spends its builder.
    static ModuleBindingBuilder makeBuilder()
    {
        return ModuleBindingBuilder(MODULE_UUID, "test_module", Version(3, 0, 0), false);
    }

    static void addMappedClass(ModuleBindingBuilder& builder)
    {
        ClassBindingBuilder<MappedClass> mapped("MappedClass");
        // The base's own key gives no entry.
        mapped.constant(KEY, std::string("mapped"));
        mapped.release(Version(1, 0, 0));
        builder.classBinding(mapped.finish());
    }

    // Adds `T`, bound as derived from `Base`, with one constant; class and constant are in every version.
    template <typename T, typename Base, typename V>
    static void addDerivedClass(ModuleBindingBuilder& builder, const std::string& name, const std::string& constantName,
                                V value)
    {
        ClassBindingBuilder<T> derived(name);
        derived.template base<Base>();
        derived.constant(constantName, std::move(value));
        derived.release(Version(1, 0, 0));
        builder.classBinding(derived.finish());
    }

    // Maps the classes added so far and builds version 3.0.0 of the module; untagged members are in.
    static ModuleBinding buildWithMap(ModuleBindingBuilder& builder)
    {
        TypeMapBuilder typeMap(MAP_NAME, KEY, Reflection::resolve<MappedClass>());
        typeMap.release(Version(1, 0, 0));
        builder.createTypeMap(typeMap);
        return builder.build(true, {}, {});
    }

    // The one map of `module`, its entries as "key=class".
    static std::vector<std::string> entriesOf(const ModuleBinding& module)
    {
        Assert::AreEqual(module.typeMaps.size(), size_t{1}, true, "one type map");
        const TypeMapBinding& map = module.typeMaps[0];
        Assert::AreEqual(map.name, std::string(MAP_NAME));
        std::vector<std::string> entries;
        for (const TypeMapBindingEntry& entry : map.entries)
        {
            entries.push_back(entry.key + "=" + entry.mappedName);
        }
        return entries;
    }

    static void checkEntries(const ModuleBinding& module, const std::vector<std::string>& expected)
    {
        const std::vector<std::string> entries = entriesOf(module);
        Assert::AreEqual(entries.size(), expected.size(), true, "entries of the map");
        for (size_t i = 0; i < expected.size(); ++i)
        {
            Assert::AreEqual(entries[i], expected[i], false, "entry {}", i);
        }
    }
};

class Scripting_TypeMapBuilderTests final : public Scripting_TypeMapBuilderTestsBase
{
    ZUT_TEST(TypeMapWithOneMapping)
    {
        ModuleBindingBuilder builder = makeBuilder();
        addMappedClass(builder);
        addDerivedClass<DerivedClass, MappedClass>(builder, "DerivedClass", KEY, std::string("derived"));

        checkEntries(buildWithMap(builder), {"derived=DerivedClass"});
    }

    ZUT_TEST(TypeMapWithThreeClassTreeAllHaveKeys)
    {
        ModuleBindingBuilder builder = makeBuilder();
        addMappedClass(builder);
        // A C string key reads as text as well.
        addDerivedClass<IntermediateClass, MappedClass>(builder, "IntermediateClass", KEY, "intermediate");
        addDerivedClass<DerivedClass, IntermediateClass>(builder, "DerivedClass", KEY, std::string("derived"));

        checkEntries(buildWithMap(builder), {"intermediate=IntermediateClass", "derived=DerivedClass"});
    }

    ZUT_TEST(TypeMapWithThreeClassTreeIntermediateHasNoKey)
    {
        ModuleBindingBuilder builder = makeBuilder();
        addMappedClass(builder);
        addDerivedClass<IntermediateClass, MappedClass>(builder, "IntermediateClass", "otherConstant",
                                                        std::string("not a key"));
        addDerivedClass<DerivedClass, IntermediateClass>(builder, "DerivedClass", KEY, std::string("derived"));

        checkEntries(buildWithMap(builder), {"derived=DerivedClass"});
    }

    ZUT_TEST(TypeMapWithMixedVersionMappings)
    {
        ModuleBindingBuilder builder = makeBuilder();
        addMappedClass(builder);
        ClassBindingBuilder<DerivedClassV1DeprecatedV3> deprecated("DerivedClassV1DeprecatedV3");
        deprecated.base<MappedClass>();
        deprecated.constant(KEY, std::string("v1_deprecated_v3")).release(Version(1, 0, 0));
        deprecated.release(Version(1, 0, 0), RemovedInMajorVersion(3));
        builder.classBinding(deprecated.finish());
        ClassBindingBuilder<DerivedClassV2> v2("DerivedClassV2");
        v2.base<MappedClass>();
        v2.constant(KEY, std::string("v2")).release(Version(2, 0, 0));
        v2.release(Version(2, 0, 0));
        builder.classBinding(v2.finish());
        ClassBindingBuilder<DerivedClassV3KeyedInV4> keyedLater("DerivedClassV3KeyedInV4");
        keyedLater.base<MappedClass>();
        keyedLater.constant(KEY, std::string("v4_key")).release(Version(4, 0, 0));
        keyedLater.release(Version(3, 0, 0));
        builder.classBinding(keyedLater.finish());

        const ModuleBinding module = buildWithMap(builder);
        Assert::AreEqual(module.classBindings.size(), size_t{3}, true, "classes of 3.0.0");
        Assert::AreEqual(module.classBindings[0].name, std::string("MappedClass"));
        Assert::AreEqual(module.classBindings[1].name, std::string("DerivedClassV2"));
        Assert::AreEqual(module.classBindings[2].name, std::string("DerivedClassV3KeyedInV4"));
        checkEntries(module, {"v2=DerivedClassV2"});
    }
};
