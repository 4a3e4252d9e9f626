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
            name, std::make_shared<Reflection::MemberPropertyGetter<T, false, member>>(Privilege::ReadOnly),
            std::make_shared<Reflection::MemberPropertySetter<T, member>>(Privilege::None));
    }

    // A getter and a setter member function.
    template <auto getter, auto setter>
    requires(std::is_member_function_pointer_v<decltype(getter)>&& std::is_member_function_pointer_v<decltype(setter)>)
        PropertyBinding& property(const std::string& name)
    {
        return _add<typename MemberAccess<T, getter>::Return>(
            name, std::make_shared<Reflection::MemberPropertyGetter<T, false, getter>>(Privilege::ReadOnly),
            std::make_shared<Reflection::MemberPropertySetter<T, setter>>(Privilege::None));
    }

    // Read-only: a member object or a getter member function.
    template <auto getter, Privilege privilege>
    requires std::is_member_pointer_v<decltype(getter)> PropertyBinding& property(const std::string& name)
    {
        return _add<typename MemberAccess<T, getter>::Return>(
            name, std::make_shared<Reflection::MemberPropertyGetter<T, false, getter>>(Privilege::ReadOnly), nullptr);
    }

    // A getter lambda of the object and a setter lambda of the object and the value.
    template <typename Getter, typename Setter>
    PropertyBinding& property(const std::string& name, Getter getter, Setter setter)
    {
        return _add<typename Reflection::internal::CallableTraits<Getter>::Return>(
            name,
            std::make_shared<Reflection::LambdaPropertyGetter<T, false, Getter>>(Privilege::ReadOnly,
                                                                                 std::move(getter)),
            std::make_shared<Reflection::LambdaPropertySetter<T, Setter>>(Privilege::None, std::move(setter)));
    }

    // Read-only: a getter lambda.
    template <Privilege privilege, typename Getter>
    PropertyBinding& property(const std::string& name, Getter getter)
    {
        return _add<typename Reflection::internal::CallableTraits<Getter>::Return>(
            name,
            std::make_shared<Reflection::LambdaPropertyGetter<T, false, Getter>>(Privilege::ReadOnly,
                                                                                 std::move(getter)),
            nullptr);
    }

protected:
    template <typename Read>
    PropertyBinding& _add(const std::string& name, std::shared_ptr<Reflection::IPropertyGetter> getter,
                          std::shared_ptr<Reflection::IPropertySetter> setter)
    {
        PropertyBinding binding;
        binding.name = name;
        binding.type = Reflection::resolve<typename DeclaredPropertyType<std::remove_cvref_t<Read>>::Type>();
        binding.setter = std::move(setter);
        binding.getter = std::move(getter);
        return static_cast<Builder&>(*this)._appendProperty(std::move(binding));
    }
};
} // namespace internal
} // namespace Scripting
