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

// The failure of every setter; the caller needs no detail.
ResultAny failedToSetMember();

// Numbers and strings take the typed road of properties; objects and everything else keep the general one.
template <typename T>
inline constexpr bool IS_TYPED_PROPERTY_VALUE =
    typedParameterKind<const std::remove_cvref_t<T>&>() !=
    TypedKind::None&& typedParameterKind<const std::remove_cvref_t<T>&>() != TypedKind::Object;

template <typename Getter, typename Value>
const TypedPropertyGet* typedGetOf()
{
    if constexpr (IS_TYPED_PROPERTY_VALUE<Value>)
    {
        static constexpr TypedPropertyGet GET{typedResultKind<Value>(), &Getter::typedGet};
        return &GET;
    }
    else
    {
        return nullptr;
    }
}

template <typename Setter, typename Parameter>
const TypedPropertySet* typedSetOf()
{
    if constexpr (IS_TYPED_PROPERTY_VALUE<Parameter> && typedParameterKind<Parameter>() != TypedKind::None)
    {
        static constexpr TypedPropertySet SET{typedParameterKind<Parameter>(), &Setter::typedSet};
        return &SET;
    }
    else
    {
        return nullptr;
    }
}
} // namespace internal

/// Reads a member object (as a reference into the object) or calls a member function of no arguments.
/// @tparam Class The class; the member may be of a base of it.
/// @tparam baked Whether the runtime reads the value once and then fixes it.
/// @tparam member Pointer to the data member or to the member function.
template <typename Class, bool baked, auto member>
class MemberPropertyGetter final : public IPropertyGetter
{
    using Traits = internal::GetterTraits<Class, decltype(member)>;

public:
    /**
     * @brief Makes the getter.
     * @param privilege What a runtime may let a script do.
     */
    explicit MemberPropertyGetter(Privilege privilege) : IPropertyGetter(privilege) {}

    entt::meta_any get(entt::meta_any instance) const override
    {
        entt::meta_any self = std::move(instance);
        if constexpr (Traits::IS_MEMBER_OBJECT)
        {
            using Value = typename Traits::Value;
            if (Class* object = self.template try_cast<Class>(); object != nullptr)
            {
                return entt::meta_any{context(), std::in_place_type<Value&>, object->*member};
            }
            if (const Class* object = self.template try_cast<const Class>(); object != nullptr)
            {
                return entt::meta_any{context(), std::in_place_type<const Value&>, object->*member};
            }
            return {};
        }
        else
        {
            auto* object = self.template try_cast<typename Traits::Object>();
            if (object == nullptr)
            {
                return {};
            }
            return internal::wrapResult<typename Traits::Return>(member, object);
        }
    }
    entt::meta_type getType() const override { return resolve<typename Traits::Value>(); }
    std::optional<entt::meta_type> getClassType() const override { return resolve<Class>(); }
    bool isBaked() const override { return baked; }
    ReturnPolicy getReturnPolicy() const override
    {
        return std::is_reference_v<typename Traits::Return> ? ReturnPolicy::ByReference : ReturnPolicy::ByValue;
    }
    const TypedPropertyGet* getTypedGet() const override
    {
        return internal::typedGetOf<MemberPropertyGetter, typename Traits::Value>();
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
};

/// Calls a lambda whose only parameter is the object.
/// A lambda taking a mutable reference gets a mutable object; others a const one.
/// @tparam Class The class.
/// @tparam baked Whether the runtime reads the value once and then fixes it.
/// @tparam Lambda Type of the callable.
template <typename Class, bool baked, typename Lambda>
class LambdaPropertyGetter final : public IPropertyGetter
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
    LambdaPropertyGetter(Privilege privilege, Lambda lambda) : IPropertyGetter(privilege), mLambda(std::move(lambda)) {}

    entt::meta_any get(entt::meta_any instance) const override
    {
        entt::meta_any self = std::move(instance);
        Object* object = self.template try_cast<Object>();
        if (object == nullptr)
        {
            return {};
        }
        return internal::wrapResult<Return>(mLambda, *object);
    }
    entt::meta_type getType() const override { return resolve<Return>(); }
    std::optional<entt::meta_type> getClassType() const override { return resolve<Class>(); }
    bool isBaked() const override { return baked; }
    ReturnPolicy getReturnPolicy() const override
    {
        return std::is_reference_v<Return> ? ReturnPolicy::ByReference : ReturnPolicy::ByValue;
    }
    const TypedPropertyGet* getTypedGet() const override
    {
        return internal::typedGetOf<LambdaPropertyGetter, Return>();
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
ResultAny assignChecked(entt::meta_any instance, entt::meta_any value, const Assign& assign)
{
    entt::meta_any newValue = std::move(value);
    entt::meta_any self = std::move(instance);
    Class* object = self.template try_cast<Class>();
    const bool valueFits = fits<Parameter>(newValue);
    if (object == nullptr || !valueFits)
    {
        return failedToSetMember();
    }
    std::invoke(assign, *object, argumentAs<Parameter>(newValue));
    return ResultAny();
}
} // namespace internal

/// Writes a member object, or calls a member function of one argument.
/// @tparam Class The class; the member may be of a base of it.
/// @tparam member Pointer to the data member or to the member function.
template <typename Class, auto member>
class MemberPropertySetter final : public IPropertySetter
{
    using Traits = internal::SetterTraits<Class, decltype(member)>;
    using Parameter = typename Traits::Parameter;

public:
    /**
     * @brief Makes the setter.
     * @param privilege What a runtime may let a script do.
     */
    explicit MemberPropertySetter(Privilege privilege) : IPropertySetter(privilege) {}

    ResultAny set(entt::meta_any instance, entt::meta_any value) const override
    {
        return internal::assignChecked<Class, Parameter>(
            std::move(instance), std::move(value),
            internal::AssignThroughMember<member, Traits::IS_METHOD, Parameter>{});
    }
    entt::meta_type getType() const override { return resolve<Parameter>(); }
    std::optional<entt::meta_type> getClassType() const override { return resolve<Class>(); }
    bool isMethod() const override { return Traits::IS_METHOD; }
    const TypedPropertySet* getTypedSet() const override
    {
        return internal::typedSetOf<MemberPropertySetter, Parameter>();
    }

    /**
     * @brief The write that getTypedSet() hands out.
     * @param object The instance, a `Class` the runtime checked.
     * @param value The new value, of the kind getTypedSet() names.
     */
    static void typedSet(const IPropertySetter&, void* object, const TypedValue& value)
    {
        internal::AssignThroughMember<member, Traits::IS_METHOD, Parameter>{}(
            *static_cast<Class*>(object), internal::typedArgument<Parameter>(value));
    }
};

/// Calls a lambda of the object and the value.
/// @tparam Class The class.
/// @tparam Lambda Type of the callable.
template <typename Class, typename Lambda>
class LambdaPropertySetter final : public IPropertySetter
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
    LambdaPropertySetter(Privilege privilege, Lambda lambda) : IPropertySetter(privilege), mLambda(std::move(lambda)) {}

    ResultAny set(entt::meta_any instance, entt::meta_any value) const override
    {
        return internal::assignChecked<Class, Parameter>(std::move(instance), std::move(value), mLambda);
    }
    entt::meta_type getType() const override { return resolve<Parameter>(); }
    std::optional<entt::meta_type> getClassType() const override { return resolve<Class>(); }
    bool isMethod() const override { return false; }
    const TypedPropertySet* getTypedSet() const override
    {
        return internal::typedSetOf<LambdaPropertySetter, Parameter>();
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
    Lambda mLambda;
};
} // namespace Scripting::Reflection
