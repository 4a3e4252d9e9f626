#include "LuaContext.h"

#include <fmt/format.h>

namespace Scripting::Lua
{
namespace
{
using internal::LuaContext;

lua_State* usableState(LuaContext& context)
{
    return context.nativeDepth > 0 ? context.current : context.state;
}

// What the runtime answers for a context it cannot use right now.
const char* unusable(const LuaContext* context)
{
    if (context == nullptr)
    {
        return "Invalid context id";
    }
    return context->closing ? "The context is closing" : nullptr;
}

// Pops the value on top of `state` and hands it back as `type`: nothing for void, otherwise converted with the
// same checks as an argument of a native function, so that a script's 3e9 never becomes a wrapped int.
ResultAny takeValue(LuaContext& context, lua_State* state, const entt::meta_type& type, const std::string& subject)
{
    ResultAny result;
    if (internal::ErrorBox* box = internal::toErrorBox(state, -1))
    {
        // A script that returns an error value failed, whatever type was asked for.
        result = ResultAny(Error(""));
        result.any() = box->error;
    }
    else if (type && type != Reflection::resolve<void>())
    {
        entt::meta_any value;
        internal::ConversionFailure failure;
        if (internal::toNative(context, state, -1, type, value, failure))
        {
            result = ResultAny::makeResultFromAny(std::move(value));
        }
        else
        {
            result = internal::failureToError(failure, subject, 0);
        }
    }
    lua_pop(state, 1);
    return result;
}

// Lua names a frame after the code that called it; the outermost one, called from here, gets the name it was
// called by.
void nameOutermostFrame(ResultAny& result, const std::string& name)
{
    Error* error = result.any().try_cast<Error>();
    if (error == nullptr || error->callStack.empty() || !error->stack.has_value() ||
        error->callStack.back().function != "<anonymous>")
    {
        return;
    }
    error->callStack.back().function = name;
    constexpr std::string_view ANONYMOUS = "    at <anonymous> (";
    std::string& stack = *error->stack;
    const size_t last = stack.rfind(ANONYMOUS);
    if (last != std::string::npos && stack.find('\n', last) >= stack.size() - 1)
    {
        stack.replace(last, ANONYMOUS.size(), "    at " + name + " (");
    }
}

// Calls the function below the `count` arguments on top of `state` and converts its first result.
ResultAny callOnStack(LuaContext& context, lua_State* state, unsigned count, const entt::meta_type& type,
                      const std::string& sourceName, const std::string& subject)
{
    if (context.nativeDepth == 0)
    {
        context.drainPending(state);
    }
    const int status = internal::protectedCall(context, state, static_cast<int>(count), 1);
    ResultAny result = status != LUA_OK ? internal::takeError(context, state, status, sourceName)
                                        : takeValue(context, state, type, subject);
    if (context.nativeDepth == 0)
    {
        context.drainPending(state);
    }
    return result;
}
} // namespace

ResultAny LuaRuntime::runScriptAs(ContextId contextId, const std::string& source, const std::string& sourceName,
                                  const entt::meta_type& type)
{
    LuaContext* context = _getContext(contextId);
    if (const char* reason = unusable(context))
    {
        return Error(reason);
    }
    lua_State* state = usableState(*context);
    if (!lua_checkstack(state, 4))
    {
        return Error("The script's stack is exhausted");
    }
    const std::string chunkName = "=" + sourceName;
    const int status = luaL_loadbufferx(state, source.data(), source.size(), chunkName.c_str(), "t");
    if (status != LUA_OK)
    {
        return internal::takeError(*context, state, status, sourceName);
    }
    return callOnStack(*context, state, 0, type, sourceName, "the value returned by " + sourceName);
}

ResultAny LuaRuntime::callFunction(ContextId contextId, const std::string& name, entt::meta_any* arguments,
                                   unsigned count, const entt::meta_type& type)
{
    LuaContext* context = _getContext(contextId);
    if (const char* reason = unusable(context))
    {
        return Error(reason);
    }
    lua_State* state = usableState(*context);
    if (count > MAX_CALL_ARGUMENTS || !lua_checkstack(state, static_cast<int>(count) + 4))
    {
        return Error(fmt::format("Too many arguments for the script function '{}'", name));
    }
    const int base = lua_gettop(state);
    // A raw read: a global table with an __index of a script's own must not run script code here.
    lua_pushglobaltable(state);
    lua_pushlstring(state, name.data(), name.size());
    lua_rawget(state, -2);
    lua_remove(state, -2);
    if (lua_type(state, -1) != LUA_TFUNCTION)
    {
        const std::string found = internal::describeValue(state, -1);
        lua_settop(state, base);
        return Error(fmt::format("The script has no function '{}': the global is {}", name, found));
    }
    {
        internal::UnlimitedMemory unlimited(*context);
        for (unsigned index = 0; index < count; ++index)
        {
            std::string reason;
            if (internal::pushNative(*context, state, arguments[index], reason) == internal::PushStatus::Failed)
            {
                lua_settop(state, base);
                return Error(fmt::format("Argument [{}] of the script function '{}' cannot be handed over: {}", index,
                                         name, reason));
            }
        }
    }
    ResultAny result = callOnStack(*context, state, count, type, name, "the value returned by " + name);
    if (result.isError())
    {
        nameOutermostFrame(result, name);
    }
    return result;
}

ResultAny LuaRuntime::getGlobal(ContextId contextId, const std::string& name, const entt::meta_type& type)
{
    LuaContext* context = _getContext(contextId);
    if (const char* reason = unusable(context))
    {
        return Error(reason);
    }
    lua_State* state = usableState(*context);
    if (!lua_checkstack(state, 2))
    {
        return Error("The script's stack is exhausted");
    }
    lua_pushglobaltable(state);
    lua_pushlstring(state, name.data(), name.size());
    lua_rawget(state, -2);
    lua_remove(state, -2);
    return takeValue(*context, state, type, "the global '" + name + "'");
}

ResultAny LuaRuntime::setGlobal(ContextId contextId, const std::string& name, const entt::meta_any& value)
{
    LuaContext* context = _getContext(contextId);
    if (const char* reason = unusable(context))
    {
        return Error(reason);
    }
    lua_State* state = usableState(*context);
    if (!lua_checkstack(state, 3))
    {
        return Error("The script's stack is exhausted");
    }
    lua_pushglobaltable(state);
    lua_pushlstring(state, name.data(), name.size());
    std::string reason;
    internal::PushStatus pushed = internal::PushStatus::Failed;
    {
        internal::UnlimitedMemory unlimited(*context);
        pushed = internal::pushNative(*context, state, value, reason);
    }
    if (pushed == internal::PushStatus::Failed)
    {
        lua_pop(state, 2);
        return Error(fmt::format("The global '{}' cannot be set: {}", name, reason));
    }
    lua_rawset(state, -3);
    lua_pop(state, 1);
    return ResultAny();
}
} // namespace Scripting::Lua
