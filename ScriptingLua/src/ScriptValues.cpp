#include "LuaContext.h"

#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"
#include "Scripting/Runtime/DataBuffer.h"
#include "Scripting/Runtime/ScriptClosure.h"
#include "Scripting/Runtime/ScriptGenerator.h"
#include "Scripting/Runtime/ScriptPromise.h"

#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <limits>
#include <typeinfo>

namespace Scripting::Lua
{
namespace internal
{
namespace
{
// The component of a registry object that stands for a Lua value other than a function.
struct ScriptObjectType
{
    uint8_t unused = 0;
};

// Keeps the Lua value of a registry object in the Lua registry until the object dies.
class LuaReference final : public IScriptRef
{
public:
    LuaReference(LuaContext& context, int reference) : mContext(context), mReference(reference) {}

    int reference() const { return mReference; }

    void onReferenceCountLoweredToOne() override {}
    void onReferenceCountRaisedToTwo() override {}
    // The Lua side may be running right now; the reference is dropped at the next safe point.
    void onObjectDestroyed() override
    {
        // Typed closure calls that found this value's slot must look again.
        ++mContext.valuesLetGo;
        if (!mContext.closing)
        {
            mContext.pendingUnreferences.push_back(mReference);
        }
        if (mContext.scriptReferences > 0)
        {
            --mContext.scriptReferences;
        }
    }

private:
    LuaContext& mContext;
    int mReference;
};

// Written in Lua: promises and the step function of generators. Locals captured here cannot be changed by
// scripts that replace the globals later.
constexpr const char* PRELUDE = R"lua(
local create, resume, status, pack = coroutine.create, coroutine.resume, coroutine.status, table.pack
local setmetatable, type, error = setmetatable, type, error

local Promise = {}
Promise.__index = Promise
Promise.__name = 'Promise'

local function settle(self, state, value)
    if self.state ~= 'pending' then
        return false
    end
    self.state, self.value = state, value
    local callbacks = self.callbacks
    self.callbacks = nil
    for i = 1, #callbacks do
        callbacks[i]()
    end
    return true
end

function Promise.new()
    return setmetatable({state = 'pending', callbacks = {}}, Promise)
end

function Promise.resolved(value)
    local promise = Promise.new()
    settle(promise, 'fulfilled', value)
    return promise
end

function Promise:resolve(value)
    return settle(self, 'fulfilled', value)
end

function Promise:reject(reason)
    return settle(self, 'rejected', reason)
end

-- Calls back once settled; the returned promise settles with what the callback returns.
function Promise:next(onFulfilled, onRejected)
    local chained = Promise.new()
    local function run()
        local handler = self.state == 'fulfilled' and onFulfilled or onRejected
        if handler == nil then
            settle(chained, self.state, self.value)
            return
        end
        local ok, result = pcall(handler, self.value)
        settle(chained, ok and 'fulfilled' or 'rejected', result)
    end
    if self.state == 'pending' then
        self.callbacks[#self.callbacks + 1] = run
    else
        run()
    end
    return chained
end

local function makeGenerator(source)
    local thread = type(source) == 'thread' and source or create(source)
    return function(...)
        if status(thread) == 'dead' then
            return {done = true}
        end
        local results = pack(resume(thread, ...))
        if not results[1] then
            error(results[2], 0)
        end
        return {done = status(thread) == 'dead', value = results[2]}
    end
end

return Promise, makeGenerator
)lua";

constexpr const char* MAKE_GENERATOR_KEY = "Scripting.makeGenerator";

bool isClosureType(const entt::meta_type& type)
{
    return type == Reflection::resolve<ClosureAny>() || isSpecializationOf<Closure>(type);
}

// The ClosureAny part of a closure held by `value`. A typed closure adds one member behind its ClosureAny
// base, which starts the object, and the meta system knows no base of it.
ClosureAny* closureInside(entt::meta_any& value)
{
    if (ClosureAny* plain = value.try_cast<ClosureAny>())
    {
        return plain;
    }
    return isSpecializationOf<Closure>(value.type()) ? static_cast<ClosureAny*>(value.data()) : nullptr;
}

const ClosureAny* closureInside(const entt::meta_any& value)
{
    if (const ClosureAny* plain = value.try_cast<const ClosureAny>())
    {
        return plain;
    }
    return isSpecializationOf<Closure>(value.type()) ? static_cast<const ClosureAny*>(value.data()) : nullptr;
}

bool isPromiseTable(LuaContext& context, lua_State* state, int index)
{
    if (lua_type(state, index) != LUA_TTABLE || !lua_getmetatable(state, index))
    {
        return false;
    }
    lua_rawgeti(state, LUA_REGISTRYINDEX, context.promiseClassRef);
    const bool same = lua_rawequal(state, -1, -2) != 0;
    lua_pop(state, 2);
    return same;
}

BufferBox* toBufferBox(lua_State* state, int index)
{
    if (lua_type(state, index) != LUA_TUSERDATA || lua_rawlen(state, index) < sizeof(BufferBox))
    {
        return nullptr;
    }
    auto* box = static_cast<BufferBox*>(lua_touserdata(state, index));
    return box->kind == BoxKind::Buffer ? box : nullptr;
}

BufferBox* pushBuffer(LuaContext& context, lua_State* state, size_t size)
{
    void* memory = lua_newuserdatauv(state, sizeof(BufferBox) + size, 0);
    auto* box = new (memory) BufferBox();
    box->size = size;
    std::memset(box->bytes(), 0, size);
    lua_rawgeti(state, LUA_REGISTRYINDEX, context.bufferMetatableRef);
    lua_setmetatable(state, -2);
    return box;
}

// A registry object for the Lua value at `index`, holding the value until the object dies.
template <typename Component>
StrongObjectHandle makeScriptObject(LuaContext& context, lua_State* state, int index)
{
    LifetimeRegistry* registry = context.scope.getLifetimeRegistry();
    // The table of references and a copy of the value go on the stack.
    if (registry == nullptr || !lua_checkstack(state, 3))
    {
        return StrongObjectHandle();
    }
    StrongTypedObjectHandle<Component> object = context.scope.makeObject<Component>();
    UnlimitedMemory unlimited(context);
    const int value = lua_absindex(state, index);
    lua_rawgeti(state, LUA_REGISTRYINDEX, context.referencesRef);
    int reference = context.freeReference;
    if (lua_isnil(state, value))
    {
        // Nothing to keep; a slot holding nil would be handed out again.
        reference = LUA_REFNIL;
    }
    else if (reference != 0)
    {
        lua_rawgeti(state, -1, reference);
        context.freeReference = static_cast<int>(lua_tointeger(state, -1));
        lua_pop(state, 1);
    }
    else
    {
        // A border of the table: the slot after it is free. Links of free slots are not nil, so this is the
        // end of the used part but for the holes a remade table leaves.
        reference = static_cast<int>(std::min<lua_Unsigned>(lua_rawlen(state, -1), INT_MAX - 1)) + 1;
    }
    if (reference != LUA_REFNIL)
    {
        lua_pushvalue(state, value);
        lua_rawseti(state, -2, reference);
    }
    lua_pop(state, 1);
    ++context.scriptReferences;
    context.referencePeak = std::max(context.referencePeak, context.scriptReferences);
    registry->setScriptRef(object.getHandle(), std::make_unique<LuaReference>(context, reference));
    return StrongTypedObjectHandle<Component>::toGeneric(std::move(object));
}

bool refuse(ConversionFailure& failure, const char* expected, lua_State* state, int index)
{
    failure.kind =
        lua_isnoneornil(state, index) ? ConversionFailure::Kind::Missing : ConversionFailure::Kind::TypeMismatch;
    failure.expected = expected;
    failure.got = describeValue(state, index);
    return false;
}

// ---- Buffers as scripts see them ----

size_t bufferPosition(lua_State* state, BufferBox& box)
{
    const lua_Integer position = luaL_checkinteger(state, 2);
    if (position < 1 || static_cast<lua_Unsigned>(position) > box.size)
    {
        luaL_error(state, "buffer index %I out of range 1..%I", position, static_cast<lua_Integer>(box.size));
    }
    return static_cast<size_t>(position - 1);
}

BufferBox& checkBuffer(lua_State* state)
{
    BufferBox* box = toBufferBox(state, 1);
    if (box == nullptr)
    {
        luaL_error(state, "a Buffer expected");
    }
    return *box;
}

int bufferIndex(lua_State* state)
{
    if (lua_type(state, 2) == LUA_TSTRING)
    {
        lua_getmetatable(state, 1);
        lua_pushvalue(state, 2);
        lua_rawget(state, -2);
        return 1;
    }
    BufferBox& box = checkBuffer(state);
    lua_pushinteger(state, box.bytes()[bufferPosition(state, box)]);
    return 1;
}

int bufferNewIndex(lua_State* state)
{
    BufferBox& box = checkBuffer(state);
    const size_t position = bufferPosition(state, box);
    const lua_Integer value = luaL_checkinteger(state, 3);
    luaL_argcheck(state, value >= 0 && value <= 255, 3, "a byte from 0 to 255 expected");
    box.bytes()[position] = static_cast<unsigned char>(value);
    return 0;
}

int bufferLength(lua_State* state)
{
    lua_pushinteger(state, static_cast<lua_Integer>(checkBuffer(state).size));
    return 1;
}

int bufferToString(lua_State* state)
{
    BufferBox& box = checkBuffer(state);
    lua_pushlstring(state, reinterpret_cast<const char*>(box.bytes()), box.size);
    return 1;
}

int bufferNew(lua_State* state)
{
    LuaContext& context = contextOf(state);
    if (lua_type(state, 1) == LUA_TSTRING)
    {
        size_t length = 0;
        const char* text = lua_tolstring(state, 1, &length);
        BufferBox* box = pushBuffer(context, state, length);
        std::memcpy(box->bytes(), text, length);
        return 1;
    }
    const lua_Integer size = luaL_checkinteger(state, 1);
    luaL_argcheck(state, size >= 0 && size <= std::numeric_limits<int32_t>::max(), 1, "a size from 0 to 2^31-1");
    pushBuffer(context, state, static_cast<size_t>(size));
    return 1;
}

void createBufferSupport(LuaContext& context, lua_State* state)
{
    lua_createtable(state, 0, 6);
    lua_pushcfunction(state, &bufferIndex);
    lua_setfield(state, -2, "__index");
    lua_pushcfunction(state, &bufferNewIndex);
    lua_setfield(state, -2, "__newindex");
    lua_pushcfunction(state, &bufferLength);
    lua_setfield(state, -2, "__len");
    lua_pushcfunction(state, &bufferToString);
    lua_setfield(state, -2, "toString");
    lua_pushliteral(state, "Buffer");
    lua_setfield(state, -2, "__name");
    context.bufferMetatableRef = luaL_ref(state, LUA_REGISTRYINDEX);

    lua_newtable(state);
    context.referencesRef = luaL_ref(state, LUA_REGISTRYINDEX);

    lua_createtable(state, 0, 1);
    lua_pushcfunction(state, &bufferNew);
    lua_setfield(state, -2, "new");
    lua_setglobal(state, "Buffer");
}

lua_State* usableThread(LuaContext& context)
{
    return context.nativeDepth > 0 ? context.current : context.state;
}

// Out of the typed closure call's way: its locals would make every call's frame larger.
[[gnu::noinline]] ResultAny refusedTypedResult(LuaContext& context, lua_State* state, const entt::meta_type& type)
{
    entt::meta_any value;
    ConversionFailure conversion;
    if (toNative(context, state, -1, type, value, conversion))
    {
        return Error("The script function's result took another road than its type allows");
    }
    return failureToError(conversion, "the value the script function returned", 0);
}
} // namespace

bool isScriptValueType(const entt::meta_type& type)
{
    return isClosureType(type) || type == Reflection::resolve<GeneratorAny>() ||
           type == Reflection::resolve<FutureAny>() || type == Reflection::resolve<PromiseAny>() ||
           type == Reflection::resolve<DataBufferAny>();
}

bool toScriptValue(LuaContext& context, lua_State* state, int index, const entt::meta_type& type, entt::meta_any& out,
                   ConversionFailure& failure)
{
    IRuntime* runtime = context.runtime;
    IObjectInspector* inspector = context.runtime;
    const uint32_t referenceLimit = context.runtime->getSettings().maxScriptReferences;
    if (referenceLimit != 0 && context.scriptReferences >= referenceLimit && isScriptValueType(type))
    {
        // Each script value native code holds pins a Lua value: a script must not pin without end.
        failure.kind = ConversionFailure::Kind::Other;
        failure.expected = "script value";
        failure.detail = fmt::format("Script value limit exceeded: native code may hold {} script values of a context",
                                     referenceLimit);
        return false;
    }
    if (isClosureType(type))
    {
        if (lua_type(state, index) != LUA_TFUNCTION)
        {
            return refuse(failure, "function", state, index);
        }
        StrongObjectHandle handle = makeScriptObject<ClosureType>(context, state, index);
        ClosureAny closure(runtime, context.id, context.scope, std::move(handle), inspector);
        if (type == Reflection::resolve<ClosureAny>())
        {
            out = entt::meta_any{Reflection::context(), std::move(closure)};
            return true;
        }
        out = type.construct();
        ClosureAny* target = out ? closureInside(out) : nullptr;
        if (target == nullptr)
        {
            failure.kind = ConversionFailure::Kind::Other;
            failure.expected = "function";
            failure.detail = "the closure type cannot be made";
            return false;
        }
        *target = std::move(closure);
        return true;
    }
    if (type == Reflection::resolve<GeneratorAny>())
    {
        const int luaType = lua_type(state, index);
        if (luaType != LUA_TFUNCTION && luaType != LUA_TTHREAD)
        {
            return refuse(failure, "generator function or coroutine", state, index);
        }
        UnlimitedMemory unlimited(context);
        lua_getfield(state, LUA_REGISTRYINDEX, MAKE_GENERATOR_KEY);
        lua_pushvalue(state, index);
        // Protected: the watchdog may stop any Lua code, and this frame holds native objects.
        if (lua_pcall(state, 1, 1, 0) != LUA_OK)
        {
            lua_pop(state, 1);
            return refuse(failure, "generator function or coroutine", state, index);
        }
        StrongObjectHandle handle = makeScriptObject<ClosureType>(context, state, -1);
        lua_pop(state, 1);
        out = entt::meta_any{Reflection::context(), GeneratorAny(runtime, context.id, context.scope, handle)};
        return true;
    }
    if (type == Reflection::resolve<FutureAny>() || type == Reflection::resolve<PromiseAny>())
    {
        if (!isPromiseTable(context, state, index))
        {
            return refuse(failure, "Promise", state, index);
        }
        StrongObjectHandle handle = makeScriptObject<ScriptObjectType>(context, state, index);
        if (type == Reflection::resolve<PromiseAny>())
        {
            out = entt::meta_any{Reflection::context(), PromiseAny(runtime, context.id, context.scope, handle)};
        }
        else
        {
            out = entt::meta_any{Reflection::context(),
                                 FutureAny(runtime, context.id, context.scope, std::move(handle), inspector)};
        }
        return true;
    }
    if (type == Reflection::resolve<DataBufferAny>())
    {
        if (lua_type(state, index) == LUA_TSTRING)
        {
            // Lua strings are immutable: native code gets bytes of its own to write into.
            size_t length = 0;
            const char* text = lua_tolstring(state, index, &length);
            UnlimitedMemory unlimited(context);
            BufferBox* box = pushBuffer(context, state, length);
            std::memcpy(box->bytes(), text, length);
            StrongObjectHandle handle = makeScriptObject<ScriptObjectType>(context, state, -1);
            lua_pop(state, 1);
            out = entt::meta_any{Reflection::context(),
                                 DataBufferAny(runtime, context.id, context.scope, handle, inspector)};
            return true;
        }
        if (toBufferBox(state, index) == nullptr)
        {
            return refuse(failure, "Buffer or string", state, index);
        }
        StrongObjectHandle handle = makeScriptObject<ScriptObjectType>(context, state, index);
        out =
            entt::meta_any{Reflection::context(), DataBufferAny(runtime, context.id, context.scope, handle, inspector)};
        return true;
    }
    return refuse(failure, "script value", state, index);
}

bool pushScriptValue(LuaContext& context, lua_State* state, const entt::meta_any& value)
{
    const entt::meta_type type = value.type();
    std::optional<ObjectHandle> handle;
    if (const ClosureAny* closure = closureInside(value))
    {
        handle = closure->getHandle();
    }
    else if (const PromiseAny* promise = value.try_cast<const PromiseAny>())
    {
        handle = promise->getHandle();
    }
    else if (const GeneratorAny* generator = value.try_cast<const GeneratorAny>())
    {
        handle = generator->getHandle();
    }
    else if (const DataBufferAny* buffer = value.try_cast<const DataBufferAny>())
    {
        handle = buffer->getHandle();
    }
    else if (!isScriptValueType(type))
    {
        return false;
    }
    if (handle.has_value() && handle->contextId == context.id)
    {
        pushReferencedValue(context, state, *handle);
    }
    else
    {
        lua_pushnil(state);
    }
    return true;
}

void createScriptValueSupport(LuaContext& context, lua_State* state)
{
    createBufferSupport(context, state);
    if (luaL_loadbufferx(state, PRELUDE, std::strlen(PRELUDE), "=prelude", "t") != LUA_OK)
    {
        lua_error(state);
    }
    lua_call(state, 0, 2);
    lua_setfield(state, LUA_REGISTRYINDEX, MAKE_GENERATOR_KEY);
    lua_pushvalue(state, -1);
    context.promiseClassRef = luaL_ref(state, LUA_REGISTRYINDEX);
    lua_setglobal(state, "Promise");
}

int referenceOf(LuaContext& context, ObjectHandle handle)
{
    LifetimeRegistry* registry = context.scope.getLifetimeRegistry();
    if (registry == nullptr || !registry->isValid(handle))
    {
        return LUA_NOREF;
    }
    const IScriptRef* scriptRef = registry->getScriptRef(handle);
    if (scriptRef == nullptr || typeid(*scriptRef) != typeid(LuaReference))
    {
        return LUA_NOREF;
    }
    return static_cast<const LuaReference*>(scriptRef)->reference();
}

void pushReferencedValue(LuaContext& context, lua_State* state, ObjectHandle handle)
{
    LifetimeRegistry* registry = context.scope.getLifetimeRegistry();
    if (registry == nullptr || !registry->isValid(handle))
    {
        lua_pushnil(state);
        return;
    }
    const IScriptRef* scriptRef = registry->getScriptRef(handle);
    if (scriptRef == nullptr || typeid(*scriptRef) != typeid(LuaReference))
    {
        lua_pushnil(state);
        return;
    }
    pushReference(context, state, static_cast<const LuaReference*>(scriptRef)->reference());
}

int pushReference(LuaContext& context, lua_State* state, lua_Integer reference)
{
    lua_rawgeti(state, LUA_REGISTRYINDEX, context.referencesRef);
    const int type = lua_rawgeti(state, -1, reference);
    lua_replace(state, -2);
    return type;
}

void pinReferences(LuaContext& context, lua_State* state)
{
    lua_rawgeti(state, LUA_REGISTRYINDEX, context.referencesRef);
    lua_replace(state, REFERENCES_SLOT);
    context.referencesPinned = true;
}

void dropReferences(LuaContext& context, lua_State* state, const std::vector<int>& references)
{
    if (!lua_checkstack(state, 4))
    {
        return;
    }
    lua_rawgeti(state, LUA_REGISTRYINDEX, context.referencesRef);
    for (const int reference : references)
    {
        if (reference <= 0)
        {
            continue;
        }
        lua_pushinteger(state, context.freeReference);
        lua_rawseti(state, -2, reference);
        context.freeReference = reference;
    }
    // A table keeps the room of its fullest time: once it holds an eighth of that, it is made anew with only
    // what is held. The numbers stay, since native code keeps them; the free slots become holes.
    constexpr uint64_t SMALLEST_REMADE = 1024;
    if (context.referencePeak >= SMALLEST_REMADE && context.scriptReferences * 8 < context.referencePeak)
    {
        for (int reference = context.freeReference; reference != 0;)
        {
            lua_rawgeti(state, -1, reference);
            const int next = static_cast<int>(lua_tointeger(state, -1));
            lua_pop(state, 1);
            lua_pushnil(state);
            lua_rawseti(state, -2, reference);
            reference = next;
        }
        context.freeReference = 0;
        // No more than the old table took, and freed with it.
        UnlimitedMemory unlimited(context);
        lua_createtable(state, 0, static_cast<int>(std::min<uint64_t>(context.scriptReferences, INT_MAX)));
        lua_pushnil(state);
        while (lua_next(state, -3) != 0)
        {
            lua_pushvalue(state, -2);
            lua_insert(state, -2);
            lua_rawset(state, -4);
        }
        lua_rawseti(state, LUA_REGISTRYINDEX, context.referencesRef);
        context.referencePeak = context.scriptReferences;
        // The old table must not live on in its slot: its room is what the remake gives back.
        context.referencesPinned = false;
        if (atStackBottom(context, state, lua_gettop(state)))
        {
            pinReferences(context, state);
        }
    }
    lua_pop(state, 1);
}
} // namespace internal

using internal::LuaContext;

ResultAny LuaRuntime::callClosure(ContextId contextId, ObjectHandle closure, entt::meta_any* arguments, unsigned count,
                                  const entt::meta_type& returnType, RunOption /*option*/)
{
    LuaContext* context = _getContext(contextId);
    if (context == nullptr)
    {
        return Error("Invalid context id");
    }
    if (context->closing)
    {
        return Error("The context is closing");
    }
    if (context->stopped && context->entry != 0)
    {
        // A stopped entry runs no more script code; native code may ask once for each of many listeners.
        internal::stopAtNextInstruction(*context);
        return Error(context->stopName, context->stopMessage);
    }
    lua_State* state = internal::usableThread(*context);
    if (count > 200 || !lua_checkstack(state, static_cast<int>(count) + 4))
    {
        return Error("Too many arguments for a script function");
    }
    const int base = lua_gettop(state);
    internal::pushReferencedValue(*context, state, closure);
    if (lua_type(state, -1) != LUA_TFUNCTION)
    {
        lua_settop(state, base);
        return Error("The script function is gone");
    }
    {
        internal::UnlimitedMemory unlimited(*context);
        for (unsigned index = 0; index < count; ++index)
        {
            std::string reason;
            if (internal::pushNative(*context, state, arguments[index], reason) == internal::PushStatus::Failed)
            {
                lua_settop(state, base);
                return Error(
                    fmt::format("Argument [{}] of a script function cannot be handed over: {}", index, reason));
            }
        }
    }
    const int status = internal::protectedCall(*context, state, static_cast<int>(count), 1);
    ResultAny result;
    if (status != LUA_OK)
    {
        result = internal::takeError(*context, state, status, "closure");
    }
    else if (!returnType || returnType == Reflection::resolve<void>())
    {
        lua_pop(state, 1);
    }
    else if (returnType == Reflection::resolve<GeneratorIteratorAny>())
    {
        StrongObjectHandle step = internal::makeScriptObject<internal::ScriptObjectType>(*context, state, -1);
        lua_pop(state, 1);
        result = ResultAny::makeResult<GeneratorIteratorAny>(this, contextId, context->scope, step, this);
    }
    else
    {
        entt::meta_any value;
        internal::ConversionFailure failure;
        const bool converted = internal::toNative(*context, state, -1, returnType, value, failure);
        lua_pop(state, 1);
        if (converted && internal::primitiveOf(returnType) != internal::Primitive::None)
        {
            // A number or a string is no error object: the check of makeResultFromAny can be spared.
            result.any() = std::move(value);
        }
        else if (converted)
        {
            result = ResultAny::makeResultFromAny(std::move(value));
        }
        else
        {
            result = internal::failureToError(failure, "the value the script function returned", 0);
        }
    }
    if (context->nativeDepth == 0)
    {
        context->drainPending(state);
    }
    return result;
}

Reflection::TypedClosureStatus LuaRuntime::callClosureTyped(ContextId contextId, ObjectHandle closure,
                                                            Reflection::TypedClosureCache& cache,
                                                            const Reflection::TypedClosureCall& call,
                                                            const entt::meta_type& returnType,
                                                            Reflection::TypedReturn& result, ResultAny& failure)
{
    using Reflection::TypedClosureStatus;
    LuaContext* context = _getContext(contextId);
    if (cache.owner != 0)
    {
        // A context made later under the same id has another serial, and any script value let go since the
        // function was found may have been this one, or have freed the slot for another function. A closing
        // context refuses the call as the uncached road does, through the general path's words.
        if (context == nullptr || context->closing || context->serial != cache.owner ||
            context->valuesLetGo != cache.epoch)
        {
            cache = {};
            return TypedClosureStatus::Unsupported;
        }
    }
    else
    {
        if (context == nullptr || context->closing || !context->useTypedCalls || call.count > 200)
        {
            return TypedClosureStatus::Unsupported;
        }
        const int reference = internal::referenceOf(*context, closure);
        if (reference <= 0)
        {
            return TypedClosureStatus::Unsupported;
        }
        cache = {context->serial, context->valuesLetGo, reference};
    }
    if (context->stopped && context->entry != 0)
    {
        internal::stopAtNextInstruction(*context);
        failure = Error(context->stopName, context->stopMessage);
        return TypedClosureStatus::Failed;
    }
    lua_State* state = internal::usableThread(*context);
    const int64_t slot = cache.slot;
    const int base = lua_gettop(state);
    const bool atBottom = internal::atStackBottom(*context, state, base);
    // Lua keeps LUA_MINSTACK slots ready above the bottom of a thread with no function active, and never takes
    // them back: with nothing above the runtime's two slots a few arguments need no look.
    constexpr uint32_t ROOM_AT_BOTTOM = LUA_MINSTACK - internal::REFERENCES_SLOT - 4;
    const bool roomKnown = atBottom && base == internal::REFERENCES_SLOT && call.count <= ROOM_AT_BOTTOM;
    if (!roomKnown && !lua_checkstack(state, static_cast<int>(call.count) + 4))
    {
        return TypedClosureStatus::Unsupported;
    }
    int handler = internal::HANDLER_SLOT;
    int function = base + 1;
    int type = LUA_TNIL;
    if (atBottom)
    {
        if (!context->referencesPinned)
        {
            internal::pinReferences(*context, state);
        }
        type = lua_rawgeti(state, internal::REFERENCES_SLOT, static_cast<lua_Integer>(slot));
    }
    else
    {
        // Within a function of the thread: the table of references and the handler go first, so that the
        // handler ends up below the function and nothing is moved.
        lua_rawgeti(state, LUA_REGISTRYINDEX, context->referencesRef);
        lua_rawgeti(state, LUA_REGISTRYINDEX, context->messageHandlerRef);
        handler = base + 2;
        function = base + 3;
        type = lua_rawgeti(state, -2, static_cast<lua_Integer>(slot));
    }
    if (type != LUA_TFUNCTION)
    {
        // A callable table, say: the general road calls it.
        lua_settop(state, base);
        return TypedClosureStatus::Unsupported;
    }
    {
        internal::UnlimitedMemory unlimited(*context);
        for (uint32_t index = 0; index < call.count; ++index)
        {
            // One switch on the kind: integers that fit a Lua integer are the common case.
            const Reflection::TypedValue& argument = call.arguments[index];
            switch (call.kinds[index])
            {
            case Reflection::TypedKind::Int8:
            case Reflection::TypedKind::UInt8:
            case Reflection::TypedKind::Int16:
            case Reflection::TypedKind::UInt16:
            case Reflection::TypedKind::Int32:
            case Reflection::TypedKind::UInt32:
            case Reflection::TypedKind::Int64:
                lua_pushinteger(state, static_cast<lua_Integer>(argument.integer));
                break;
            default:
                internal::pushTyped(state, internal::primitiveOfKind(call.kinds[index]), argument);
                break;
            }
        }
    }
    ++context->typedCalls;
    const int status =
        internal::protectedCallWithHandler(*context, state, function, static_cast<int>(call.count), 1, handler);
    TypedClosureStatus outcome = TypedClosureStatus::Done;
    if (status != LUA_OK)
    {
        failure = internal::takeError(*context, state, status, "closure");
        outcome = TypedClosureStatus::Failed;
    }
    else if (call.result == Reflection::TypedKind::Int32 && lua_type(state, -1) == LUA_TNUMBER &&
             internal::integerTyped<int32_t>(state, -1, result.value))
    {
        // The common result, without the switches over every kind; anything else takes the road below.
    }
    else if (call.result != Reflection::TypedKind::Void)
    {
        const internal::Primitive primitive = internal::primitiveOfKind(call.result);
        // A result takes a number only as a number, as the general conversion does.
        const bool numberFits = primitive == internal::Primitive::Bool || primitive == internal::Primitive::String ||
                                lua_type(state, -1) == LUA_TNUMBER;
        if (numberFits && internal::primitiveTyped(state, -1, primitive, result.value))
        {
            if (primitive == internal::Primitive::String)
            {
                // The text goes with the value once it leaves the stack.
                result.text.assign(result.value.textData, result.value.textSize);
                result.value.textData = result.text.data();
            }
        }
        else
        {
            failure = internal::refusedTypedResult(*context, state, returnType);
            outcome = TypedClosureStatus::Failed;
        }
    }
    lua_settop(state, base);
    if (context->nativeDepth == 0 && context->hasPending())
    {
        context->drainPending(state);
    }
    return outcome;
}

std::optional<PromiseAny> LuaRuntime::createPromise(ContextId contextId)
{
    LuaContext* context = _getContext(contextId);
    if (context == nullptr || context->closing || !lua_checkstack(internal::usableThread(*context), 3))
    {
        return std::nullopt;
    }
    lua_State* state = internal::usableThread(*context);
    internal::UnlimitedMemory unlimited(*context);
    lua_rawgeti(state, LUA_REGISTRYINDEX, context->promiseClassRef);
    lua_getfield(state, -1, "new");
    if (lua_pcall(state, 0, 1, 0) != LUA_OK)
    {
        lua_pop(state, 2);
        return std::nullopt;
    }
    StrongObjectHandle handle = internal::makeScriptObject<internal::ScriptObjectType>(*context, state, -1);
    lua_pop(state, 2);
    return PromiseAny(this, contextId, context->scope, handle);
}

namespace
{
ResultAny settlePromise(LuaContext* context, ObjectHandle promise, const entt::meta_any& value, const char* method)
{
    if (context == nullptr)
    {
        return Error("Invalid context id");
    }
    lua_State* state = internal::usableThread(*context);
    if (context->closing || !lua_checkstack(state, 4))
    {
        return Error("The context cannot run scripts now");
    }
    const int base = lua_gettop(state);
    internal::pushReferencedValue(*context, state, promise);
    if (!internal::isPromiseTable(*context, state, -1))
    {
        lua_settop(state, base);
        return Error("The promise is gone");
    }
    lua_rawgeti(state, LUA_REGISTRYINDEX, context->promiseClassRef);
    lua_getfield(state, -1, method);
    lua_remove(state, -2);
    lua_insert(state, -2);
    {
        internal::UnlimitedMemory unlimited(*context);
        std::string reason;
        if (internal::pushNative(*context, state, value, reason) == internal::PushStatus::Failed)
        {
            lua_settop(state, base);
            return Error("The value cannot be handed to the script: " + reason);
        }
    }
    const int status = internal::protectedCall(*context, state, 2, 1);
    if (status != LUA_OK)
    {
        return internal::takeError(*context, state, status, "promise");
    }
    const bool settled = lua_toboolean(state, -1) != 0;
    lua_settop(state, base);
    if (context->nativeDepth == 0)
    {
        context->drainPending(state);
    }
    return settled ? ResultAny() : ResultAny(Error("The promise was settled already"));
}
} // namespace

ResultAny LuaRuntime::resolvePromise(ContextId contextId, ObjectHandle promise, const entt::meta_any& value)
{
    return settlePromise(_getContext(contextId), promise, value, "resolve");
}

ResultAny LuaRuntime::rejectPromise(ContextId contextId, ObjectHandle promise, const entt::meta_any& value)
{
    return settlePromise(_getContext(contextId), promise, value, "reject");
}

FutureState LuaRuntime::getFutureState(ContextId contextId, ObjectHandle future)
{
    LuaContext* context = _getContext(contextId);
    if (context == nullptr)
    {
        return FutureState::Unknown;
    }
    lua_State* state = internal::usableThread(*context);
    if (!lua_checkstack(state, 3))
    {
        return FutureState::Unknown;
    }
    internal::pushReferencedValue(*context, state, future);
    FutureState result = FutureState::Unknown;
    if (internal::isPromiseTable(*context, state, -1))
    {
        lua_pushliteral(state, "state");
        lua_rawget(state, -2);
        const char* text = lua_type(state, -1) == LUA_TSTRING ? lua_tostring(state, -1) : "";
        if (std::strcmp(text, "pending") == 0)
        {
            result = FutureState::Pending;
        }
        else if (std::strcmp(text, "fulfilled") == 0)
        {
            result = FutureState::Fulfilled;
        }
        else if (std::strcmp(text, "rejected") == 0)
        {
            result = FutureState::Rejected;
        }
        lua_pop(state, 1);
    }
    lua_pop(state, 1);
    return result;
}

ResultAny LuaRuntime::getFutureResult(ContextId contextId, ObjectHandle future, const entt::meta_type& type)
{
    const FutureState futureState = getFutureState(contextId, future);
    if (futureState == FutureState::Unknown)
    {
        return Error("The future is gone");
    }
    if (futureState == FutureState::Pending)
    {
        return Error("The future is still pending");
    }
    LuaContext* context = _getContext(contextId);
    lua_State* state = internal::usableThread(*context);
    internal::pushReferencedValue(*context, state, future);
    lua_pushliteral(state, "value");
    lua_rawget(state, -2);
    ResultAny result;
    if (futureState == FutureState::Rejected)
    {
        if (internal::ErrorBox* box = internal::toErrorBox(state, -1))
        {
            result = ResultAny(Error(""));
            result.any() = box->error;
        }
        else
        {
            result = ResultAny(
                Error(lua_type(state, -1) == LUA_TSTRING ? lua_tostring(state, -1) : "The promise was rejected"));
        }
    }
    else if (!type)
    {
        entt::meta_any value = internal::toNativeUntyped(*context, state, -1);
        result = internal::toErrorBox(state, -1) != nullptr ? ResultAny(Error("The promise holds an error"))
                                                            : ResultAny::makeResultFromAny(std::move(value));
    }
    else
    {
        entt::meta_any value;
        internal::ConversionFailure failure;
        result = internal::toNative(*context, state, -1, type, value, failure)
                     ? ResultAny::makeResultFromAny(std::move(value))
                     : internal::failureToError(failure, "the value of the future", 0);
    }
    lua_pop(state, 2);
    return result;
}

bool LuaRuntime::isEqual(ObjectHandle a, ObjectHandle b)
{
    LuaContext* context = _getContext(a.contextId);
    if (context == nullptr || a.contextId != b.contextId)
    {
        return false;
    }
    lua_State* state = internal::usableThread(*context);
    if (!lua_checkstack(state, 2))
    {
        return false;
    }
    internal::pushReferencedValue(*context, state, a);
    internal::pushReferencedValue(*context, state, b);
    const bool equal = !lua_isnil(state, -1) && lua_rawequal(state, -1, -2) != 0;
    lua_pop(state, 2);
    return equal;
}

bool LuaRuntime::getBooleanProperty(ObjectHandle object, const char* name, bool defaultValue)
{
    LuaContext* context = _getContext(object.contextId);
    if (context == nullptr)
    {
        return defaultValue;
    }
    lua_State* state = internal::usableThread(*context);
    if (!lua_checkstack(state, 3))
    {
        return defaultValue;
    }
    internal::pushReferencedValue(*context, state, object);
    bool result = defaultValue;
    if (lua_type(state, -1) == LUA_TTABLE)
    {
        lua_pushstring(state, name);
        lua_rawget(state, -2);
        if (lua_type(state, -1) == LUA_TBOOLEAN)
        {
            result = lua_toboolean(state, -1) != 0;
        }
        lua_pop(state, 1);
    }
    lua_pop(state, 1);
    return result;
}

ResultAny LuaRuntime::getProperty(ObjectHandle object, const char* name, const entt::meta_type& expected)
{
    LuaContext* context = _getContext(object.contextId);
    if (context == nullptr)
    {
        return Error("The script value is gone");
    }
    lua_State* state = internal::usableThread(*context);
    if (!lua_checkstack(state, 3))
    {
        return Error("The script's stack is exhausted");
    }
    internal::pushReferencedValue(*context, state, object);
    if (lua_type(state, -1) != LUA_TTABLE)
    {
        lua_pop(state, 1);
        return Error("The script value is gone");
    }
    lua_pushstring(state, name);
    lua_rawget(state, -2);
    ResultAny result;
    if (!expected)
    {
        result = ResultAny::makeResultFromAny(internal::toNativeUntyped(*context, state, -1));
    }
    else
    {
        entt::meta_any value;
        internal::ConversionFailure failure;
        result = internal::toNative(*context, state, -1, expected, value, failure)
                     ? ResultAny::makeResultFromAny(std::move(value))
                     : internal::failureToError(failure, fmt::format("field '{}'", name), 0);
    }
    lua_pop(state, 2);
    return result;
}

unsigned LuaRuntime::getFirstExtent(ObjectHandle buffer)
{
    LuaContext* context = _getContext(buffer.contextId);
    if (context == nullptr)
    {
        return 0;
    }
    lua_State* state = internal::usableThread(*context);
    internal::pushReferencedValue(*context, state, buffer);
    const internal::BufferBox* box = internal::toBufferBox(state, -1);
    const unsigned size = box != nullptr ? static_cast<unsigned>(box->size) : 0;
    lua_pop(state, 1);
    return size;
}

unsigned LuaRuntime::getSecondExtent(ObjectHandle buffer)
{
    return getFirstExtent(buffer) > 0 ? 1 : 0;
}

void* LuaRuntime::getData(ObjectHandle buffer)
{
    LuaContext* context = _getContext(buffer.contextId);
    if (context == nullptr)
    {
        return nullptr;
    }
    lua_State* state = internal::usableThread(*context);
    internal::pushReferencedValue(*context, state, buffer);
    internal::BufferBox* box = internal::toBufferBox(state, -1);
    lua_pop(state, 1);
    // The registry keeps the userdata, and Lua's collector does not move objects.
    return box != nullptr ? box->bytes() : nullptr;
}
} // namespace Scripting::Lua
