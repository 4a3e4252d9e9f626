#pragma once

#include "Scripting/BindingType/InterfaceBinding.h"
#include "Scripting/BindingType/internal/BuilderSupport.h"
#include "Scripting/BindingType/internal/PropertyAdders.h"

#include <string>
#include <utility>

namespace Scripting
{
/// The fluent front of an InterfaceBinding: a data shape of `T` described by its properties only.
/// Properties are added with the `property` overloads the class builder has.
/// @tparam T The native struct.
template <typename T>
class InterfaceBindingBuilder : public TaggedBinding, public internal::PropertyAdders<T, InterfaceBindingBuilder<T>>
{
    friend class internal::PropertyAdders<T, InterfaceBindingBuilder<T>>;
    static constexpr const char* OWNER = "Interface";

public:
    /**
     * @brief Starts the interface; an empty name asserts.
     * @param name Script name.
     */
    explicit InterfaceBindingBuilder(const std::string& name)
    {
        internal::checkOwnerName(OWNER, name, Reflection::resolve<T>());
        mCurrentInterfaceBinding.name = name;
        mCurrentInterfaceBinding.type = Reflection::resolve<T>();
    }

    using internal::PropertyAdders<T, InterfaceBindingBuilder<T>>::property;

    /// The record, with the builder's tags. The builder is spent.
    /// @return The interface.
    InterfaceBinding finish()
    {
        mCurrentInterfaceBinding.releases = std::move(releases);
        return std::move(mCurrentInterfaceBinding);
    }

private:
    PropertyBinding& _appendProperty(PropertyBinding&& binding)
    {
        if (!internal::checkMemberName(OWNER, mCurrentInterfaceBinding.name, binding.name, "property"))
        {
            return internal::droppedPropertyBinding();
        }
        return mCurrentInterfaceBinding.properties.emplace_back(std::move(binding));
    }

    InterfaceBinding mCurrentInterfaceBinding;
};
} // namespace Scripting
