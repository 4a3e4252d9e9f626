#include "LuaContext.h"

#include "Scripting/BindingType/ArgumentBindingBuilder.h"
#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"
#include "Scripting/Reflection/Reflection.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <exception>
#include <limits>
#include <memory>
#include <utility>

namespace Scripting::Lua::internal
{
namespace
{
// Arguments of most functions fit here; more go to the heap.
constexpr uint32_t INLINE_ARGUMENTS = 8;

// The native arguments of one call: only as many anys as the function takes are made.
class ArgumentStorage
{
public:
    explicit ArgumentStorage(uint32_t count) : mCount(count)
    {
        if (count > INLINE_ARGUMENTS)
        {
            mHeap = std::make_unique<std::byte[]>(count * sizeof(entt::meta_any));
            mArguments = reinterpret_cast<entt::meta_any*>(mHeap.get());
        }
        else
        {
            mArguments = reinterpret_cast<entt::meta_any*>(mInline);
        }
        entt::meta_ctx& metaContext = Reflection::context();
        for (uint32_t index = 0; index < count; ++index)
        {
            new (mArguments + index) entt::meta_any{entt::meta_ctx_arg, metaContext};
        }
    }
    ~ArgumentStorage() { std::destroy_n(mArguments, mCount); }
    ArgumentStorage(const ArgumentStorage&) = delete;
    ArgumentStorage& operator=(const ArgumentStorage&) = delete;

    entt::meta_any* data() { return mArguments; }
    entt::meta_any& operator[](uint32_t index) { return mArguments[index]; }

private:
    alignas(entt::meta_any) std::byte mInline[INLINE_ARGUMENTS * sizeof(entt::meta_any)];
    std::unique_ptr<std::byte[]> mHeap;
    entt::meta_any* mArguments;
    uint32_t mCount;
};

// The arguments of one call: the plan's own when they are free, else fresh ones.
class CallArguments
{
public:
    explicit CallArguments(const FunctionPlan& plan) : mPlan(plan)
    {
        const uint32_t count = static_cast<uint32_t>(plan.arguments.size());
        if (!plan.reusableInUse && plan.reusableArguments.size() == count)
        {
            plan.reusableInUse = true;
            mArguments = plan.reusableArguments.data();
        }
        else
        {
            mOwn.emplace(count);
            mArguments = mOwn->data();
        }
    }
    ~CallArguments()
    {
        if (mOwn.has_value())
        {
            return;
        }
        // Numbers and strings stay for the next call; anything else may hold an object or a reference, and
        // goes now.
        for (size_t index = 0; index < mPlan.arguments.size(); ++index)
        {
            if (mPlan.arguments[index].primitive == Primitive::None)
            {
                mArguments[index].reset();
            }
        }
        mPlan.reusableInUse = false;
    }
    CallArguments(const CallArguments&) = delete;
    CallArguments& operator=(const CallArguments&) = delete;

    entt::meta_any* data() { return mArguments; }
    entt::meta_any& operator[](uint32_t index) { return mArguments[index]; }

private:
    const FunctionPlan& mPlan;
    std::optional<ArgumentStorage> mOwn;
    entt::meta_any* mArguments = nullptr;
};

Injected injectedKind(const entt::meta_type& type)
{
    static const std::array<std::pair<entt::meta_type, Injected>, 6> sKinds{{
        {Reflection::resolve<LifetimeRegistry>(), Injected::Registry},
        {Reflection::resolve<WeakLifetimeScope>(), Injected::Scope},
        {Reflection::resolve<ScriptObjectFactory>(), Injected::ObjectFactory},
        {Reflection::resolve<DependencyLocator>(), Injected::Locator},
        {Reflection::resolve<DependencyLocator*>(), Injected::LocatorPointer},
        {Reflection::resolve<ContextConfig>(), Injected::Config},
    }};
    for (const auto& [candidate, kind] : sKinds)
    {
        if (candidate == type)
        {
            return kind;
        }
    }
    return Injected::None;
}

template <typename T>
bool isTypeRange(const ArgumentDetails& details)
{
    const T* min = details.minValue.try_cast<const T>();
    const T* max = details.maxValue.try_cast<const T>();
    return details.validator == &Scripting::internal::rangeValidator<T> && min != nullptr && max != nullptr &&
           *min == std::numeric_limits<T>::lowest() && *max == std::numeric_limits<T>::max();
}

// Arguments described as numbers start out bounded by their type's limits; most keep that.
bool hasBoundsOfTypeOnly(const ArgumentDetails& details, Primitive primitive)
{
    switch (primitive)
    {
    case Primitive::Int32:
        return isTypeRange<int32_t>(details);
    case Primitive::UInt32:
        return isTypeRange<uint32_t>(details);
    case Primitive::Int64:
        return isTypeRange<int64_t>(details);
    case Primitive::Float:
        return isTypeRange<float>(details);
    case Primitive::Double:
        return isTypeRange<double>(details);
    default:
        return details.validator == nullptr;
    }
}

FunctionPlan* makePlan(LuaContext& context, const Reflection::IFunction& function, const FunctionBinding* binding,
                       std::string displayName, FunctionPlan::Kind kind, const ClassInfo* owner)
{
    const std::vector<ArgumentBinding>* described = binding != nullptr ? &binding->arguments : nullptr;
    auto plan = std::make_unique<FunctionPlan>();
    plan->function = &function;
    plan->displayName = std::move(displayName);
    plan->kind = kind;
    plan->owner = owner;
    const uint32_t count = function.getArgumentCount();
    plan->arguments.resize(count);
    uint32_t scriptIndex = 0;
    for (uint32_t index = 0; index < count; ++index)
    {
        FunctionPlan::Argument& argument = plan->arguments[index];
        argument.type = function.getArgumentType(index);
        argument.injected = injectedKind(argument.type);
        if (argument.injected != Injected::None)
        {
            continue;
        }
        argument.primitive = primitiveOf(argument.type);
        argument.detailsIndex = scriptIndex;
        argument.boundsOfTypeOnly = hasBoundsOfTypeOnly(function.getArgumentDetails(scriptIndex), argument.primitive);
        argument.hasDefault = static_cast<bool>(function.getDefaultArgument(scriptIndex));
        if (described != nullptr && scriptIndex < described->size())
        {
            argument.binding = &(*described)[scriptIndex];
        }
        ++scriptIndex;
    }
    plan->scriptCount = scriptIndex;
    plan->reusableArguments.reserve(count);
    for (uint32_t index = 0; index < count; ++index)
    {
        plan->reusableArguments.emplace_back(entt::meta_ctx_arg, Reflection::context());
    }
    plan->requiredCount = scriptIndex;
    while (plan->requiredCount > 0 && function.getDefaultArgument(plan->requiredCount - 1))
    {
        --plan->requiredCount;
    }
    plan->returnType = function.getReturnType();
    plan->returnsVoid = plan->returnType == Reflection::resolve<void>();
    plan->returnPrimitive = primitiveOf(plan->returnType);
    plan->returnsHandle = isSmartHandleType(plan->returnType, plan->returnsStrongHandle);
    // Worked out against this context's conditions: the list in the shared callable is the last build's.
    if (binding != nullptr)
    {
        for (const std::string& condition : binding->runtimeConditions)
        {
            if (!context.config.runtimeConditions.contains(condition))
            {
                plan->missingConditions.push_back(condition);
            }
        }
    }
    if (owner != nullptr)
    {
        const auto& classMissing = owner->binding->missingRuntimeConditions;
        plan->missingConditions.insert(plan->missingConditions.end(), classMissing.begin(), classMissing.end());
    }
    context.plans.push_back(std::move(plan));
    return context.plans.back().get();
}

std::string argumentSubject(const FunctionPlan& plan, const FunctionPlan::Argument& argument)
{
    if (argument.binding != nullptr && !argument.binding->name.empty())
    {
        return fmt::format("argument '{}' of {}", argument.binding->name, plan.displayName);
    }
    // The position that the error's own "[n]" shows, so that one message never counts two ways.
    const auto position = static_cast<size_t>(&argument - plan.arguments.data());
    return fmt::format("argument [{}] of {}", position, plan.displayName);
}

std::optional<double> asNumber(const entt::meta_any& value)
{
    if (!value || !(value.type().is_arithmetic()))
    {
        return std::nullopt;
    }
    const entt::meta_any number = value.allow_cast<double>();
    return number ? std::optional<double>(number.cast<double>()) : std::nullopt;
}

ResultAny refusedArgument(const FunctionPlan& plan, const FunctionPlan::Argument& argument, uint32_t index,
                          const entt::meta_any& value)
{
    const ArgumentDetails& details = plan.function->getArgumentDetails(argument.detailsIndex);
    const std::string subject = argumentSubject(plan, argument);
    if (details.validValues)
    {
        const std::string* text = value.try_cast<const std::string>();
        return InvalidArgumentError(
            fmt::format("{} is not one of the accepted values, got '{}'", subject, text != nullptr ? *text : ""),
            index);
    }
    if (details.minValue || details.maxValue)
    {
        return ArgumentOutOfBoundsError(subject, static_cast<int32_t>(index), asNumber(value),
                                        asNumber(details.minValue), asNumber(details.maxValue));
    }
    return InvalidArgumentError(subject + " was refused", index);
}

// Raises from a lua_CFunction once every native object of the call is gone.
int raiseIfError(lua_State* state, int results)
{
    return results >= 0 ? results : lua_error(state);
}

int pushFailure(LuaContext& context, lua_State* state, ResultAny&& error)
{
    pushError(context, state, std::move(error));
    return -1;
}

// Pushes a native value a call or a property read gave; one that does not convert is an error naming where it
// came from (`what` is "returned" or "holds").
int pushNativeOrFail(LuaContext& context, lua_State* state, const entt::meta_any& value, const std::string& displayName,
                     const char* what)
{
    std::string reason;
    switch (pushNative(context, state, value, reason))
    {
    case PushStatus::Ok:
        if (!roomFor(context, 0))
        {
            // Made past the limit, of pieces each small enough: dropped, so that no script keeps it.
            lua_pop(state, 1);
            return pushFailure(context, state, tooBigError(context, displayName, what));
        }
        return 1;
    case PushStatus::RaisedError:
        return -1;
    case PushStatus::Failed:
        break;
    }
    if (reason == NO_ROOM)
    {
        return pushFailure(context, state, tooBigError(context, displayName, what));
    }
    return pushFailure(context, state, Error(fmt::format("{} {} {}", displayName, what, reason)));
}

bool fillInjected(LuaContext& context, Injected kind, entt::meta_any& out)
{
    entt::meta_ctx& metaContext = Reflection::context();
    switch (kind)
    {
    case Injected::Scope:
        out.emplace<WeakLifetimeScope>(context.scope);
        return true;
    case Injected::Registry:
        if (LifetimeRegistry* registry = context.scope.getLifetimeRegistry())
        {
            out = entt::forward_as_meta(metaContext, *registry);
            return true;
        }
        return false;
    case Injected::ObjectFactory:
        out = entt::forward_as_meta(metaContext, context.objectFactory);
        return true;
    case Injected::Locator:
        out = entt::forward_as_meta(metaContext, context.dependencyLocator);
        return true;
    case Injected::LocatorPointer:
        out.emplace<DependencyLocator*>(&context.dependencyLocator);
        return true;
    case Injected::Config:
        out = entt::forward_as_meta(metaContext, context.config);
        return true;
    case Injected::None:
        break;
    }
    return false;
}

// A handle that a call returned, as pushNative sends handles. A strong handle that the result owns hands its
// reference to the box: no count up for the box and down for the result. A constructor's object is most likely
// of its own class.
void pushHandleResult(LuaContext& context, lua_State* state, const FunctionPlan& plan, entt::meta_any& result)
{
    const ClassInfo* expected = plan.kind == FunctionPlan::Kind::Constructor ? plan.owner : nullptr;
    // Only a handle the result owns may give its reference away; a reference to one held elsewhere may not.
    void* data = result.policy() == entt::meta_any_policy::owner ? result.data() : nullptr;
    if (plan.returnsStrongHandle && data != nullptr)
    {
        auto& handle = *static_cast<StrongObjectHandle*>(data);
        if (!handle.valid())
        {
            lua_pushnil(state);
            return;
        }
        pushObjectBox(context, state, std::move(handle), expected);
        return;
    }
    const auto& handle = *static_cast<const Scripting::internal::SmartObjectHandleBase*>(std::as_const(result).data());
    if (!handle.valid())
    {
        lua_pushnil(state);
        return;
    }
    pushObjectBox(context, state, StrongObjectHandle(handle.getScope(), handle.getHandle(), true), expected);
}

// The call itself, in the order a runtime owes the wrappers: count, convert or default, validate, call, wrap.
// Never raises: an error value is pushed and -1 returned instead.
int invokeUnprotected(LuaContext& context, lua_State* state, const FunctionPlan& plan, int first)
{
    const Reflection::IFunction& function = *plan.function;
    if (context.closing)
    {
        return pushFailure(context, state, Error(plan.displayName + " cannot be called while the context closes"));
    }
    if (!plan.missingConditions.empty())
    {
        return pushFailure(context, state, RuntimeConditionError(plan.missingConditions, plan.displayName));
    }

    entt::meta_any instance;
    if (plan.kind == FunctionPlan::Kind::Method)
    {
        ObjectBox* box = toObjectBox(state, first - 1);
        const entt::meta_type classType = function.getClassType().value_or(entt::meta_type{});
        if (box == nullptr)
        {
            return pushFailure(context, state,
                               InvalidArgumentError(fmt::format("{} for the object of {} (call it with ':'), got {}",
                                                                describeType(context, classType), plan.displayName,
                                                                describeValue(state, first - 1)),
                                                    InvalidArgumentErrorType::TypeMismatch, 0));
        }
        if (!boxInstance(*box, instance))
        {
            return pushFailure(context, state,
                               Error(fmt::format("{}: the {} object was destroyed by native code", plan.displayName,
                                                 describeType(context, classType))));
        }
        if (instance.type() != classType && !Reflection::HasBaseType(classType, instance.type()))
        {
            return pushFailure(
                context, state,
                InvalidArgumentError(fmt::format("{} for the object of {}, got {}", describeType(context, classType),
                                                 plan.displayName, describeValue(state, first - 1)),
                                     InvalidArgumentErrorType::TypeMismatch, 0));
        }
    }

    const int top = lua_gettop(state);
    const uint32_t given = top >= first ? static_cast<uint32_t>(top - first + 1) : 0;
    if (given > plan.scriptCount)
    {
        return pushFailure(context, state,
                           InvalidArgumentError(fmt::format("{} takes at most {} argument(s), got {}", plan.displayName,
                                                            plan.scriptCount, given),
                                                plan.scriptCount));
    }

    const uint32_t count = static_cast<uint32_t>(plan.arguments.size());
    CallArguments arguments(plan);

    for (uint32_t index = 0; index < count; ++index)
    {
        const FunctionPlan::Argument& argument = plan.arguments[index];
        entt::meta_any& value = arguments[index];
        if (argument.injected != Injected::None)
        {
            if (!fillInjected(context, argument.injected, value))
            {
                return pushFailure(context, state, Error(plan.displayName + ": the context's registry is gone"));
            }
            continue;
        }
        const int position = first + static_cast<int>(argument.detailsIndex);
        if (argument.hasDefault && (argument.detailsIndex >= given || lua_isnil(state, position)))
        {
            value = function.getDefaultArgument(argument.detailsIndex);
        }
        else if (argument.primitive == Primitive::None || !primitiveFast(state, position, argument.primitive, value))
        {
            ConversionFailure failure;
            const bool converted = argument.primitive != Primitive::None
                                       ? primitiveToNative(state, position, argument.primitive, value, failure)
                                       : toNative(context, state, position, argument.type, value, failure);
            if (!converted)
            {
                if (failure.expected.empty())
                {
                    failure.expected = describeType(context, argument.type);
                }
                return pushFailure(
                    context, state,
                    failureToError(failure, argumentSubject(plan, argument), static_cast<int32_t>(index)));
            }
        }
        if (!argument.boundsOfTypeOnly && !function.validateArgument(value, argument.detailsIndex))
        {
            return pushFailure(context, state, refusedArgument(plan, argument, index, value));
        }
    }

    entt::meta_any result = function.call(std::move(instance), arguments.data(), count);
    if (!result)
    {
        return pushFailure(context, state,
                           Error(fmt::format("{} could not be called with the arguments given", plan.displayName)));
    }
    if (plan.returnsVoid)
    {
        return 0;
    }
    UnlimitedMemory unlimited(context);
    if (plan.returnPrimitive != Primitive::None)
    {
        if (!roomFor(context, primitiveSize(plan.returnPrimitive, result)))
        {
            return pushFailure(context, state, tooBigError(context, plan.displayName, "returned"));
        }
        pushPrimitive(state, plan.returnPrimitive, result);
        return 1;
    }
    if (plan.returnsHandle && result.type() == plan.returnType)
    {
        pushHandleResult(context, state, plan, result);
        return 1;
    }
    return pushNativeOrFail(context, state, result, plan.displayName, "returned");
}

// Called only from inside a catch block: the exception in flight becomes the call's error value.
int pushNativeFailure(LuaContext& context, lua_State* state, const FunctionPlan& plan)
{
    try
    {
        throw;
    }
    catch (const std::exception& exception)
    {
        return pushFailure(context, state,
                           Error(fmt::format("{} failed in native code: {}", plan.displayName, exception.what())));
    }
    catch (...)
    {
        return pushFailure(context, state, Error(plan.displayName + " failed in native code"));
    }
}

int invoke(LuaContext& context, lua_State* state, const FunctionPlan& plan, int first)
{
    NativeCallScope call(context, state);
    try
    {
        return invokeUnprotected(context, state, plan, first);
    }
    catch (...)
    {
        return pushNativeFailure(context, state, plan);
    }
}

// A call that the typed road hands on: nothing native has run, and the general path tells what was wrong.
constexpr int DECLINED = -2;

// The typed road: the same checks as the general path, on values that never become meta_any. Anything out of
// the ordinary (a default, a wrong type or count, a refused value, a derived or destroyed object) declines.
// A typed result goes to Lua as the general path sends results: a string the native side already made is pushed
// with the limit lifted when it fits under it, else refused; numbers and booleans allocate nothing, so they skip
// the bookkeeping. Returns 1, or -1 with the error value pushed.
int pushTypedResult(LuaContext& context, lua_State* state, Primitive primitive, const Reflection::TypedValue& value,
                    const std::string& displayName, const char* what)
{
    if (primitive == Primitive::String)
    {
        if (!roomFor(context, value.textSize))
        {
            return pushFailure(context, state, tooBigError(context, displayName, what));
        }
        UnlimitedMemory unlimited(context);
        pushTyped(state, primitive, value);
        return 1;
    }
    pushTyped(state, primitive, value);
    return 1;
}

int invokeTypedUnprotected(LuaContext& context, lua_State* state, const FunctionPlan& plan, int first)
{
    if (context.closing)
    {
        return DECLINED;
    }
    void* object = nullptr;
    if (plan.kind == FunctionPlan::Kind::Method)
    {
        object = typedObject(state, first - 1, plan.selfType);
        if (object == nullptr)
        {
            return DECLINED;
        }
    }
    if (lua_gettop(state) - first + 1 != static_cast<int>(plan.scriptCount))
    {
        return DECLINED;
    }
    const uint32_t count = static_cast<uint32_t>(plan.arguments.size());
    const Reflection::TypedCall& typed = *plan.typed;
    std::array<Reflection::TypedValue, INLINE_ARGUMENTS> values;
    // A copy, as the general path hands over: native code may change the scope it is given.
    WeakLifetimeScope scope;
    for (uint32_t index = 0; index < count; ++index)
    {
        const FunctionPlan::Argument& argument = plan.arguments[index];
        const int position = first + static_cast<int>(argument.detailsIndex);
        Reflection::TypedValue& value = values[index];
        if (argument.plainInteger)
        {
            int isInteger = 0;
            value.integer = lua_tointegerx(state, position, &isInteger);
            if (isInteger == 0 || value.integer < argument.low || value.integer > argument.high)
            {
                return DECLINED;
            }
            continue;
        }
        if (argument.injected == Injected::Scope)
        {
            scope = context.scope;
            value.object = &scope;
            continue;
        }
        if (typed.arguments[index] == Reflection::TypedKind::Object)
        {
            value.object = typedObject(state, position, argument.type);
            if (value.object == nullptr)
            {
                return DECLINED;
            }
            continue;
        }
        if ((argument.hasDefault && lua_isnil(state, position)) ||
            !primitiveTyped(state, position, argument.primitive, value))
        {
            return DECLINED;
        }
        if (!argument.boundsOfTypeOnly &&
            !plan.function->validateArgument(typedAsAny(argument.primitive, value), argument.detailsIndex))
        {
            return DECLINED;
        }
    }
    Reflection::TypedReturn result;
    ++context.typedCalls;
    if (typed.result == Reflection::TypedKind::Handle)
    {
        StrongObjectHandle handle;
        result.handle = &handle;
        typed.invoke(*plan.function, object, values.data(), result);
        UnlimitedMemory unlimited(context);
        if (!handle.valid())
        {
            lua_pushnil(state);
            return 1;
        }
        pushObjectBox(context, state, std::move(handle),
                      plan.kind == FunctionPlan::Kind::Constructor ? plan.owner : nullptr);
        return 1;
    }
    typed.invoke(*plan.function, object, values.data(), result);
    if (plan.integerResult)
    {
        lua_pushinteger(state, static_cast<lua_Integer>(result.value.integer));
        return 1;
    }
    if (plan.returnsVoid)
    {
        return 0;
    }
    return pushTypedResult(context, state, plan.returnPrimitive, result.value, plan.displayName, "returned");
}

int invokeTyped(LuaContext& context, lua_State* state, const FunctionPlan& plan, int first)
{
    {
        NativeCallScope call(context, state);
        try
        {
            const int results = invokeTypedUnprotected(context, state, plan, first);
            if (results != DECLINED)
            {
                return results;
            }
            ++context.typedCallsDeclined;
        }
        catch (...)
        {
            return pushNativeFailure(context, state, plan);
        }
    }
    return invoke(context, state, plan, first);
}

const FunctionPlan& planOf(lua_State* state)
{
    return *static_cast<const FunctionPlan*>(lua_touserdata(state, lua_upvalueindex(1)));
}

// `Class(...)`: the class table comes first and is not an argument.
int callConstructor(lua_State* state)
{
    const FunctionPlan& plan = planOf(state);
    LuaContext& context = contextOf(state);
    return raiseIfError(state,
                        plan.typed != nullptr ? invokeTyped(context, state, plan, 2) : invoke(context, state, plan, 2));
}

int callMethod(lua_State* state)
{
    return raiseIfError(state, invoke(contextOf(state), state, planOf(state), 2));
}

// What invokeTyped does for a function of integers alone, with nothing to look at per argument but its range:
// any argument that is not such an integer, a wrong count or a closing context hands the call to the general
// path before native code runs, which then reports it in its usual words.
int callIntegers(lua_State* state)
{
    const FunctionPlan& plan = planOf(state);
    LuaContext& context = contextOf(state);
    // Every argument comes from the script here: the plan's count of script values is the number of arguments.
    const uint32_t count = plan.scriptCount;
    std::array<Reflection::TypedValue, INLINE_ARGUMENTS> values;
    bool fits = !context.closing && lua_gettop(state) == static_cast<int>(count);
    for (uint32_t index = 0; fits && index < count; ++index)
    {
        const FunctionPlan::Argument& argument = plan.arguments[index];
        int isInteger = 0;
        const lua_Integer value = lua_tointegerx(state, static_cast<int>(index) + 1, &isInteger);
        values[index].integer = value;
        fits = isInteger != 0 && value >= argument.low && value <= argument.high;
    }
    if (!fits)
    {
        ++context.typedCallsDeclined;
        return raiseIfError(state, invoke(context, state, plan, 1));
    }
    int results = 0;
    {
        NativeCallScope call(context, state);
        ++context.typedCalls;
        Reflection::TypedReturn result;
        try
        {
            plan.typed->invoke(*plan.function, nullptr, values.data(), result);
            if (plan.integerResult)
            {
                lua_pushinteger(state, static_cast<lua_Integer>(result.value.integer));
                results = 1;
            }
        }
        catch (...)
        {
            results = pushNativeFailure(context, state, plan);
        }
    }
    // Raised once the call's scope has ended: lua_error does not come back.
    return raiseIfError(state, results);
}

int callTyped(lua_State* state)
{
    const FunctionPlan& plan = planOf(state);
    return raiseIfError(state,
                        invokeTyped(contextOf(state), state, plan, plan.kind == FunctionPlan::Kind::Method ? 2 : 1));
}

// ---- Objects ----

const PropertyInfo* propertyAt(lua_State* state, int index)
{
    return lua_type(state, index) == LUA_TLIGHTUSERDATA ? static_cast<const PropertyInfo*>(lua_touserdata(state, index))
                                                        : nullptr;
}

int readProperty(LuaContext& context, lua_State* state, const PropertyInfo& property)
{
    NativeCallScope call(context, state);
    try
    {
        if (property.typedGet != nullptr)
        {
            if (void* object = typedObject(state, 1, property.classType))
            {
                ++context.typedCalls;
                Reflection::TypedReturn result;
                property.typedGet->invoke(*property.binding->getter, object, result);
                return pushTypedResult(context, state, property.primitive, result.value, property.displayName, "holds");
            }
            ++context.typedCallsDeclined;
        }
        ObjectBox* box = toObjectBox(state, 1);
        entt::meta_any instance;
        if (box == nullptr || !boxInstance(*box, instance))
        {
            return pushFailure(context, state,
                               Error(fmt::format("{}: the object was destroyed by native code", property.displayName)));
        }
        const entt::meta_any value = property.binding->getter->get(std::move(instance));
        if (!value)
        {
            return pushFailure(context, state, Error(property.displayName + " could not be read"));
        }
        UnlimitedMemory unlimited(context);
        if (property.primitive != Primitive::None && primitiveOf(value.type()) == property.primitive)
        {
            if (!roomFor(context, primitiveSize(property.primitive, value)))
            {
                return pushFailure(context, state, tooBigError(context, property.displayName, "holds"));
            }
            pushPrimitive(state, property.primitive, value);
            return 1;
        }
        return pushNativeOrFail(context, state, value, property.displayName, "holds");
    }
    catch (const std::exception& exception)
    {
        return pushFailure(context, state, Error(fmt::format("{}: {}", property.displayName, exception.what())));
    }
}

// The setter's value goes through its bounds first, so that a refused value is a PropertyOutOfBoundsError.
int writeProperty(LuaContext& context, lua_State* state, const PropertyInfo& property)
{
    NativeCallScope call(context, state);
    try
    {
        const PropertyBinding& binding = *property.binding;
        if (binding.setter == nullptr)
        {
            return pushFailure(context, state, Error(property.displayName + " is read-only"));
        }
        const auto& validator =
            binding.setter->valueValidator ? binding.setter->valueValidator : binding.valueValidator;
        if (property.typedSet != nullptr)
        {
            Reflection::TypedValue typed;
            void* object = typedObject(state, 1, property.classType);
            // A property takes a number only as a number, never as a string that reads as one.
            const bool numberFits = property.setPrimitive == Primitive::Bool ||
                                    property.setPrimitive == Primitive::String || lua_type(state, 3) == LUA_TNUMBER;
            if (object != nullptr && numberFits && primitiveTyped(state, 3, property.setPrimitive, typed) &&
                (!validator || validator(typedAsAny(property.setPrimitive, typed))))
            {
                ++context.typedCalls;
                property.typedSet->invoke(*binding.setter, object, typed);
                return 0;
            }
            ++context.typedCallsDeclined;
        }
        ObjectBox* box = toObjectBox(state, 1);
        entt::meta_any instance;
        if (box == nullptr || !boxInstance(*box, instance))
        {
            return pushFailure(context, state,
                               Error(fmt::format("{}: the object was destroyed by native code", property.displayName)));
        }
        entt::meta_any value;
        ConversionFailure failure;
        if (!toNative(context, state, 3, binding.setter->getType(), value, failure))
        {
            if (failure.kind == ConversionFailure::Kind::OutOfRange)
            {
                return pushFailure(context, state,
                                   PropertyOutOfBoundsError(property.displayName, failure.value.value_or(0.0),
                                                            failure.minValue, failure.maxValue));
            }
            return pushFailure(context, state, failureToError(failure, "property " + property.displayName, 0));
        }
        if (validator && !validator(value))
        {
            const std::optional<double> number = asNumber(value);
            if (number.has_value())
            {
                return pushFailure(context, state,
                                   PropertyOutOfBoundsError(property.displayName, *number, asNumber(binding.minValue),
                                                            asNumber(binding.maxValue)));
            }
            return pushFailure(
                context, state,
                PropertyOutOfBoundsError(property.displayName, asNumber(binding.minValue), asNumber(binding.maxValue)));
        }
        ResultAny written = binding.setter->set(std::move(instance), std::move(value));
        if (written.isError())
        {
            return pushFailure(context, state, std::move(written));
        }
        return 0;
    }
    catch (const std::exception& exception)
    {
        return pushFailure(context, state, Error(fmt::format("{}: {}", property.displayName, exception.what())));
    }
}

// __index of objects: a property is read, anything else comes from the members table (upvalue 1).
int objectIndex(lua_State* state)
{
    // Lua calls __index with the object and the key, and scripts cannot reach the metatable to call it otherwise:
    // the key is on top, where the look-up takes it from, and the object stays first for the property's read.
    lua_rawget(state, lua_upvalueindex(1));
    if (const PropertyInfo* property = propertyAt(state, -1))
    {
        lua_pop(state, 1);
        return raiseIfError(state, readProperty(contextOf(state), state, *property));
    }
    return 1;
}

int objectNewIndex(lua_State* state)
{
    lua_settop(state, 3);
    lua_pushvalue(state, 2);
    lua_rawget(state, lua_upvalueindex(1));
    if (const PropertyInfo* property = propertyAt(state, -1))
    {
        lua_pop(state, 1);
        return raiseIfError(state, writeProperty(contextOf(state), state, *property));
    }
    LuaContext& context = contextOf(state);
    const auto* classInfo = static_cast<const ClassInfo*>(lua_touserdata(state, lua_upvalueindex(2)));
    const char* key = lua_type(state, 2) == LUA_TSTRING ? lua_tostring(state, 2) : "?";
    pushFailure(context, state, Error(fmt::format("{} has no property '{}' to set", classInfo->binding->name, key)));
    return lua_error(state);
}

int objectCollect(lua_State* state)
{
    if (ObjectBox* box = toObjectBox(state, 1))
    {
        releaseObjectBox(contextOf(state), *box, false);
    }
    return 0;
}

int objectEquals(lua_State* state)
{
    ObjectBox* left = toObjectBox(state, 1);
    ObjectBox* right = toObjectBox(state, 2);
    const bool equal = left != nullptr && right != nullptr && left->isHandle && right->isHandle &&
                       left->handle.getHandle() == right->handle.getHandle();
    lua_pushboolean(state, equal ? 1 : 0);
    return 1;
}

int objectToString(lua_State* state)
{
    ObjectBox* box = toObjectBox(state, 1);
    LuaContext& context = contextOf(state);
    UnlimitedMemory unlimited(context);
    const char* name =
        box != nullptr && box->classInfo != nullptr ? box->classInfo->binding->name.c_str() : "native object";
    if (box != nullptr && box->isHandle)
    {
        const bool alive = box->handle.valid();
        lua_pushfstring(state, "%s: #%I%s", name,
                        static_cast<lua_Integer>(static_cast<uint64_t>(box->handle.getHandle().value) & 0xffffffffu),
                        alive ? "" : " (destroyed)");
    }
    else
    {
        lua_pushfstring(state, "%s: %p", name, static_cast<const void*>(box));
    }
    return 1;
}

void setObjectMetamethods(lua_State* state, const char* name)
{
    lua_pushcfunction(state, &objectCollect);
    lua_setfield(state, -2, "__gc");
    lua_pushcfunction(state, &objectEquals);
    lua_setfield(state, -2, "__eq");
    lua_pushcfunction(state, &objectToString);
    lua_setfield(state, -2, "__tostring");
    lua_pushstring(state, name);
    lua_setfield(state, -2, "__name");
    lua_pushboolean(state, 0);
    lua_setfield(state, -2, "__metatable");
}

void pushFunction(lua_State* state, const FunctionPlan& plan, lua_CFunction function)
{
    lua_pushlightuserdata(state, const_cast<FunctionPlan*>(&plan));
    if (plan.typed != nullptr && function == &callPlan)
    {
        function = plan.integersOnly ? &callIntegers : &callTyped;
    }
    lua_pushcclosure(state, function, 1);
}

void pushConstant(LuaContext& context, lua_State* state, const ConstantFactory& constant)
{
    std::string reason;
    entt::meta_any value;
    try
    {
        value = constant.factory ? constant.factory(context.scope) : entt::meta_any{};
    }
    catch (...)
    {
    }
    const PushStatus status = pushNative(context, state, value, reason);
    if (status == PushStatus::Failed)
    {
        lua_pushnil(state);
    }
}

// Object factories make their object on first use, when a script reads the name from the module table.
int moduleIndex(lua_State* state)
{
    const auto* module = static_cast<const ModuleInfo*>(lua_touserdata(state, lua_upvalueindex(1)));
    if (lua_type(state, 2) != LUA_TSTRING)
    {
        return 0;
    }
    const std::string_view key = lua_tostring(state, 2);
    const auto& factories = module->binding->objectFactories;
    for (size_t index = 0; index < factories.size(); ++index)
    {
        if (factories[index].name == key)
        {
            const int top = lua_gettop(state);
            const int results = invoke(contextOf(state), state, *module->factories[index], top + 1);
            if (results < 0)
            {
                return lua_error(state);
            }
            if (results == 0)
            {
                lua_pushnil(state);
            }
            lua_pushvalue(state, 2);
            lua_pushvalue(state, -2);
            lua_rawset(state, 1);
            return 1;
        }
    }
    return 0;
}

void pushClassTable(LuaContext& context, lua_State* state, const ClassInfo& info)
{
    const ClassBinding& binding = *info.binding;
    lua_createtable(state, 0, static_cast<int>(binding.functions.size() + binding.constants.size() + 2));
    lua_pushstring(state, binding.name.c_str());
    lua_setfield(state, -2, "__name");
    for (size_t index = 0; index < binding.functions.size(); ++index)
    {
        const FunctionPlan& plan = *info.functions[index];
        if (plan.kind == FunctionPlan::Kind::Function)
        {
            pushFunction(state, plan, &callPlan);
            lua_setfield(state, -2, binding.functions[index].name.c_str());
        }
    }
    for (const ConstantFactory& constant : binding.constants)
    {
        pushConstant(context, state, constant);
        lua_setfield(state, -2, constant.name.c_str());
    }
    lua_createtable(state, 0, 2);
    if (info.constructor != nullptr)
    {
        lua_getfield(state, -2, "new");
        const bool free = lua_isnil(state, -1);
        lua_pop(state, 1);
        if (free)
        {
            pushFunction(state, *info.constructor, &callPlan);
            lua_setfield(state, -3, "new");
        }
        pushFunction(state, *info.constructor, &callConstructor);
        lua_setfield(state, -2, "__call");
    }
    lua_pushboolean(state, 0);
    lua_setfield(state, -2, "__metatable");
    lua_setmetatable(state, -2);
}

void pushEnumTable(lua_State* state, const EnumInfo& info)
{
    lua_createtable(state, 0, static_cast<int>(info.values.size()));
    for (const auto& [number, value] : info.values)
    {
        if (info.numeric)
        {
            lua_pushinteger(state, number);
        }
        else
        {
            lua_pushstring(state, value->scriptValue.c_str());
        }
        lua_setfield(state, -2, value->name.c_str());
    }
}

// Interfaces and errors name a shape rather than a value: a table that says which.
void pushShapeTable(lua_State* state, const std::string& name, const std::vector<PropertyBinding>& properties)
{
    lua_createtable(state, 0, 2);
    lua_pushstring(state, name.c_str());
    lua_setfield(state, -2, "name");
    lua_createtable(state, static_cast<int>(properties.size()), 0);
    for (size_t index = 0; index < properties.size(); ++index)
    {
        lua_pushstring(state, properties[index].name.c_str());
        lua_rawseti(state, -2, static_cast<lua_Integer>(index + 1));
    }
    lua_setfield(state, -2, "fields");
}

const ClassInfo* classOfType(const LuaContext& context, entt::meta_type type)
{
    // A type that no module binds is seen as its nearest bound base, if any.
    for (int level = 0; level < 16 && type; ++level)
    {
        if (const auto found = context.classByType.find(type.info().hash()); found != context.classByType.end())
        {
            return found->second;
        }
        entt::meta_type next;
        for (auto&& [id, base] : type.base())
        {
            next = base;
            break;
        }
        type = next;
    }
    return nullptr;
}
} // namespace

int callPlan(lua_State* state)
{
    const FunctionPlan& plan = planOf(state);
    if (plan.kind == FunctionPlan::Kind::Method)
    {
        return callMethod(state);
    }
    return raiseIfError(state, invoke(contextOf(state), state, plan, 1));
}

namespace
{
const Reflection::TypedCall* typedCallOf(const LuaContext& context, const FunctionPlan& plan)
{
    if (!context.useTypedCalls || !plan.missingConditions.empty() || plan.kind == FunctionPlan::Kind::ObjectFactory)
    {
        return nullptr;
    }
    const Reflection::TypedCall* typed = plan.function->getTypedCall();
    if (typed == nullptr || typed->argumentCount != plan.arguments.size() || plan.arguments.size() > INLINE_ARGUMENTS)
    {
        return nullptr;
    }
    const bool handleResult = typed->result == Reflection::TypedKind::Handle && plan.returnsStrongHandle;
    if (!plan.returnsVoid && !handleResult &&
        (plan.returnPrimitive == Primitive::None || primitiveOfKind(typed->result) != plan.returnPrimitive))
    {
        return nullptr;
    }
    if (plan.kind == FunctionPlan::Kind::Method && !plan.selfType)
    {
        return nullptr;
    }
    for (uint32_t index = 0; index < typed->argumentCount; ++index)
    {
        const FunctionPlan::Argument& argument = plan.arguments[index];
        if (argument.injected != Injected::None)
        {
            // The scope that constructors take is the one injected value the typed road fills.
            if (argument.injected != Injected::Scope || typed->arguments[index] != Reflection::TypedKind::Object)
            {
                return nullptr;
            }
            continue;
        }
        if (typed->arguments[index] == Reflection::TypedKind::Object)
        {
            // Only objects that scripts hold as boxes of a bound class; values of other classes convert
            // through the general path.
            if (!argument.boundsOfTypeOnly || argument.hasDefault ||
                !context.classByType.contains(argument.type.info().hash()))
            {
                return nullptr;
            }
        }
        else if (argument.primitive == Primitive::None ||
                 primitiveOfKind(typed->arguments[index]) != argument.primitive)
        {
            return nullptr;
        }
    }
    return typed;
}

template <typename T>
void setRange(FunctionPlan::Argument& argument)
{
    argument.plainInteger = true;
    argument.low = static_cast<lua_Integer>(std::numeric_limits<T>::lowest());
    argument.high = static_cast<lua_Integer>(std::min<uint64_t>(std::numeric_limits<T>::max(), LUA_MAXINTEGER));
}

// The range of a Lua integer that `argument` takes on the typed road; nothing for any other argument.
void findIntegerRange(FunctionPlan::Argument& argument, Reflection::TypedKind kind)
{
    if (argument.injected != Injected::None || argument.hasDefault || !argument.boundsOfTypeOnly ||
        kind == Reflection::TypedKind::Object)
    {
        return;
    }
    switch (argument.primitive)
    {
    case Primitive::Int8:
        return setRange<int8_t>(argument);
    case Primitive::UInt8:
        return setRange<uint8_t>(argument);
    case Primitive::Int16:
        return setRange<int16_t>(argument);
    case Primitive::UInt16:
        return setRange<uint16_t>(argument);
    case Primitive::Int32:
        return setRange<int32_t>(argument);
    case Primitive::UInt32:
        return setRange<uint32_t>(argument);
    case Primitive::Int64:
        return setRange<int64_t>(argument);
    case Primitive::UInt64:
        return setRange<uint64_t>(argument);
    default:
        return;
    }
}

void chooseTypedRoads(LuaContext& context)
{
    for (const std::unique_ptr<FunctionPlan>& plan : context.plans)
    {
        if (plan->kind == FunctionPlan::Kind::Method)
        {
            plan->selfType = plan->function->getClassType().value_or(entt::meta_type{});
        }
        plan->typed = typedCallOf(context, *plan);
        if (plan->typed == nullptr)
        {
            continue;
        }
        for (uint32_t index = 0; index < plan->typed->argumentCount; ++index)
        {
            findIntegerRange(plan->arguments[index], plan->typed->arguments[index]);
        }
        // Unsigned 64-bit results past Lua's integers become floats.
        plan->integerResult = !plan->returnsVoid && plan->typed->result != Reflection::TypedKind::Handle &&
                              plan->returnPrimitive >= Primitive::Int8 && plan->returnPrimitive <= Primitive::Int64;
        bool integersOnly = plan->kind == FunctionPlan::Kind::Function && (plan->integerResult || plan->returnsVoid) &&
                            plan->scriptCount == plan->arguments.size();
        for (uint32_t index = 0; integersOnly && index < plan->arguments.size(); ++index)
        {
            integersOnly = plan->arguments[index].plainInteger && plan->arguments[index].detailsIndex == index;
        }
        plan->integersOnly = integersOnly;
    }
    if (!context.useTypedCalls)
    {
        return;
    }
    for (const std::unique_ptr<ClassInfo>& classInfo : context.classes)
    {
        for (PropertyInfo& property : classInfo->properties)
        {
            const PropertyBinding& binding = *property.binding;
            property.classType = binding.getter->getClassType().value_or(entt::meta_type{});
            if (!property.classType)
            {
                continue;
            }
            const Reflection::TypedPropertyGet* get = binding.getter->getTypedGet();
            if (get != nullptr && property.primitive != Primitive::None &&
                primitiveOfKind(get->kind) == property.primitive)
            {
                property.typedGet = get;
            }
            if (binding.setter == nullptr || binding.setter->getClassType() != property.classType)
            {
                continue;
            }
            const Reflection::TypedPropertySet* set = binding.setter->getTypedSet();
            const Primitive setPrimitive = primitiveOf(binding.setter->getType());
            if (set != nullptr && setPrimitive != Primitive::None && primitiveOfKind(set->kind) == setPrimitive)
            {
                property.typedSet = set;
                property.setPrimitive = setPrimitive;
            }
        }
    }
}
} // namespace

void planBindings(LuaContext& context)
{
    context.modules.reserve(context.bundle.moduleBindings.size());
    for (const ModuleBinding& module : context.bundle.moduleBindings)
    {
        ModuleInfo& info = context.modules.emplace_back();
        info.binding = &module;
        for (const ClassBinding& binding : module.classBindings)
        {
            auto classInfo = std::make_unique<ClassInfo>();
            ClassInfo& current = *classInfo;
            current.binding = &binding;
            current.type = binding.type;
            if (binding.baseType)
            {
                if (const auto base = context.classByType.find(binding.baseType.info().hash());
                    base != context.classByType.end())
                {
                    current.base = base->second;
                }
            }
            if (!binding.constructors.empty() && binding.constructors.front().function != nullptr)
            {
                const FunctionBinding& constructor = binding.constructors.front();
                current.constructor = makePlan(context, *constructor.function, &constructor, binding.name + ".new",
                                               FunctionPlan::Kind::Constructor, &current);
            }
            for (const FunctionBinding& function : binding.functions)
            {
                const bool method = function.function->getClassType().has_value();
                current.functions.push_back(
                    makePlan(context, *function.function, &function,
                             fmt::format("{}{}{}", binding.name, method ? ":" : ".", function.name),
                             method ? FunctionPlan::Kind::Method : FunctionPlan::Kind::Function, &current));
            }
            for (const PropertyBinding& property : binding.properties)
            {
                PropertyInfo& added = current.properties.emplace_back();
                added.binding = &property;
                added.displayName = binding.name + "." + property.name;
                added.primitive = primitiveOf(property.getter->getType());
            }
            context.classByType.emplace(binding.type.info().hash(), &current);
            info.classes.push_back(&current);
            context.classes.push_back(std::move(classInfo));
        }
        for (const EnumBinding& binding : module.enumBindings)
        {
            EnumInfo enumInfo;
            enumInfo.binding = &binding;
            enumInfo.numeric =
                !binding.constants.empty() && binding.constants.front().type != Reflection::resolve<std::string>();
            for (const EnumValueBinding& value : binding.values)
            {
                const entt::meta_any number = value.value.allow_cast<int64_t>();
                enumInfo.values.emplace_back(number ? number.cast<int64_t>() : 0, &value);
            }
            context.enumByType.emplace(binding.type.info().hash(), std::move(enumInfo));
        }
        for (const InterfaceBinding& binding : module.interfaceBindings)
        {
            InterfaceInfo interfaceInfo;
            interfaceInfo.binding = &binding;
            for (const PropertyBinding& property : binding.properties)
            {
                interfaceInfo.properties.emplace(property.name, &property);
            }
            context.interfaceByType.emplace(binding.type.info().hash(), std::move(interfaceInfo));
        }
        for (const ErrorBinding& binding : module.errorBindings)
        {
            context.errorByType.emplace(binding.type.info().hash(), &binding);
        }
        for (const FunctionBinding& function : module.functionBindings)
        {
            info.functions.push_back(makePlan(context, *function.function, &function,
                                              fmt::format("{}.{}", module.descriptor.name, function.name),
                                              FunctionPlan::Kind::Function, nullptr));
        }
        for (const ObjectFactoryBinding& factory : module.objectFactories)
        {
            info.factories.push_back(makePlan(context, *factory.function, nullptr,
                                              fmt::format("{}.{}", module.descriptor.name, factory.name),
                                              FunctionPlan::Kind::ObjectFactory, nullptr));
        }
    }
    chooseTypedRoads(context);
}

void createClassMetatables(LuaContext& context, lua_State* state)
{
    lua_createtable(state, 0, 6);
    setObjectMetamethods(state, "native object");
    context.opaqueMetatableRef = luaL_ref(state, LUA_REGISTRYINDEX);

    for (const std::unique_ptr<ClassInfo>& classInfo : context.classes)
    {
        ClassInfo& info = *classInfo;
        const ClassBinding& binding = *info.binding;
        lua_createtable(state, 0, static_cast<int>(binding.functions.size() + binding.properties.size()));
        if (info.base != nullptr)
        {
            // Base members first, so that the class's own override them.
            lua_rawgeti(state, LUA_REGISTRYINDEX, info.base->membersRef);
            lua_pushnil(state);
            while (lua_next(state, -2) != 0)
            {
                lua_pushvalue(state, -2);
                lua_insert(state, -2);
                lua_rawset(state, -5);
            }
            lua_pop(state, 1);
        }
        for (size_t index = 0; index < binding.functions.size(); ++index)
        {
            pushFunction(state, *info.functions[index], &callPlan);
            lua_setfield(state, -2, binding.functions[index].name.c_str());
        }
        for (PropertyInfo& property : info.properties)
        {
            lua_pushlightuserdata(state, &property);
            lua_setfield(state, -2, property.binding->name.c_str());
        }
        for (const ConstantFactory& constant : binding.constants)
        {
            pushConstant(context, state, constant);
            lua_setfield(state, -2, constant.name.c_str());
        }
        lua_pushvalue(state, -1);
        info.membersRef = luaL_ref(state, LUA_REGISTRYINDEX);

        info.hasProperties = !info.properties.empty() || (info.base != nullptr && info.base->hasProperties);
        lua_createtable(state, 0, 8);
        setObjectMetamethods(state, binding.name.c_str());
        lua_pushvalue(state, -2);
        if (info.hasProperties)
        {
            // A property's read needs the object, which a table as __index would not pass on.
            lua_pushcclosure(state, &objectIndex, 1);
        }
        lua_setfield(state, -2, "__index");
        lua_pushvalue(state, -2);
        lua_pushlightuserdata(state, &info);
        lua_pushcclosure(state, &objectNewIndex, 2);
        lua_setfield(state, -2, "__newindex");
        info.metatableRef = luaL_ref(state, LUA_REGISTRYINDEX);
        lua_pop(state, 1);
    }
}

const ModuleInfo* findModule(const LuaContext& context, std::string_view name)
{
    std::string_view wanted = name;
    for (const auto& [alias, moduleName] : context.bundle.moduleAliases)
    {
        if (alias == name)
        {
            wanted = moduleName;
            break;
        }
    }
    for (const ModuleDescriptor& hidden : context.bundle.hiddenModules)
    {
        if (hidden.name == wanted)
        {
            return nullptr;
        }
    }
    for (const ModuleInfo& module : context.modules)
    {
        if (module.binding->descriptor.name == wanted)
        {
            return &module;
        }
    }
    return nullptr;
}

int pushModule(LuaContext& context, lua_State* state, const ModuleInfo& module)
{
    const ModuleBinding& binding = *module.binding;
    UnlimitedMemory unlimited(context);
    lua_createtable(state, 0,
                    static_cast<int>(binding.functionBindings.size() + binding.classBindings.size() +
                                     binding.enumBindings.size() + binding.constants.size()));
    for (size_t index = 0; index < binding.functionBindings.size(); ++index)
    {
        pushFunction(state, *module.functions[index], &callPlan);
        lua_setfield(state, -2, binding.functionBindings[index].name.c_str());
    }
    for (const ClassInfo* classInfo : module.classes)
    {
        pushClassTable(context, state, *classInfo);
        lua_setfield(state, -2, classInfo->binding->name.c_str());
    }
    for (const EnumBinding& enumBinding : binding.enumBindings)
    {
        pushEnumTable(state, context.enumByType.at(enumBinding.type.info().hash()));
        lua_setfield(state, -2, enumBinding.name.c_str());
    }
    for (const InterfaceBinding& interfaceBinding : binding.interfaceBindings)
    {
        pushShapeTable(state, interfaceBinding.name, interfaceBinding.properties);
        lua_setfield(state, -2, interfaceBinding.name.c_str());
    }
    for (const ErrorBinding& errorBinding : binding.errorBindings)
    {
        pushShapeTable(state, errorBinding.name, errorBinding.properties);
        lua_setfield(state, -2, errorBinding.name.c_str());
    }
    for (const ConstantFactory& constant : binding.constants)
    {
        pushConstant(context, state, constant);
        lua_setfield(state, -2, constant.name.c_str());
    }
    if (!binding.objectFactories.empty())
    {
        lua_createtable(state, 0, 1);
        lua_pushlightuserdata(state, const_cast<ModuleInfo*>(&module));
        lua_pushcclosure(state, &moduleIndex, 1);
        lua_setfield(state, -2, "__index");
        lua_setmetatable(state, -2);
    }
    return 1;
}

void pushObjectBox(LuaContext& context, lua_State* state, StrongObjectHandle&& handle, const ClassInfo* expected)
{
    const ClassInfo* classInfo = nullptr;
    if (LifetimeRegistry* registry = handle.getLifetimeRegistry(); registry != nullptr && handle.valid())
    {
        const entt::meta_type& type = registry->resolvedType(handle.getHandle());
        classInfo = expected != nullptr && expected->type == type ? expected : classOfType(context, type);
    }
    void* memory = lua_newuserdatauv(state, sizeof(ObjectBox), 0);
    auto* box = new (memory) ObjectBox();
    box->isHandle = true;
    box->classInfo = classInfo;
    box->handle = std::move(handle);
    sealBox(*box);
    ++context.liveHandleBoxes;
    lua_rawgeti(state, LUA_REGISTRYINDEX, classInfo != nullptr ? classInfo->metatableRef : context.opaqueMetatableRef);
    lua_setmetatable(state, -2);
}

void pushValueBox(LuaContext& context, lua_State* state, entt::meta_any&& value, const ClassInfo* classInfo)
{
    void* memory = lua_newuserdatauv(state, sizeof(ObjectBox), 0);
    auto* box = new (memory) ObjectBox();
    box->classInfo = classInfo;
    box->value = std::move(value);
    sealBox(*box);
    lua_rawgeti(state, LUA_REGISTRYINDEX, classInfo != nullptr ? classInfo->metatableRef : context.opaqueMetatableRef);
    lua_setmetatable(state, -2);
}

void releaseObjectBox(LuaContext& context, ObjectBox& box, bool deferHandle)
{
    box.seal = 0;
    try
    {
        if (box.isHandle)
        {
            --context.liveHandleBoxes;
            if ((deferHandle || context.nativeDepth > 0) && !context.closing)
            {
                context.pendingReleases.push_back(std::move(box.handle));
            }
        }
        box.~ObjectBox();
    }
    catch (...)
    {
        // A destructor of native code failed; the collector must go on all the same.
    }
}
} // namespace Scripting::Lua::internal
