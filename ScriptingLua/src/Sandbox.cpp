#include "LuaContext.h"

#include <cstdio>
#include <cstring>
#include <exception>

namespace Scripting::Lua::internal
{
namespace
{
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
    const int status = luaL_loadbufferx(state, source, length, name, "t");
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
int safeCollectGarbage(lua_State* state)
{
    const char* option = luaL_optstring(state, 1, "collect");
    if (std::strcmp(option, "collect") == 0)
    {
        lua_gc(state, LUA_GCCOLLECT);
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
} // namespace Scripting::Lua::internal
