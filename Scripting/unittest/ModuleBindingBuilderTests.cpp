#include "Diagnostics/Assert.h"
#include "Scripting/BindingType/ArgumentBindingBuilder.h"
#include "Scripting/BindingType/ArgumentDetails.h"
#include "Scripting/BindingType/ModuleBindingBuilder.h"
#include "Scripting/LifetimeRegistry/LifetimeScopeImplementation.h"
#include "Scripting/Reflection/IFunction.h"
#include "Scripting/Reflection/Reflection.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace
{
using Ovelith::Diagnostics::collectAsserts;
using Ovelith::Diagnostics::interceptAsserts;
using namespace Scripting;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

const quv::UUID MODULE_UUID(0xf24732b60f044b16ull, 0x81cb88d6b99a11eaull);
constexpr const char* CYCLE_TEXT = "Could not order class bindings, circular reference detected.";

// A callable that only carries what a build writes into it.
class RecordingFunction final : public Reflection::IFunction
{
public:
    RecordingFunction() : IFunction(Privilege::None) {}

    entt::meta_any call(entt::meta_any, entt::meta_any*, uint32_t) const override { return {}; }
    entt::meta_type getReturnType() const override { return {}; }
    uint32_t getArgumentCount() const override { return 0; }
    entt::meta_type getArgumentType(uint32_t) const override { return {}; }
    const entt::meta_any& getDefaultArgument(uint32_t) const override { return mDetails.defaultValue; }
    bool validateArgument(const entt::meta_any&, uint32_t) const override { return true; }
    std::optional<entt::meta_type> getClassType() const override { return std::nullopt; }
    const ArgumentDetails& getArgumentDetails(uint32_t) const override { return mDetails; }

private:
    ArgumentDetails mDetails;
};

// Distinct native types for class records.
template <std::size_t N>
struct Node
{
};

template <std::size_t N>
entt::meta_type nodeType()
{
    return Reflection::resolve<Node<N>>();
}

ModuleBindingBuilder makeBuilder(Version version = Version(1, 0, 0))
{
    return ModuleBindingBuilder(MODULE_UUID, "test-module", version, false);
}

template <typename Record>
Record named(const std::string& name)
{
    Record record;
    record.name = name;
    return record;
}

ClassBinding classOf(const std::string& name, entt::meta_type type, entt::meta_type baseType = {})
{
    ClassBinding binding = named<ClassBinding>(name);
    binding.type = type;
    binding.baseType = baseType;
    return binding;
}

template <typename Record>
std::vector<std::string> namesOf(const std::vector<Record>& records)
{
    std::vector<std::string> names;
    for (const Record& record : records)
    {
        names.push_back(record.name);
    }
    return names;
}

ModuleBinding buildTagged(ModuleBindingBuilder& builder)
{
    return builder.build(false, {}, {});
}

// --- Which records a build keeps ---

struct InclusionCase
{
    const char* rule;
    std::function<void(TaggedBinding&)> tag;
    Version version;
    bool allowUntagged;
    std::vector<std::string> enabledTags;
    bool included;
};

TEST(ModuleBindingBuilderTest, TagsDecideInclusionRuleByRuleInOrder)
{
    const auto untagged = [](TaggedBinding&) {};
    const auto from12Until2 = [](TaggedBinding& t) { t.release(Version(1, 2, 0), RemovedInMajorVersion(2)); };
    const auto beta = [](TaggedBinding& t) { t.beta(); };
    const auto from1OrBeta = [](TaggedBinding& t) { t.release(Version(1, 0, 0)).beta(); };
    const auto from1NotBeta = [](TaggedBinding& t) { t.release(Version(1, 0, 0)).notBeta(); };
    const auto notBetaFrom1 = [](TaggedBinding& t) { t.notBeta().release(Version(1, 0, 0)); };
    const auto notBeta = [](TaggedBinding& t) { t.notBeta(); };
    const auto betaNotBeta = [](TaggedBinding& t) { t.beta().notBeta(); };
    const auto from3ThenFrom1 = [](TaggedBinding& t) { t.release(Version(3, 0, 0)).release(Version(1, 0, 0)); };
    const auto from2 = [](TaggedBinding& t) { t.release(Version(2, 0, 0)); };

    const InclusionCase cases[] = {
        {"untagged", untagged, {1, 0, 0}, true, {}, true},
        {"untagged", untagged, {1, 0, 0}, false, {}, false},
        {"1.2.0 until 2", from12Until2, {1, 2, 0}, false, {}, true},
        {"1.2.0 until 2", from12Until2, {1, 9, 9}, false, {}, true},
        {"1.2.0 until 2", from12Until2, {1, 1, 9}, false, {}, false},
        {"1.2.0 until 2", from12Until2, {2, 0, 0}, true, {}, false},
        {"beta", beta, {1, 0, 0, "beta"}, false, {}, true},
        {"beta", beta, {1, 0, 0}, false, {}, false},
        {"beta", beta, {1, 0, 0}, false, {"beta"}, true},
        {"beta", beta, {1, 0, 0, "rc.1"}, false, {}, false},
        {"beta", beta, {1, 0, 0, "rc.1"}, false, {"internal", "beta"}, true},
        {"beta", beta, {1, 0, 0}, false, {"Beta"}, false},
        {"1.0.0 or beta", from1OrBeta, {2, 0, 0}, false, {}, true},
        {"1.0.0 or beta", from1OrBeta, {0, 5, 0}, false, {}, false},
        {"1.0.0 or beta", from1OrBeta, {0, 5, 0}, false, {"beta"}, true},
        {"1.0.0 or beta", from1OrBeta, {0, 5, 0, "beta"}, false, {}, true},
        {"1.0.0 not beta", from1NotBeta, {2, 0, 0, "beta"}, false, {}, false},
        {"1.0.0 not beta", from1NotBeta, {2, 0, 0}, false, {}, true},
        {"not beta, 1.0.0", notBetaFrom1, {2, 0, 0, "beta"}, false, {}, false},
        {"not beta, 1.0.0", notBetaFrom1, {2, 0, 0}, false, {}, true},
        {"not beta alone", notBeta, {1, 0, 0}, true, {}, false},
        {"beta, not beta", betaNotBeta, {1, 0, 0, "beta"}, false, {}, false},
        {"3.0.0, then 1.0.0", from3ThenFrom1, {2, 0, 0}, false, {}, true},
        // An enabled tag rescues only a prerelease rule.
        {"2.0.0", from2, {1, 0, 0}, false, {"beta"}, false},
    };
    for (const auto& c : cases)
    {
        ModuleBindingBuilder builder = makeBuilder(c.version);
        c.tag(builder.functionBinding(named<FunctionBinding>("f")));
        const ModuleBinding module = builder.build(c.allowUntagged, c.enabledTags, {});
        EXPECT_EQ(module.functionBindings.size(), c.included ? 1u : 0u)
            << c.rule << " in " << c.version.toString() << (c.allowUntagged ? ", untagged allowed" : "");
    }
}

TEST(ModuleBindingBuilderTest, ChildrenPassTheirOwnTagsOnly)
{
    ModuleBindingBuilder builder = makeBuilder(Version(2, 0, 0));
    const auto in = [](auto& record) { record.release(Version(1, 0, 0)); };
    const auto out = [](auto& record) { record.release(Version(3, 0, 0)); };

    ClassBinding klass = classOf("Klass", nodeType<0>());
    in(klass);
    in(klass.functions.emplace_back(named<FunctionBinding>("keptFunction")));
    klass.functions.emplace_back(named<FunctionBinding>("untaggedFunction"));
    out(klass.functions.emplace_back(named<FunctionBinding>("laterFunction")));
    in(klass.properties.emplace_back(named<PropertyBinding>("keptProperty")));
    out(klass.properties.emplace_back(named<PropertyBinding>("laterProperty")));
    out(klass.constants.emplace_back(named<ConstantFactory>("laterConstant")));
    in(klass.constants.emplace_back(named<ConstantFactory>("keptConstant")));
    out(klass.constructors.emplace_back(named<FunctionBinding>("constructor")));
    in(klass.constructors.emplace_back(named<FunctionBinding>("constructor")));
    builder.classBinding(std::move(klass));

    // A member tagged for this version does not bring back a class that is not in it.
    ClassBinding later = classOf("Later", nodeType<1>());
    out(later);
    in(later.functions.emplace_back(named<FunctionBinding>("f")));
    builder.classBinding(std::move(later));

    InterfaceBinding shape = named<InterfaceBinding>("Shape");
    in(shape);
    in(shape.properties.emplace_back(named<PropertyBinding>("kept")));
    out(shape.properties.emplace_back(named<PropertyBinding>("later")));
    builder.interfaceBinding(std::move(shape));

    ErrorBinding error = named<ErrorBinding>("Failure");
    in(error);
    out(error.properties.emplace_back(named<PropertyBinding>("later")));
    in(error.properties.emplace_back(named<PropertyBinding>("kept")));
    builder.errorBinding(std::move(error));

    // Values follow the surviving constants of their name; a value without any constant goes.
    EnumBinding colour = named<EnumBinding>("Colour");
    in(colour);
    in(colour.constants.emplace_back(named<ConstantFactory>("Red")));
    out(colour.constants.emplace_back(named<ConstantFactory>("Green")));
    in(colour.constants.emplace_back(named<ConstantFactory>("Blue")));
    for (const char* value : {"Blue", "Green", "Red", "Orphan"})
    {
        colour.values.push_back(EnumValueBinding{value, value, {}});
    }
    builder.enumBinding(std::move(colour));

    // A map and its entries: an entry needs both of its tags, a map that is not in the version takes its
    // entries along.
    TaggedBinding inTag;
    in(inTag);
    TaggedBinding outTag;
    out(outTag);
    TypeMapBuilder typeMap("Map", "key", {});
    in(typeMap);
    typeMap.addMapping("both", "A", inTag, inTag);
    typeMap.addMapping("classLater", "B", outTag, inTag);
    typeMap.addMapping("constantLater", "C", inTag, outTag);
    typeMap.addMapping("untagged", "D", {}, {});
    builder.createTypeMap(typeMap);
    TypeMapBuilder laterMap("LaterMap", "key", {});
    out(laterMap);
    laterMap.addMapping("both", "A", inTag, inTag);
    builder.createTypeMap(laterMap);

    const ModuleBinding module = buildTagged(builder);
    ASSERT_EQ(module.classBindings.size(), 1u);
    const ClassBinding& built = module.classBindings[0];
    EXPECT_THAT(namesOf(built.functions), ElementsAre("keptFunction"));
    EXPECT_THAT(namesOf(built.properties), ElementsAre("keptProperty"));
    EXPECT_THAT(namesOf(built.constants), ElementsAre("keptConstant"));
    EXPECT_EQ(built.constructors.size(), 1u);
    ASSERT_EQ(module.interfaceBindings.size(), 1u);
    EXPECT_THAT(namesOf(module.interfaceBindings[0].properties), ElementsAre("kept"));
    ASSERT_EQ(module.errorBindings.size(), 1u);
    EXPECT_THAT(namesOf(module.errorBindings[0].properties), ElementsAre("kept"));
    ASSERT_EQ(module.enumBindings.size(), 1u);
    EXPECT_THAT(namesOf(module.enumBindings[0].constants), ElementsAre("Red", "Blue"));
    EXPECT_THAT(namesOf(module.enumBindings[0].values), ElementsAre("Blue", "Red"));
    ASSERT_EQ(module.typeMaps.size(), 1u);
    ASSERT_EQ(module.typeMaps[0].entries.size(), 1u);
    EXPECT_EQ(module.typeMaps[0].entries[0].key, "both");
}

TEST(ModuleBindingBuilderTest, BuildSpendsTheBuilder)
{
    const ModuleDependency dependency{"theDependency", quv::UUID(7, 7), {Version(1, 0, 0)}, false, false};
    ModuleBindingBuilder builder(MODULE_UUID, "test-module", Version(1, 2, 3, "beta"), true);
    builder.dependency(dependency);
    builder.functionBinding(named<FunctionBinding>("f"));

    const ModuleBinding first = builder.build(true, {}, {});
    EXPECT_EQ(first.descriptor, (ModuleDescriptor{"test-module", MODULE_UUID, Version(1, 2, 3, "beta"), false}));
    EXPECT_THAT(first.dependencies, ElementsAre(dependency));
    EXPECT_TRUE(first.builderFlag);
    EXPECT_EQ(first.functionBindings.size(), 1u);

    const ModuleBinding second = builder.build(true, {}, {});
    EXPECT_EQ(second.descriptor, ModuleDescriptor{});
    EXPECT_THAT(second.dependencies, IsEmpty());
    EXPECT_FALSE(second.builderFlag);
    EXPECT_THAT(second.functionBindings, IsEmpty());
}

TEST(ModuleBindingBuilderTest, ScriptSourceExcludesBindingsEvenFilteredOnes)
{
    ModuleBindingBuilder scriptOnly = makeBuilder();
    scriptOnly.scriptSource("export const a = 1;");
    ModuleBinding module;
    EXPECT_THAT(collectAsserts([&] { module = buildTagged(scriptOnly); }), IsEmpty());
    EXPECT_EQ(module.scriptSource, "export const a = 1;");

    // The check looks at what was added, not at what this version keeps.
    ModuleBindingBuilder mixed = makeBuilder();
    mixed.scriptSource("export const a = 1;");
    mixed.constant("later", Reflection::resolve<int>(), true, {}).release(Version(9, 0, 0));
    EXPECT_THAT(collectAsserts([&] { module = buildTagged(mixed); }),
                ElementsAre("Module test-module contains javascript and bindings, this is unsupported."));
    EXPECT_EQ(module.scriptSource, "export const a = 1;");
    EXPECT_THAT(module.constants, IsEmpty());
}

// --- Order of classes ---

struct OrderCase
{
    const char* what;
    std::vector<ClassBinding> input;
    std::vector<std::string> expected;
};

TEST(ModuleBindingBuilderTest, ClassesStandBehindTheirBases)
{
    const entt::meta_type a = nodeType<1>(), b = nodeType<2>(), c = nodeType<3>(), d = nodeType<4>();
    const entt::meta_type external = nodeType<99>();
    const OrderCase cases[] = {
        {"derived first", {classOf("B", b, a), classOf("A", a)}, {"A", "B"}},
        {"chain of three", {classOf("C", c, b), classOf("A", a), classOf("B", b, a)}, {"A", "B", "C"}},
        {"unrelated keep their order", {classOf("C", c), classOf("A", a), classOf("B", b)}, {"C", "A", "B"}},
        {"a base from elsewhere holds nothing back", {classOf("B", b, external), classOf("A", a)}, {"B", "A"}},
        // Each pass walks what is left in order: a class whose base was taken behind it waits for the next.
        {"later passes keep input order",
         {classOf("D", d, b), classOf("C", c, a), classOf("A", a), classOf("B", b)},
         {"A", "B", "D", "C"}},
        {"a derived class behind its base goes in the same pass",
         {classOf("A", a), classOf("D", d, b), classOf("B", b), classOf("C", c, a)},
         {"A", "B", "C", "D"}},
        // Any class of the base type releases the derived one.
        {"two classes of one type",
         {classOf("Derived", b, a), classOf("A1", a), classOf("A2", a)},
         {"A1", "A2", "Derived"}},
        {"a class over its own type, released by another", {classOf("Self", a, a), classOf("A", a)}, {"A", "Self"}},
        {"records without a type", {classOf("X", {}, a), classOf("Y", {}), classOf("A", a)}, {"Y", "A", "X"}},
    };
    for (const auto& c : cases)
    {
        ModuleBindingBuilder builder = makeBuilder();
        for (const ClassBinding& klass : c.input)
        {
            builder.classBinding(klass);
        }
        ModuleBinding module;
        EXPECT_THAT(collectAsserts([&] { module = builder.build(true, {}, {}); }), IsEmpty()) << c.what;
        EXPECT_THAT(namesOf(module.classBindings), ElementsAreArray(c.expected)) << c.what;
    }
}

TEST(ModuleBindingBuilderTest, ClassesInACycleOfBasesAreReportedAndDropped)
{
    const entt::meta_type a = nodeType<1>(), b = nodeType<2>(), c = nodeType<3>(), d = nodeType<4>();
    const OrderCase cases[] = {
        {"two classes", {classOf("A", a, b), classOf("B", b, a), classOf("C", c)}, {"C"}},
        {"its own base", {classOf("C", c), classOf("Self", a, a)}, {"C"}},
        {"derived from a cycle", {classOf("D", d, a), classOf("A", a, b), classOf("B", b, a)}, {}},
    };
    for (const auto& c : cases)
    {
        ModuleBindingBuilder builder = makeBuilder();
        for (const ClassBinding& klass : c.input)
        {
            builder.classBinding(klass);
        }
        ModuleBinding module;
        EXPECT_THAT(collectAsserts([&] { module = builder.build(true, {}, {}); }), ElementsAre(CYCLE_TEXT)) << c.what;
        EXPECT_THAT(namesOf(module.classBindings), ElementsAreArray(c.expected)) << c.what;
    }
}

template <std::size_t... I>
std::vector<entt::meta_type> nodeTypes(std::index_sequence<I...>)
{
    return {nodeType<I>()...};
}

// Taken in passes literally, a chain given derived first costs a pass per link; a recursive walk would go as
// deep as the chain.
TEST(ModuleBindingBuilderTest, LongChainGivenDerivedFirstIsOrderedBaseFirst)
{
    const std::vector<entt::meta_type> types = nodeTypes(std::make_index_sequence<512>());
    ModuleBindingBuilder builder = makeBuilder();
    for (std::size_t i = types.size(); i-- > 0;)
    {
        builder.classBinding(classOf(fmt::format("C{}", i), types[i], i > 0 ? types[i - 1] : entt::meta_type{}));
    }
    const ModuleBinding module = builder.build(true, {}, {});
    ASSERT_EQ(module.classBindings.size(), types.size());
    for (std::size_t i = 0; i < types.size(); ++i)
    {
        EXPECT_EQ(module.classBindings[i].type, types[i]) << "position " << i;
    }
}

// The passes as they read: walk what is left in order, take a class without a base, with a base already
// taken or with a base that nothing left has; stop when a pass takes nothing.
std::vector<std::string> orderByPasses(std::vector<ClassBinding> input, bool& cycle)
{
    std::vector<ClassBinding> result;
    while (!input.empty())
    {
        const std::size_t before = result.size();
        for (std::size_t i = 0; i < input.size();)
        {
            const entt::meta_type base = input[i].baseType;
            const auto ofBase = [&](const ClassBinding& other) { return other.type == base; };
            if (!base || std::any_of(result.begin(), result.end(), ofBase) ||
                std::none_of(input.begin(), input.end(), ofBase))
            {
                result.push_back(std::move(input[i]));
                input.erase(input.begin() + static_cast<std::ptrdiff_t>(i));
            }
            else
            {
                ++i;
            }
        }
        if (result.size() == before)
        {
            break;
        }
    }
    cycle = !input.empty();
    return namesOf(result);
}

TEST(ModuleBindingBuilderTest, OrderMatchesTakingClassesInPasses)
{
    const std::vector<entt::meta_type> pool = {
        {}, nodeType<1>(), nodeType<2>(), nodeType<3>(), nodeType<4>(), nodeType<5>(), nodeType<6>(), nodeType<98>()};
    std::mt19937 random(20240611u);
    std::uniform_int_distribution<std::size_t> pick(0, pool.size() - 1);
    std::uniform_int_distribution<std::size_t> length(0, 12);
    for (int round = 0; round < 2000; ++round)
    {
        std::vector<ClassBinding> input;
        const std::size_t count = length(random);
        for (std::size_t i = 0; i < count; ++i)
        {
            // The last type of the pool is never a class: a base from another module.
            input.push_back(classOf(fmt::format("C{}", i), pool[pick(random) % (pool.size() - 1)], pool[pick(random)]));
        }
        bool cycle = false;
        const std::vector<std::string> expected = orderByPasses(input, cycle);

        ModuleBindingBuilder builder = makeBuilder();
        for (const ClassBinding& klass : input)
        {
            builder.classBinding(klass);
        }
        std::vector<std::string> asserts;
        ModuleBinding module;
        interceptAsserts([&] { module = builder.build(true, {}, {}); },
                         [&](std::string text)
                         {
                             if (text == CYCLE_TEXT)
                             {
                                 asserts.push_back(std::move(text));
                             }
                         });
        ASSERT_THAT(namesOf(module.classBindings), ElementsAreArray(expected)) << "round " << round;
        ASSERT_EQ(asserts.size(), cycle ? 1u : 0u) << "round " << round;
    }
}

// --- Runtime conditions and constructors ---

TEST(ModuleBindingBuilderTest, MissingConditionsKeepOrderAndDuplicates)
{
    auto method = std::make_shared<RecordingFunction>();
    auto constructor = std::make_shared<RecordingFunction>();
    auto moduleFunction = std::make_shared<RecordingFunction>();
    constructor->missingRuntimeConditions = {"untouched"};
    moduleFunction->missingRuntimeConditions = {"untouched"};

    ModuleBindingBuilder builder = makeBuilder();
    ClassBinding klass = classOf("Klass", nodeType<0>());
    klass.runtimeConditions = {"a", "offered", "b", "a"};
    FunctionBinding& bound = klass.functions.emplace_back(named<FunctionBinding>("m"));
    bound.function = method;
    bound.runtimeConditions = {"offered", "x"};
    klass.functions.emplace_back(named<FunctionBinding>("noCallable")).runtimeConditions = {"x"};
    FunctionBinding& made = klass.constructors.emplace_back(named<FunctionBinding>("constructor"));
    made.function = constructor;
    made.runtimeConditions = {"x"};
    builder.classBinding(std::move(klass));
    InterfaceBinding shape = named<InterfaceBinding>("Shape");
    shape.runtimeConditions = {"offered", "other"};
    builder.interfaceBinding(std::move(shape));
    FunctionBinding& moduleLevel = builder.functionBinding(named<FunctionBinding>("moduleLevel"));
    moduleLevel.function = moduleFunction;
    moduleLevel.runtimeConditions = {"x"};

    const ModuleBinding module = builder.build(true, {}, RuntimeConditions{{"offered", "unused"}});
    EXPECT_THAT(module.classBindings[0].missingRuntimeConditions, ElementsAre("a", "b", "a"));
    EXPECT_THAT(method->missingRuntimeConditions, ElementsAre("x"));
    EXPECT_THAT(module.interfaceBindings[0].missingRuntimeConditions, ElementsAre("other"));
    // Constructors and module functions are left as they were.
    EXPECT_THAT(constructor->missingRuntimeConditions, ElementsAre("untouched"));
    EXPECT_THAT(moduleFunction->missingRuntimeConditions, ElementsAre("untouched"));
}

TEST(ModuleBindingBuilderTest, EachBuildMayHoldOneConstructorPerClass)
{
    struct ConstructorCase
    {
        Version version;
        std::vector<std::string> asserts;
    };
    const ConstructorCase cases[] = {
        {Version(1, 0, 0), {}},
        {Version(2, 0, 0), {"Class 'TestClass' has been registered with 2 constructors"}},
        {Version(3, 0, 0), {"Class 'TestClass' has been registered with 3 constructors"}},
    };
    for (const auto& c : cases)
    {
        ModuleBindingBuilder builder = makeBuilder(c.version);
        ClassBinding& klass = builder.classBinding(classOf("TestClass", nodeType<0>()));
        klass.release(Version(1, 0, 0));
        for (uint16_t major : {1, 2, 3})
        {
            klass.constructors.emplace_back(named<FunctionBinding>("constructor")).release(Version(major, 0, 0));
        }
        ModuleBinding module;
        EXPECT_THAT(collectAsserts([&] { module = buildTagged(builder); }), ElementsAreArray(c.asserts))
            << c.version.toString();
        // Reported, not removed.
        EXPECT_EQ(module.classBindings[0].constructors.size(), c.version.Major);
    }
}

// --- Name collisions ---

std::string inModule(const std::string& name)
{
    return "A member with the name '" + name + "' already exists in module 'test-module'";
}

TEST(ModuleBindingBuilderTest, CollisionsAreReportedOncePerRecordInNameSpaceOrder)
{
    ModuleBindingBuilder builder = makeBuilder();
    builder.objectFactory(named<ObjectFactoryBinding>("shared"));
    ClassBinding& klass = builder.classBinding(classOf("shared", nodeType<0>()));
    klass.constants.push_back(named<ConstantFactory>("member"));
    klass.functions.push_back(named<FunctionBinding>("member"));
    klass.properties.push_back(named<PropertyBinding>("member"));
    klass.properties.push_back(named<PropertyBinding>("alone"));
    // Constructors are not members by name.
    klass.functions.push_back(named<FunctionBinding>("constructor"));
    klass.constructors.push_back(named<FunctionBinding>("constructor"));
    EnumBinding& colour = builder.enumBinding(named<EnumBinding>("Colour"));
    colour.constants = {named<ConstantFactory>("Red"), named<ConstantFactory>("Red")};
    builder.constant("Colour", {}, true, {});
    builder.functionBinding(named<FunctionBinding>("shared"));
    // Interfaces and errors are outside the module's name space, and nothing checks interface properties.
    InterfaceBinding& shape = builder.interfaceBinding(named<InterfaceBinding>("shared"));
    shape.properties = {named<PropertyBinding>("p"), named<PropertyBinding>("p")};
    builder.errorBinding(named<ErrorBinding>("Colour"));

    EXPECT_THAT(collectAsserts([&] { builder.build(true, {}, {}); }),
                ElementsAre(inModule("shared"), inModule("Colour"), inModule("Colour"),
                            "A member with the name 'Red' already exists in enum 'Colour'",
                            "A member with the name 'Red' already exists in enum 'Colour'", inModule("shared"),
                            "A member with the name 'member' already exists in class 'shared'",
                            "A member with the name 'member' already exists in class 'shared'",
                            "A member with the name 'member' already exists in class 'shared'", inModule("shared")));
}

TEST(ModuleBindingBuilderTest, OnlyRecordsOfOneBuildCollide)
{
    for (uint16_t major : {1, 2})
    {
        ModuleBindingBuilder builder = makeBuilder(Version(major, 0, 0));
        builder.functionBinding(named<FunctionBinding>("foo")).release(Version(1, 0, 0), RemovedInMajorVersion(2));
        builder.functionBinding(named<FunctionBinding>("foo")).release(Version(2, 0, 0));
        // Untagged records are not in a build that leaves them out.
        builder.constant("foo", {}, true, {});
        ClassBinding& klass = builder.classBinding(classOf("Klass", nodeType<0>()));
        klass.release(Version(1, 0, 0));
        klass.properties.push_back(named<PropertyBinding>("bar"));
        klass.properties.back().release(Version(major, 0, 0));
        klass.properties.push_back(named<PropertyBinding>("bar"));
        klass.properties.back().release(Version(3, 0, 0));
        ModuleBinding module;
        EXPECT_THAT(collectAsserts([&] { module = buildTagged(builder); }), IsEmpty()) << major;
        EXPECT_EQ(module.functionBindings.size(), 1u);
    }
}

// --- Dependencies and construction ---

TEST(ModuleBindingBuilderTest, DependenciesAreKeptOncePerModuleAndVersions)
{
    const ModuleDependency theDependency{"theDependency", quv::UUID(7, 7), {Version(1, 0, 0)}, false, false};
    ModuleDependency renamed = theDependency;
    renamed.name = "renamed";
    ModuleDependency otherVersions = theDependency;
    otherVersions.versions = {Version(1, 0, 0), Version(2, 0, 0)};
    const ModuleDependency self{"theModule", MODULE_UUID, {Version(1, 0, 0)}, false, false};

    ModuleBindingBuilder builder = makeBuilder();
    std::vector<std::string> asserts = collectAsserts(
        [&] {
            builder.dependency({theDependency, renamed, otherVersions, self});
        });
    EXPECT_THAT(asserts, ElementsAre("A dependency with this name already exists on this module",
                                     "You can't take a dependency on yourself"));
    const ModuleBinding module = builder.build(true, {}, {});
    ASSERT_EQ(module.dependencies.size(), 3u);
    EXPECT_EQ(module.dependencies[0].name, "theDependency");
    EXPECT_EQ(module.dependencies[1].versions, otherVersions.versions);
    EXPECT_EQ(module.dependencies[2].uuid, MODULE_UUID);
}

TEST(ModuleBindingBuilderTest, ConstructionGoesOnAfterReports)
{
    std::unique_ptr<ModuleBindingBuilder> builder;
    EXPECT_THAT(
        collectAsserts(
            [&] { builder = std::make_unique<ModuleBindingBuilder>(quv::UUID::EMPTY, "", Version(1, 0, 0), true); }),
        ElementsAre("Module needs a valid UUID", "Module needs a valid name"));
    const ModuleBinding module = builder->build(true, {}, {});
    EXPECT_EQ(module.descriptor.version, Version(1, 0, 0));
    EXPECT_TRUE(module.builderFlag);
}
// --- Module-level adders ---

int addBoth(int left, int right)
{
    return left + right;
}

TEST(ModuleBindingBuilderTest, MisdescribedModuleMembersAreReportedAndLeftOut)
{
    ModuleBindingBuilder builder = makeBuilder();
    const std::vector<std::string> asserts = collectAsserts(
        [&]
        {
            builder.function<&addBoth>("addBoth", ArgumentBindingBuilder<float>("left")).release(Version(1, 0, 0));
            builder.function(
                "lambda", [](int) {}, ArgumentBindingBuilder<int>("value"), ArgumentBindingBuilder<int>("extra"));
            builder.function("", [] {}).beta();
            builder.object<int>("wantsArgument", [](int value) { return value; }).notBeta();
            builder.object<int>("", [] { return 1; });
        });
    EXPECT_THAT(asserts, ElementsAre("Argument binding type does not match actual argument type",
                                     "Function arguments metadata mismatch with number of arguments it actually takes!",
                                     "Argument binding length mismatch.  Binding argument count does not match actual "
                                     "functions argument count",
                                     "Function arguments metadata mismatch with number of arguments it actually takes!",
                                     "Module 'test-module' has a function with an empty name; it is left out",
                                     "Object 'wantsArgument' of module 'test-module' has a factory that takes script "
                                     "arguments; it is left out",
                                     "Module 'test-module' has an object with an empty name; it is left out"));

    // What stays is what was described rightly; tags chained on a dropped member landed nowhere.
    builder.function<&addBoth>("addBoth", ArgumentBindingBuilder<int>("left"), ArgumentBindingBuilder<int>("right"));
    builder.object<int>("made", [](WeakLifetimeScope&) { return 2; });
    const ModuleBinding module = builder.build(false, {}, {});
    EXPECT_THAT(module.functionBindings, IsEmpty()) << "the untagged function is not in a tagged build";
    EXPECT_THAT(module.objectFactories, IsEmpty());

    ModuleBindingBuilder untagged = makeBuilder();
    untagged.function<&addBoth>("addBoth", ArgumentBindingBuilder<int>("left"), ArgumentBindingBuilder<int>("right"));
    untagged.object<int>("made", [](WeakLifetimeScope&) { return 2; });
    const ModuleBinding kept = untagged.build(true, {}, {});
    ASSERT_EQ(kept.functionBindings.size(), 1u);
    EXPECT_THAT(namesOf(kept.functionBindings[0].arguments), ElementsAre("left", "right"));
    ASSERT_EQ(kept.objectFactories.size(), 1u);
    EXPECT_EQ(kept.objectFactories[0].type, Reflection::resolve<int>());
    EXPECT_EQ(kept.objectFactories[0].function->injectedArgumentCount, 1u);
}

TEST(ModuleBindingBuilderTest, TypedConstantsAreMadeAnewFromACopy)
{
    ModuleBindingBuilder builder = makeBuilder();
    std::string text = "first";
    builder.constant("text", text).release(Version(1, 0, 0));
    builder.constant("cText", "literal").release(Version(1, 0, 0));
    text = "changed";
    const ModuleBinding module = buildTagged(builder);
    ASSERT_EQ(module.constants.size(), 2u);
    WeakLifetimeScope scope;
    EXPECT_EQ(module.constants[0].type, Reflection::resolve<std::string>());
    EXPECT_EQ(module.constants[0].factory(scope).cast<std::string>(), "first");
    EXPECT_TRUE(module.constants[0].isConstant);
    EXPECT_EQ(module.constants[1].type, Reflection::resolve<const char*>());
    EXPECT_STREQ(module.constants[1].factory(scope).cast<const char*>(), "literal");
}
} // namespace
