// The sandbox's pattern functions and string.rep against the stock string library, call by call.
#include "LuaTestSupport.h"

#include <lua.hpp>

#include <string>

using namespace Scripting;
using namespace LuaTest;

namespace
{
// Each expression's values (or the error), as text, whichever library evaluates it.
std::string wrap(const std::string& expression)
{
    return "local function show(...) local out = {} for i = 1, select('#', ...) do local v = select(i, ...) "
           "out[#out + 1] = type(v) .. ':' .. tostring(v) end return table.concat(out, ',') end "
           "local ok, r = pcall(function() return show(" +
           expression +
           ") end) "
           "return (ok and 'ok ' or 'error ') .. tostring(r)";
}

std::string stock(const std::string& expression)
{
    lua_State* state = luaL_newstate();
    luaL_openlibs(state);
    const std::string source = wrap(expression);
    std::string answer = "<did not run>";
    if (luaL_loadbuffer(state, source.data(), source.size(), "=test.lua") == LUA_OK &&
        lua_pcall(state, 0, 1, 0) == LUA_OK)
    {
        answer = lua_tostring(state, -1);
    }
    else
    {
        answer = std::string("<failed: ") + lua_tostring(state, -1) + ">";
    }
    lua_close(state);
    return answer;
}

const char* const EXPRESSIONS[] = {
    // Classes, sets and anchors.
    "('hello world'):find('o w')",
    "('hello world'):find('l+')",
    "('hello world'):find('^h')",
    "('hello world'):find('^w')",
    "('hello world'):find('d$')",
    "('a$b'):find('$b')",
    "('a.b'):find('.', 1, true)",
    "('a.b'):find('%.')",
    "('x = 12, y = -3.5'):match('(%a)%s*=%s*(%-?%d+)')",
    "('ABC def 123 !?'):gsub('%u', '_')",
    "('ABC def 123 !?'):gsub('%L', '_')",
    "('ABC def 123 !?'):gsub('%p', '_')",
    "('ABC def 123 !?'):gsub('%W', '')",
    "('tab\\tnew\\nend'):gsub('%c', '|')",
    "('f0 Ag zz'):gsub('%x+', '<%0>')",
    "('a]b-c^d'):gsub('[]^-]', '.')",
    "('a]b-c^d'):gsub('[^]^-]', '.')",
    "('hello'):gsub('[a-f]', '#')",
    "('hello'):gsub('[%a-]', '#')",
    "('a-z'):gsub('[a%-z]', '#')",
    "('\\0a\\0'):find('%z')",
    "('x\\0y'):find('\\0', 1, true)",
    // Quantifiers and backtracking.
    "('aaab'):match('a-b')",
    "('aaab'):match('^(a*)(a*)b$')",
    "('aaab'):match('^(a-)(a*)b$')",
    "('ab'):match('a?b?c?')",
    "('<<a>><<b>>'):match('<<(.-)>>')",
    "('<<a>><<b>>'):match('<<(.*)>>')",
    "('  trim me  '):match('^%s*(.-)%s*$')",
    "(''):match('.*')",
    "(''):find('')",
    "('abc'):find('', 10)",
    "('abc'):find('', 4)",
    "('abc'):find('b', -1)",
    "('abc'):find('b', -10)",
    "('abc'):find('b', 0)",
    // Captures.
    "('hello world'):match('()ll()')",
    "('key=value'):match('(%w+)=(%w+)')",
    "('abcabc'):find('(abc)%1')",
    "('abab'):match('((a)(b))%1')",
    "('THE (quick) fox'):find('%((%a+)%)')",
    "('f(a(b)c)d'):match('%b()')",
    "('[[x]]'):gsub('%b[]', 'B')",
    "('THE (quick) fox'):gsub('%f[%a]%a+', string.lower)",
    "('hello world from lua'):gsub('%f[%w]%w+', function(w) return w:upper() end)",
    "('x'):match('()')",
    // gsub replacements.
    "('hello world'):gsub('o', '0', 1)",
    "('hello world'):gsub('(o)', '[%1%1]')",
    "('hello world'):gsub('l', '%%')",
    "('hello world'):gsub('', '-')",
    "('abc'):gsub('%w', {a = 1, b = true})",
    "('abc'):gsub('%w', {a = 'A', b = false})",
    "('abc'):gsub('(%w)', function(c) if c == 'b' then return nil end return c .. c end)",
    "('$name is $age'):gsub('%$(%w+)', {name = 'lua', age = 30})",
    "('abc'):gsub('^a', 'x')",
    "('aaa'):gsub('^a', 'x')",
    "('abc'):gsub('.', {}, 2)",
    "('abc'):gsub('b*', '-')",
    "('one two'):gsub('(%w+) (%w+)', '%2 %1')",
    "('x'):gsub('x', '%0%0')",
    "('abc'):gsub('()', '%1')",
    "('abc'):gsub('b', 5)",
    // gmatch.
    "(function() local t = {} for k, v in ('a=1, b=2'):gmatch('(%w+)=(%w+)') do t[#t + 1] = k .. v end "
    "return table.concat(t, ';') end)()",
    "(function() local t = {} for w in ('one two  three'):gmatch('%a*') do t[#t + 1] = '[' .. w .. ']' end "
    "return table.concat(t) end)()",
    "(function() local t = {} for w in ('abcd'):gmatch('.', 3) do t[#t + 1] = w end return table.concat(t) end)()",
    "(function() local t = {} for w in ('^a^b'):gmatch('^.') do t[#t + 1] = w end return table.concat(t) end)()",
    "(function() local t = {} for p in ('abc'):gmatch('()') do t[#t + 1] = p end return table.concat(t, ',') end)()",
    "(function() local n = 0 for w in ('abc'):gmatch('x*') do n = n + 1 end return n end)()",
    // rep.
    "string.rep('ab', 3)",
    "string.rep('ab', 3, ', ')",
    "string.rep('ab', 1, ', ')",
    "string.rep('ab', 0)",
    "string.rep('ab', -2)",
    "string.rep('', 5, '')",
    "string.rep('', 3, 'x')",
    "#string.rep('abc', 100000, 'de')",
    "string.rep('abc', 1000, 'de'):sub(-12)",
    // Errors.
    "('x'):find('%')",
    "('x'):find('[a')",
    "('x'):find('[]')",
    "('x'):find('(x')",
    "('x'):find('x)')",
    "('x'):find('%1')",
    "('x'):find('%f')",
    "('x'):find('%b')",
    "('x'):gsub('x', '%2')",
    "('x'):gsub('x', '%y')",
    "('x'):gsub('x', {x = {}})",
    "('x'):gsub('x')",
    "string.find()",
    "string.format('%d', 'x')",
    "('x'):byte({})",
    "utf8.len('abc', 10)",
    "string.rep('x', 1e300)",
};

class LuaPatternTest : public LuaEngineTest, public ::testing::WithParamInterface<const char*>
{
};

TEST_P(LuaPatternTest, AnswersAsTheStockLibrary)
{
    const std::string expression = GetParam();
    EXPECT_EQ(text(run(wrap(expression))), stock(expression)) << expression;
}

INSTANTIATE_TEST_SUITE_P(Patterns, LuaPatternTest, ::testing::ValuesIn(EXPRESSIONS));
} // namespace
