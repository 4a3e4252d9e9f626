#pragma once

#include "Scripting/Reflection/IProperty.h"
#include "Scripting/Reflection/internal/Invoke.h"
#include "Scripting/Reflection/internal/TypedInvoke.h"
#include "Scripting/Runtime/ResultAny.h"

#include <functional>
#include <optional>
#include <type_traits>
#include <utility>

namespace Scripting::Reflection
{
namespace internal
{
// What a getter reads through: a member object, a member function of no arguments, or a lambda of the object.
template <typename Class, typename Access>
struct GetterTraits;

template <typename Class, typename T, typename Owner>
requires(std::is_base_of_v<Owner, Class> && !std::is_function_v<T>) struct GetterTraits<Class, T Owner::*>
{
    using Value = T;
    using Return = T&;
    static constexpr bool IS_MEMBER_OBJECT = true;
};

template <typename Class, typename R, typename Owner>
requires std::is_base_of_v<Owner, Class>
struct GetterTraits<Class, R (Owner::*)()>
{
    using Value = std::remove_cvref_t<R>;
    using Object = Class;
    using Return = R;
    static constexpr bool IS_MEMBER_OBJECT = false;
};
template <typename Class, typename R, typename Owner>
requires std::is_base_of_v<Owner, Class>
struct GetterTraits<Class, R (Owner::*)() const> : GetterTraits<Class, R (Owner::*)()>
{
    using Object = const Class;
};
template <typename Class, typename R, typename Owner>
requires std::is_base_of_v<Owner, Class>
struct GetterTraits<Class, R (Owner::*)() noexcept> : GetterTraits<Class, R (Owner::*)()>
{
};
template <typename Class, typename R, typename Owner>
requires std::is_base_of_v<Owner, Class>
struct GetterTraits<Class, R (Owner::*)() const noexcept> : GetterTraits<Class, R (Owner::*)() const>
{
};

// Numbers and strings take the typed road of properties; objects and everything else keep the general one.
template <typename T>
inline constexpr bool IS_TYPED_PROPERTY_VALUE =
    typedParameterKind<const std::remove_cvref_t<T>&>() !=
    TypedKind::None&& typedParameterKind<const std::remove_cvref_t<T>&>() != TypedKind::Object;

template <typename Getter, typename Value>
inline constexpr TypedPropertyGet TYPED_GET{typedResultKind<Value>(), &Getter::typedGet};

template <typename Getter, typename Value>
consteval const TypedPropertyGet* typedGetOf()
{
    if constexpr (IS_TYPED_PROPERTY_VALUE<Value>)
    {
        return &TYPED_GET<Getter, Value>;
    }
    else
    {
        return nullptr;
    }
}

template <typename Setter, typename Parameter>
inline constexpr TypedPropertySet TYPED_SET{typedParameterKind<Parameter>(), &Setter::typedSet};

template <typename Setter, typename Parameter>
consteval const TypedPropertySet* typedSetOf()
{
    if constexpr (IS_TYPED_PROPERTY_VALUE<Parameter> && typedParameterKind<Parameter>() != TypedKind::None)
    {
        return &TYPED_SET<Setter, Parameter>;
    }
    else
    {
        return nullptr;
    }
}

// What a getter knows of its member or lambda, one constant per getter type; the one getter class reads it.
struct GetterTable
{
    // An invalid any when the object is not of the class.
    using Get = entt::meta_any (*)(const IPropertyGetter& getter, entt::meta_any& self);

    Get get = nullptr;
    TypeResolver type = nullptr;
    TypeResolver classType = nullptr;
    bool baked = false;
    ReturnPolicy policy = ReturnPolicy::ByValue;
    const TypedPropertyGet* typedGet = nullptr;
};

class GetterBase : public IPropertyGetter
{
public:
    /**
     * @brief Reads through a table.
     * @param privilege What a runtime may let a script do.
     * @param table The getter's table; a constant that outlives every getter.
     */
    GetterBase(Privilege privilege, const GetterTable& table) : IPropertyGetter(privilege), mTable(&table) {}

    entt::meta_any get(entt::meta_any instance) const override;
    entt::meta_type getType() const override;
    std::optional<entt::meta_type> getClassType() const override;
    bool isBaked() const override;
    ReturnPolicy getReturnPolicy() const override;
    const TypedPropertyGet* getTypedGet() const override;

private:
    const GetterTable* mTable;
};

// What a setter knows of its member or lambda; the one setter class reads it.
struct SetterTable
{
    // False, with nothing written, when the object or the value does not fit.
    using Set = bool (*)(const IPropertySetter& setter, entt::meta_any& self, entt::meta_any& value);

    Set set = nullptr;
    TypeResolver type = nullptr;
    TypeResolver classType = nullptr;
    bool isMethod = false;
    const TypedPropertySet* typedSet = nullptr;
};

class SetterBase : public IPropertySetter
{
public:
    /**
     * @brief Writes through a table.
     * @param privilege What a runtime may let a script do.
     * @param table The setter's table; a constant that outlives every setter.
     */
    SetterBase(Privilege privilege, const SetterTable& table) : IPropertySetter(privilege), mTable(&table) {}

    ResultAny set(entt::meta_any instance, entt::meta_any value) const override;
    entt::meta_type getType() const override;
    std::optional<entt::meta_type> getClassType() const override;
    bool isMethod() const override;
    const TypedPropertySet* getTypedSet() const override;

private:
    const SetterTable* mTable;
};
} // namespace internal

/// Reads a member object (as a reference into the object) or calls a member function of no arguments.
/// @tparam Class The class; the member may be of a base of it.
/// @tparam baked Whether the runtime reads the value once and then fixes it.
/// @tparam member Pointer to the data member or to the member function.
template <typename Class, bool baked, auto member>
class MemberPropertyGetter final : public internal::GetterBase
{
    using Traits = internal::GetterTraits<Class, decltype(member)>;

public:
    /**
     * @brief Makes the getter.
     * @param privilege What a runtime may let a script do.
     */
    explicit MemberPropertyGetter(Privilege privilege) : GetterBase(privilege, table()) {}

    /// What every getter of this member reads.
    static const internal::GetterTable& table() { return TABLE<MemberPropertyGetter>; }

    /// The general read.
    static entt::meta_any generalGet(const IPropertyGetter&, entt::meta_any& self)
    {
        if constexpr (Traits::IS_MEMBER_OBJECT)
        {
            using Value = typename Traits::Value;
            if (Class* object = internal::objectIn<Class>(self); object != nullptr)
            {
                return internal::heldReference<Value&>(object->*member);
            }
            if (const Class* object = internal::objectIn<const Class>(self); object != nullptr)
            {
                return internal::heldReference<const Value&>(object->*member);
            }
            return {};
        }
        else
        {
            auto* object = internal::objectIn<typename Traits::Object>(self);
            if (object == nullptr)
            {
                return {};
            }
            return internal::wrapResult<typename Traits::Return>(member, object);
        }
    }

    /**
     * @brief The read that getTypedGet() hands out.
     * @param object The instance, a `Class` the runtime checked.
     * @param result Receives the value; a string data member, or one returned by reference, is viewed in place.
     */
    static void typedGet(const IPropertyGetter&, void* object, TypedReturn& result)
    {
        if constexpr (Traits::IS_MEMBER_OBJECT)
        {
            internal::storeTypedResult<const typename Traits::Value&>(static_cast<const Class*>(object)->*member,
                                                                      result);
        }
        else
        {
            internal::storeTypedResult<typename Traits::Return>(
                std::invoke(member, static_cast<typename Traits::Object*>(object)), result);
        }
    }

private:
    template <typename Getter>
    static constexpr internal::GetterTable TABLE{
        &Getter::generalGet,
        &resolve<typename Traits::Value>,
        &resolve<Class>,
        baked,
        std::is_reference_v<typename Traits::Return> ? ReturnPolicy::ByReference : ReturnPolicy::ByValue,
        internal::typedGetOf<Getter, typename Traits::Value>()};
};

/// Calls a lambda whose only parameter is the object.
/// A lambda taking a mutable reference gets a mutable object; others a const one.
/// @tparam Class The class.
/// @tparam baked Whether the runtime reads the value once and then fixes it.
/// @tparam Lambda Type of the callable.
template <typename Class, bool baked, typename Lambda>
class LambdaPropertyGetter final : public internal::GetterBase
{
    using Traits = internal::CallableTraits<Lambda>;
    static_assert(Traits::Arguments::size == 1, "A getter lambda takes the object and nothing else");
    using Parameter = typename internal::SplitFirst<typename Traits::Arguments>::Head;
    using Object = std::conditional_t<internal::NEEDS_MUTABLE<Parameter>, Class, const Class>;
    using Return = typename Traits::Return;

public:
    /**
     * @brief Takes the callable.
     * @param privilege What a runtime may let a script do.
     * @param lambda The callable, moved in.
     */
    LambdaPropertyGetter(Privilege privilege, Lambda lambda)
        : GetterBase(privilege, table()), mLambda(std::move(lambda))
    {
    }

    /// What every getter of this lambda type reads.
    static const internal::GetterTable& table() { return TABLE<LambdaPropertyGetter>; }

    /// The general read: the lambda, called on the object.
    static entt::meta_any generalGet(const IPropertyGetter& getter, entt::meta_any& self)
    {
        Object* object = internal::objectIn<Object>(self);
        if (object == nullptr)
        {
            return {};
        }
        return internal::wrapResult<Return>(static_cast<const LambdaPropertyGetter&>(getter).mLambda, *object);
    }

    /**
     * @brief The read that getTypedGet() hands out: the lambda, called on the object.
     * @param getter This getter, which holds the lambda.
     * @param object The instance, a `Class` the runtime checked.
     * @param result Receives the value.
     */
    static void typedGet(const IPropertyGetter& getter, void* object, TypedReturn& result)
    {
        internal::storeTypedResult<Return>(
            std::invoke(static_cast<const LambdaPropertyGetter&>(getter).mLambda, *static_cast<Object*>(object)),
            result);
    }

private:
    template <typename Getter>
    static constexpr internal::GetterTable TABLE{&Getter::generalGet,
                                                 &resolve<Return>,
                                                 &resolve<Class>,
                                                 baked,
                                                 std::is_reference_v<Return> ? ReturnPolicy::ByReference
                                                                             : ReturnPolicy::ByValue,
                                                 internal::typedGetOf<Getter, Return>()};

    Lambda mLambda;
};

namespace internal
{
template <typename Class, typename Access>
struct SetterTraits;

template <typename Class, typename T, typename Owner>
requires(std::is_base_of_v<Owner, Class> && !std::is_function_v<T>) struct SetterTraits<Class, T Owner::*>
{
    using Parameter = const T&;
    static constexpr bool IS_METHOD = false;
};

template <typename Class, typename R, typename Owner, typename P>
requires std::is_base_of_v<Owner, Class>
struct SetterTraits<Class, R (Owner::*)(P)>
{
    using Parameter = P;
    static constexpr bool IS_METHOD = true;
};
template <typename Class, typename R, typename Owner, typename P>
requires std::is_base_of_v<Owner, Class>
struct SetterTraits<Class, R (Owner::*)(P) noexcept> : SetterTraits<Class, R (Owner::*)(P)>
{
};

// Writes through a member object or calls a setter member function.
template <auto member, bool isMethod, typename Parameter>
struct AssignThroughMember
{
    template <typename Class, typename Value>
    void operator()(Class& object, Value&& value) const
    {
        if constexpr (isMethod)
        {
            (object.*member)(static_cast<Parameter>(value));
        }
        else
        {
            object.*member = static_cast<Parameter>(value);
        }
    }
};

// Assigns once the object and the value are both there; nothing is written otherwise.
template <typename Class, typename Parameter, typename Assign>
bool assignChecked(entt::meta_any& self, entt::meta_any& value, const Assign& assign)
{
    Class* object = objectIn<Class>(self);
    const bool valueFits = fits<Parameter>(value);
    if (object == nullptr || !valueFits)
    {
        return false;
    }
    std::invoke(assign, *object, argumentAs<Parameter>(value));
    return true;
}
} // namespace internal

/// Writes a member object, or calls a member function of one argument.
/// @tparam Class The class; the member may be of a base of it.
/// @tparam member Pointer to the data member or to the member function.
template <typename Class, auto member>
class MemberPropertySetter final : public internal::SetterBase
{
    using Traits = internal::SetterTraits<Class, decltype(member)>;
    using Parameter = typename Traits::Parameter;
    using Assign = internal::AssignThroughMember<member, Traits::IS_METHOD, Parameter>;

public:
    /**
     * @brief Makes the setter.
     * @param privilege What a runtime may let a script do.
     */
    explicit MemberPropertySetter(Privilege privilege) : SetterBase(privilege, table()) {}

    /// What every setter of this member reads.
    static const internal::SetterTable& table() { return TABLE<MemberPropertySetter>; }

    /// The general write.
    static bool generalSet(const IPropertySetter&, entt::meta_any& self, entt::meta_any& value)
    {
        return internal::assignChecked<Class, Parameter>(self, value, Assign{});
    }

    /**
     * @brief The write that getTypedSet() hands out.
     * @param object The instance, a `Class` the runtime checked.
     * @param value The new value, of the kind getTypedSet() names.
     */
    static void typedSet(const IPropertySetter&, void* object, const TypedValue& value)
    {
        Assign{}(*static_cast<Class*>(object), internal::typedArgument<Parameter>(value));
    }

private:
    template <typename Setter>
    static constexpr internal::SetterTable TABLE{&Setter::generalSet, &resolve<Parameter>, &resolve<Class>,
                                                 Traits::IS_METHOD, internal::typedSetOf<Setter, Parameter>()};
};

/// Calls a lambda of the object and the value.
/// @tparam Class The class.
/// @tparam Lambda Type of the callable.
template <typename Class, typename Lambda>
class LambdaPropertySetter final : public internal::SetterBase
{
    using Traits = internal::CallableTraits<Lambda>;
    static_assert(Traits::Arguments::size == 2, "A setter lambda takes the object and the value");
    using Parameter =
        typename internal::SplitFirst<typename internal::SplitFirst<typename Traits::Arguments>::Tail>::Head;

public:
    /**
     * @brief Takes the callable.
     * @param privilege What a runtime may let a script do.
     * @param lambda The callable, moved in.
     */
    LambdaPropertySetter(Privilege privilege, Lambda lambda)
        : SetterBase(privilege, table()), mLambda(std::move(lambda))
    {
    }

    /// What every setter of this lambda type reads.
    static const internal::SetterTable& table() { return TABLE<LambdaPropertySetter>; }

    /// The general write: the lambda, called with the object and the value.
    static bool generalSet(const IPropertySetter& setter, entt::meta_any& self, entt::meta_any& value)
    {
        return internal::assignChecked<Class, Parameter>(self, value,
                                                         static_cast<const LambdaPropertySetter&>(setter).mLambda);
    }

    /**
     * @brief The write that getTypedSet() hands out: the lambda, called with the object and the value.
     * @param setter This setter, which holds the lambda.
     * @param object The instance, a `Class` the runtime checked.
     * @param value The new value, of the kind getTypedSet() names.
     */
    static void typedSet(const IPropertySetter& setter, void* object, const TypedValue& value)
    {
        std::invoke(static_cast<const LambdaPropertySetter&>(setter).mLambda, *static_cast<Class*>(object),
                    internal::typedArgument<Parameter>(value));
    }

private:
    template <typename Setter>
    static constexpr internal::SetterTable TABLE{&Setter::generalSet, &resolve<Parameter>, &resolve<Class>, false,
                                                 internal::typedSetOf<Setter, Parameter>()};

    Lambda mLambda;
};
} // namespace Scripting::Reflection
