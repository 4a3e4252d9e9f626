#pragma once

#include "Scripting/BindingType/TaggedBinding.h"
#include "Scripting/BindingType/internal/Bounds.h"
#include "Scripting/Reflection/Reflection.h"

#include <entt/meta/meta.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Scripting
{
namespace Reflection
{
class IPropertyGetter;
class IPropertySetter;
} // namespace Reflection

/** @brief A property of a class, interface or error: a getter, an optional setter, optional bounds. */
struct PropertyBinding : TaggedBinding
{
    /** @brief Script name. */
    std::string name;
    /// The declared value type: std::optional and std::vector stay, a Result_deprecated<X> getter gives X.
    entt::meta_type type;
    /// Empty for a read-only property.
    std::shared_ptr<Reflection::IPropertySetter> setter;
    /** @brief Reads the value; shared by every copy of the record. */
    std::shared_ptr<Reflection::IPropertyGetter> getter;
    /// Bounds test of a new value; empty without bounds.
    std::function<bool(const entt::meta_any&)> valueValidator;
    /** @brief Lower bound; empty without bounds. */
    entt::meta_any minValue;
    /** @brief Upper bound; empty without bounds. */
    entt::meta_any maxValue;
    /** @brief Free for a runtime; no builder sets it. */
    entt::meta_any extraValue;

    /// @brief Copied, moved and destroyed out of line: a function that describes many records calls these
    /// instead of expanding every member's.
    ///@{
    PropertyBinding();
    PropertyBinding(const PropertyBinding&);
    PropertyBinding(PropertyBinding&&) noexcept;
    PropertyBinding& operator=(const PropertyBinding&);
    PropertyBinding& operator=(PropertyBinding&&) noexcept;
    ~PropertyBinding();
    ///@}

    /// Inclusive bounds for a property of `U`, std::optional<U>, std::vector<U> or std::optional<std::vector<U>>,
    /// with `U` int or float. A read-only property or another type reports and keeps the property unbounded.
    /// @tparam U int or float.
    /// @param min Lower bound.
    /// @param max Upper bound.
    /// @return This record, for chaining.
    template <typename U>
    PropertyBinding& bounds(U min, U max);

    /// Which form of bounds fits `type`: none (reported), a number or a vector of numbers, optional or not.
    enum class BoundsForm : uint8_t
    {
        /** @brief No bounds fit. */
        None,
        /** @brief A number, optional or not. */
        Scalar,
        /** @brief A vector of numbers, optional or not. */
        Vector,
    };
    /**
     * @brief Which form of bounds fits the property; reports when none does.
     * @param boundsType Meta type of U.
     * @param optionalType Meta type of std::optional<U>.
     * @param vectorType Meta type of std::vector<U>.
     * @param optionalVectorType Meta type of std::optional<std::vector<U>>.
     * @return The form.
     */
    BoundsForm _boundsForm(const entt::meta_type& boundsType, const entt::meta_type& optionalType,
                           const entt::meta_type& vectorType, const entt::meta_type& optionalVectorType) const;
    /**
     * @brief Stores the bounds and their test, on the record and on its setter.
     * @param min Lower bound.
     * @param max Upper bound.
     * @param validator The test.
     */
    void _setBounds(entt::meta_any min, entt::meta_any max, std::function<bool(const entt::meta_any&)> validator);
};

namespace internal
{
// The bounds test of a property of `U` or std::optional<U> (`Value` = U), or of a vector of them.
template <typename Value, typename U>
struct PropertyBoundsTest
{
    U min;
    U max;

    bool operator()(const entt::meta_any& value) const
    {
        entt::meta_any converted;
        if (value.type() == Reflection::resolve<std::optional<Value>>())
        {
            const auto* held = value.try_cast<const std::optional<Value>>();
            return held != nullptr && NumericShape<std::optional<Value>>::within(*held, min, max);
        }
        const Value* held = valueAs<Value>(value, converted);
        return held != nullptr && NumericShape<Value>::within(*held, min, max);
    }
};
} // namespace internal

template <typename U>
PropertyBinding& PropertyBinding::bounds(U min, U max)
{
    static_assert(internal::BoundableNumber<U>, "Bounds are for properties of numbers");
    using Reflection::resolve;
    switch (_boundsForm(resolve<U>(), resolve<std::optional<U>>(), resolve<std::vector<U>>(),
                        resolve<std::optional<std::vector<U>>>()))
    {
    case BoundsForm::Scalar:
        _setBounds(entt::meta_any{Reflection::context(), min}, entt::meta_any{Reflection::context(), max},
                   internal::PropertyBoundsTest<U, U>{min, max});
        break;
    case BoundsForm::Vector:
        _setBounds(entt::meta_any{Reflection::context(), min}, entt::meta_any{Reflection::context(), max},
                   internal::PropertyBoundsTest<std::vector<U>, U>{min, max});
        break;
    case BoundsForm::None:
        break;
    }
    return *this;
}
} // namespace Scripting
