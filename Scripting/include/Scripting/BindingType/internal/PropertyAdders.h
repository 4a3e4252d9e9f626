#pragma once

#include "Scripting/BindingType/PropertyBinding.h"
#include "Scripting/Reflection/Property.h"

#include <memory>
#include <string>
#include <type_traits>
#include <utility>

namespace Scripting
{
template <typename T>
class Result_deprecated;

namespace internal
{
// The declared type of a property read as `R`: a Result_deprecated<X> getter declares X.
template <typename R>
struct DeclaredPropertyType
{
    using Type = std::remove_cvref_t<R>;
};
template <typename X>
struct DeclaredPropertyType<Result_deprecated<X>>
{
    using Type = X;
};

// The one getter and setter class of members, read through the member's table.
std::shared_ptr<Reflection::IPropertyGetter> makeGetter(Privilege privilege,
                                                        const Reflection::internal::GetterTable& table);
std::shared_ptr<Reflection::IPropertySetter> makeSetter(Privilege privilege,
                                                        const Reflection::internal::SetterTable& table);

// A lambda's getter or setter holds the lambda; its owner is the same for all of them.
template <typename Wrapper, typename Interface, typename Lambda>
std::shared_ptr<Interface> makeLambdaAccessor(Privilege privilege, Lambda&& lambda)
{
    return std::shared_ptr<Interface>(std::unique_ptr<Interface>(new Wrapper(privilege, std::forward<Lambda>(lambda))));
}

// The record of a property, named and typed.
PropertyBinding makePropertyBinding(const std::string& name, const entt::meta_type& type,
                                    std::shared_ptr<Reflection::IPropertyGetter>&& getter,
                                    std::shared_ptr<Reflection::IPropertySetter>&& setter);

template <typename Class, auto member>
struct MemberAccess
{
    using Return = typename Reflection::internal::GetterTraits<Class, decltype(member)>::Return;
};

// The property forms that class and interface builders share. `Builder` stores what these make through its
// `_appendProperty`.
template <typename T, typename Builder>
class PropertyAdders
{
public:
    // A member object, read and written in place.
    template <auto member>
    requires std::is_member_object_pointer_v<decltype(member)> PropertyBinding& property(const std::string& name)
    {
        return _add<typename MemberAccess<T, member>::Return>(
            name, makeGetter(Privilege::ReadOnly, Reflection::MemberPropertyGetter<T, false, member>::table()),
            makeSetter(Privilege::None, Reflection::MemberPropertySetter<T, member>::table()));
    }

    // A getter and a setter member function.
    template <auto getter, auto setter>
    requires(std::is_member_function_pointer_v<decltype(getter)>&& std::is_member_function_pointer_v<decltype(setter)>)
        PropertyBinding& property(const std::string& name)
    {
        return _add<typename MemberAccess<T, getter>::Return>(
            name, makeGetter(Privilege::ReadOnly, Reflection::MemberPropertyGetter<T, false, getter>::table()),
            makeSetter(Privilege::None, Reflection::MemberPropertySetter<T, setter>::table()));
    }

    // Read-only: a member object or a getter member function.
    template <auto getter, Privilege privilege>
    requires std::is_member_pointer_v<decltype(getter)> PropertyBinding& property(const std::string& name)
    {
        return _add<typename MemberAccess<T, getter>::Return>(
            name, makeGetter(Privilege::ReadOnly, Reflection::MemberPropertyGetter<T, false, getter>::table()),
            nullptr);
    }

    // A getter lambda of the object and a setter lambda of the object and the value.
    template <typename Getter, typename Setter>
    PropertyBinding& property(const std::string& name, Getter getter, Setter setter)
    {
        return _add<typename Reflection::internal::CallableTraits<Getter>::Return>(
            name,
            makeLambdaAccessor<Reflection::LambdaPropertyGetter<T, false, Getter>, Reflection::IPropertyGetter>(
                Privilege::ReadOnly, std::move(getter)),
            makeLambdaAccessor<Reflection::LambdaPropertySetter<T, Setter>, Reflection::IPropertySetter>(
                Privilege::None, std::move(setter)));
    }

    // Read-only: a getter lambda.
    template <Privilege privilege, typename Getter>
    PropertyBinding& property(const std::string& name, Getter getter)
    {
        return _add<typename Reflection::internal::CallableTraits<Getter>::Return>(
            name,
            makeLambdaAccessor<Reflection::LambdaPropertyGetter<T, false, Getter>, Reflection::IPropertyGetter>(
                Privilege::ReadOnly, std::move(getter)),
            nullptr);
    }

protected:
    template <typename Read>
    PropertyBinding& _add(const std::string& name, std::shared_ptr<Reflection::IPropertyGetter> getter,
                          std::shared_ptr<Reflection::IPropertySetter> setter)
    {
        return static_cast<Builder&>(*this)._appendProperty(makePropertyBinding(
            name, Reflection::resolve<typename DeclaredPropertyType<std::remove_cvref_t<Read>>::Type>(),
            std::move(getter), std::move(setter)));
    }
};
} // namespace internal
} // namespace Scripting
