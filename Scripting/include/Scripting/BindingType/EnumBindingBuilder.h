#pragma once

#include "Scripting/BindingType/EnumBinding.h"
#include "Scripting/BindingType/internal/BuilderSupport.h"
#include "Scripting/Reflection/Reflection.h"

#include <entt/meta/factory.hpp>

#include <string>
#include <type_traits>
#include <utility>

namespace Scripting
{
namespace internal
{
template <typename E>
E enumFromUnderlying(std::underlying_type_t<E> number)
{
    return static_cast<E>(number);
}
} // namespace internal

/// The fluent front of an EnumBinding of the native enum `E`. Scripts see its members as strings (`U` =
/// std::string) or as numbers (`U` = `E`).
/// A member whose name is taken asserts and is dropped.
/// @tparam U std::string or E: how scripts see the members.
/// @tparam E The native enum.
template <typename U, typename E>
class EnumBindingBuilder : public TaggedBinding
{
    static_assert(std::is_enum_v<E>, "EnumBindingBuilder binds an enum");
    static_assert(std::is_same_v<U, std::string> || std::is_same_v<U, E>,
                  "An enum is seen by scripts as strings or as its own numbers");
    static constexpr bool AS_STRING = std::is_same_v<U, std::string>;
    static constexpr const char* OWNER = "Enum";

public:
    /**
     * @brief Starts the enum; an empty name asserts.
     * @param name Script name.
     */
    explicit EnumBindingBuilder(const std::string& name)
    {
        internal::checkOwnerName(OWNER, name, Reflection::resolve<E>());
        mCurrentEnumBinding.name = name;
        mCurrentEnumBinding.type = Reflection::resolve<E>();
        if constexpr (!AS_STRING)
        {
            // Lets a runtime make the enum from the number a script passes.
            entt::meta<E>(Reflection::context()).template ctor<&internal::enumFromUnderlying<E>>();
        }
    }

    /// A member whose script value is its name (strings) or its number.
    /// @param name Member name.
    /// @param value The native value.
    /// @return The member's constant, for tags.
    ConstantFactory& value(const std::string& name, E value)
    {
        if constexpr (AS_STRING)
        {
            return _add(name, name, value);
        }
        else
        {
            return _add(name, std::to_string(+static_cast<std::underlying_type_t<E>>(value)), value);
        }
    }

    /// A member that scripts see as `scriptValue` rather than its name.
    /// @param name Member name.
    /// @param scriptValue What scripts see.
    /// @param value The native value.
    /// @return The member's constant, for tags.
    ConstantFactory& valueWithOverride(std::string name, std::string scriptValue, E value) requires AS_STRING
    {
        return _add(name, std::move(scriptValue), value);
    }

    /// The record, with the builder's tags. The builder is spent.
    /// @return The enum.
    EnumBinding finish()
    {
        mCurrentEnumBinding.releases = std::move(releases);
        return std::move(mCurrentEnumBinding);
    }

private:
    ConstantFactory& _add(const std::string& name, std::string scriptValue, E value)
    {
        if (!internal::checkMemberName(OWNER, mCurrentEnumBinding.name, name, "value"))
        {
            return internal::droppedConstant();
        }
        ConstantFactory constant;
        constant.name = name;
        constant.isConstant = true;
        if constexpr (AS_STRING)
        {
            constant.type = Reflection::resolve<std::string>();
            constant.factory = internal::ConstantValue<std::string>{scriptValue};
        }
        else
        {
            constant.type = Reflection::resolve<E>();
            constant.factory = internal::ConstantValue<E>{value};
        }
        mCurrentEnumBinding.values.push_back(
            EnumValueBinding{name, std::move(scriptValue), entt::meta_any{Reflection::context(), value}});
        return mCurrentEnumBinding.constants.emplace_back(std::move(constant));
    }

    EnumBinding mCurrentEnumBinding;
};
} // namespace Scripting
