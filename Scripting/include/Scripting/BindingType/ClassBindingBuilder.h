#pragma once

#include "Scripting/BindingType/ArgumentBindingBuilder.h"
#include "Scripting/BindingType/ClassBinding.h"
#include "Scripting/BindingType/internal/BuilderSupport.h"
#include "Scripting/BindingType/internal/FunctionAdders.h"
#include "Scripting/BindingType/internal/PropertyAdders.h"
#include "Scripting/LifetimeRegistry/LifetimeScopeImplementation.h"
#include "Scripting/Reflection/Function.h"
#include "Scripting/Reflection/Property.h"

#include "Diagnostics/Assert.h"

#include <entt/meta/factory.hpp>

#include <memory>
#include <string>
#include <type_traits>
#include <utility>

namespace Scripting
{
/// The fluent front of a ClassBinding for the native class `T`. Tags set on the builder tag the class; tags set
/// on a returned record tag that member. A returned reference stays good until the next addition of its kind.
/// A member whose name is taken, or a description that does not fit its callable, asserts and is dropped: the
/// call then answers a record that belongs to no binding.
///
/// Properties come from the shared property adders, each returning the added PropertyBinding:
/// - `property<&T::member>(name)`: a member object, read and written in place;
/// - `property<&T::getX, &T::setX>(name)`: a getter and a setter member function;
/// - `property<&T::member, Privilege::ReadOnly>(name)`: read-only, a member object or a getter;
/// - `property(name, getter, setter)` and `property<Privilege::ReadOnly>(name, getter)`: lambdas of the object
///   (and the value).
///
/// `.bounds(min, max)` on the returned record bounds a property of numbers.
/// @tparam T The native class.
template <typename T>
class ClassBindingBuilder : public TaggedBinding, public internal::PropertyAdders<T, ClassBindingBuilder<T>>
{
    friend class internal::PropertyAdders<T, ClassBindingBuilder<T>>;
    static constexpr const char* OWNER = "Class";

public:
    /**
     * @brief Starts the class; an empty name asserts.
     * @param name Script name.
     */
    explicit ClassBindingBuilder(const std::string& name)
    {
        internal::checkOwnerName(OWNER, name, Reflection::resolve<T>());
        mCurrentClassBinding.name = name;
    }

    /// A member function of `T` or of a base of it.
    /// @tparam nativeMethod Pointer to the member function.
    /// @tparam privilege Carried for the runtime.
    /// @tparam Args Types of the described arguments.
    /// @param name Script name.
    /// @param arguments Descriptions of the leading arguments; optional.
    /// @return The added record, for tags.
    template <auto nativeMethod, Privilege privilege = Privilege::None, typename... Args>
    requires std::is_member_function_pointer_v<decltype(nativeMethod)> FunctionBinding&
    method(const std::string& name, ArgumentBindingBuilder<Args>&&... arguments)
    {
        using Wrapper = Reflection::MemberFunction<nativeMethod>;
        return _addMember<Wrapper>(name, "method", internal::MakeWrapper<Wrapper>{privilege}, std::move(arguments)...);
    }

    /// A lambda whose first parameter is the object.
    /// @tparam privilege Carried for the runtime.
    /// @tparam Lambda Type of the callable.
    /// @tparam Args Types of the described arguments.
    /// @param name Script name.
    /// @param lambda The callable, copied into the record.
    /// @param arguments Descriptions of the arguments after the object; optional.
    /// @return The added record, for tags.
    template <Privilege privilege = Privilege::None, typename Lambda, typename... Args>
    FunctionBinding& method(const std::string& name, Lambda lambda, ArgumentBindingBuilder<Args>&&... arguments)
    {
        using Wrapper = Reflection::LambdaFunction<Lambda, true>;
        return _addMember<Wrapper>(name, "method", internal::MakeLambdaWrapper<Wrapper, Lambda>{privilege, lambda},
                                   std::move(arguments)...);
    }

    /// A free or static function.
    /// @tparam nativeFunction Pointer to the function.
    /// @tparam privilege Carried for the runtime.
    /// @tparam Args Types of the described arguments.
    /// @param name Script name.
    /// @param arguments Descriptions of the leading arguments; optional.
    /// @return The added record, for tags.
    template <auto nativeFunction, Privilege privilege = Privilege::None, typename... Args>
    requires internal::FunctionPointer<nativeFunction> FunctionBinding&
    function(const std::string& name, ArgumentBindingBuilder<Args>&&... arguments)
    {
        using Wrapper = Reflection::StaticFunction<nativeFunction, false>;
        return _addMember<Wrapper>(name, "function", internal::MakeWrapper<Wrapper>{privilege},
                                   std::move(arguments)...);
    }

    /// A lambda that takes no object.
    /// @tparam privilege Carried for the runtime.
    /// @tparam Lambda Type of the callable.
    /// @tparam Args Types of the described arguments.
    /// @param name Script name.
    /// @param lambda The callable, copied into the record.
    /// @param arguments Descriptions of the leading arguments; optional.
    /// @return The added record, for tags.
    template <Privilege privilege = Privilege::None, typename Lambda, typename... Args>
    FunctionBinding& function(const std::string& name, Lambda lambda, ArgumentBindingBuilder<Args>&&... arguments)
    {
        using Wrapper = Reflection::LambdaFunction<Lambda, false>;
        return _addMember<Wrapper>(name, "function", internal::MakeLambdaWrapper<Wrapper, Lambda>{privilege, lambda},
                                   std::move(arguments)...);
    }

    /// A function that makes the object and returns a handle to it (or a Result of one), optionally through
    /// an injected WeakLifetimeScope&.
    /// A build keeps at most one constructor.
    /// @tparam nativeFunction Pointer to the function.
    /// @tparam privilege Carried for the runtime.
    /// @tparam Args Types of the described arguments.
    /// @param arguments Descriptions of the leading arguments; optional.
    /// @return The added record, for tags.
    template <auto nativeFunction, Privilege privilege = Privilege::ReadOnly, typename... Args>
    requires internal::FunctionPointer<nativeFunction> FunctionBinding&
    constructor(ArgumentBindingBuilder<Args>&&... arguments)
    {
        using Wrapper = Reflection::StaticFunction<nativeFunction, false>;
        return internal::addFunction<Wrapper>(mCurrentClassBinding.constructors, CONSTRUCTOR_NAME,
                                              internal::FunctionKind::Constructor,
                                              internal::MakeWrapper<Wrapper>{privilege}, std::move(arguments)...);
    }

    /**
     * @brief A lambda that makes the object, as the function form does.
     * @tparam privilege Carried for the runtime.
     * @tparam Lambda Type of the callable.
     * @tparam Args Types of the described arguments.
     * @param lambda The callable, copied into the record.
     * @param arguments Descriptions of the leading arguments; optional.
     * @return The added record, for tags.
     */
    template <Privilege privilege = Privilege::ReadOnly, typename Lambda, typename... Args>
    FunctionBinding& constructor(Lambda lambda, ArgumentBindingBuilder<Args>&&... arguments)
    {
        using Wrapper = Reflection::LambdaFunction<Lambda, false>;
        return internal::addFunction<Wrapper>(
            mCurrentClassBinding.constructors, CONSTRUCTOR_NAME, internal::FunctionKind::Constructor,
            internal::MakeLambdaWrapper<Wrapper, Lambda>{privilege, lambda}, std::move(arguments)...);
    }

    /// @brief A constructor that makes `T` from `Params...` in the context's registry, as
    /// `scope.makeObject<T>(params...)` would: `constructor<int, const std::string&>()`.
    /// @tparam Params The parameters of a constructor of `T`, in order.
    /// @tparam Args The described parameters' types, as in `Params`.
    /// @param arguments Descriptions of the parameters (names, defaults, bounds); optional.
    /// @return The constructor's record, for tagging.
    template <typename... Params, typename... Args>
    requires std::is_constructible_v<T, Params...> FunctionBinding&
    constructor(ArgumentBindingBuilder<Args>&&... arguments)
    {
        auto make = [](WeakLifetimeScope& scope, Params... params)
        { return scope.makeObject<T>(std::forward<Params>(params)...); };
        return constructor(std::move(make), std::move(arguments)...);
    }

    using internal::PropertyAdders<T, ClassBindingBuilder<T>>::property;

    /// A member object that the runtime reads once and then holds fixed.
    /// @tparam member Pointer to the data member.
    /// @param name Script name.
    /// @return The added record, for tags.
    template <auto member>
    requires std::is_member_object_pointer_v<decltype(member)> PropertyBinding& bakedProperty(const std::string& name)
    {
        return this->template _add<typename internal::MemberAccess<T, member>::Return>(
            name, internal::makeGetter(Privilege::ReadOnly, Reflection::MemberPropertyGetter<T, true, member>::table()),
            nullptr);
    }

    /// A value made anew, by copy, whenever a context asks for it.
    /// @tparam V Type of the value.
    /// @param name Script name.
    /// @param value The value.
    /// @return The added record, for tags; a dropped one when the name is taken.
    template <typename V>
    ConstantFactory& constant(const std::string& name, V value)
    {
        if (!internal::checkMemberName(OWNER, mCurrentClassBinding.name, name, "constant"))
        {
            return internal::droppedConstant();
        }
        ConstantFactory& added = mCurrentClassBinding.constants.emplace_back();
        added.name = name;
        added.type = Reflection::resolve<V>();
        added.isConstant = true;
        added.factory = internal::ConstantValue<V>{std::move(value)};
        return added;
    }

    /// Makes `U` the base of `T` for the meta system, with the conversions of the typed handles, and for the
    /// record. The meta entries stand even if the binding is never finished.
    /// A second base asserts.
    /// @tparam U A base class of T.
    template <typename U>
    void base()
    {
        static_assert(std::is_base_of_v<U, T> && !std::is_same_v<U, T>, "base<U>() needs U to be a base of T");
        entt::meta_ctx& context = Reflection::context();
        entt::meta<T>(context).template base<U>();
        entt::meta<StrongTypedObjectHandle<T>>(context).template conv<StrongTypedObjectHandle<U>>();
        entt::meta<WeakTypedObjectHandle<T>>(context).template conv<WeakTypedObjectHandle<U>>();
        entt::meta<TypedObjectHandle<T>>(context).template conv<TypedObjectHandle<U>>();
        OV_ASSERT(!mCurrentClassBinding.baseType, "This Class Binding already has a base!");
        mCurrentClassBinding.baseType = Reflection::resolve<U>();
    }

    /// The record, with the builder's tags. The builder is spent.
    /// @return The class.
    ClassBinding finish()
    {
        mCurrentClassBinding.type = Reflection::resolve<T>();
        mCurrentClassBinding.releases = std::move(releases);
        return std::move(mCurrentClassBinding);
    }

private:
    static constexpr const char* CONSTRUCTOR_NAME = "constructor";

    // Methods and functions of the class share one list and one mismatch report.
    template <typename Wrapper, typename Make, typename... Args>
    FunctionBinding& _addMember(const std::string& name, const char* memberKind, const Make& makeWrapper,
                                ArgumentBindingBuilder<Args>&&... arguments)
    {
        if (!internal::checkMemberName(OWNER, mCurrentClassBinding.name, name, memberKind))
        {
            return internal::droppedFunctionBinding();
        }
        return internal::addFunction<Wrapper>(mCurrentClassBinding.functions, name, internal::FunctionKind::Method,
                                              makeWrapper, std::move(arguments)...);
    }

    PropertyBinding& _appendProperty(PropertyBinding&& binding)
    {
        if (!internal::checkMemberName(OWNER, mCurrentClassBinding.name, binding.name, "property"))
        {
            return internal::droppedPropertyBinding();
        }
        return mCurrentClassBinding.properties.emplace_back(std::move(binding));
    }

    ClassBinding mCurrentClassBinding;
};
} // namespace Scripting
