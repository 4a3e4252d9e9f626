#include "Scripting/BindingFactory/IModuleBindingFactory.h"
#include "Scripting/BindingType/ArgumentBindingBuilder.h"
#include "Scripting/BindingType/ClassBindingBuilder.h"
#include "Scripting/BindingType/ModuleBindingBuilder.h"
#include "Scripting/LifetimeRegistry/LifetimeScopeImplementation.h"
#include "Scripting/Reflection/IFunction.h"
#include "Scripting/Reflection/IProperty.h"

#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using namespace Ovelith::CoreTestFramework;
using namespace Scripting;

ZUT_REGISTER_TEST_CLASS(Scripting_ModuleBindingBuilderTests);
struct Scripting_ModuleBindingBuilderTestsBase : ZentaryUnitTest::TestClass<Scripting_ModuleBindingBuilderTests>
{
    struct TestClass
    {
        int intValue = 0;
        int otherValue = 0;
        int bakedInt = 7;

        void duplicate() {}
        void otherDuplicate(int) {}
        int foo() const { return 1; }
        int fooWithArgument(int value) const { return value; }
    };

    struct OtherClass
    {
    };

    struct Food
    {
        void eat() {}
    };

    struct Fruit : Food
    {
        void smash() {}
    };

    struct TestObject
    {
        int value = 0;
    };

    // An alias of a module: the factory answers to "test" and builds the module "test_module" under that name.
    class AliasedModuleFactory final : public IModuleBindingFactory
    {
    public:
        std::string getName() const override { return "test_module"; }
        quv::UUID getUUID() const override { return MODULE_UUID; }
        bool isAlias(const std::string& name) const override { return name == "test"; }
        std::vector<Version> getSupportedVersions() const override { return {Version(1, 2, 0)}; }
        std::vector<ModuleDependency> getDependencies(Version) const override { return {}; }
        std::optional<ModuleBinding> createModuleBinding(Version version, const std::optional<ContextConfig>&) override
        {
            if (version != Version(1, 2, 0))
            {
                return std::nullopt;
            }
            ModuleBindingBuilder builder(getUUID(), "test", version, false);
            return builder.build(true, {}, {});
        }
    };

    static inline const quv::UUID MODULE_UUID = quv::UUID::fromString("5a0c3c8e-8a67-4a0e-9f0e-3f2d3b9c1d10");
    static inline const quv::UUID DEPENDENCY_UUID = quv::UUID::fromString("0b7d1c52-3e0f-4f6a-9d43-2c8e5b1a7f90");

    static int TestFunctionWithArgs(int count, std::string text) { return count + static_cast<int>(text.size()); }

    static StrongTypedObjectHandle<TestClass> makeTestClass(WeakLifetimeScope& scope)
    {
        return scope.makeObject<TestClass>();
    }

    // One builder per version: a build spends its builder.
    static ModuleBinding buildVersion(const Version& version,
                                      const std::function<void(ModuleBindingBuilder&)>& describe,
                                      const std::vector<std::string>& enabledTags = {})
    {
        ModuleBindingBuilder builder(MODULE_UUID, "test-module", version, false);
        describe(builder);
        return builder.build(false, enabledTags, {});
    }

    // A module holding one class described by `describe`, built with untagged records allowed.
    template <typename T>
    static ModuleBinding buildWithClass(const std::function<void(ClassBindingBuilder<T>&)>& describe)
    {
        ModuleBindingBuilder builder(MODULE_UUID, "test-module", Version(1, 0, 0), false);
        ClassBindingBuilder<T> classBuilder("TestClass");
        describe(classBuilder);
        builder.classBinding(classBuilder.finish());
        return builder.build(true, {}, {});
    }

    // Builds the described module and expects each record of a colliding pair to report once.
    static void checkCollisionReportedTwice(const std::function<void(ModuleBindingBuilder&)>& describe,
                                            const std::string& text)
    {
        ModuleBindingBuilder builder(MODULE_UUID, "test-module", Version(1, 0, 0), false);
        describe(builder);
        Assert::CheckDebugAsserts([&] { builder.build(true, {}, {}); }, std::vector<std::string>{text, text});
    }

    template <typename T>
    static void checkClassCollisionReportedTwice(const std::function<void(ClassBindingBuilder<T>&)>& describe,
                                                 const std::string& member)
    {
        checkCollisionReportedTwice(
            [&](ModuleBindingBuilder& builder)
            {
                ClassBindingBuilder<T> classBuilder("TestClass");
                describe(classBuilder);
                builder.classBinding(classBuilder.finish());
            },
            "A member with the name '" + member + "' already exists in class 'TestClass'");
    }

    // The one class of `module`, checked to be there.
    static const ClassBinding& onlyClass(const ModuleBinding& module)
    {
        Assert::AreEqual(module.classBindings.size(), size_t{1}, true, "one class in {}",
                         module.descriptor.version.toString());
        return module.classBindings[0];
    }

    struct FooBuild
    {
        Version version;
        std::vector<std::string> enabledTags;
        // Which of the two "foo" records the build holds.
        int expected;
    };

    // A beta build, an internal build that enables beta, and a stable build.
    static inline const std::vector<FooBuild> BETA_AND_NOT_BETA_BUILDS = {
        {Version(1, 0, 0, "beta"), {}, 0},
        {Version(1, 0, 0, "internal"), {"beta", "internal"}, 0},
        {Version(1, 0, 0), {}, 1},
    };

    // Which "foo" a list holds: 0 for the first form (no argument, or a setter), 1 for the second; -1 for
    // anything but exactly one "foo".
    static int memberShape(const std::vector<FunctionBinding>& functions)
    {
        if (functions.size() != 1 || functions[0].name != "foo")
        {
            return -1;
        }
        return static_cast<int>(functions[0].arguments.size());
    }
    static int memberShape(const std::vector<PropertyBinding>& properties)
    {
        if (properties.size() != 1 || properties[0].name != "foo")
        {
            return -1;
        }
        return properties[0].setter ? 0 : 1;
    }

    static void checkOneFooPerBuild(const std::function<void(ClassBindingBuilder<TestClass>&)>& describe,
                                    const std::vector<FooBuild>& builds,
                                    const std::function<int(const ClassBinding&)>& shape)
    {
        for (const FooBuild& build : builds)
        {
            ModuleBinding module;
            Assert::CheckNoDebugAsserts(
                [&]
                {
                    module = buildVersion(
                        build.version,
                        [&](ModuleBindingBuilder& builder)
                        {
                            ClassBindingBuilder<TestClass> classBuilder("TestClass");
                            describe(classBuilder);
                            classBuilder.release(Version(1, 0, 0)).beta();
                            builder.classBinding(classBuilder.finish());
                        },
                        build.enabledTags);
                });
            Assert::AreEqual(shape(onlyClass(module)), build.expected, false, "foo in {}", build.version.toString());
        }
    }

    static void checkBakedPropertyIn(const std::function<void(PropertyBinding&)>& tag, std::vector<bool> presence)
    {
        for (uint16_t major : {1, 2})
        {
            const ModuleBinding module =
                buildVersion(Version(major, 0, 0),
                             [&](ModuleBindingBuilder& builder)
                             {
                                 ClassBindingBuilder<TestClass> classBuilder("TestClass");
                                 tag(classBuilder.bakedProperty<&TestClass::bakedInt>("bakedInt"));
                                 classBuilder.release(Version(1, 0, 0));
                                 builder.classBinding(classBuilder.finish());
                             });
            const ClassBinding& testClass = onlyClass(module);
            const bool present = testClass.properties.size() == 1 && testClass.properties[0].name == "bakedInt";
            Assert::AreEqual(present, bool(presence[major - 1u]), false, "bakedInt in {}.0.0", major);
            if (present)
            {
                Assert::IsTrue(testClass.properties[0].getter->isBaked(), false, "the property is baked");
                Assert::IsTrue(testClass.properties[0].setter == nullptr, false, "a baked property has no setter");
            }
        }
    }

    static void checkTestFunctionWithArgs(const ModuleBinding& module)
    {
        Assert::AreEqual(module.functionBindings.size(), size_t{1}, true);
        const FunctionBinding& function = module.functionBindings[0];
        Assert::AreEqual(function.name, std::string("TestFunctionWithArgs"));
        Assert::AreEqual(function.arguments.size(), size_t{2}, true);
        Assert::AreEqual(function.arguments[0].name, std::string("count"));
        Assert::IsTrue(function.arguments[0].type == Reflection::resolve<int>(), false, "count is an int");
        Assert::AreEqual(function.arguments[0].details.defaultValue.cast<int>(), 1);
        Assert::AreEqual(function.arguments[0].details.maxValue.cast<int>(), 5);
        Assert::AreEqual(function.arguments[1].name, std::string("text"));
        Assert::IsTrue(function.arguments[1].type == Reflection::resolve<std::string>(), false, "text is a string");
        Assert::AreEqual(function.arguments[1].details.defaultValue.cast<std::string>(), std::string("abc"));

        // The callable is the native function, with the described checks.
        Assert::AreEqual(function.function->defaultArgumentCount, uint32_t{2});
        Assert::IsTrue(function.function->validateArgument(entt::meta_any{5}, 0), false, "5 is within the bounds");
        Assert::IsFalse(function.function->validateArgument(entt::meta_any{6}, 0), false, "6 is out of the bounds");
        entt::meta_any args[] = {entt::meta_any{3}, entt::meta_any{std::string("four")}};
        const entt::meta_any result = function.function->call({}, args, 2);
        Assert::IsTrue(static_cast<bool>(result), true, "the call is made");
        Assert::AreEqual(result.cast<int>(), 7);
    }
};

class Scripting_ModuleBindingBuilderTests final : public Scripting_ModuleBindingBuilderTestsBase
{
    ZUT_TEST(NameAndVersionAreCorrect)
    {
        ModuleBindingBuilder builder(MODULE_UUID, "test_module", Version(1, 2, 3), false);
        const ModuleBinding module = builder.build(true, {}, {});
        Assert::AreEqual(module.descriptor.name, std::string("test_module"));
        Assert::AreEqual(module.descriptor.version, Version(1, 2, 3));
        Assert::IsTrue(module.descriptor.uuid == MODULE_UUID);
    }

    ZUT_TEST(NameAndVersionAreCorrectWithAlias)
    {
        AliasedModuleFactory factory;
        Assert::IsTrue(factory.isAlias("test"));
        const std::optional<ModuleBinding> module = factory.createModuleBinding(Version(1, 2, 0), std::nullopt);
        Assert::IsTrue(module.has_value(), true);
        Assert::AreEqual(module->descriptor.name, std::string("test"));
        Assert::AreEqual(module->descriptor.version, Version(1, 2, 0));
        Assert::IsTrue(module->descriptor.uuid == factory.getUUID());
    }

    ZUT_TEST(FunctionLambdaWithArgumentBindings)
    {
        const ModuleBinding module = buildVersion(
            Version(1, 0, 0),
            [](ModuleBindingBuilder& builder)
            {
                builder
                    .function(
                        "TestFunctionWithArgs",
                        [](int count, const std::string& text) { return TestFunctionWithArgs(count, text); },
                        ArgumentBindingBuilder<int>("count").defaultValue(1).bounds(-5, 5),
                        ArgumentBindingBuilder<const std::string&>("text").defaultValue("abc"))
                    .release(Version(1, 0, 0));
            });
        checkTestFunctionWithArgs(module);
    }

    ZUT_TEST(FunctionPointerWithArgumentBindings)
    {
        const ModuleBinding module = buildVersion(
            Version(1, 0, 0),
            [](ModuleBindingBuilder& builder)
            {
                builder
                    .function<&TestFunctionWithArgs>("TestFunctionWithArgs",
                                                     ArgumentBindingBuilder<int>("count").defaultValue(1).bounds(-5, 5),
                                                     ArgumentBindingBuilder<std::string>("text").defaultValue("abc"))
                    .release(Version(1, 0, 0));
            });
        checkTestFunctionWithArgs(module);
    }

    ZUT_TEST(ObjectWithCorrectType)
    {
        ModuleBindingBuilder builder(MODULE_UUID, "test_module", Version(1, 0, 0), false);
        builder.object<TestObject>("TestObject",
                                   [](WeakLifetimeScope& scope) { return scope.makeObject<TestObject>(); });
        const ModuleBinding module = builder.build(true, {}, {});
        Assert::AreEqual(module.objectFactories.size(), size_t{1}, true);
        const ObjectFactoryBinding& object = module.objectFactories[0];
        Assert::AreEqual(object.name, std::string("TestObject"));
        Assert::IsTrue(object.type == Reflection::resolve<TestObject>(), false, "the type of the object it makes");
        Assert::IsTrue(object.function != nullptr, true);
        Assert::IsTrue(object.function->getReturnType() == Reflection::resolve<StrongTypedObjectHandle<TestObject>>(),
                       false, "the factory makes a handle of that type");
    }

    ZUT_TEST(ClassBinding_DuplicateFunctionName_Asserts)
    {
        checkClassCollisionReportedTwice<TestClass>(
            [](ClassBindingBuilder<TestClass>& builder)
            {
                builder.method<&TestClass::duplicate>("DuplicateFunction");
                builder.method<&TestClass::otherDuplicate>("DuplicateFunction", ArgumentBindingBuilder<int>("value"));
            },
            "DuplicateFunction");
    }

    ZUT_TEST(ClassBinding_DuplicateFunctionAndPropertyName_Asserts)
    {
        checkClassCollisionReportedTwice<TestClass>(
            [](ClassBindingBuilder<TestClass>& builder)
            {
                builder.method<&TestClass::duplicate>("DuplicateMember");
                builder.property<&TestClass::intValue>("DuplicateMember");
            },
            "DuplicateMember");
    }

    ZUT_TEST(ClassBinding_DuplicateFunctionAndConstantName_Asserts)
    {
        checkClassCollisionReportedTwice<TestClass>(
            [](ClassBindingBuilder<TestClass>& builder)
            {
                builder.method<&TestClass::duplicate>("DuplicateMember");
                builder.constant("DuplicateMember", 1);
            },
            "DuplicateMember");
    }

    ZUT_TEST(ClassBinding_DuplicatePropertyName_Asserts)
    {
        checkClassCollisionReportedTwice<TestClass>(
            [](ClassBindingBuilder<TestClass>& builder)
            {
                builder.property<&TestClass::intValue>("DuplicateProperty");
                builder.property<&TestClass::otherValue>("DuplicateProperty");
            },
            "DuplicateProperty");
    }

    ZUT_TEST(ClassBinding_DuplicateBakedPropertyName_Asserts)
    {
        checkClassCollisionReportedTwice<TestClass>(
            [](ClassBindingBuilder<TestClass>& builder)
            {
                builder.bakedProperty<&TestClass::bakedInt>("DuplicateProperty");
                builder.bakedProperty<&TestClass::intValue>("DuplicateProperty");
            },
            "DuplicateProperty");
    }

    ZUT_TEST(ClassBinding_DuplicateBakedPropertyAndPropertyName_Asserts)
    {
        checkClassCollisionReportedTwice<TestClass>(
            [](ClassBindingBuilder<TestClass>& builder)
            {
                builder.bakedProperty<&TestClass::bakedInt>("DuplicateProperty");
                builder.property<&TestClass::intValue>("DuplicateProperty");
            },
            "DuplicateProperty");
    }

    ZUT_TEST(ClassBinding_DuplicateConstantName_Asserts)
    {
        checkClassCollisionReportedTwice<TestClass>(
            [](ClassBindingBuilder<TestClass>& builder)
            {
                builder.constant("DuplicatedConstant", 1);
                builder.constant("DuplicatedConstant", std::string("two"));
            },
            "DuplicatedConstant");
    }

    ZUT_TEST(ModuleBinding_DuplicateClassName_Asserts)
    {
        checkCollisionReportedTwice(
            [](ModuleBindingBuilder& builder)
            {
                builder.classBinding(ClassBindingBuilder<TestClass>("TestClass").finish());
                builder.classBinding(ClassBindingBuilder<OtherClass>("TestClass").finish());
            },
            "A member with the name 'TestClass' already exists in module 'test-module'");
    }

    ZUT_TEST(ModuleBinding_DuplicateFunctionName_Asserts)
    {
        checkCollisionReportedTwice(
            [](ModuleBindingBuilder& builder)
            {
                builder.function("DuplicateFunction", [] {});
                builder.function<&TestFunctionWithArgs>("DuplicateFunction");
            },
            "A member with the name 'DuplicateFunction' already exists in module 'test-module'");
    }

    ZUT_TEST(ModuleBinding_DuplicateFunctionConstantName_Asserts)
    {
        checkCollisionReportedTwice(
            [](ModuleBindingBuilder& builder)
            {
                builder.function("DuplicateFunction", [] {});
                builder.constant("DuplicateFunction", 3);
            },
            "A member with the name 'DuplicateFunction' already exists in module 'test-module'");
    }

    ZUT_TEST(ModuleBinding_DuplicateConstantName_Asserts)
    {
        checkCollisionReportedTwice(
            [](ModuleBindingBuilder& builder)
            {
                builder.constant("DuplicateConstant", 3);
                builder.constant("DuplicateConstant", 4.0f);
            },
            "A member with the name 'DuplicateConstant' already exists in module 'test-module'");
    }

    ZUT_TEST(ModuleBinding_DuplicateObjectName_Asserts)
    {
        checkCollisionReportedTwice(
            [](ModuleBindingBuilder& builder)
            {
                const auto make = [](WeakLifetimeScope& scope) { return scope.makeObject<TestObject>(); };
                builder.object<TestObject>("DuplicateObject", make);
                builder.object<TestObject>("DuplicateObject", make);
            },
            "A member with the name 'DuplicateObject' already exists in module 'test-module'");
    }

    ZUT_TEST(BaseClassTagged_BuildWithFiltering_BaseFunctionsNotMerged)
    {
        const auto describe = [](ModuleBindingBuilder& builder)
        {
            ClassBindingBuilder<Fruit> fruit("Fruit");
            fruit.base<Food>();
            fruit.method<&Fruit::smash>("smash").release(Version(1, 0, 0));
            fruit.release(Version(1, 0, 0));
            builder.classBinding(fruit.finish());
            ClassBindingBuilder<Food> food("Food");
            food.method<&Food::eat>("eat").release(Version(1, 0, 0));
            food.release(Version(2, 0, 0));
            builder.classBinding(food.finish());
        };

        const ModuleBinding withoutFood = buildVersion(Version(1, 0, 0), describe);
        const ClassBinding& fruit = onlyClass(withoutFood);
        Assert::AreEqual(fruit.name, std::string("Fruit"));
        Assert::AreEqual(fruit.functions.size(), size_t{1}, true);
        Assert::AreEqual(fruit.functions[0].name, std::string("smash"));

        // With the base in the build it stands first, and each class keeps only its own functions.
        const ModuleBinding withFood = buildVersion(Version(2, 0, 0), describe);
        Assert::AreEqual(withFood.classBindings.size(), size_t{2}, true);
        Assert::AreEqual(withFood.classBindings[0].name, std::string("Food"));
        Assert::AreEqual(withFood.classBindings[0].functions.size(), size_t{1});
        Assert::AreEqual(withFood.classBindings[1].functions.size(), size_t{1});
    }

    ZUT_TEST(CreateDependencyToSelf_CatchError)
    {
        ModuleBindingBuilder builder(MODULE_UUID, "test_module", Version(1, 0, 0), false);
        Assert::CheckDebugAsserts(
            [&] {
                builder.dependency(ModuleDependency{"theModule", MODULE_UUID, {Version(1, 0, 0)}, false, false});
            },
            "You can't take a dependency on yourself");
        // Kept, for the resolver to fail on.
        Assert::AreEqual(builder.build(true, {}, {}).dependencies.size(), size_t{1});
    }

    ZUT_TEST(CreateDuplicateDependency_CatchError)
    {
        ModuleBindingBuilder builder(MODULE_UUID, "test_module", Version(1, 0, 0), false);
        const ModuleDependency dependency{"theDependency", DEPENDENCY_UUID, {Version(1, 0, 0)}, false, false};
        builder.dependency(dependency);
        Assert::CheckDebugAsserts([&] { builder.dependency(dependency); },
                                  "A dependency with this name already exists on this module");
        Assert::AreEqual(builder.build(true, {}, {}).dependencies.size(), size_t{1});
    }

    ZUT_TEST(CreateBuilderWithEmptyUUID_CatchError)
    {
        Assert::CheckDebugAsserts([]
                                  { ModuleBindingBuilder builder(quv::UUID::EMPTY, "test", Version(1, 0, 0), false); },
                                  "Module needs a valid UUID");
    }

    ZUT_TEST(CreateBuilderWithEmptyName_CatchError)
    {
        Assert::CheckDebugAsserts([] { ModuleBindingBuilder builder(MODULE_UUID, "", Version(1, 0, 0), false); },
                                  "Module needs a valid name");
    }

    ZUT_TEST(CreateTagWithMultipleOverlappingConstructors)
    {
        ModuleBindingBuilder builder(MODULE_UUID, "test", Version(1, 0, 0), false);
        ClassBindingBuilder<TestClass> classBuilder("TestClass");
        classBuilder.constructor<&makeTestClass>().release(Version(1, 0, 0));
        classBuilder
            .constructor([](WeakLifetimeScope& scope, int) { return scope.makeObject<TestClass>(); },
                         ArgumentBindingBuilder<int>("value"))
            .release(Version(1, 0, 0));
        classBuilder.release(Version(1, 0, 0));
        builder.classBinding(classBuilder.finish());
        Assert::CheckDebugAsserts([&] { builder.build(false, {}, {}); },
                                  "Class 'TestClass' has been registered with 2 constructors");
    }

    ZUT_TEST(CreateTagWithMultipleVersionedConstructors)
    {
        const auto describe = [](ModuleBindingBuilder& builder)
        {
            ClassBindingBuilder<TestClass> classBuilder("TestClass");
            classBuilder.constructor<&makeTestClass>().release(Version(1, 0, 0), RemovedInMajorVersion(2));
            classBuilder
                .constructor([](WeakLifetimeScope& scope, int) { return scope.makeObject<TestClass>(); },
                             ArgumentBindingBuilder<int>("value"))
                .release(Version(2, 0, 0));
            classBuilder.release(Version(1, 0, 0));
            builder.classBinding(classBuilder.finish());
        };
        for (uint16_t major : {1, 2})
        {
            ModuleBinding module;
            Assert::CheckNoDebugAsserts([&] { module = buildVersion(Version(major, 0, 0), describe); });
            const ClassBinding& testClass = onlyClass(module);
            Assert::AreEqual(testClass.constructors.size(), size_t{1}, true, "constructors in {}", major);
            // The first takes only the injected scope, the second an int besides.
            Assert::AreEqual(testClass.constructors[0].arguments.size(), size_t{major - 1u}, false,
                             "the constructor of version {}", major);
        }
    }

    ZUT_TEST(BakedPropertyDefinedInNewModuleVersion)
    {
        checkBakedPropertyIn([](PropertyBinding& bakedInt) { bakedInt.release(Version(2, 0, 0)); }, {false, true});
    }

    ZUT_TEST(BakedPropertyDefinedInOldModuleVersion)
    {
        checkBakedPropertyIn([](PropertyBinding& bakedInt)
                             { bakedInt.release(Version(1, 0, 0), RemovedInMajorVersion(2)); },
                             {true, false});
    }

    ZUT_TEST(FunctionsWithSameNameConcurrentMinorReleasesNoCollision)
    {
        checkOneFooPerBuild(
            [](ClassBindingBuilder<TestClass>& builder)
            {
                builder.method<&TestClass::foo>("foo").release(Version(1, 1, 0), RemovedInMajorVersion(2));
                builder.method<&TestClass::fooWithArgument>("foo", ArgumentBindingBuilder<int>("value"))
                    .release(Version(2, 1, 0));
            },
            {{Version(1, 1, 0), {}, 0}, {Version(1, 9, 0), {}, 0}, {Version(2, 1, 0), {}, 1}},
            [](const ClassBinding& testClass) { return memberShape(testClass.functions); });
    }

    ZUT_TEST(PropertiesWithSameNameConcurrentMinorReleasesNoCollision)
    {
        checkOneFooPerBuild(
            [](ClassBindingBuilder<TestClass>& builder)
            {
                builder.property<&TestClass::intValue>("foo").release(Version(1, 1, 0), RemovedInMajorVersion(2));
                builder.property<&TestClass::intValue, Privilege::ReadOnly>("foo").release(Version(2, 1, 0));
            },
            {{Version(1, 1, 0), {}, 0}, {Version(1, 9, 0), {}, 0}, {Version(2, 1, 0), {}, 1}},
            [](const ClassBinding& testClass) { return memberShape(testClass.properties); });
    }

    ZUT_TEST(FunctionsWithSameNameBetaAndNotBetaNoCollision)
    {
        checkOneFooPerBuild(
            [](ClassBindingBuilder<TestClass>& builder)
            {
                builder.method<&TestClass::foo>("foo").beta();
                builder.method<&TestClass::fooWithArgument>("foo", ArgumentBindingBuilder<int>("value"))
                    .release(Version(1, 0, 0))
                    .notBeta();
            },
            BETA_AND_NOT_BETA_BUILDS, [](const ClassBinding& testClass) { return memberShape(testClass.functions); });
    }

    ZUT_TEST(PropertiesWithSameNameBetaAndNotBetaNoCollision)
    {
        checkOneFooPerBuild(
            [](ClassBindingBuilder<TestClass>& builder)
            {
                builder.property<&TestClass::intValue>("foo").beta();
                builder.property<&TestClass::intValue, Privilege::ReadOnly>("foo").release(Version(1, 0, 0)).notBeta();
            },
            BETA_AND_NOT_BETA_BUILDS, [](const ClassBinding& testClass) { return memberShape(testClass.properties); });
    }
};
