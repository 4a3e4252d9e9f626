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
/// Reads one property of an object.
/// Made by the class builder (Reflection::Property and its kin); a runtime calls it for a script's read.
class IPropertyGetter
{
public:
    /** @brief Carried for the runtime; the getter does not enforce it. */
    Privilege privilege;

    /** @brief Virtual, as getters are owned through this interface. */
    virtual ~IPropertyGetter();

    /// An invalid meta_any when `instance` is not of the class.
    /// @param instance The object, usually a reference any.
    /// @return The value, by value or as a reference per getReturnPolicy().
    virtual entt::meta_any get(entt::meta_any instance) const = 0;
    /** @return Meta type of the property's value. */
    virtual entt::meta_type getType() const = 0;
    /** @return Meta type of the class; empty for a getter that needs no object. */
    virtual std::optional<entt::meta_type> getClassType() const = 0;
    /// A baked property is read once by the runtime and then fixed.
    /// @return Whether the value is baked.
    virtual bool isBaked() const = 0;
    /** @return Whether get() hands out a copy or a reference into the object. */
    virtual ReturnPolicy getReturnPolicy() const = 0;
    /// The read that skips meta_any, for a number or a string; null otherwise.
    virtual const TypedPropertyGet* getTypedGet() const { return nullptr; }

protected:
    /**
     * @brief For derived getters.
     * @param privilege What a runtime may let a script do.
     */
    explicit IPropertyGetter(Privilege privilege) : privilege(privilege) {}
    /** @brief Copyable by derived getters only. */
    IPropertyGetter(const IPropertyGetter&) = default;
    /**
     * @brief Copyable by derived getters only.
     * @return This getter.
     */
    IPropertyGetter& operator=(const IPropertyGetter&) = default;
};

/// Writes one property of an object.
/// Made by the class builder; a runtime calls it for a script's write.
class IPropertySetter
{
public:
    /// The bounds of the property; the runtime asks it before `set`, which does not.
    std::function<bool(const entt::meta_any&)> valueValidator;
    /** @brief Carried for the runtime; the setter does not enforce it. */
    Privilege privilege;

    /** @brief Virtual, as setters are owned through this interface. */
    virtual ~IPropertySetter();

    /// An error "Failed to set member" when the object or the value does not fit; nothing is written then.
    /// @param instance The object, as a reference any.
    /// @param value The new value, converted to getType() if it can be.
    /// @return Empty on success, or an Error.
    virtual ResultAny set(entt::meta_any instance, entt::meta_any value) const = 0;
    /** @return Meta type the setter takes. */
    virtual entt::meta_type getType() const = 0;
    /** @return Meta type of the class; empty for a setter that needs no object. */
    virtual std::optional<entt::meta_type> getClassType() const = 0;
    /// Whether the value goes through a member function.
    /// @return True for a setter function, false for a data member.
    virtual bool isMethod() const = 0;
    /// The write that skips meta_any, for a number or a string; null otherwise. Like `set` it does not
    /// check bounds: `valueValidator` stays the runtime's to ask.
    virtual const TypedPropertySet* getTypedSet() const { return nullptr; }

protected:
    /**
     * @brief For derived setters.
     * @param privilege What a runtime may let a script do.
     */
    explicit IPropertySetter(Privilege privilege) : privilege(privilege) {}
    /** @brief Copyable by derived setters only. */
    IPropertySetter(const IPropertySetter&) = default;
    /**
     * @brief Copyable by derived setters only.
     * @return This setter.
     */
    IPropertySetter& operator=(const IPropertySetter&) = default;
};
} // namespace Scripting::Reflection
