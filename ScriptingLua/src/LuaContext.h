#pragma once

#include "Diagnostics/Assert.h"
#include "Scripting/BindingType/InjectedTypes.h"
#include "Scripting/BindingType/ModuleBinding.h"
#include "Scripting/Lua/LuaRuntime.h"
#include "Scripting/Lua/LuaValueTypes.h"
#include "Scripting/Reflection/IFunction.h"
#include "Scripting/Reflection/IProperty.h"
#include "Scripting/Reflection/Reflection.h"
#include "Scripting/Reflection/TypedCall.h"

#include <entt/meta/template.hpp>

#include <lua.hpp>

#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <cfloat>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Scripting::Lua::internal
{
// Native value types that Lua holds as its own numbers, booleans and strings.
enum class Primitive : uint8_t
{
    None,
    Bool,
    Int8,
    UInt8,
    Int16,
    UInt16,
    Int32,
    UInt32,
    Int64,
    UInt64,
    Float,
    Double,
    String,
};

// Whether `type` is a `Template<...>`, as the meta system knows class templates.
template <template <typename...> class Template>
bool isSpecializationOf(const entt::meta_type& type)
{
    static const entt::meta_type sTag = Reflection::resolve<entt::meta_class_template_tag<Template>>();
    return type.is_template_specialization() && type.template_type() == sTag;
}

Primitive primitiveOf(const entt::meta_type& type);
const char* primitiveName(Primitive primitive);

// The native arguments that the runtime fills from the context.
enum class Injected : uint8_t
{
    None,
    Registry,
    Scope,
    ObjectFactory,
    Locator,
    LocatorPointer,
    Config,
};

struct ClassInfo;

// What a call of one native function needs, worked out once per context.
struct FunctionPlan
{
    enum class Kind : uint8_t
    {
        Function,
        Method,
        Constructor,
        ObjectFactory,
    };

    struct Argument
    {
        entt::meta_type type;
        Primitive primitive = Primitive::None;
        Injected injected = Injected::None;
        // Index into the function's argument details; meaningless for injected arguments.
        uint32_t detailsIndex = 0;
        // The described argument, for its name; null past the described ones.
        const ArgumentBinding* binding = nullptr;
        // The argument's bounds are those of its type, which the conversion enforces already: asking the
        // callable could only answer yes.
        bool boundsOfTypeOnly = false;
        // Nil or a missing script value takes the default.
        bool hasDefault = false;
        // On the typed road: an integer within [low, high] and nothing else to check, the common argument,
        // read without going through every kind.
        bool plainInteger = false;
        lua_Integer low = 0;
        lua_Integer high = 0;
    };

    const Reflection::IFunction* function = nullptr;
    std::string displayName;
    Kind kind = Kind::Function;
    const ClassInfo* owner = nullptr;
    std::vector<Argument> arguments;
    uint32_t scriptCount = 0;
    uint32_t requiredCount = 0;
    entt::meta_type returnType;
    Primitive returnPrimitive = Primitive::None;
    bool returnsVoid = false;
    // The result is an object handle, weak or strong: it becomes an object box with no search for its kind.
    bool returnsHandle = false;
    // ... and a strong one, whose reference the box can take over.
    bool returnsStrongHandle = false;
    // Conditions that the runtime does not offer: the function's own, or its class's. Empty when callable.
    std::vector<std::string> missingConditions;
    // The road without meta_any, when every argument converts directly; null keeps every call general.
    const Reflection::TypedCall* typed = nullptr;
    // The typed result is a number that Lua holds as an integer whatever its value.
    bool integerResult = false;
    // A function (no object) on the typed road whose every parameter is a plain integer, in script order, and
    // whose result is an integer or nothing: its calls take the shortest road there is.
    bool integersOnly = false;
    // The class a method's object must be exactly, for the typed road; a derived object takes the general one.
    entt::meta_type selfType;
    // Argument anys kept from one call to the next, so that numbers are written into anys that hold their
    // type already. A call that finds them taken, one made from within a call of the same function, makes
    // anys of its own.
    mutable std::vector<entt::meta_any> reusableArguments;
    mutable bool reusableInUse = false;
};

struct PropertyInfo
{
    const PropertyBinding* binding = nullptr;
    std::string displayName;
    // Of the value the getter hands out.
    Primitive primitive = Primitive::None;
    // The roads without meta_any, for an object of exactly `classType`; null keeps the general one.
    const Reflection::TypedPropertyGet* typedGet = nullptr;
    const Reflection::TypedPropertySet* typedSet = nullptr;
    Primitive setPrimitive = Primitive::None;
    entt::meta_type classType;
};

struct ClassInfo
{
    const ClassBinding* binding = nullptr;
    entt::meta_type type;
    const ClassInfo* base = nullptr;
    FunctionPlan* constructor = nullptr;
    // Parallel to the binding's functions and properties.
    std::vector<FunctionPlan*> functions;
    std::vector<PropertyInfo> properties;
    // Registry references of the object metatable and of the table of members, base members included.
    int metatableRef = LUA_NOREF;
    int membersRef = LUA_NOREF;
    // The class or a base has properties. Without any, the members table is the objects' __index itself, and
    // a method is found by Lua's own look-up.
    bool hasProperties = false;
    // The storage of the context's registry that holds this class's objects by value, found on first use: an
    // object of exactly this class is then one look away, where the registry's own road searches for the
    // storage by type on every access. Objects tracked by pointer are not in it and take that road.
    mutable entt::basic_sparse_set<ObjectHandleValue>* storage = nullptr;
    mutable const LifetimeRegistry* storageRegistry = nullptr;
    mutable uint8_t storageSearches = 0;
};

struct EnumInfo
{
    const EnumBinding* binding = nullptr;
    // Members seen as numbers rather than as strings.
    bool numeric = false;
    // The underlying number of each member, beside its record.
    std::vector<std::pair<int64_t, const EnumValueBinding*>> values;
};

struct InterfaceInfo
{
    const InterfaceBinding* binding = nullptr;
    std::unordered_map<std::string_view, const PropertyBinding*> properties;
};

struct ModuleInfo
{
    const ModuleBinding* binding = nullptr;
    // Parallel to the binding's functions, classes and object factories.
    std::vector<FunctionPlan*> functions;
    std::vector<ClassInfo*> classes;
    std::vector<FunctionPlan*> factories;
};

struct LuaContext;

// Memory of one context as its allocator sees it.
struct MemoryState
{
    size_t used = 0;
    size_t peak = 0;
    size_t limit = 0;
    // While above zero the limit is not applied: converting a native result must not fail half way.
    int unlimited = 0;
    uint64_t* runtimeInUse = nullptr;
    uint64_t* runtimePeak = nullptr;
    // Sizes of the blocks that hold an object box and an error box: the allocator looks at those for a seal.
    LuaContext* owner = nullptr;
    size_t objectBlockSize = std::numeric_limits<size_t>::max();
    size_t errorBlockSize = std::numeric_limits<size_t>::max();
};

// The kinds of full userdata the runtime makes; each starts with its kind.
enum class BoxKind : uint32_t
{
    Object = 0x4c4f424a,
    Error = 0x4c455252,
    Buffer = 0x4c425546,
};

// A native object as a Lua value: an object of the registry held by a strong handle, or a value of a native
// type held by copy.
struct ObjectBox
{
    BoxKind kind = BoxKind::Object;
    bool isHandle = false;
    const ClassInfo* classInfo = nullptr; // null for a type no module binds
    StrongObjectHandle handle;
    entt::meta_any value;
    // Last, so that the allocator finds it at the end of the block: see sealBox.
    uintptr_t seal = 0;
};

// An error value: the native error object, whatever its type in the error family.
struct ErrorBox
{
    BoxKind kind = BoxKind::Error;
    entt::meta_any error;
    uintptr_t seal = 0;
};

// Lua frees a userdata whose finalizer call failed as if the finalizer had run: the call fails when it would
// pass the limit of nested C calls (a collection step taken by code running just below it) or when growing the
// stack for it passes the memory limit. Boxes that own native state therefore carry a seal, a value no script
// can forge, which their finalizer breaks; the allocator releases what a box still sealed at its free owns.
uintptr_t sealFor(const uintptr_t* place, BoxKind kind);

template <typename Box>
void sealBox(Box& box)
{
    static_assert(offsetof(Box, seal) + sizeof(uintptr_t) == sizeof(Box), "the seal ends the box");
    box.seal = sealFor(&box.seal, box.kind);
}

// A mutable block of bytes; the bytes follow the header in the same userdata.
struct BufferBox
{
    BoxKind kind = BoxKind::Buffer;
    size_t size = 0;

    unsigned char* bytes() { return reinterpret_cast<unsigned char*>(this + 1); }
};

// How another thread asks a running entry to stop: the entry now running (0: none), the entry that an
// interrupt was asked for and the entry whose time ran out. Entries are numbered per context, so a late request
// never hits a later entry. Read by the stop signal's handler, so only lock-free atomics.
struct InterruptSlot
{
    std::atomic<uint64_t> running{0};
    std::atomic<uint64_t> requested{0};
    std::atomic<uint64_t> timedOut{0};
    // The kernel's id of the thread that runs the entry; 0 when no signal reaches it. An interrupt that reads it
    // just as the entry ends signals a thread with nothing due, or one that is gone: both harmless with a thread
    // id, unlike a pthread_t of a thread that may have been joined.
    std::atomic<pid_t> ownerThread{0};
    // The last entry number given out for this context id: a context made later with the same id goes on
    // from there, so that a request left for a closed context never matches an entry of the new one.
    uint64_t lastEntry = 0;
};

// An entry with a time budget, as the process-wide deadline thread sees it.
struct DeadlineEntry
{
    DeadlineEntry* previous = nullptr;
    DeadlineEntry* next = nullptr;
    std::chrono::steady_clock::time_point deadline;
    pthread_t owner{};
    int signal = 0;
    InterruptSlot* slot = nullptr;
    uint64_t entry = 0;
    bool fired = false;
    bool linked = false;
};

// One context: its state, its copy of the bundle and everything worked out from it.
struct LuaContext
{
    LuaContext(LuaRuntime& owner, ContextId contextId, WeakLifetimeScope contextScope, ModuleBindingBundle modules,
               const ContextConfig& contextConfig);
    LuaContext(const LuaContext&) = delete;
    LuaContext& operator=(const LuaContext&) = delete;
    ~LuaContext();

    LuaRuntime* runtime;
    ContextId id;
    lua_State* state = nullptr;
    WeakLifetimeScope scope;
    // Never resized after set-up: plans and closures point into it.
    ModuleBindingBundle bundle;
    ContextConfig config;
    // Calls and properties whose types allow it take the typed road; off, everything takes the general one.
    bool useTypedCalls = true;
    IDependencyLoader* dependencyLoader = nullptr;
    IPrinter* printer = nullptr;
    ScriptObjectFactory objectFactory;
    DependencyLocator dependencyLocator;
    MemoryState memory;

    std::vector<std::unique_ptr<FunctionPlan>> plans;
    std::vector<std::unique_ptr<ClassInfo>> classes;
    std::vector<ModuleInfo> modules;
    // Keyed by the type's hash, which the meta type holds without a lookup.
    std::unordered_map<entt::id_type, ClassInfo*> classByType;
    std::unordered_map<entt::id_type, EnumInfo> enumByType;
    std::unordered_map<entt::id_type, InterfaceInfo> interfaceByType;
    std::unordered_map<entt::id_type, const ErrorBinding*> errorByType;

    // Native calls in progress. While any runs, releases that the collector asks for wait: a release may
    // destroy an object, and destroying one moves others in their storage under the feet of the call.
    int nativeDepth = 0;
    // The thread that the innermost native call was made on; the main state when none runs.
    lua_State* current = nullptr;
    bool closing = false;
    std::vector<StrongObjectHandle> pendingReleases;
    std::vector<StrongObjectHandle> spareReleases;
    std::vector<int> pendingUnreferences;
    uint64_t liveHandleBoxes = 0;
    uint64_t typedCalls = 0;
    uint64_t typedCallsDeclined = 0;

    // Budget of the entry into the script now running. The count hook is set only where it is needed: for an
    // instruction budget (`hookInterval`, on every thread of the context), for a stop that is due (every
    // instruction, on the thread that runs), and without a stop signal for the time budget and interrupts.
    bool watchdogArmed = false;
    int hookInterval = 0;
    // Interrupts or a time budget can stop the script.
    bool stoppable = false;
    // The stop signal can reach the entry now running; otherwise a hook looks for stops every 1,000 instructions.
    bool reachable = false;
    // The runtime's stop signal, 0 for none; it reaches each entry whose thread has a place in the thread table.
    int stopSignal = 0;
    // The thread of the context that runs script code now: the stop signal's handler hooks it. Written by the
    // thread that runs the entry only, read by its signal handler.
    std::atomic<lua_State*> running{nullptr};
    // The context whose entry was running on this OS thread when this one began; the handler walks them all.
    LuaContext* outerOnThread = nullptr;
    int threadRecord = -1;
    DeadlineEntry deadline;
    // A stop asked the hook to look at every instruction of some thread; the next entry restores the pace.
    bool hookHurried = false;
    // The main thread when syncHook last left it without a hook, null otherwise: an entry on it that needs no
    // hook leaves it as it is. Only a stop due in an entry sets a hook behind syncHook's back, and such an
    // entry forgets it.
    lua_State* hookFreeThread = nullptr;
    uint64_t instructionsUsed = 0;
    std::chrono::steady_clock::time_point runStart;
    // Set once the running entry must end: by the watchdog, an interrupt or a limit. It stays set until the
    // entry returns to native code, so that no protected call in the script can swallow it.
    bool stopped = false;
    std::string stopName;
    std::string stopMessage;
    // Where the script was when it was stopped; the error travels from elsewhere.
    std::string stopTraceback;
    std::string stopFile;
    int stopLine = -1;
    // Which entry into the script runs now, for interrupts from other threads; 0 when none runs.
    uint64_t entry = 0;
    uint64_t entries = 0;
    InterruptSlot* interruptSlot = nullptr;
    // Unique in the process, so that what a closure value cached about a context is never taken for a later
    // context of the same id; and how many script values this context let go, which a typed closure call
    // compares with what it saw when it found its function.
    uint64_t serial = 0;
    uint64_t valuesLetGo = 0;
    // Coroutines made so far that may still live, and the registry references that script values hold.
    uint64_t coroutines = 0;
    uint64_t scriptReferences = 0;
    int threadsRef = LUA_NOREF;
    // The table of the Lua values that native code holds, by the numbers their references carry; a free slot
    // holds the number of the next free one, and the first is kept here (0: none). The most held at once since
    // the table was made tells when it has grown far past what is held.
    int referencesRef = LUA_NOREF;
    int freeReference = 0;
    uint64_t referencePeak = 0;
    // The bottom of the main thread's stack holds the message handler and the table of references (see
    // HANDLER_SLOT); false once the table was remade while the slot was out of reach, until it is put back.
    bool referencesPinned = false;

    // What the message handler found for the error now travelling out.
    std::string traceback;
    std::string errorFile;
    int errorLine = -1;

    int errorMetatableRef = LUA_NOREF;
    int bufferMetatableRef = LUA_NOREF;
    int opaqueMetatableRef = LUA_NOREF;
    int loadedModulesRef = LUA_NOREF;
    int messageHandlerRef = LUA_NOREF;
    int promiseClassRef = LUA_NOREF;

    // Releases whatever the collector freed while native calls ran, on a thread that may be used now. Only
    // between calls.
    void drainPending(lua_State* thread);
    bool hasPending() const { return !pendingReleases.empty() || !pendingUnreferences.empty(); }
};

inline LuaContext& contextOf(lua_State* state)
{
    return **static_cast<LuaContext**>(lua_getextraspace(state));
}

// One native call: counts the depth and remembers the thread; releases waiting objects when the outermost
// call ends.
class NativeCallScope
{
public:
    NativeCallScope(LuaContext& context, lua_State* state)
        : mContext(context), mState(state), mPrevious(context.current)
    {
        ++mContext.nativeDepth;
        mContext.current = state;
    }
    ~NativeCallScope()
    {
        mContext.current = mPrevious;
        if (--mContext.nativeDepth == 0 && mContext.hasPending())
        {
            mContext.drainPending(mState);
        }
    }
    NativeCallScope(const NativeCallScope&) = delete;
    NativeCallScope& operator=(const NativeCallScope&) = delete;

private:
    LuaContext& mContext;
    lua_State* mState;
    lua_State* mPrevious;
};

// Lets conversions of native values into Lua allocate past the memory limit, so that they cannot fail half
// way with native objects alive on the C++ stack.
class UnlimitedMemory
{
public:
    explicit UnlimitedMemory(LuaContext& context) : mMemory(context.memory) { ++mMemory.unlimited; }
    ~UnlimitedMemory() { --mMemory.unlimited; }
    UnlimitedMemory(const UnlimitedMemory&) = delete;
    UnlimitedMemory& operator=(const UnlimitedMemory&) = delete;

private:
    MemoryState& mMemory;
};

// ---- Conversions (Conversion.cpp) ----

// Why a Lua value did not become the native value wanted.
struct ConversionFailure
{
    enum class Kind : uint8_t
    {
        None,
        TypeMismatch,
        Missing,
        OutOfRange,
        Destroyed,
        TooDeep,
        UnknownField,
        Other,
    };

    Kind kind = Kind::None;
    std::string expected;
    std::string got;
    // Where inside the value: "[3]", ".position", empty for the value itself.
    std::string path;
    std::optional<double> value;
    std::optional<double> minValue;
    std::optional<double> maxValue;
    std::string detail;
};

// Nesting deeper than this is refused both ways; Lua tables may nest without end, and may be cyclic.
inline constexpr int MAX_CONVERSION_DEPTH = 32;

bool toNative(LuaContext& context, lua_State* state, int index, const entt::meta_type& type, entt::meta_any& out,
              ConversionFailure& failure, int depth = 0);
// The same for a type known to be a primitive; the fast road of calls.
bool primitiveToNative(lua_State* state, int index, Primitive primitive, entt::meta_any& out,
                       ConversionFailure& failure);
void pushPrimitive(lua_State* state, Primitive primitive, const entt::meta_any& value);
// The typed road's conversions, inline on the hot road: false sends the call to the general path, which tells
// why. They take what primitiveFast takes.
// The Lua integer at `index` when it is one and fits in T; both roads of calls take integers through it.
template <typename T>
bool integerFits(lua_State* state, int index, lua_Integer& value)
{
    int isInteger = 0;
    value = lua_tointegerx(state, index, &isInteger);
    if (isInteger == 0)
    {
        return false;
    }
    if constexpr (std::is_signed_v<T>)
    {
        return value >= static_cast<lua_Integer>(std::numeric_limits<T>::lowest()) &&
               value <= static_cast<lua_Integer>(std::numeric_limits<T>::max());
    }
    else
    {
        return value >= 0 && static_cast<uint64_t>(value) <= std::numeric_limits<T>::max();
    }
}

template <typename T>
bool integerTyped(lua_State* state, int index, Reflection::TypedValue& out)
{
    lua_Integer value = 0;
    if (!integerFits<T>(state, index, value))
    {
        return false;
    }
    if constexpr (!std::is_signed_v<T> && sizeof(T) == sizeof(uint64_t))
    {
        out.unsignedInteger = static_cast<uint64_t>(value);
    }
    else
    {
        out.integer = value;
    }
    return true;
}

inline bool primitiveTyped(lua_State* state, int index, Primitive primitive, Reflection::TypedValue& out)
{
    switch (primitive)
    {
    case Primitive::Bool:
        if (lua_type(state, index) != LUA_TBOOLEAN)
        {
            return false;
        }
        out.boolean = lua_toboolean(state, index) != 0;
        return true;
    case Primitive::String:
    {
        if (lua_type(state, index) != LUA_TSTRING)
        {
            return false;
        }
        size_t length = 0;
        out.textData = lua_tolstring(state, index, &length);
        out.textSize = length;
        return true;
    }
    case Primitive::Double:
    case Primitive::Float:
    {
        int isNumber = 0;
        const double number = lua_tonumberx(state, index, &isNumber);
        if (isNumber == 0)
        {
            return false;
        }
        if (primitive == Primitive::Float && std::isfinite(number) && std::fabs(number) > static_cast<double>(FLT_MAX))
        {
            return false;
        }
        out.number = number;
        return true;
    }
    case Primitive::Int8:
        return integerTyped<int8_t>(state, index, out);
    case Primitive::UInt8:
        return integerTyped<uint8_t>(state, index, out);
    case Primitive::Int16:
        return integerTyped<int16_t>(state, index, out);
    case Primitive::UInt16:
        return integerTyped<uint16_t>(state, index, out);
    case Primitive::Int32:
        return integerTyped<int32_t>(state, index, out);
    case Primitive::UInt32:
        return integerTyped<uint32_t>(state, index, out);
    case Primitive::Int64:
        return integerTyped<int64_t>(state, index, out);
    case Primitive::UInt64:
        return integerTyped<uint64_t>(state, index, out);
    case Primitive::None:
        break;
    }
    return false;
}

inline void pushTyped(lua_State* state, Primitive primitive, const Reflection::TypedValue& value)
{
    switch (primitive)
    {
    case Primitive::Bool:
        lua_pushboolean(state, value.boolean ? 1 : 0);
        return;
    case Primitive::UInt64:
        if (value.unsignedInteger > static_cast<uint64_t>(std::numeric_limits<lua_Integer>::max()))
        {
            lua_pushnumber(state, static_cast<lua_Number>(value.unsignedInteger));
        }
        else
        {
            lua_pushinteger(state, static_cast<lua_Integer>(value.unsignedInteger));
        }
        return;
    case Primitive::Float:
    case Primitive::Double:
        lua_pushnumber(state, value.number);
        return;
    case Primitive::String:
        lua_pushlstring(state, value.textData, value.textSize);
        return;
    case Primitive::None:
        lua_pushnil(state);
        return;
    default:
        lua_pushinteger(state, static_cast<lua_Integer>(value.integer));
        return;
    }
}

// A typed value as the native type `primitive` names, for validators that read meta_any.
entt::meta_any typedAsAny(Primitive primitive, const Reflection::TypedValue& value);
inline Primitive primitiveOfKind(Reflection::TypedKind kind)
{
    switch (kind)
    {
    case Reflection::TypedKind::Bool:
        return Primitive::Bool;
    case Reflection::TypedKind::Int8:
        return Primitive::Int8;
    case Reflection::TypedKind::UInt8:
        return Primitive::UInt8;
    case Reflection::TypedKind::Int16:
        return Primitive::Int16;
    case Reflection::TypedKind::UInt16:
        return Primitive::UInt16;
    case Reflection::TypedKind::Int32:
        return Primitive::Int32;
    case Reflection::TypedKind::UInt32:
        return Primitive::UInt32;
    case Reflection::TypedKind::Int64:
        return Primitive::Int64;
    case Reflection::TypedKind::UInt64:
        return Primitive::UInt64;
    case Reflection::TypedKind::Float:
        return Primitive::Float;
    case Reflection::TypedKind::Double:
        return Primitive::Double;
    case Reflection::TypedKind::String:
        return Primitive::String;
    case Reflection::TypedKind::None:
    case Reflection::TypedKind::Void:
    case Reflection::TypedKind::Object:
    case Reflection::TypedKind::Handle:
        break;
    }
    return Primitive::None;
}

// The address of the object in the box at `index` when it is alive and exactly of `type`; null otherwise.
void* typedObject(lua_State* state, int index, const entt::meta_type& type);
// The common case of a primitive that converts; false leaves the failure to primitiveToNative.
bool primitiveFast(lua_State* state, int index, Primitive primitive, entt::meta_any& out);

enum class PushStatus : uint8_t
{
    Ok,
    // Nothing was pushed; the reason is in the text.
    Failed,
    // A Result held an error: its error value was pushed instead.
    RaisedError,
};

// Whether `bytes` more fit under the context's memory limit. Native results are pushed with the limit lifted,
// so that a conversion never fails half way: a big one is refused before it starts instead, and a result that
// went past the limit all the same is dropped once made.
bool roomFor(const LuaContext& context, size_t bytes);
// The bytes a string primitive takes, 0 for the other primitives.
size_t primitiveSize(Primitive primitive, const entt::meta_any& value);
// The reason that pushNative gives when a string of the value does not fit.
inline constexpr std::string_view NO_ROOM = "a value past the memory limit";
// The error value of a result (`what` is "returned" or "holds") that does not fit under the limit.
Error tooBigError(const LuaContext& context, const std::string& displayName, const char* what);

// Pushes one Lua value for `value`. Callers hold UnlimitedMemory.
PushStatus pushNative(LuaContext& context, lua_State* state, const entt::meta_any& value, std::string& failure,
                      int depth = 0);
// A Lua value with no wanted type: numbers, booleans, strings and native objects; anything else is empty.
entt::meta_any toNativeUntyped(LuaContext& context, lua_State* state, int index);

// The name of a native type as scripts read it in messages.
std::string describeType(const LuaContext& context, const entt::meta_type& type);
// What a Lua value is, for messages: "integer", "string", "Entity", "destroyed Entity".
std::string describeValue(lua_State* state, int index);

ObjectBox* toObjectBox(lua_State* state, int index);
// The native object of a box, as a reference; false when the object is gone.
bool boxInstance(ObjectBox& box, entt::meta_any& out);
// `expected` is the class the object most likely is, which spares the search when it is; null for none.
void pushObjectBox(LuaContext& context, lua_State* state, StrongObjectHandle&& handle,
                   const ClassInfo* expected = nullptr);
// Whether `type` is a weak or strong handle, typed or not; `strong` tells which.
bool isSmartHandleType(const entt::meta_type& type, bool& strong);
void pushValueBox(LuaContext& context, lua_State* state, entt::meta_any&& value, const ClassInfo* classInfo);
// Destroys a box whose Lua value is being freed. A handle is released later, between native calls, when
// `deferHandle` is set or native calls run; never while the context closes.
void releaseObjectBox(LuaContext& context, ObjectBox& box, bool deferHandle);

// ---- Errors (Errors.cpp) ----

// Pushes an error value holding a copy of the error in `result`.
void pushError(LuaContext& context, lua_State* state, ResultAny&& result);
ErrorBox* toErrorBox(lua_State* state, int index);
void createErrorMetatable(LuaContext& context, lua_State* state);
// The message handler of every protected call the runtime makes: notes the traceback and the place.
int messageHandler(lua_State* state);
// The error that a failed protected call left on top of the stack, popped, as the runtime returns it.
ResultAny takeError(LuaContext& context, lua_State* state, int status, const std::string& sourceName);
// Makes the hook look at the next instruction of the thread that the innermost native call returns to, so that
// a stopped entry ends there. The next entry takes the usual pace again.
void stopAtNextInstruction(LuaContext& context);
// Runs the function and its arguments on top of the stack under the message handler and the watchdog.
int protectedCall(LuaContext& context, lua_State* state, int argumentCount, int resultCount);
// The same with the message handler already at `handler`, below the function, where it stays: a caller that
// pushes it first, or finds it at HANDLER_SLOT, spares moving it under the function and out again.
// `function` is the index of the function, with its arguments above it up to the top.
inline int protectedCallWithHandler(LuaContext& context, lua_State* state, int function, int argumentCount,
                                    int resultCount, int handler);
// The protected call of a callback, within an entry that is running already.
int nestedProtectedCall(LuaContext& context, lua_State* state, int function, int argumentCount, int resultCount,
                        int handler);
ResultAny failureToError(const ConversionFailure& failure, const std::string& subject, int32_t index);
// `noun` after the article its sound takes: "an int", "a string", "an Entity".
std::string withArticle(std::string_view noun);

// ---- Bindings (Bindings.cpp) ----

// Works out plans and type tables from the bundle; no Lua state is touched.
void planBindings(LuaContext& context);
// Creates the class metatables. Runs in a protected call.
void createClassMetatables(LuaContext& context, lua_State* state);
// Pushes the table of a module, made on first use.
int pushModule(LuaContext& context, lua_State* state, const ModuleInfo& module);
const ModuleInfo* findModule(const LuaContext& context, std::string_view name);
int callPlan(lua_State* state);

// Notes the script's stack from `firstLevel` outwards: the traceback, the file and the line of the innermost
// frame that has one.
void captureTraceback(const LuaContext& context, lua_State* state, int firstLevel, std::string& traceback,
                      std::string& file, int& line);

// ---- Sandbox (Sandbox.cpp) ----

// Opens the safe libraries and the runtime's globals. Runs in a protected call.
void openSandbox(LuaContext& context, lua_State* state);
// Counts the coroutines alive after a full collection, and remakes their table when it has far more room than
// they need. Never raises.
uint64_t recountCoroutines(LuaContext& context, lua_State* state);

// ---- Patterns (Patterns.cpp) ----

// Replaces the string library's find, match, gmatch, gsub and rep with versions whose work is counted.
void openPatternFunctions(lua_State* state);

// ---- Stops by signal (StopSignals.cpp) ----

// Installs the handler of `signal` for the process, once per signal. False when a signal cannot stop Lua code
// here: no POSIX threads, or a ThreadSanitizer build, which delays signals until the thread reaches
// instrumented code, and the interpreter's loop never does.
bool installStopSignal(int signal);
// Makes the running entry known to the thread table and, with a time budget, to the deadline thread; before
// any script code of the entry runs.
// One entry from native code into `state`, with no entry of the context running: a fresh budget and number,
// registered for stops, lua_pcall with the arguments given, a stop that came due at its very end charged, and
// everything undone again. Arguments as protectedCallWithHandler's.
int runEntry(LuaContext& context, lua_State* state, int function, int argumentCount, int resultCount, int handler);

// The outermost call is the hot one from native code: one call into the entry, not two.
inline int protectedCallWithHandler(LuaContext& context, lua_State* state, int function, int argumentCount,
                                    int resultCount, int handler)
{
    if (context.entry == 0)
    {
        return runEntry(context, state, function, argumentCount, resultCount, handler);
    }
    return nestedProtectedCall(context, state, function, argumentCount, resultCount, handler);
}
// Whether an interrupt or the deadline asks the running entry to stop. Safe in the signal handler.
inline bool stopDue(const LuaContext& context)
{
    const InterruptSlot* slot = context.interruptSlot;
    if (slot == nullptr)
    {
        return false;
    }
    const uint64_t running = slot->running.load(std::memory_order_relaxed);
    return running != 0 && (slot->requested.load(std::memory_order_relaxed) == running ||
                            slot->timedOut.load(std::memory_order_relaxed) == running);
}
// Interrupt of the entry that `slot` tracks: marks it and signals its thread (not with a signal of 0).
void signalInterrupt(InterruptSlot& slot, int signal);
// The switch of the context's running thread, at a resume and its return: the stop signal hooks `thread` from
// now on, and a stop due now hooks it at once.
void switchThread(LuaContext& context, lua_State* thread);

// ---- Budget and stops (LuaRuntime.cpp) ----

// The hook of every thread of the context: counts instructions and stops the entry when it must end.
void budgetHook(lua_State* state, lua_Debug* frame);
// Gives `thread` the hook that the context needs now: none, the instruction budget's pace, or every instruction
// for a stop that is due. Threads made before a change get it when they are resumed.
void syncHook(LuaContext& context, lua_State* thread);
// Counts `units` of work that a library function did (about one instruction each) against the running entry's
// budget; true when the entry must end now, with `stopped` set.
bool chargeWork(LuaContext& context, lua_State* state, uint64_t units);
// Raises the stop error in `state`. Never from a hook with a script's message handler in place: the message
// handlers that the runtime installs skip the script's handler once `stopped` is set.
int raiseStop(LuaContext& context, lua_State* state);
// chargeWork, and raiseStop when the entry must end. For library functions only, never from a hook.
inline void spend(LuaContext& context, lua_State* state, uint64_t units)
{
    if (chargeWork(context, state, units))
    {
        raiseStop(context, state);
    }
}

// ---- Script values (ScriptValues.cpp) ----

bool isScriptValueType(const entt::meta_type& type);
bool toScriptValue(LuaContext& context, lua_State* state, int index, const entt::meta_type& type, entt::meta_any& out,
                   ConversionFailure& failure);
// False when `value` is no script value.
bool pushScriptValue(LuaContext& context, lua_State* state, const entt::meta_any& value);
void createScriptValueSupport(LuaContext& context, lua_State* state);
// Pushes the Lua value that a script-value object of the registry stands for; nil when there is none.
void pushReferencedValue(LuaContext& context, lua_State* state, ObjectHandle handle);
// The reference of a script-value object's Lua value; LUA_NOREF when there is none.
int referenceOf(LuaContext& context, ObjectHandle handle);
// Pushes the value of a reference; nil for none. Takes two slots of the stack.
int pushReference(LuaContext& context, lua_State* state, lua_Integer reference);

// Native code that calls into the context between runs finds the message handler and the table of references
// at the bottom of the main thread's stack, below whatever it pushes: a call reaches its function with one
// look-up and pays nothing for the handler until an error calls it. Only where no function of the thread is
// active do these indices mean the bottom; within one they are that function's own slots.
constexpr int HANDLER_SLOT = 1;
constexpr int REFERENCES_SLOT = 2;
// Whether `state` is the context's main thread with no function active, so that the slots above are in reach.
// `top` is the thread's lua_gettop.
inline bool atStackBottom(const LuaContext& context, lua_State* state, int top)
{
    lua_Debug frame;
    if (state != context.state || top < REFERENCES_SLOT || lua_getstack(state, 0, &frame) != 0)
    {
        return false;
    }
    // Embedding code that took the slots over gets the road through the registry instead of a crash.
    const bool kept = lua_type(state, HANDLER_SLOT) == LUA_TFUNCTION && lua_type(state, REFERENCES_SLOT) == LUA_TTABLE;
    OV_ASSERT(kept, "The two lowest slots of the main thread's stack belong to the Lua runtime");
    return kept;
}
// Puts the table of references back into its slot after it was remade; `state` must be at its stack bottom.
void pinReferences(LuaContext& context, lua_State* state);
// Lets go of the values of `references`, and remakes the table when it holds far fewer than it once did.
void dropReferences(LuaContext& context, lua_State* state, const std::vector<int>& references);
} // namespace Scripting::Lua::internal
