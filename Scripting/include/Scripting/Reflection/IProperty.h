#pragma once

#include "Scripting/BindingType/Privilege.h"
#include "Scripting/Reflection/Reflection.h"
#include "Scripting/Reflection/TypedCall.h"

#include <functional>
#include <optional>

namespace Scripting
{
class ResultAny;
}

namespace Scripting::Reflection
{
// Reads one property of an object.
class IPropertyGetter
{
public:
    Privilege privilege;

    virtual ~IPropertyGetter();

    // An invalid meta_any when `instance` is not of the class.
    virtual entt::meta_any get(entt::meta_any instance) const = 0;
    virtual entt::meta_type getType() const = 0;
    virtual std::optional<entt::meta_type> getClassType() const = 0;
    // A baked property is read once by the runtime and then fixed.
    virtual bool isBaked() const = 0;
    virtual ReturnPolicy getReturnPolicy() const = 0;
    /// The read that skips meta_any, for a number or a string; null otherwise.
    virtual const TypedPropertyGet* getTypedGet() const { return nullptr; }

protected:
    explicit IPropertyGetter(Privilege privilege) : privilege(privilege) {}
    IPropertyGetter(const IPropertyGetter&) = default;
    IPropertyGetter& operator=(const IPropertyGetter&) = default;
};

// Writes one property of an object.
class IPropertySetter
{
public:
    // The bounds of the property; the runtime asks it before `set`, which does not.
    std::function<bool(const entt::meta_any&)> valueValidator;
    Privilege privilege;

    virtual ~IPropertySetter();

    // An error "Failed to set member" when the object or the value does not fit; nothing is written then.
    virtual ResultAny set(entt::meta_any instance, entt::meta_any value) const = 0;
    virtual entt::meta_type getType() const = 0;
    virtual std::optional<entt::meta_type> getClassType() const = 0;
    // Whether the value goes through a member function.
    virtual bool isMethod() const = 0;
    /// The write that skips meta_any, for a number or a string; null otherwise. Like `set` it does not
    /// check bounds: `valueValidator` stays the runtime's to ask.
    virtual const TypedPropertySet* getTypedSet() const { return nullptr; }

protected:
    explicit IPropertySetter(Privilege privilege) : privilege(privilege) {}
    IPropertySetter(const IPropertySetter&) = default;
    IPropertySetter& operator=(const IPropertySetter&) = default;
};
} // namespace Scripting::Reflection
