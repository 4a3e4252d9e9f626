#include "LuaContext.h"

#include "Scripting/BindingType/OptionalHelper.h"
#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"
#include "Scripting/Reflection/Reflection.h"
#include "Scripting/Runtime/Result.h"

#include <fmt/format.h>

#include <array>
#include <cfloat>
#include <cmath>
#include <limits>

namespace Scripting::Lua
{
namespace internal
{
namespace
{
const SequenceAdapter* findSequence(const entt::meta_type& type)
{
    return Reflection::findSequenceAdapter(type);
}

const OptionalAdapter* findOptional(const entt::meta_type& type)
{
    return Reflection::findOptionalAdapter(type);
}

// A Result<T, ...> and a Result_deprecated<T> hold one ResultAny and nothing else, at the start of the object.
const ResultAny* resultInside(const entt::meta_any& value)
{
    const entt::meta_type type = value.type();
    if (type == Reflection::resolve<ResultAny>())
    {
        return value.try_cast<const ResultAny>();
    }
    if (isSpecializationOf<Result>(type) || isSpecializationOf<Result_deprecated>(type))
    {
        return static_cast<const ResultAny*>(value.data());
    }
    return nullptr;
}

bool isErrorType(const entt::meta_type& type)
{
    static const entt::meta_type sError = Reflection::resolve<Error>();
    return type == sError || Reflection::HasBaseType(sError, type);
}

// Few enough for a scan to beat a hash map.
struct PrimitiveTable
{
    std::array<std::pair<entt::id_type, Primitive>, 14> entries{};
    size_t size = 0;

    template <typename T>
    void add(Primitive primitive)
    {
        entries[size++] = {Reflection::resolve<T>().info().hash(), primitive};
    }

    PrimitiveTable()
    {
        add<int32_t>(Primitive::Int32);
        add<double>(Primitive::Double);
        add<float>(Primitive::Float);
        add<bool>(Primitive::Bool);
        add<std::string>(Primitive::String);
        add<int64_t>(Primitive::Int64);
        add<uint32_t>(Primitive::UInt32);
        add<uint64_t>(Primitive::UInt64);
        add<int8_t>(Primitive::Int8);
        add<uint8_t>(Primitive::UInt8);
        add<int16_t>(Primitive::Int16);
        add<uint16_t>(Primitive::UInt16);
        // The other spelling of the 64-bit integers on this platform.
        add<std::conditional_t<std::is_same_v<int64_t, long>, long long, long>>(Primitive::Int64);
        add<std::conditional_t<std::is_same_v<uint64_t, unsigned long>, unsigned long long, unsigned long>>(
            Primitive::UInt64);
    }
};

template <typename T>
bool integerInto(lua_Integer value, entt::meta_any& out, ConversionFailure& failure)
{
    bool fits = false;
    if constexpr (std::is_signed_v<T>)
    {
        fits = value >= static_cast<lua_Integer>(std::numeric_limits<T>::lowest()) &&
               value <= static_cast<lua_Integer>(std::numeric_limits<T>::max());
    }
    else
    {
        fits = value >= 0 && static_cast<uint64_t>(value) <= std::numeric_limits<T>::max();
    }
    if (!fits)
    {
        failure.kind = ConversionFailure::Kind::OutOfRange;
        failure.value = static_cast<double>(value);
        failure.minValue = static_cast<double>(std::numeric_limits<T>::lowest());
        failure.maxValue = static_cast<double>(std::numeric_limits<T>::max());
        return false;
    }
    out.emplace<T>(static_cast<T>(value));
    return true;
}

} // namespace

bool primitiveToNative(lua_State* state, int index, Primitive primitive, entt::meta_any& out,
                       ConversionFailure& failure)
{
    const int luaType = lua_type(state, index);
    if (luaType == LUA_TNIL || luaType == LUA_TNONE)
    {
        failure.kind = ConversionFailure::Kind::Missing;
        failure.expected = primitiveName(primitive);
        return false;
    }
    switch (primitive)
    {
    case Primitive::Bool:
        if (luaType != LUA_TBOOLEAN)
        {
            break;
        }
        out.emplace<bool>(lua_toboolean(state, index) != 0);
        return true;
    case Primitive::String:
        if (luaType != LUA_TSTRING)
        {
            break;
        }
        else
        {
            size_t length = 0;
            const char* text = lua_tolstring(state, index, &length);
            out.emplace<std::string>(text, length);
            return true;
        }
    case Primitive::Float:
    case Primitive::Double:
        if (luaType != LUA_TNUMBER)
        {
            break;
        }
        else
        {
            const double number = lua_tonumber(state, index);
            if (primitive == Primitive::Double)
            {
                out.emplace<double>(number);
                return true;
            }
            if (std::isfinite(number) && std::fabs(number) > static_cast<double>(FLT_MAX))
            {
                failure.kind = ConversionFailure::Kind::OutOfRange;
                failure.expected = primitiveName(primitive);
                failure.value = number;
                failure.minValue = -static_cast<double>(FLT_MAX);
                failure.maxValue = static_cast<double>(FLT_MAX);
                return false;
            }
            out.emplace<float>(static_cast<float>(number));
            return true;
        }
    default:
    {
        if (luaType != LUA_TNUMBER)
        {
            break;
        }
        lua_Integer value = 0;
        if (lua_isinteger(state, index))
        {
            value = lua_tointeger(state, index);
        }
        else
        {
            const double number = lua_tonumber(state, index);
            if (!std::isfinite(number) || std::floor(number) != number)
            {
                failure.kind = ConversionFailure::Kind::TypeMismatch;
                failure.expected = primitiveName(primitive);
                failure.got = fmt::format("number {} (no integer value)", number);
                return false;
            }
            // 2^63 and beyond have no lua_Integer, and no native integer below 64 bits would hold them.
            if (number < -9223372036854775808.0 || number >= 9223372036854775808.0)
            {
                failure.kind = ConversionFailure::Kind::OutOfRange;
                failure.expected = primitiveName(primitive);
                failure.value = number;
                return false;
            }
            value = static_cast<lua_Integer>(number);
        }
        switch (primitive)
        {
        case Primitive::Int8:
            return integerInto<int8_t>(value, out, failure);
        case Primitive::UInt8:
            return integerInto<uint8_t>(value, out, failure);
        case Primitive::Int16:
            return integerInto<int16_t>(value, out, failure);
        case Primitive::UInt16:
            return integerInto<uint16_t>(value, out, failure);
        case Primitive::Int32:
            return integerInto<int32_t>(value, out, failure);
        case Primitive::UInt32:
            return integerInto<uint32_t>(value, out, failure);
        case Primitive::Int64:
            return integerInto<int64_t>(value, out, failure);
        case Primitive::UInt64:
            return integerInto<uint64_t>(value, out, failure);
        default:
            break;
        }
        break;
    }
    }
    failure.kind = ConversionFailure::Kind::TypeMismatch;
    failure.expected = primitiveName(primitive);
    failure.got = describeValue(state, index);
    return false;
}

template <typename T>
bool integerFast(lua_State* state, int index, entt::meta_any& out)
{
    lua_Integer value = 0;
    if (!integerFits<T>(state, index, value))
    {
        return false;
    }
    if (T* held = out.try_cast<T>())
    {
        *held = static_cast<T>(value);
    }
    else
    {
        out.emplace<T>(static_cast<T>(value));
    }
    return true;
}

bool primitiveFast(lua_State* state, int index, Primitive primitive, entt::meta_any& out)
{
    switch (primitive)
    {
    case Primitive::Bool:
        if (lua_type(state, index) != LUA_TBOOLEAN)
        {
            return false;
        }
        out.emplace<bool>(lua_toboolean(state, index) != 0);
        return true;
    case Primitive::String:
    {
        if (lua_type(state, index) != LUA_TSTRING)
        {
            return false;
        }
        size_t length = 0;
        const char* text = lua_tolstring(state, index, &length);
        if (std::string* held = out.try_cast<std::string>())
        {
            held->assign(text, length);
        }
        else
        {
            out.emplace<std::string>(text, length);
        }
        return true;
    }
    case Primitive::Double:
    case Primitive::Float:
    {
        // As Lua's own functions take numbers: a string that reads as a number is one.
        int isNumber = 0;
        const double number = lua_tonumberx(state, index, &isNumber);
        if (isNumber == 0)
        {
            return false;
        }
        if (primitive == Primitive::Double)
        {
            if (double* held = out.try_cast<double>())
            {
                *held = number;
            }
            else
            {
                out.emplace<double>(number);
            }
            return true;
        }
        if (std::isfinite(number) && std::fabs(number) > static_cast<double>(FLT_MAX))
        {
            return false;
        }
        out.emplace<float>(static_cast<float>(number));
        return true;
    }
    case Primitive::Int8:
        return integerFast<int8_t>(state, index, out);
    case Primitive::UInt8:
        return integerFast<uint8_t>(state, index, out);
    case Primitive::Int16:
        return integerFast<int16_t>(state, index, out);
    case Primitive::UInt16:
        return integerFast<uint16_t>(state, index, out);
    case Primitive::Int32:
        return integerFast<int32_t>(state, index, out);
    case Primitive::UInt32:
        return integerFast<uint32_t>(state, index, out);
    case Primitive::Int64:
        return integerFast<int64_t>(state, index, out);
    case Primitive::UInt64:
        return integerFast<uint64_t>(state, index, out);
    case Primitive::None:
        break;
    }
    return false;
}

namespace
{
template <typename T>
entt::meta_any numberAsAny(const Reflection::TypedValue& value)
{
    if constexpr (std::is_same_v<T, uint64_t>)
    {
        return entt::meta_any{Reflection::context(), std::in_place_type<T>, value.unsignedInteger};
    }
    else if constexpr (std::is_integral_v<T>)
    {
        return entt::meta_any{Reflection::context(), std::in_place_type<T>, static_cast<T>(value.integer)};
    }
    else
    {
        return entt::meta_any{Reflection::context(), std::in_place_type<T>, static_cast<T>(value.number)};
    }
}
} // namespace

entt::meta_any typedAsAny(Primitive primitive, const Reflection::TypedValue& value)
{
    switch (primitive)
    {
    case Primitive::Bool:
        return entt::meta_any{Reflection::context(), std::in_place_type<bool>, value.boolean};
    case Primitive::Int8:
        return numberAsAny<int8_t>(value);
    case Primitive::UInt8:
        return numberAsAny<uint8_t>(value);
    case Primitive::Int16:
        return numberAsAny<int16_t>(value);
    case Primitive::UInt16:
        return numberAsAny<uint16_t>(value);
    case Primitive::Int32:
        return numberAsAny<int32_t>(value);
    case Primitive::UInt32:
        return numberAsAny<uint32_t>(value);
    case Primitive::Int64:
        return numberAsAny<int64_t>(value);
    case Primitive::UInt64:
        return numberAsAny<uint64_t>(value);
    case Primitive::Float:
        return numberAsAny<float>(value);
    case Primitive::Double:
        return numberAsAny<double>(value);
    case Primitive::String:
        return entt::meta_any{Reflection::context(), std::in_place_type<std::string>, value.textData, value.textSize};
    case Primitive::None:
        break;
    }
    return entt::meta_any{entt::meta_ctx_arg, Reflection::context()};
}

namespace
{
// Searches are few: a class whose objects are all tracked by pointer gives up after these.
constexpr uint8_t MAX_STORAGE_SEARCHES = 4;

// The object of a box through its class's storage; null when the storage is unknown or does not hold it.
void* storedObject(const ObjectBox& box, const ClassInfo& info)
{
    LifetimeRegistry* registry = box.handle.getLifetimeRegistry();
    const ObjectHandle handle = box.handle.getHandle();
    if (info.storage == nullptr || registry != info.storageRegistry || !registry->isValid(handle) ||
        !info.storage->contains(handle.value))
    {
        return nullptr;
    }
    return info.storage->value(handle.value);
}

// Finds the storage whose element is the object at `object`: the one that holds objects of its class by value.
void findStorage(const ObjectBox& box, const ClassInfo& info, const void* object)
{
    LifetimeRegistry* registry = box.handle.getLifetimeRegistry();
    if (info.storage != nullptr || info.storageSearches >= MAX_STORAGE_SEARCHES || registry == nullptr)
    {
        return;
    }
    ++info.storageSearches;
    const ObjectHandleValue value = box.handle.getHandle().value;
    for (auto [id, storage] : registry->registry.storage())
    {
        if (storage.contains(value) && storage.value(value) == object)
        {
            info.storage = &storage;
            info.storageRegistry = registry;
            return;
        }
    }
}
} // namespace

void* typedObject(lua_State* state, int index, const entt::meta_type& type)
{
    ObjectBox* box = toObjectBox(state, index);
    if (box == nullptr)
    {
        return nullptr;
    }
    const ClassInfo* info =
        box->isHandle && box->classInfo != nullptr && box->classInfo->type == type ? box->classInfo : nullptr;
    if (info != nullptr)
    {
        if (void* object = storedObject(*box, *info))
        {
            return object;
        }
    }
    entt::meta_any instance;
    if (!boxInstance(*box, instance) || instance.type() != type)
    {
        return nullptr;
    }
    if (info != nullptr)
    {
        findStorage(*box, *info, instance.data());
    }
    return instance.data();
}

void pushPrimitive(lua_State* state, Primitive primitive, const entt::meta_any& value)
{
    const void* data = value.data();
    switch (primitive)
    {
    case Primitive::Bool:
        lua_pushboolean(state, *static_cast<const bool*>(data) ? 1 : 0);
        return;
    case Primitive::Int8:
        lua_pushinteger(state, *static_cast<const int8_t*>(data));
        return;
    case Primitive::UInt8:
        lua_pushinteger(state, *static_cast<const uint8_t*>(data));
        return;
    case Primitive::Int16:
        lua_pushinteger(state, *static_cast<const int16_t*>(data));
        return;
    case Primitive::UInt16:
        lua_pushinteger(state, *static_cast<const uint16_t*>(data));
        return;
    case Primitive::Int32:
        lua_pushinteger(state, *static_cast<const int32_t*>(data));
        return;
    case Primitive::UInt32:
        lua_pushinteger(state, *static_cast<const uint32_t*>(data));
        return;
    case Primitive::Int64:
        lua_pushinteger(state, static_cast<lua_Integer>(*static_cast<const int64_t*>(data)));
        return;
    case Primitive::UInt64:
    {
        // Past the signed range a Lua integer cannot hold it; a float can, approximately.
        const uint64_t number = *static_cast<const uint64_t*>(data);
        if (number > static_cast<uint64_t>(std::numeric_limits<lua_Integer>::max()))
        {
            lua_pushnumber(state, static_cast<lua_Number>(number));
        }
        else
        {
            lua_pushinteger(state, static_cast<lua_Integer>(number));
        }
        return;
    }
    case Primitive::Float:
        lua_pushnumber(state, *static_cast<const float*>(data));
        return;
    case Primitive::Double:
        lua_pushnumber(state, *static_cast<const double*>(data));
        return;
    case Primitive::String:
    {
        const auto& text = *static_cast<const std::string*>(data);
        lua_pushlstring(state, text.data(), text.size());
        return;
    }
    case Primitive::None:
        break;
    }
    lua_pushnil(state);
}

namespace
{
bool fail(ConversionFailure& failure, ConversionFailure::Kind kind, std::string expected, lua_State* state, int index)
{
    failure.kind = kind;
    failure.expected = std::move(expected);
    failure.got = describeValue(state, index);
    return false;
}

// Prefixes the place inside a value to a failure found deeper in it.
bool nested(ConversionFailure& failure, const std::string& place)
{
    failure.path = place + failure.path;
    return false;
}

bool sequenceToNative(LuaContext& context, lua_State* state, int index, const entt::meta_type& type,
                      const SequenceAdapter& adapter, entt::meta_any& out, ConversionFailure& failure, int depth)
{
    if (lua_type(state, index) != LUA_TTABLE)
    {
        return fail(failure, ConversionFailure::Kind::TypeMismatch, describeType(context, type), state, index);
    }
    if (!lua_checkstack(state, 2))
    {
        return fail(failure, ConversionFailure::Kind::TooDeep, describeType(context, type), state, index);
    }
    const lua_Unsigned length = lua_rawlen(state, index);
    entt::meta_any sequence = adapter.makeEmpty(static_cast<size_t>(length));
    const int table = lua_absindex(state, index);
    for (lua_Unsigned position = 1; position <= length; ++position)
    {
        lua_rawgeti(state, table, static_cast<lua_Integer>(position));
        entt::meta_any element;
        const bool converted = toNative(context, state, -1, adapter.element, element, failure, depth + 1);
        lua_pop(state, 1);
        if (!converted)
        {
            return nested(failure, fmt::format("[{}]", position));
        }
        if (!adapter.append(sequence, element))
        {
            failure.kind = ConversionFailure::Kind::TypeMismatch;
            failure.expected = describeType(context, adapter.element);
            failure.got = describeType(context, element.type());
            return nested(failure, fmt::format("[{}]", position));
        }
    }
    out = std::move(sequence);
    return true;
}

bool optionalToNative(LuaContext& context, lua_State* state, int index, const entt::meta_type& type,
                      entt::meta_any& out, ConversionFailure& failure, int depth)
{
    const OptionalAdapter* adapter = findOptional(type);
    const bool empty = lua_isnoneornil(state, index);
    if (adapter != nullptr)
    {
        if (empty)
        {
            out = adapter->makeEmpty();
            return true;
        }
        entt::meta_any inner;
        if (!toNative(context, state, index, adapter->element, inner, failure, depth + 1))
        {
            return false;
        }
        out = adapter->makeWith(inner);
        return static_cast<bool>(out) ||
               fail(failure, ConversionFailure::Kind::TypeMismatch, describeType(context, type), state, index);
    }
    // An optional nobody described: its default constructor is known to the meta system, a constructor from
    // its value only if it was registered.
    if (empty)
    {
        out = type.construct();
        return static_cast<bool>(out) ||
               fail(failure, ConversionFailure::Kind::Other, describeType(context, type), state, index);
    }
    entt::meta_any inner;
    if (!toNative(context, state, index, type.template_arg(0), inner, failure, depth + 1))
    {
        return false;
    }
    out = type.construct(inner);
    if (!out)
    {
        failure.kind = ConversionFailure::Kind::Other;
        failure.expected = describeType(context, type);
        failure.detail = "register the type with Scripting::Lua::registerValueType";
        return false;
    }
    return true;
}

bool enumToNative(const EnumInfo& info, lua_State* state, int index, entt::meta_any& out, ConversionFailure& failure)
{
    const int luaType = lua_type(state, index);
    if (luaType == LUA_TSTRING)
    {
        size_t length = 0;
        const char* text = lua_tolstring(state, index, &length);
        const std::string_view name(text, length);
        for (const auto& [number, value] : info.values)
        {
            if (value->scriptValue == name)
            {
                out = value->value;
                return true;
            }
        }
    }
    else if (luaType == LUA_TNUMBER && info.numeric && lua_isinteger(state, index))
    {
        const lua_Integer wanted = lua_tointeger(state, index);
        for (const auto& [number, value] : info.values)
        {
            if (number == wanted)
            {
                out = value->value;
                return true;
            }
        }
    }
    failure.kind =
        lua_isnoneornil(state, index) ? ConversionFailure::Kind::Missing : ConversionFailure::Kind::TypeMismatch;
    std::string accepted;
    for (const auto& [number, value] : info.values)
    {
        accepted += accepted.empty() ? "" : ", ";
        accepted += info.numeric ? fmt::format("{} ({})", value->name, number) : value->scriptValue;
    }
    failure.expected = fmt::format("{} (one of: {})", info.binding->name, accepted);
    failure.got = describeValue(state, index);
    return false;
}

bool interfaceToNative(LuaContext& context, lua_State* state, int index, const InterfaceInfo& info, entt::meta_any& out,
                       ConversionFailure& failure, int depth)
{
    const std::string& name = info.binding->name;
    if (lua_type(state, index) != LUA_TTABLE)
    {
        const ConversionFailure::Kind kind =
            lua_isnoneornil(state, index) ? ConversionFailure::Kind::Missing : ConversionFailure::Kind::TypeMismatch;
        return fail(failure, kind, "table of " + name, state, index);
    }
    if (!lua_checkstack(state, 3))
    {
        return fail(failure, ConversionFailure::Kind::TooDeep, name, state, index);
    }
    entt::meta_any object = info.binding->type.construct();
    if (!object)
    {
        failure.kind = ConversionFailure::Kind::Other;
        failure.expected = name;
        failure.detail = "the native type cannot be default constructed";
        return false;
    }
    // Fields the table leaves out keep the native default. Only string keys that name a field are accepted,
    // so that a misspelt field is an error rather than a silent default.
    const int table = lua_absindex(state, index);
    lua_pushnil(state);
    while (lua_next(state, table) != 0)
    {
        if (lua_type(state, -2) != LUA_TSTRING)
        {
            lua_pop(state, 2);
            failure.kind = ConversionFailure::Kind::UnknownField;
            failure.expected = name;
            failure.detail = "only named fields are accepted";
            return false;
        }
        size_t length = 0;
        const char* key = lua_tolstring(state, -2, &length);
        const auto property = info.properties.find(std::string_view(key, length));
        if (property == info.properties.end())
        {
            std::string field(key, length);
            lua_pop(state, 2);
            failure.kind = ConversionFailure::Kind::UnknownField;
            failure.expected = name;
            failure.detail = fmt::format("{} has no field '{}'", name, field);
            return false;
        }
        const PropertyBinding& binding = *property->second;
        entt::meta_any value;
        const bool converted = toNative(context, state, -1, binding.type, value, failure, depth + 1);
        lua_pop(state, 1);
        if (!converted)
        {
            lua_pop(state, 1);
            return nested(failure, "." + binding.name);
        }
        const auto& validator = binding.valueValidator;
        if (validator && !validator(value))
        {
            lua_pop(state, 1);
            failure.kind = ConversionFailure::Kind::OutOfRange;
            failure.expected = describeType(context, binding.type);
            failure.value = value.allow_cast<double>() ? std::optional<double>(value.cast<double>()) : std::nullopt;
            entt::meta_any min = binding.minValue.allow_cast<double>();
            entt::meta_any max = binding.maxValue.allow_cast<double>();
            failure.minValue = min ? std::optional<double>(min.cast<double>()) : std::nullopt;
            failure.maxValue = max ? std::optional<double>(max.cast<double>()) : std::nullopt;
            return nested(failure, "." + binding.name);
        }
        if (binding.setter == nullptr || binding.setter->set(object.as_ref(), std::move(value)).isError())
        {
            lua_pop(state, 1);
            failure.kind = ConversionFailure::Kind::Other;
            failure.expected = name;
            failure.detail = fmt::format("field '{}' of {} cannot be set", binding.name, name);
            return false;
        }
    }
    out = std::move(object);
    return true;
}

bool handleToNative(LuaContext& context, lua_State* state, int index, const entt::meta_type& type, entt::meta_any& out,
                    ConversionFailure& failure)
{
    ObjectBox* box = toObjectBox(state, index);
    if (box == nullptr || !box->isHandle)
    {
        const ConversionFailure::Kind kind =
            lua_isnoneornil(state, index) ? ConversionFailure::Kind::Missing : ConversionFailure::Kind::TypeMismatch;
        return fail(failure, kind, describeType(context, type), state, index);
    }
    if (!box->handle.valid())
    {
        return fail(failure, ConversionFailure::Kind::Destroyed, describeType(context, type), state, index);
    }
    LifetimeRegistry* registry = box->handle.getLifetimeRegistry();
    const ObjectHandle handle = box->handle.getHandle();
    if (type == Reflection::resolve<StrongObjectHandle>())
    {
        out.emplace<StrongObjectHandle>(box->handle);
        return true;
    }
    if (type == Reflection::resolve<WeakObjectHandle>())
    {
        out.emplace<WeakObjectHandle>(box->handle.getScope(), handle);
        return true;
    }
    entt::meta_any typed;
    if (isSpecializationOf<StrongTypedObjectHandle>(type))
    {
        typed = registry->resolveAsStrongTypedObjectHandle(handle);
    }
    else if (isSpecializationOf<WeakTypedObjectHandle>(type))
    {
        typed = registry->resolveAsWeakTypedObjectHandle(handle);
    }
    else
    {
        typed = registry->resolveAsTypedObjectHandle(handle);
    }
    if (typed && (typed.type() == type || typed.allow_cast(type)))
    {
        out = std::move(typed);
        return true;
    }
    return fail(failure, ConversionFailure::Kind::TypeMismatch, describeType(context, type), state, index);
}

bool isHandleType(const entt::meta_type& type)
{
    return type == Reflection::resolve<StrongObjectHandle>() || type == Reflection::resolve<WeakObjectHandle>() ||
           isSpecializationOf<StrongTypedObjectHandle>(type) || isSpecializationOf<WeakTypedObjectHandle>(type) ||
           isSpecializationOf<TypedObjectHandle>(type);
}

// The generic handle inside a strong or weak handle of any type; typed handles add no state to the generic
// part, which starts the object.
const Scripting::internal::SmartObjectHandleBase* handleInside(const entt::meta_any& value)
{
    bool strong = false;
    if (isSmartHandleType(value.type(), strong))
    {
        return static_cast<const Scripting::internal::SmartObjectHandleBase*>(value.data());
    }
    return nullptr;
}

PushStatus pushSequence(LuaContext& context, lua_State* state, const SequenceAdapter& adapter,
                        const entt::meta_any& value, std::string& failure, int depth)
{
    const size_t size = adapter.size(value);
    if (size > static_cast<size_t>(std::numeric_limits<int>::max()) || !lua_checkstack(state, 3))
    {
        failure = "sequence too large";
        return PushStatus::Failed;
    }
    lua_createtable(state, static_cast<int>(size), 0);
    for (size_t position = 0; position < size; ++position)
    {
        const PushStatus status = pushNative(context, state, adapter.at(value, position), failure, depth + 1);
        if (status != PushStatus::Ok)
        {
            lua_pop(state, status == PushStatus::RaisedError ? 2 : 1);
            return PushStatus::Failed;
        }
        lua_rawseti(state, -2, static_cast<lua_Integer>(position + 1));
    }
    return PushStatus::Ok;
}

void pushEnum(lua_State* state, const EnumInfo& info, const entt::meta_any& value)
{
    const entt::meta_any number = value.allow_cast<int64_t>();
    const int64_t wanted = number ? number.cast<int64_t>() : 0;
    for (const auto& [candidate, binding] : info.values)
    {
        if (candidate == wanted)
        {
            if (info.numeric)
            {
                lua_pushinteger(state, candidate);
            }
            else
            {
                lua_pushlstring(state, binding->scriptValue.data(), binding->scriptValue.size());
            }
            return;
        }
    }
    // A value the version does not name still has its number.
    lua_pushinteger(state, wanted);
}

PushStatus pushInterface(LuaContext& context, lua_State* state, const InterfaceInfo& info, const entt::meta_any& value,
                         std::string& failure, int depth)
{
    if (!lua_checkstack(state, 3))
    {
        failure = "value nested too deep";
        return PushStatus::Failed;
    }
    const auto& properties = info.binding->properties;
    lua_createtable(state, 0, static_cast<int>(properties.size()));
    for (const PropertyBinding& property : properties)
    {
        const entt::meta_any field = property.getter->get(value.as_ref());
        const PushStatus status = pushNative(context, state, field, failure, depth + 1);
        if (status != PushStatus::Ok)
        {
            lua_pop(state, status == PushStatus::RaisedError ? 2 : 1);
            return PushStatus::Failed;
        }
        lua_setfield(state, -2, property.name.c_str());
    }
    return PushStatus::Ok;
}
} // namespace

Primitive primitiveOf(const entt::meta_type& type)
{
    static const PrimitiveTable sTable;
    if (!type)
    {
        return Primitive::None;
    }
    const entt::id_type id = type.info().hash();
    for (size_t index = 0; index < sTable.size; ++index)
    {
        if (sTable.entries[index].first == id)
        {
            return sTable.entries[index].second;
        }
    }
    return Primitive::None;
}

const char* primitiveName(Primitive primitive)
{
    switch (primitive)
    {
    case Primitive::Bool:
        return "boolean";
    case Primitive::Int8:
        return "int8";
    case Primitive::UInt8:
        return "uint8";
    case Primitive::Int16:
        return "int16";
    case Primitive::UInt16:
        return "uint16";
    case Primitive::Int32:
        return "int";
    case Primitive::UInt32:
        return "uint";
    case Primitive::Int64:
        return "int64";
    case Primitive::UInt64:
        return "uint64";
    case Primitive::Float:
        return "float";
    case Primitive::Double:
        return "double";
    case Primitive::String:
        return "string";
    case Primitive::None:
        break;
    }
    return "value";
}

std::string describeType(const LuaContext& context, const entt::meta_type& type)
{
    if (!type)
    {
        return "nothing";
    }
    if (const Primitive primitive = primitiveOf(type); primitive != Primitive::None)
    {
        return primitiveName(primitive);
    }
    if (const auto found = context.classByType.find(type.info().hash()); found != context.classByType.end())
    {
        return found->second->binding->name;
    }
    if (const auto found = context.enumByType.find(type.info().hash()); found != context.enumByType.end())
    {
        return found->second.binding->name;
    }
    if (const auto found = context.interfaceByType.find(type.info().hash()); found != context.interfaceByType.end())
    {
        return found->second.binding->name;
    }
    if (const SequenceAdapter* sequence = findSequence(type))
    {
        return "sequence of " + describeType(context, sequence->element);
    }
    if (isSpecializationOf<std::optional>(type))
    {
        return describeType(context, type.template_arg(0)) + " or nil";
    }
    if (isSpecializationOf<StrongTypedObjectHandle>(type) || isSpecializationOf<WeakTypedObjectHandle>(type) ||
        isSpecializationOf<TypedObjectHandle>(type))
    {
        return describeType(context, type.template_arg(0)) + " object";
    }
    const std::string_view name = type.info().name();
    return std::string(name);
}

std::string describeValue(lua_State* state, int index)
{
    switch (lua_type(state, index))
    {
    case LUA_TNONE:
    case LUA_TNIL:
        return "nil";
    case LUA_TNUMBER:
        return lua_isinteger(state, index) ? "integer" : "number";
    case LUA_TUSERDATA:
        if (ObjectBox* box = toObjectBox(state, index))
        {
            const std::string name = box->classInfo != nullptr ? box->classInfo->binding->name : "native object";
            return box->isHandle && !box->handle.valid() ? "destroyed " + name : name;
        }
        if (toErrorBox(state, index) != nullptr)
        {
            return "error";
        }
        return "buffer";
    default:
        return lua_typename(state, lua_type(state, index));
    }
}

ObjectBox* toObjectBox(lua_State* state, int index)
{
    if (lua_type(state, index) != LUA_TUSERDATA)
    {
        return nullptr;
    }
    auto* box = static_cast<ObjectBox*>(lua_touserdata(state, index));
    return box != nullptr && lua_rawlen(state, index) >= sizeof(ObjectBox) && box->kind == BoxKind::Object ? box
                                                                                                           : nullptr;
}

bool boxInstance(ObjectBox& box, entt::meta_any& out)
{
    if (!box.isHandle)
    {
        out = box.value.as_ref();
        return true;
    }
    if (!box.handle.valid())
    {
        return false;
    }
    out = box.handle.getLifetimeRegistry()->resolveAsAny(box.handle.getHandle());
    return static_cast<bool>(out);
}

bool toNative(LuaContext& context, lua_State* state, int index, const entt::meta_type& type, entt::meta_any& out,
              ConversionFailure& failure, int depth)
{
    if (depth > MAX_CONVERSION_DEPTH)
    {
        return fail(failure, ConversionFailure::Kind::TooDeep, describeType(context, type), state, index);
    }
    if (const Primitive primitive = primitiveOf(type); primitive != Primitive::None)
    {
        return primitiveToNative(state, index, primitive, out, failure);
    }
    if (const SequenceAdapter* sequence = findSequence(type))
    {
        if (lua_isnoneornil(state, index))
        {
            return fail(failure, ConversionFailure::Kind::Missing, describeType(context, type), state, index);
        }
        return sequenceToNative(context, state, index, type, *sequence, out, failure, depth);
    }
    if (findOptional(type) != nullptr || isSpecializationOf<std::optional>(type))
    {
        return optionalToNative(context, state, index, type, out, failure, depth);
    }
    if (const auto found = context.enumByType.find(type.info().hash()); found != context.enumByType.end())
    {
        return enumToNative(found->second, state, index, out, failure);
    }
    if (const auto found = context.interfaceByType.find(type.info().hash()); found != context.interfaceByType.end())
    {
        return interfaceToNative(context, state, index, found->second, out, failure, depth);
    }
    if (isHandleType(type))
    {
        return handleToNative(context, state, index, type, out, failure);
    }
    if (isScriptValueType(type))
    {
        return toScriptValue(context, state, index, type, out, failure);
    }
    if (ObjectBox* box = toObjectBox(state, index))
    {
        entt::meta_any instance;
        if (!boxInstance(*box, instance))
        {
            return fail(failure, ConversionFailure::Kind::Destroyed, describeType(context, type), state, index);
        }
        if (instance.type() == type || instance.allow_cast(type))
        {
            out = std::move(instance);
            return true;
        }
    }
    else if (ErrorBox* error = toErrorBox(state, index); error != nullptr && isErrorType(type))
    {
        entt::meta_any copy = error->error;
        if (copy.type() == type || copy.allow_cast(type))
        {
            out = std::move(copy);
            return true;
        }
    }
    const ConversionFailure::Kind kind =
        lua_isnoneornil(state, index) ? ConversionFailure::Kind::Missing : ConversionFailure::Kind::TypeMismatch;
    return fail(failure, kind, describeType(context, type), state, index);
}

bool roomFor(const LuaContext& context, size_t bytes)
{
    const MemoryState& memory = context.memory;
    return memory.limit == 0 || (memory.used <= memory.limit && bytes <= memory.limit - memory.used);
}

size_t primitiveSize(Primitive primitive, const entt::meta_any& value)
{
    return primitive == Primitive::String ? static_cast<const std::string*>(value.data())->size() : 0;
}

Error tooBigError(const LuaContext& context, const std::string& displayName, const char* what)
{
    return Error(fmt::format("Memory limit exceeded: the value {} {} does not fit in the {} bytes the context may hold",
                             displayName, what, context.memory.limit));
}

bool isSmartHandleType(const entt::meta_type& type, bool& strong)
{
    strong = type == Reflection::resolve<StrongObjectHandle>() || isSpecializationOf<StrongTypedObjectHandle>(type);
    return strong || type == Reflection::resolve<WeakObjectHandle>() || isSpecializationOf<WeakTypedObjectHandle>(type);
}

PushStatus pushNative(LuaContext& context, lua_State* state, const entt::meta_any& value, std::string& failure,
                      int depth)
{
    if (depth > MAX_CONVERSION_DEPTH || !lua_checkstack(state, 2))
    {
        failure = "value nested too deep";
        return PushStatus::Failed;
    }
    const entt::meta_type type = value.type();
    if (!value || type == Reflection::resolve<void>())
    {
        lua_pushnil(state);
        return PushStatus::Ok;
    }
    if (const Primitive primitive = primitiveOf(type); primitive != Primitive::None)
    {
        if (!roomFor(context, primitiveSize(primitive, value)))
        {
            failure = NO_ROOM;
            return PushStatus::Failed;
        }
        pushPrimitive(state, primitive, value);
        return PushStatus::Ok;
    }
    if (const SequenceAdapter* sequence = findSequence(type))
    {
        return pushSequence(context, state, *sequence, value, failure, depth);
    }
    if (const OptionalAdapter* optional = findOptional(type))
    {
        return pushNative(context, state, optional->value(value), failure, depth + 1);
    }
    if (isSpecializationOf<std::optional>(type))
    {
        // Only an optional whose helpers were registered can be opened without its type.
        if (!OptionalHelper::isOptionalAny(type) || !type.construct())
        {
            failure = "an optional of an unregistered type";
            return PushStatus::Failed;
        }
        return pushNative(context, state, OptionalHelper::getValue(value), failure, depth + 1);
    }
    if (const ResultAny* result = resultInside(value))
    {
        if (result->isError())
        {
            pushError(context, state, ResultAny(*result));
            return PushStatus::RaisedError;
        }
        return pushNative(context, state, result->any(), failure, depth + 1);
    }
    if (isErrorType(type))
    {
        ResultAny error(Error(""));
        error.any() = value;
        pushError(context, state, std::move(error));
        return PushStatus::Ok;
    }
    if (const auto found = context.enumByType.find(type.info().hash()); found != context.enumByType.end())
    {
        pushEnum(state, found->second, value);
        return PushStatus::Ok;
    }
    if (const Scripting::internal::SmartObjectHandleBase* handle = handleInside(value))
    {
        // A weak handle becomes a strong one: a Lua value keeps what it names alive.
        if (!handle->valid())
        {
            lua_pushnil(state);
            return PushStatus::Ok;
        }
        pushObjectBox(context, state, StrongObjectHandle(handle->getScope(), handle->getHandle(), true));
        return PushStatus::Ok;
    }
    if (pushScriptValue(context, state, value))
    {
        return PushStatus::Ok;
    }
    if (const auto found = context.interfaceByType.find(type.info().hash()); found != context.interfaceByType.end())
    {
        return pushInterface(context, state, found->second, value, failure, depth);
    }
    // Anything else travels by copy: a bound class as its class, any other type as an opaque value.
    entt::meta_any copy = value;
    if (!copy)
    {
        failure = fmt::format("{} cannot be copied into a script value", withArticle(describeType(context, type)));
        return PushStatus::Failed;
    }
    const auto found = context.classByType.find(type.info().hash());
    pushValueBox(context, state, std::move(copy), found != context.classByType.end() ? found->second : nullptr);
    return PushStatus::Ok;
}

entt::meta_any toNativeUntyped(LuaContext& context, lua_State* state, int index)
{
    entt::meta_ctx& metaContext = Reflection::context();
    switch (lua_type(state, index))
    {
    case LUA_TBOOLEAN:
        return entt::meta_any{metaContext, lua_toboolean(state, index) != 0};
    case LUA_TNUMBER:
        if (lua_isinteger(state, index))
        {
            return entt::meta_any{metaContext, static_cast<int64_t>(lua_tointeger(state, index))};
        }
        return entt::meta_any{metaContext, static_cast<double>(lua_tonumber(state, index))};
    case LUA_TSTRING:
    {
        size_t length = 0;
        const char* text = lua_tolstring(state, index, &length);
        return entt::meta_any{metaContext, std::string(text, length)};
    }
    case LUA_TUSERDATA:
        if (ObjectBox* box = toObjectBox(state, index))
        {
            if (box->isHandle)
            {
                return box->handle.valid() ? entt::meta_any{metaContext, box->handle} : entt::meta_any{};
            }
            return box->value;
        }
        if (ErrorBox* error = toErrorBox(state, index))
        {
            return error->error;
        }
        break;
    default:
        break;
    }
    (void)context;
    return entt::meta_any{entt::meta_ctx_arg, metaContext};
}
} // namespace internal
} // namespace Scripting::Lua
