#include "GameModule.h"
#include "LuaTestSupport.h"

#include "Scripting/BindingType/NumberRange.h"
#include "Scripting/Lua/Declarations.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <lua.hpp>

#include <filesystem>
#include <fstream>
#include <sstream>

using namespace Scripting;
using Lua::DeclarationFormat;
using ::testing::HasSubstr;
using ::testing::Not;

namespace LuaTest
{
namespace
{
ModuleBinding zooBinding(const Version& version)
{
    std::optional<ModuleBinding> binding = makeZooFactory()->createModuleBinding(version, std::nullopt);
    EXPECT_TRUE(binding.has_value());
    return binding.value_or(ModuleBinding{});
}

// The names a module table holds, one a line, sorted: its keys, and one level into each table it holds
// ("Counter.new", "Mood.Happy", "Settings.fields").
constexpr const char* LIST_NAMES = R"lua(
local module = ...
local out = {}
for key, value in pairs(module) do
    out[#out + 1] = tostring(key)
    if type(value) == "table" then
        for inner in pairs(value) do
            out[#out + 1] = tostring(key) .. "." .. tostring(inner)
        end
    end
end
table.sort(out)
return table.concat(out, "\n")
)lua";

// Runs the declarations as the chunk they are in a plain Lua state and lists the names of the table they
// return. An empty optional, and a test failure, when the text does not load or run.
std::optional<std::string> declaredNames(const std::string& declarations)
{
    lua_State* state = luaL_newstate();
    luaL_openlibs(state);
    std::optional<std::string> names;
    if (luaL_loadbufferx(state, declarations.data(), declarations.size(), "=declarations", "t") != LUA_OK ||
        lua_pcall(state, 0, 1, 0) != LUA_OK)
    {
        ADD_FAILURE() << "the declarations do not run: " << lua_tostring(state, -1);
    }
    else if (luaL_loadstring(state, LIST_NAMES) != LUA_OK ||
             (lua_insert(state, -2), lua_pcall(state, 1, 1, 0)) != LUA_OK)
    {
        ADD_FAILURE() << lua_tostring(state, -1);
    }
    else
    {
        names = lua_tostring(state, -1);
    }
    lua_close(state);
    return names;
}

class LuaDeclarationsTest : public LuaEngineTest
{
protected:
    // What a script of the runtime finds in `require(module)` against the declared names: every declared name
    // must be there (object factories appear only when read), and every name `pairs` shows must be declared.
    void expectModuleTableMatches(const std::string& module, const std::string& declared)
    {
        const std::string script = fmt::format(R"lua(
local listNames = load({})
local module = require({})
local declared, missing, extra = {{}}, {{}}, {{}}
for line in ({}):gmatch("[^\n]+") do
    declared[line] = true
    local outer, inner = line:match("^([^.]+)%.(.+)$")
    local value = outer and module[outer] or module[line]
    if outer and type(value) == "table" then value = value[inner] end
    if value == nil then missing[#missing + 1] = line end
end
for line in listNames(module):gmatch("[^\n]+") do
    if not declared[line] then extra[#extra + 1] = line end
end
return "missing: " .. table.concat(missing, " ") .. "; not declared: " .. table.concat(extra, " ")
)lua",
                                               literal(LIST_NAMES), literal(module), literal(declared));
        EXPECT_EQ(text(run(script)), "missing: ; not declared: ") << module;
    }

    static std::string literal(const std::string& text) { return "[==[" + text + "]==]"; }
};

TEST_F(LuaDeclarationsTest, LuaAnnotationsDeclareEveryNameOfTheModuleTableAndNoOther)
{
    for (const Version& version : {Version(1, 0, 0), Version(2, 0, 0)})
    {
        mContext.reset();
        context(version);
        const ModuleBinding binding = zooBinding(version);
        const std::optional<std::string> declared =
            declaredNames(Lua::writeModuleDeclarations(binding, DeclarationFormat::LuaAnnotations));
        ASSERT_TRUE(declared.has_value());
        // The records that only one version holds.
        EXPECT_EQ(declared->find("\nnewInTwo\n") != std::string::npos, version.Major == 2) << *declared;
        EXPECT_EQ(declared->find("\noldOnly\n") != std::string::npos, version.Major == 1) << *declared;
        expectModuleTableMatches(MODULE_NAME, *declared);

        std::optional<ModuleBinding> common =
            CommonModuleFactory().createModuleBinding(CommonModuleFactory::LATEST_VERSION, std::nullopt);
        ASSERT_TRUE(common.has_value());
        const std::optional<std::string> commonDeclared =
            declaredNames(Lua::writeModuleDeclarations(*common, DeclarationFormat::LuaAnnotations));
        ASSERT_TRUE(commonDeclared.has_value());
        expectModuleTableMatches(CommonModuleFactory::MODULE_NAME, *commonDeclared);
    }
}

TEST_F(LuaDeclarationsTest, TheGameModuleIsDeclaredAsItsVersionHoldsIt)
{
    mEngine.addModuleBindingFactory(Game::makeGameModuleFactory());
    for (const Version& version : {Version(1, 0, 0), Version(1, 1, 0)})
    {
        const ContextConfig config("lua", "", REQUESTER);
        ScriptContextResult made = mEngine.createScriptingContext(
            config, REQUESTER, {ModuleDescriptor{Game::MODULE_NAME, Game::MODULE_UUID, version, false}}, nullptr,
            nullptr);
        ASSERT_TRUE(made.context.has_value()) << made.getErrorText();
        mContext = std::move(made.context);
        std::optional<ModuleBinding> binding =
            Game::makeGameModuleFactory()->createModuleBinding(version, std::nullopt);
        ASSERT_TRUE(binding.has_value());
        const std::string lua = Lua::writeModuleDeclarations(*binding, DeclarationFormat::LuaAnnotations);
        const std::optional<std::string> declared = declaredNames(lua);
        ASSERT_TRUE(declared.has_value());
        expectModuleTableMatches(Game::MODULE_NAME, *declared);
        // What 1.1.0 adds, and only there.
        EXPECT_EQ(declared->find("Team.Green") != std::string::npos, version.Minor == 1) << *declared;
        EXPECT_EQ(lua.find(":heal(amount)") != std::string::npos, version.Minor == 1);
        EXPECT_EQ(lua.find(":dot(other)") != std::string::npos, version.Minor == 1);
    }
}

TEST_F(LuaDeclarationsTest, RuntimeAnnotationsLoadBesideTheModules)
{
    const std::string runtime = Lua::writeRuntimeDeclarations(DeclarationFormat::LuaAnnotations);
    lua_State* state = luaL_newstate();
    EXPECT_EQ(luaL_loadstring(state, runtime.c_str()), LUA_OK) << lua_tostring(state, -1);
    EXPECT_EQ(lua_pcall(state, 0, 0, 0), LUA_OK) << lua_tostring(state, -1);
    // The names a script of the runtime uses as globals.
    EXPECT_EQ(lua_getglobal(state, "Promise"), LUA_TTABLE);
    EXPECT_EQ(lua_getglobal(state, "Buffer"), LUA_TTABLE);
    lua_close(state);
}

// Each row: a line the declarations of zoo hold in one format, as the runtime treats the record.
struct ExpectedLine
{
    DeclarationFormat format;
    const char* line;
};

TEST_F(LuaDeclarationsTest, TypesBoundsAndCallingConventionsOfEveryKindOfRecord)
{
    const ModuleBinding binding = zooBinding(Version(2, 0, 0));
    const std::string lua = Lua::writeModuleDeclarations(binding, DeclarationFormat::LuaAnnotations);
    const std::string ts = Lua::writeModuleDeclarations(binding, DeclarationFormat::TypeScript);
    const DeclarationFormat L = DeclarationFormat::LuaAnnotations;
    const DeclarationFormat T = DeclarationFormat::TypeScript;
    const ExpectedLine rows[] = {
        // Constructors, defaults, bounds and read-only properties.
        {L, "---@overload fun(start?: integer): Counter\n"},
        {L, "---@param start? integer default 0\n"},
        {T, "    /** @customConstructor Counter.new */\n    export class Counter {\n"},
        {T, "        constructor(start?: number);\n"},
        {L, "---@param by integer 1..10\n"},
        {T, "        /** @param by 1..10 */\n        increment(by: number): number;\n"},
        {L, "---@field value integer 0..1000\n"},
        {L, "---@field label string read-only\n"},
        {T, "        readonly label: string;\n"},
        // Methods take the object with ':', static functions do not.
        {L, ":increment(by) end\n"},
        {L, "function __module.Counter.twice(value) end\n"},
        {T, "        static twice(this: void, value: number): number;\n"},
        {T, "        static readonly LIMIT: number;\n"},
        // Only instances inherit.
        {L, "---@class Dog : Animal\n"},
        {T, "    export interface Dog extends Animal {}\n"},
        {T, "    export class Animal {\n        private constructor();\n"},
        // Enums by their script values.
        {L, "    Happy = \"Happy\",\n"},
        {L, "    High = 5,\n"},
        {T, "        Low = 1,\n"},
        // Shapes: every field of an interface may be left out; an error's fields are read.
        {L, "---@field volume? integer 0..10\n"},
        {T, "        ratio?: number | undefined;\n"},
        {L, "__module.Settings = { name = \"Settings\", fields = { \"volume\", \"title\", \"ratio\", \"list\" } }\n"},
        {L, "---@class ZooError : ScriptError\n---@field code integer\n"},
        {T, "    export class ZooError implements ScriptError {\n"},
        // Value types of arguments and results.
        {L, "---@param values integer[] -100..100\n"},
        {L, "---@param value? integer\n"},
        {T, "export function maybeDouble(this: void, value?: number): number | undefined;\n"},
        {L, "---@param mode \"fast\"|\"slow\" one of \"fast\", \"slow\"\n"},
        {T, "pick(this: void, mode: \"fast\" | \"slow\"): string;\n"},
        {T, "scale(this: void, value: number, factor?: number): number;\n"},
        {L, "---@param mood Mood\n---@return Mood\n"},
        {T, "counterValue(this: void, counter: Counter): number;\n"},
        {L, "---@param object userdata\n"},
        {L, "---@param code integer\n---@return integer\nfunction __module.fail(code) end\n"},
        {L, "---@param arg1 fun(arg1: integer): integer\n"},
        {T, "callTwice(this: void, arg1: (this: void, arg1: number) => number, value: number): number;\n"},
        {L, "---@param generator function|thread\n"},
        {L, "---@param promise Promise\n"},
        {T, "futureState(this: void, future: ScriptPromise): number;\n"},
        {L, "---@param buffer Buffer|string\n"},
        {L, "--- Needs the runtime conditions: gpu.\n"},
        // Module values.
        {L, "---@type integer\n__module.ANSWER = 0\n"},
        {L, "---@type Counter\n__module.keeper = {}\n"},
        {T, "    export const keeper: Counter;\n"},
    };
    for (const ExpectedLine& row : rows)
    {
        EXPECT_THAT(row.format == L ? lua : ts, HasSubstr(row.line));
    }
    // A parameter named after a Lua keyword cannot keep its name there.
    EXPECT_THAT(lua, HasSubstr("function __module.callTwice(arg1, value) end\n"));

    const std::string older = Lua::writeModuleDeclarations(zooBinding(Version(1, 0, 0)), DeclarationFormat::TypeScript);
    EXPECT_THAT(older, Not(HasSubstr("reset(")));
    EXPECT_THAT(older, Not(HasSubstr("newInTwo")));
    EXPECT_THAT(older, HasSubstr("oldOnly"));
}

TEST(LuaDeclarationsDependencies, TypesOfADependencyAreNamedThroughItsModule)
{
    std::optional<ModuleBinding> common =
        CommonModuleFactory().createModuleBinding(CommonModuleFactory::LATEST_VERSION, std::nullopt);
    ASSERT_TRUE(common.has_value());
    ModuleBinding module;
    module.descriptor.name = "@test/user";
    ClassBinding type;
    type.name = "Gauge";
    PropertyBinding range;
    range.name = "range";
    range.type = Reflection::resolve<NumberRange>();
    type.properties.push_back(range);
    module.classBindings.push_back(type);
    const std::vector<ModuleBinding> modules{module, *common};

    EXPECT_THAT(Lua::writeModuleDeclarations(module, DeclarationFormat::TypeScript, modules),
                HasSubstr("readonly range: import(\"@zentary/common\").NumberRange;"));
    EXPECT_THAT(Lua::writeModuleDeclarations(module, DeclarationFormat::LuaAnnotations, modules),
                HasSubstr("---@field range NumberRange read-only\n"));
    // A class no module binds is shown as its nearest bound base.
    const ModuleBinding zoo = zooBinding(Version(1, 0, 0));
    ModuleBinding animals;
    animals.descriptor.name = "@test/animals";
    for (const ClassBinding& binding : zoo.classBindings)
    {
        if (binding.name == "Animal")
        {
            animals.classBindings.push_back(binding);
        }
    }
    ASSERT_EQ(animals.classBindings.size(), 1u);
    PropertyBinding pet;
    pet.name = "pet";
    pet.type = Reflection::resolve<Dog>();
    animals.classBindings.front().properties.push_back(pet);
    EXPECT_THAT(Lua::writeModuleDeclarations(animals, DeclarationFormat::LuaAnnotations),
                HasSubstr("---@field pet Animal read-only\n"));
    // Without the module that binds it the type has no name a script knows.
    EXPECT_THAT(Lua::writeModuleDeclarations(module, DeclarationFormat::TypeScript), HasSubstr("readonly range: any;"));
}

TEST(LuaDeclarationsNames, NamesNoIdentifierCanHoldStillLoadAsLua)
{
    ModuleBinding module;
    module.descriptor.name = "@odd/\"names\"";
    for (const char* name : {"end", "two words", "quote\"d", "new", "x\nprint('injected')"})
    {
        FunctionBinding function;
        function.name = name;
        module.functionBindings.push_back(function);
        ClassBinding type;
        type.name = std::string("C\n") + name;
        FunctionBinding member;
        member.name = name;
        type.functions.push_back(member);
        module.classBindings.push_back(type);
    }
    const std::string lua = Lua::writeModuleDeclarations(module, DeclarationFormat::LuaAnnotations);
    const std::optional<std::string> names = declaredNames(lua);
    ASSERT_TRUE(names.has_value()) << lua;
    for (const char* name : {"end", "two words", "quote\"d", "new", "x\nprint('injected')"})
    {
        EXPECT_THAT(*names, HasSubstr(name));
    }
    const std::string ts = Lua::writeModuleDeclarations(module, DeclarationFormat::TypeScript);
    EXPECT_THAT(ts, HasSubstr("// new: not a name TypeScript can declare\n"));
    EXPECT_THAT(ts, HasSubstr("// C end: not a name TypeScript can declare\n"));
    EXPECT_THAT(ts, HasSubstr("    export function end(this: void): void;\n"));
}

TEST(LuaDeclarationsNames, FileNamesStayInsideTheDirectory)
{
    const std::pair<const char*, const char*> rows[] = {
        {"@example/game", "@example/game.lua"},
        {"/etc/passwd", "etc/passwd.lua"},
        {"../../up", "__/__/up.lua"},
        {"", "_.lua"},
    };
    for (const auto& [module, file] : rows)
    {
        EXPECT_EQ(Lua::declarationFileName(module, DeclarationFormat::LuaAnnotations), file) << module;
    }
    EXPECT_EQ(Lua::declarationFileName("@example/game", DeclarationFormat::TypeScript), "example-game.d.ts");
}

TEST(LuaDeclarationsFiles, TheExampleModuleWritesBothFormatsForEachModule)
{
    const std::filesystem::path directory = std::filesystem::temp_directory_path() / "lua-declarations-test";
    std::filesystem::remove_all(directory);
    auto game = Game::makeGameModuleFactory();
    std::optional<ModuleBinding> binding = game->createModuleBinding(Version(1, 0, 0), std::nullopt);
    ASSERT_TRUE(binding.has_value());
    const std::vector<ModuleBinding> modules{*binding};
    const ResultAny written = Lua::writeDeclarationFiles(directory, modules);
    ASSERT_FALSE(written.isError());
    for (const char* file : {"lua/runtime.lua", "lua/@example/game.lua", "ts/runtime.d.ts", "ts/example-game.d.ts"})
    {
        EXPECT_TRUE(std::filesystem::is_regular_file(directory / file)) << file;
    }
    std::ifstream ts(directory / "ts/example-game.d.ts");
    std::stringstream text;
    text << ts.rdbuf();
    EXPECT_THAT(text.str(), HasSubstr("declare module \"@example/game\" {"));
    EXPECT_THAT(text.str(), Not(HasSubstr("heal(")));
    std::filesystem::remove_all(directory);

    // A directory that cannot be made is an error value naming it.
    const std::filesystem::path blocked = std::filesystem::temp_directory_path() / "lua-declarations-blocked";
    std::ofstream(blocked).put('x');
    const ResultAny refused = Lua::writeDeclarationFiles(blocked / "below", modules);
    ASSERT_TRUE(refused.isError());
    EXPECT_THAT(refused.tryGetError()->message, HasSubstr("lua-declarations-blocked"));
    std::filesystem::remove(blocked);

    // Names that would land in one file are refused before anything is written.
    for (const char* clash : {"runtime", "example-game"})
    {
        ModuleBinding other;
        other.descriptor.name = clash;
        const std::vector<ModuleBinding> clashing{*binding, other};
        const ResultAny overwritten = Lua::writeDeclarationFiles(directory, clashing);
        ASSERT_TRUE(overwritten.isError()) << clash;
        EXPECT_THAT(overwritten.tryGetError()->message, HasSubstr("would overwrite another file")) << clash;
        EXPECT_FALSE(std::filesystem::exists(directory)) << clash;
    }
}
} // namespace
} // namespace LuaTest
