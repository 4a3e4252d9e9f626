#include "LuaContext.h"

#include "Scripting/Runtime/ScriptPromise.h"

namespace Scripting::Lua::internal
{
bool isScriptValueType(const entt::meta_type& /*type*/)
{
    return false;
}

bool toScriptValue(LuaContext& /*context*/, lua_State* /*state*/, int /*index*/, const entt::meta_type& /*type*/,
                   entt::meta_any& /*out*/, ConversionFailure& /*failure*/)
{
    return false;
}

bool pushScriptValue(LuaContext& /*context*/, lua_State* /*state*/, const entt::meta_any& /*value*/)
{
    return false;
}

void createScriptValueSupport(LuaContext& /*context*/, lua_State* /*state*/) {}

void pushReferencedValue(LuaContext& /*context*/, lua_State* state, ObjectHandle /*handle*/)
{
    lua_pushnil(state);
}
} // namespace Scripting::Lua::internal

namespace Scripting::Lua
{
ResultAny LuaRuntime::callClosure(ContextId, ObjectHandle, entt::meta_any*, unsigned, const entt::meta_type&, RunOption)
{
    return Error("Not implemented");
}
ResultAny LuaRuntime::resolvePromise(ContextId, ObjectHandle, const entt::meta_any&)
{
    return Error("Not implemented");
}
ResultAny LuaRuntime::rejectPromise(ContextId, ObjectHandle, const entt::meta_any&)
{
    return Error("Not implemented");
}
FutureState LuaRuntime::getFutureState(ContextId, ObjectHandle)
{
    return FutureState::Unknown;
}
ResultAny LuaRuntime::getFutureResult(ContextId, ObjectHandle, const entt::meta_type&)
{
    return Error("Not implemented");
}
bool LuaRuntime::isEqual(ObjectHandle, ObjectHandle)
{
    return false;
}
bool LuaRuntime::getBooleanProperty(ObjectHandle, const char*, bool defaultValue)
{
    return defaultValue;
}
ResultAny LuaRuntime::getProperty(ObjectHandle, const char*, const entt::meta_type&)
{
    return Error("Not implemented");
}
unsigned LuaRuntime::getSecondExtent(ObjectHandle)
{
    return 0;
}
unsigned LuaRuntime::getFirstExtent(ObjectHandle)
{
    return 0;
}
void* LuaRuntime::getData(ObjectHandle)
{
    return nullptr;
}
std::optional<PromiseAny> LuaRuntime::createPromise(ContextId)
{
    return std::nullopt;
}
} // namespace Scripting::Lua
