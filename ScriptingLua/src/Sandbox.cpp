#include "LuaContext.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <exception>
#include <initializer_list>
#include <string_view>
#include <utility>

namespace Scripting::Lua::internal
{
namespace
{
// Bytes the parser reads between two looks at the budget: parsing runs no instructions the hook could count.
constexpr size_t LOAD_PIECE = 16 * 1024;
// Elements a table function moves, and comparisons a sort makes, between two looks at the budget.
constexpr lua_Integer TABLE_PIECE = 1024;

struct LoadReader
{
    LuaContext* context;
    const char* source;
    size_t length;
    size_t offset;
};

const char* readPiece(lua_State* state, void* data, size_t* size)
{
    auto& reader = *static_cast<LoadReader*>(data);
    if (reader.offset >= reader.length)
    {
        *size = 0;
        return nullptr;
    }
    // The parser is protected: a stop raised here ends the parse, and `load` raises it again outside.
    spend(*reader.context, state, LOAD_PIECE / 16);
    const size_t piece = std::min(LOAD_PIECE, reader.length - reader.offset);
    const char* start = reader.source + reader.offset;
    reader.offset += piece;
    *size = piece;
    return start;
}

// `load` of text only: binary chunks could break the interpreter's invariants.
int safeLoad(lua_State* state)
{
    if (lua_type(state, 1) != LUA_TSTRING)
    {
        return luaL_error(state, "load accepts only source text given as a string");
    }
    size_t length = 0;
    const char* source = lua_tolstring(state, 1, &length);
    const char* name = luaL_optstring(state, 2, "=(load)");
    const char* mode = luaL_optstring(state, 3, "t");
    if (std::strchr(mode, 't') == nullptr)
    {
        return luaL_error(state, "load accepts only text chunks (mode 't')");
    }
    const bool hasEnvironment = !lua_isnone(state, 4);
    LuaContext& context = contextOf(state);
    LoadReader reader{&context, source, length, 0};
    const int status = lua_load(state, &readPiece, &reader, name, "t");
    if (context.stopped)
    {
        return raiseStop(context, state);
    }
    if (status != LUA_OK)
    {
        luaL_pushfail(state);
        lua_insert(state, -2);
        return 2;
    }
    if (hasEnvironment)
    {
        lua_pushvalue(state, 4);
        if (lua_setupvalue(state, -2, 1) == nullptr)
        {
            lua_pop(state, 1);
        }
    }
    return 1;
}

// Scripts may collect and look, not stop or retune the collector.
// Makes the weak table of coroutines.
void newCoroutineTable(lua_State* state, int size)
{
    lua_createtable(state, 0, size);
    lua_createtable(state, 0, 1);
    lua_pushliteral(state, "k");
    lua_setfield(state, -2, "__mode");
    lua_setmetatable(state, -2);
}

int safeCollectGarbage(lua_State* state)
{
    const char* option = luaL_optstring(state, 1, "collect");
    if (std::strcmp(option, "collect") == 0)
    {
        // A full collection walks the whole heap in one C call: it counts as work on that heap, before
        // (so that a loop of collections ends) and after.
        LuaContext& context = contextOf(state);
        spend(context, state, context.memory.used / 64);
        lua_gc(state, LUA_GCCOLLECT);
        spend(context, state, context.memory.used / 64);
        recountCoroutines(context, state);
        lua_pushinteger(state, 0);
        return 1;
    }
    if (std::strcmp(option, "count") == 0)
    {
        const int kilobytes = lua_gc(state, LUA_GCCOUNT);
        const int bytes = lua_gc(state, LUA_GCCOUNTB);
        lua_pushnumber(state, static_cast<lua_Number>(kilobytes) + static_cast<lua_Number>(bytes) / 1024.0);
        return 1;
    }
    if (std::strcmp(option, "step") == 0)
    {
        const int size = static_cast<int>(luaL_optinteger(state, 2, 0));
        lua_pushboolean(state, lua_gc(state, LUA_GCSTEP, size));
        return 1;
    }
    if (std::strcmp(option, "isrunning") == 0)
    {
        lua_pushboolean(state, lua_gc(state, LUA_GCISRUNNING));
        return 1;
    }
    return luaL_error(state, "collectgarbage option '%s' is not available", option);
}

// Finalizers of scripts would run whenever the collector runs, also in the middle of a native call, where
// neither the memory limit nor a failure may interrupt. Lua marks an object for finalization only when its
// metatable has __gc at the time it is set, so refusing such metatables here is enough.
int safeSetMetatable(lua_State* state)
{
    if (lua_type(state, 2) == LUA_TTABLE)
    {
        lua_pushliteral(state, "__gc");
        const bool finalizer = lua_rawget(state, 2) != LUA_TNIL;
        lua_pop(state, 1);
        if (finalizer)
        {
            return luaL_error(state, "finalizers (__gc) are not available to scripts");
        }
    }
    lua_pushvalue(state, lua_upvalueindex(1));
    lua_insert(state, 1);
    lua_call(state, lua_gettop(state) - 1, 1);
    return 1;
}

// ---- Protected calls: a stop passes through them ----

int finishProtected(lua_State* state, int status, lua_KContext below)
{
    LuaContext& context = contextOf(state);
    if (context.stopped)
    {
        return raiseStop(context, state);
    }
    if (status != LUA_OK && status != LUA_YIELD)
    {
        lua_pushboolean(state, 0);
        lua_pushvalue(state, -2);
        return 2;
    }
    return lua_gettop(state) - static_cast<int>(below);
}

int safePcall(lua_State* state)
{
    luaL_checkany(state, 1);
    LuaContext& context = contextOf(state);
    if (context.stopped)
    {
        return raiseStop(context, state);
    }
    lua_pushboolean(state, 1);
    lua_insert(state, 1);
    const int status = lua_pcallk(state, lua_gettop(state) - 2, LUA_MULTRET, 0, 0, &finishProtected);
    return finishProtected(state, status, 0);
}

// Stands between Lua and the script's message handler: once the entry is stopped the handler is skipped, since
// Lua may call it from inside the hook, where no hook would ever stop it.
int guardedHandler(lua_State* state)
{
    if (contextOf(state).stopped)
    {
        return 1;
    }
    lua_pushvalue(state, lua_upvalueindex(1));
    lua_insert(state, 1);
    lua_call(state, lua_gettop(state) - 1, 1);
    return 1;
}

int safeXpcall(lua_State* state)
{
    const int count = lua_gettop(state);
    luaL_checktype(state, 2, LUA_TFUNCTION);
    LuaContext& context = contextOf(state);
    if (context.stopped)
    {
        return raiseStop(context, state);
    }
    lua_pushvalue(state, 2);
    lua_pushcclosure(state, &guardedHandler, 1);
    lua_replace(state, 2);
    // handler, true, function, arguments...
    lua_pushboolean(state, 1);
    lua_pushvalue(state, 1);
    lua_rotate(state, 3, 2);
    const int status = lua_pcallk(state, count - 2, LUA_MULTRET, 2, 2, &finishProtected);
    return finishProtected(state, status, 2);
}

// ---- Coroutines: counted, and hooked whenever they were made ----

int makeCoroutine(lua_State* state)
{
    luaL_checktype(state, 1, LUA_TFUNCTION);
    LuaContext& context = contextOf(state);
    const uint32_t limit = context.runtime->getSettings().maxCoroutines;
    if (limit != 0 && context.coroutines >= limit)
    {
        // The count is of coroutines made; those the collector took are found by collecting and counting.
        spend(context, state, context.memory.used / 64);
        lua_gc(state, LUA_GCCOLLECT);
        const uint64_t alive = recountCoroutines(context, state);
        spend(context, state, alive);
        if (alive >= limit)
        {
            return luaL_error(state, "Coroutine limit exceeded: a context may hold %d coroutines",
                              static_cast<int>(limit));
        }
    }
    lua_State* thread = lua_newthread(state);
    syncHook(context, thread);
    lua_pushvalue(state, 1);
    lua_xmove(state, thread, 1);
    lua_rawgeti(state, LUA_REGISTRYINDEX, context.threadsRef);
    lua_pushvalue(state, -2);
    lua_pushboolean(state, 1);
    lua_rawset(state, -3);
    lua_pop(state, 1);
    ++context.coroutines;
    return 1;
}

// Runs the pending to-be-closed values of `thread` on it, as the thread that runs.
int closeThread(LuaContext& context, lua_State* state, lua_State* thread)
{
    switchThread(context, thread);
    const int status = lua_resetthread(thread);
    switchThread(context, state);
    return status;
}

// Resumes `thread` with the `count` values on top of `state`. Leaves the results (or the error) on top of
// `state` and answers their count, or -1 after an error.
int resumeThread(lua_State* state, lua_State* thread, int count)
{
    LuaContext& context = contextOf(state);
    if (context.stopped)
    {
        raiseStop(context, state);
    }
    const char* refusal = nullptr;
    if (thread == state)
    {
        refusal = "cannot resume non-suspended coroutine";
    }
    else if (lua_status(thread) == LUA_OK)
    {
        lua_Debug frame;
        if (lua_getstack(thread, 0, &frame) != 0)
        {
            refusal = "cannot resume non-suspended coroutine";
        }
        else if (lua_gettop(thread) == 0)
        {
            refusal = "cannot resume dead coroutine";
        }
    }
    else if (lua_status(thread) != LUA_YIELD)
    {
        refusal = "cannot resume dead coroutine";
    }
    if (refusal == nullptr && !lua_checkstack(thread, count))
    {
        refusal = "too many arguments to resume";
    }
    if (refusal != nullptr)
    {
        lua_pop(state, count);
        lua_pushstring(state, refusal);
        return -1;
    }
    switchThread(context, thread);
    lua_xmove(state, thread, count);
    int results = 0;
    const int status = lua_resume(thread, state, count, &results);
    switchThread(context, state);
    if (context.stopped)
    {
        raiseStop(context, state);
    }
    if (status == LUA_OK || status == LUA_YIELD)
    {
        if (!lua_checkstack(state, results + 1))
        {
            lua_pop(thread, results);
            lua_pushliteral(state, "too many results to resume");
            return -1;
        }
        lua_xmove(thread, state, results);
        return results;
    }
    lua_xmove(thread, state, 1);
    return -1;
}

int safeResume(lua_State* state)
{
    lua_State* thread = lua_tothread(state, 1);
    luaL_argexpected(state, thread != nullptr, 1, "coroutine");
    const int results = resumeThread(state, thread, lua_gettop(state) - 1);
    if (results < 0)
    {
        lua_pushboolean(state, 0);
        lua_insert(state, -2);
        return 2;
    }
    lua_pushboolean(state, 1);
    lua_insert(state, -(results + 1));
    return results + 1;
}

int wrappedCall(lua_State* state)
{
    lua_State* thread = lua_tothread(state, lua_upvalueindex(1));
    const int results = resumeThread(state, thread, lua_gettop(state));
    if (results < 0)
    {
        if (lua_status(thread) != LUA_OK && lua_status(thread) != LUA_YIELD)
        {
            // A failed coroutine is dead: let go of what its stack holds.
            closeThread(contextOf(state), state, thread);
            if (lua_type(state, -1) == LUA_TSTRING)
            {
                luaL_where(state, 1);
                lua_insert(state, -2);
                lua_concat(state, 2);
            }
        }
        return lua_error(state);
    }
    return results;
}

// coroutine.close: the stock function's checks and results, with the thread known as running while its pending
// to-be-closed values run.
int safeClose(lua_State* state)
{
    lua_State* thread = lua_tothread(state, 1);
    bool closable = false;
    if (thread != nullptr && thread != state)
    {
        // Suspended (not started or yielded) or dead; a coroutine that resumed another is refused below.
        lua_Debug frame;
        closable = lua_status(thread) != LUA_OK || lua_getstack(thread, 0, &frame) == 0;
    }
    if (!closable)
    {
        lua_pushvalue(state, lua_upvalueindex(1));
        lua_insert(state, 1);
        lua_call(state, lua_gettop(state) - 1, LUA_MULTRET);
        return lua_gettop(state);
    }
    LuaContext& context = contextOf(state);
    const int status = closeThread(context, state, thread);
    if (context.stopped)
    {
        return raiseStop(context, state);
    }
    if (status == LUA_OK)
    {
        lua_pushboolean(state, 1);
        return 1;
    }
    lua_pushboolean(state, 0);
    lua_xmove(thread, state, 1);
    return 2;
}

int safeWrap(lua_State* state)
{
    makeCoroutine(state);
    lua_pushcclosure(state, &wrappedCall, 1);
    return 1;
}

// ---- Table functions: the same results, with the work counted ----

lua_Integer lengthOf(lua_State* state, int index)
{
    return luaL_len(state, index);
}

void checkTable(lua_State* state, int index)
{
    if (lua_type(state, index) != LUA_TTABLE)
    {
        // Any value whose metatable answers indexing will do, as for the library's own functions.
        if (lua_getmetatable(state, index) == 0)
        {
            luaL_checktype(state, index, LUA_TTABLE);
        }
        lua_pop(state, 1);
    }
}

int tableInsert(lua_State* state)
{
    checkTable(state, 1);
    LuaContext& context = contextOf(state);
    const lua_Integer end = lengthOf(state, 1) + 1;
    lua_Integer position = end;
    switch (lua_gettop(state))
    {
    case 2:
        break;
    case 3:
    {
        position = luaL_checkinteger(state, 2);
        luaL_argcheck(state, static_cast<lua_Unsigned>(position) - 1u < static_cast<lua_Unsigned>(end), 2,
                      "position out of bounds");
        for (lua_Integer index = end; index > position; --index)
        {
            if ((index & (TABLE_PIECE - 1)) == 0)
            {
                spend(context, state, TABLE_PIECE);
            }
            lua_geti(state, 1, index - 1);
            lua_seti(state, 1, index);
        }
        break;
    }
    default:
        return luaL_error(state, "wrong number of arguments to 'insert'");
    }
    lua_seti(state, 1, position);
    return 0;
}

int tableRemove(lua_State* state)
{
    checkTable(state, 1);
    LuaContext& context = contextOf(state);
    const lua_Integer size = lengthOf(state, 1);
    lua_Integer position = luaL_optinteger(state, 2, size);
    if (position != size)
    {
        luaL_argcheck(state, static_cast<lua_Unsigned>(position) - 1u <= static_cast<lua_Unsigned>(size), 2,
                      "position out of bounds");
    }
    lua_geti(state, 1, position);
    for (; position < size; ++position)
    {
        if ((position & (TABLE_PIECE - 1)) == 0)
        {
            spend(context, state, TABLE_PIECE);
        }
        lua_geti(state, 1, position + 1);
        lua_seti(state, 1, position);
    }
    lua_pushnil(state);
    lua_seti(state, 1, position);
    return 1;
}

int tableMove(lua_State* state)
{
    const lua_Integer first = luaL_checkinteger(state, 2);
    const lua_Integer last = luaL_checkinteger(state, 3);
    const lua_Integer target = luaL_checkinteger(state, 4);
    const int destination = lua_isnoneornil(state, 5) ? 1 : 5;
    checkTable(state, 1);
    checkTable(state, destination);
    LuaContext& context = contextOf(state);
    if (last >= first)
    {
        luaL_argcheck(state, first > 0 || last < LUA_MAXINTEGER + first, 3, "too many elements to move");
        const lua_Integer count = last - first;
        luaL_argcheck(state, target <= LUA_MAXINTEGER - count, 4, "destination wrap around");
        const bool forward =
            target > last || target <= first || (destination != 1 && lua_compare(state, 1, destination, LUA_OPEQ) == 0);
        for (lua_Integer step = 0; step <= count; ++step)
        {
            if ((step & (TABLE_PIECE - 1)) == TABLE_PIECE - 1)
            {
                spend(context, state, TABLE_PIECE);
            }
            const lua_Integer offset = forward ? step : count - step;
            lua_geti(state, 1, first + offset);
            lua_seti(state, destination, target + offset);
        }
    }
    lua_pushvalue(state, destination);
    return 1;
}

int tableConcat(lua_State* state)
{
    checkTable(state, 1);
    LuaContext& context = contextOf(state);
    size_t separatorLength = 0;
    const char* separator = luaL_optlstring(state, 2, "", &separatorLength);
    lua_Integer index = luaL_optinteger(state, 3, 1);
    const lua_Integer last = lua_isnoneornil(state, 4) ? lengthOf(state, 1) : luaL_checkinteger(state, 4);
    luaL_Buffer buffer;
    luaL_buffinit(state, &buffer);
    uint64_t since = 0;
    for (; index <= last; ++index)
    {
        lua_geti(state, 1, index);
        if (lua_isstring(state, -1) == 0)
        {
            return luaL_error(state, "invalid value (at index %I) in table for 'concat'", index);
        }
        size_t length = 0;
        lua_tolstring(state, -1, &length);
        luaL_addvalue(&buffer);
        if (index != last)
        {
            luaL_addlstring(&buffer, separator, separatorLength);
        }
        since += 1 + (length + separatorLength) / 16;
        if (since >= static_cast<uint64_t>(TABLE_PIECE))
        {
            spend(context, state, since);
            since = 0;
        }
        if (index == LUA_MAXINTEGER)
        {
            break;
        }
    }
    luaL_pushresult(&buffer);
    return 1;
}

int tableUnpack(lua_State* state)
{
    LuaContext& context = contextOf(state);
    lua_Integer index = luaL_optinteger(state, 2, 1);
    const lua_Integer last = lua_isnoneornil(state, 3) ? lengthOf(state, 1) : luaL_checkinteger(state, 3);
    if (index > last)
    {
        return 0;
    }
    const lua_Unsigned count = static_cast<lua_Unsigned>(last) - static_cast<lua_Unsigned>(index);
    if (count >= static_cast<lua_Unsigned>(INT_MAX) || !lua_checkstack(state, static_cast<int>(count + 1)))
    {
        return luaL_error(state, "too many results to unpack");
    }
    for (lua_Unsigned step = 0; step <= count; ++step)
    {
        if ((step & (TABLE_PIECE - 1)) == TABLE_PIECE - 1)
        {
            spend(context, state, TABLE_PIECE);
        }
        lua_geti(state, 1, index + static_cast<lua_Integer>(step));
    }
    return static_cast<int>(count + 1);
}

// A heapsort: no recursion, at most about 2 n log n comparisons whatever the order function answers.
struct SortState
{
    LuaContext* context;
    bool hasComparator;
    uint64_t comparisons;
};

bool lessThan(lua_State* state, SortState& sort, lua_Integer a, lua_Integer b)
{
    if (++sort.comparisons % static_cast<uint64_t>(TABLE_PIECE) == 0)
    {
        spend(*sort.context, state, TABLE_PIECE);
    }
    if (sort.hasComparator)
    {
        lua_pushvalue(state, 2);
        lua_geti(state, 1, a);
        lua_geti(state, 1, b);
        lua_call(state, 2, 1);
        const bool less = lua_toboolean(state, -1) != 0;
        lua_pop(state, 1);
        return less;
    }
    lua_geti(state, 1, a);
    lua_geti(state, 1, b);
    const bool less = lua_compare(state, -2, -1, LUA_OPLT) != 0;
    lua_pop(state, 2);
    return less;
}

void swapElements(lua_State* state, lua_Integer a, lua_Integer b)
{
    lua_geti(state, 1, a);
    lua_geti(state, 1, b);
    lua_seti(state, 1, a);
    lua_seti(state, 1, b);
}

void siftDown(lua_State* state, SortState& sort, lua_Integer root, lua_Integer size)
{
    // 1-based heap over the elements 1..size.
    while (true)
    {
        lua_Integer child = root * 2;
        if (child > size)
        {
            return;
        }
        if (child < size && lessThan(state, sort, child, child + 1))
        {
            ++child;
        }
        if (!lessThan(state, sort, root, child))
        {
            return;
        }
        swapElements(state, root, child);
        root = child;
    }
}

int tableSort(lua_State* state)
{
    checkTable(state, 1);
    const lua_Integer size = lengthOf(state, 1);
    if (size > 1)
    {
        luaL_argcheck(state, size < INT_MAX, 1, "array too big");
        SortState sort{&contextOf(state), !lua_isnoneornil(state, 2), 0};
        if (sort.hasComparator)
        {
            luaL_checktype(state, 2, LUA_TFUNCTION);
        }
        lua_settop(state, 2);
        luaL_checkstack(state, 8, "sort");
        for (lua_Integer root = size / 2; root >= 1; --root)
        {
            siftDown(state, sort, root, size);
        }
        for (lua_Integer end = size; end > 1; --end)
        {
            swapElements(state, 1, end);
            siftDown(state, sort, 1, end - 1);
        }
    }
    return 0;
}

// ---- Library functions linear in their input: charged by its size before they run ----

// Called from here, a library function cannot see its own name, nor the script's line, nor that it was called
// as a method: its argument errors are worded again as the script's call would have them.
void renameArgumentError(lua_State* state)
{
    constexpr std::string_view PREFIX = "bad argument #";
    constexpr std::string_view UNNAMED = " to '?' (";
    const std::string_view message = lua_tostring(state, -1);
    const size_t unnamed = message.find(UNNAMED);
    if (message.substr(0, PREFIX.size()) != PREFIX || unnamed == std::string_view::npos)
    {
        return;
    }
    int position = 0;
    for (const char digit : message.substr(PREFIX.size(), unnamed - PREFIX.size()))
    {
        if (digit < '0' || digit > '9' || position > 1000)
        {
            return;
        }
        position = position * 10 + (digit - '0');
    }
    lua_Debug self;
    if (lua_getstack(state, 0, &self) != 0 && lua_getinfo(state, "n", &self) != 0 && self.namewhat != nullptr &&
        std::strcmp(self.namewhat, "method") == 0)
    {
        --position;
    }
    const char* name = lua_tostring(state, lua_upvalueindex(2));
    const std::string_view detail = message.substr(unnamed + UNNAMED.size() - 1);
    luaL_where(state, 1);
    if (position == 0)
    {
        lua_pushfstring(state, "calling '%s' on bad self ", name);
    }
    else
    {
        lua_pushfstring(state, "bad argument #%d to '%s' ", position, name);
    }
    lua_pushlstring(state, detail.data(), detail.size());
    lua_concat(state, 3);
    lua_remove(state, -2);
}

int chargedByLength(lua_State* state)
{
    size_t length = 0;
    if (lua_type(state, 1) == LUA_TSTRING)
    {
        lua_tolstring(state, 1, &length);
    }
    LuaContext& context = contextOf(state);
    spend(context, state, 1 + length / 16);
    lua_pushvalue(state, lua_upvalueindex(1));
    lua_insert(state, 1);
    if (lua_pcall(state, lua_gettop(state) - 1, LUA_MULTRET, 0) != LUA_OK)
    {
        if (context.stopped)
        {
            return raiseStop(context, state);
        }
        if (lua_type(state, -1) == LUA_TSTRING)
        {
            renameArgumentError(state);
        }
        return lua_error(state);
    }
    return lua_gettop(state);
}

void chargeByLength(lua_State* state, const char* library, std::initializer_list<const char*> names)
{
    lua_getglobal(state, library);
    for (const char* name : names)
    {
        lua_getfield(state, -1, name);
        lua_pushstring(state, name);
        lua_pushcclosure(state, &chargedByLength, 2);
        lua_setfield(state, -2, name);
    }
    lua_pop(state, 1);
}

void setFunctions(lua_State* state, const char* library,
                  std::initializer_list<std::pair<const char*, lua_CFunction>> functions)
{
    lua_getglobal(state, library);
    for (const auto& [name, function] : functions)
    {
        lua_pushcfunction(state, function);
        lua_setfield(state, -2, name);
    }
    lua_pop(state, 1);
}

int print(lua_State* state)
{
    const int count = lua_gettop(state);
    luaL_Buffer buffer;
    luaL_buffinit(state, &buffer);
    for (int index = 1; index <= count; ++index)
    {
        if (index > 1)
        {
            luaL_addchar(&buffer, '\t');
        }
        luaL_tolstring(state, index, nullptr);
        luaL_addvalue(&buffer);
    }
    luaL_pushresult(&buffer);
    size_t length = 0;
    const char* text = lua_tolstring(state, -1, &length);
    LuaContext& context = contextOf(state);
    const auto& handler = context.runtime->getSettings().printHandler;
    bool failed = false;
    try
    {
        if (handler)
        {
            handler(context.id, std::string_view(text, length));
        }
        else
        {
            std::fwrite(text, 1, length, stdout);
            std::fputc('\n', stdout);
        }
    }
    catch (...)
    {
        failed = true;
    }
    return failed ? luaL_error(state, "print failed") : 0;
}

int require(lua_State* state)
{
    const char* name = luaL_checkstring(state, 1);
    LuaContext& context = contextOf(state);
    lua_settop(state, 1);
    lua_rawgeti(state, LUA_REGISTRYINDEX, context.loadedModulesRef);
    lua_pushvalue(state, 1);
    lua_rawget(state, 2);
    if (!lua_isnil(state, -1))
    {
        return 1;
    }
    lua_pop(state, 1);
    const ModuleInfo* module = findModule(context, name);
    if (module == nullptr)
    {
        return luaL_error(state, "module '%s' is not available in this context", name);
    }
    if (!module->binding->scriptSource.empty())
    {
        // A module of script text: its chunk returns the module's value. A second require while it runs gets
        // true, as the standard require gives.
        lua_pushvalue(state, 1);
        lua_pushboolean(state, 1);
        lua_rawset(state, 2);
        const std::string& source = module->binding->scriptSource;
        const char* chunkName = lua_pushfstring(state, "=%s", name);
        const int status = luaL_loadbufferx(state, source.data(), source.size(), chunkName, "t");
        if (status != LUA_OK)
        {
            return lua_error(state);
        }
        lua_call(state, 0, 1);
        if (lua_isnil(state, -1))
        {
            lua_pop(state, 1);
            lua_pushboolean(state, 1);
        }
    }
    else
    {
        NativeCallScope call(context, state);
        pushModule(context, state, *module);
    }
    lua_pushvalue(state, 1);
    lua_pushvalue(state, -2);
    lua_rawset(state, 2);
    return 1;
}

void openLibrary(lua_State* state, const char* name, lua_CFunction open)
{
    luaL_requiref(state, name, open, 1);
    lua_pop(state, 1);
}

void setGlobalFunction(lua_State* state, const char* name, lua_CFunction function)
{
    lua_pushcfunction(state, function);
    lua_setglobal(state, name);
}
} // namespace

void openSandbox(LuaContext& context, lua_State* state)
{
    openLibrary(state, LUA_GNAME, &luaopen_base);
    openLibrary(state, LUA_COLIBNAME, &luaopen_coroutine);
    openLibrary(state, LUA_TABLIBNAME, &luaopen_table);
    openLibrary(state, LUA_STRLIBNAME, &luaopen_string);
    openLibrary(state, LUA_MATHLIBNAME, &luaopen_math);
    openLibrary(state, LUA_UTF8LIBNAME, &luaopen_utf8);

    // Of os, only the clock: nothing that reaches files, processes or the environment.
    luaL_requiref(state, LUA_OSLIBNAME, &luaopen_os, 0);
    lua_createtable(state, 0, 3);
    for (const char* name : {"time", "clock", "difftime"})
    {
        lua_getfield(state, -2, name);
        lua_setfield(state, -2, name);
    }
    lua_pushvalue(state, -1);
    lua_setglobal(state, LUA_OSLIBNAME);
    lua_getfield(state, LUA_REGISTRYINDEX, LUA_LOADED_TABLE);
    lua_insert(state, -2);
    lua_setfield(state, -2, LUA_OSLIBNAME);
    lua_pop(state, 2);

    for (const char* name : {"dofile", "loadfile"})
    {
        lua_pushnil(state);
        lua_setglobal(state, name);
    }
    lua_getglobal(state, LUA_STRLIBNAME);
    lua_pushnil(state);
    lua_setfield(state, -2, "dump");
    lua_pop(state, 1);

    setGlobalFunction(state, "pcall", &safePcall);
    setGlobalFunction(state, "xpcall", &safeXpcall);
    setFunctions(state, LUA_COLIBNAME, {{"create", &makeCoroutine}, {"resume", &safeResume}, {"wrap", &safeWrap}});
    lua_getglobal(state, LUA_COLIBNAME);
    lua_getfield(state, -1, "close");
    lua_pushcclosure(state, &safeClose, 1);
    lua_setfield(state, -2, "close");
    lua_pop(state, 1);
    setFunctions(state, LUA_TABLIBNAME,
                 {{"insert", &tableInsert},
                  {"remove", &tableRemove},
                  {"move", &tableMove},
                  {"concat", &tableConcat},
                  {"unpack", &tableUnpack},
                  {"sort", &tableSort}});
    openPatternFunctions(state);
    chargeByLength(state, LUA_STRLIBNAME, {"byte", "upper", "lower", "reverse", "format"});
    chargeByLength(state, LUA_UTF8LIBNAME, {"len", "codepoint", "offset", "char"});

    // Coroutines made, weakly: the count of those alive is found again by walking it.
    newCoroutineTable(state, 0);
    context.threadsRef = luaL_ref(state, LUA_REGISTRYINDEX);

    lua_getglobal(state, "setmetatable");
    lua_pushcclosure(state, &safeSetMetatable, 1);
    lua_setglobal(state, "setmetatable");
    setGlobalFunction(state, "load", &safeLoad);
    setGlobalFunction(state, "collectgarbage", &safeCollectGarbage);
    setGlobalFunction(state, "print", &print);
    setGlobalFunction(state, "require", &require);

    lua_newtable(state);
    context.loadedModulesRef = luaL_ref(state, LUA_REGISTRYINDEX);
}

uint64_t recountCoroutines(LuaContext& context, lua_State* state)
{
    if (!lua_checkstack(state, 6))
    {
        return context.coroutines;
    }
    lua_rawgeti(state, LUA_REGISTRYINDEX, context.threadsRef);
    uint64_t alive = 0;
    lua_pushnil(state);
    while (lua_next(state, -2) != 0)
    {
        lua_pop(state, 1);
        ++alive;
    }
    // A table keeps the room of its fullest time, also once the collector has emptied it: one made since the
    // last count for far more coroutines than live now is made anew, at the size of the living.
    if (context.coroutines > 2 * alive + 64)
    {
        // No more than the old table took, and freed with it at once.
        UnlimitedMemory unlimited(context);
        newCoroutineTable(state, static_cast<int>(std::min<uint64_t>(alive, INT_MAX)));
        lua_pushnil(state);
        while (lua_next(state, -3) != 0)
        {
            lua_pop(state, 1);
            lua_pushvalue(state, -1);
            lua_pushboolean(state, 1);
            lua_rawset(state, -4);
        }
        lua_rawseti(state, LUA_REGISTRYINDEX, context.threadsRef);
    }
    lua_pop(state, 1);
    context.coroutines = alive;
    return alive;
}
} // namespace Scripting::Lua::internal
