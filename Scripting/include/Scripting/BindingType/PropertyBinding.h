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

struct PropertyBinding : TaggedBinding
{
    std::string name;
    // The declared value type: std::optional and std::vector stay, a Result_deprecated<X> getter gives X.
    entt::meta_type type;
    // Empty for a read-only property.
    std::shared_ptr<Reflection::IPropertySetter> setter;
    std::shared_ptr<Reflection::IPropertyGetter> getter;
    // Bounds test of a new value; empty without bounds.
    std::function<bool(const entt::meta_any&)> valueValidator;
    entt::meta_any minValue;
    entt::meta_any maxValue;
    entt::meta_any extraValue;

    // Inclusive bounds for a property of `U`, std::optional<U>, std::vector<U> or std::optional<std::vector<U>>,
    // with `U` int or float. A read-only property or another type reports and keeps the property unbounded.
    template <typename U>
    PropertyBinding& bounds(U min, U max);

    // Which form of bounds fits `type`: none (reported), a number or a vector of numbers, optional or not.
    enum class BoundsForm : uint8_t
    {
        None,
        Scalar,
        Vector,
    };
    BoundsForm _boundsForm(const entt::meta_type& boundsType, const entt::meta_type& optionalType,
                           const entt::meta_type& vectorType, const entt::meta_type& optionalVectorType) const;
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
