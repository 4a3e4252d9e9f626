#pragma once

#include "Scripting/BindingType/Privilege.h"
#include "Scripting/Reflection/TypedCall.h"

#include <entt/meta/fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Scripting
{
struct ArgumentDetails;
}

namespace Scripting::Reflection
{
/// A native function, method or constructor behind one uniform call. Arguments and results are meta_any.
/// Owned by the binding records (through `std::shared_ptr`); a runtime checks and converts the arguments, then calls.
class IFunction
{
public:
    /** @brief Carried for the runtime; the function does not enforce it. */
    Privilege privilege;
    /// Described arguments whose default value is valid.
    uint32_t defaultArgumentCount = 0;
    /// Native arguments the runtime fills from the context.
    uint32_t injectedArgumentCount = 0;
    /// The conditions a build found the runtime not to offer.
    std::vector<std::string> missingRuntimeConditions;

    /** @brief Virtual, as functions are owned through this interface. */
    virtual ~IFunction();

    /// Calls with exactly getArgumentCount() arguments, defaults already expanded. Anything that does not fit
    /// gives an invalid meta_any without running native code; a void function gives an any of void.
    /// `args` may be converted in place.
    /// @param instance The object for a method; ignored (and destroyed) by a free function.
    /// @param args Array of count arguments.
    /// @param count Number of arguments.
    /// @return The result, an any of void, or an invalid any on a mismatch.
    virtual entt::meta_any call(entt::meta_any instance, entt::meta_any* args, uint32_t count) const = 0;
    /** @return Meta type of the native result. */
    virtual entt::meta_type getReturnType() const = 0;
    /// All native arguments, injected ones included, the object of an instanced function excluded.
    /// @return The count.
    virtual uint32_t getArgumentCount() const = 0;
    /**
     * @brief Meta type of one native argument.
     * @param index Position, from 0, below getArgumentCount().
     * @return The type.
     */
    virtual entt::meta_type getArgumentType(uint32_t index) const = 0;
    /**
     * @brief Default value of a described argument.
     * @param index Position, from 0.
     * @return The default; an invalid any when the argument has none.
     */
    virtual const entt::meta_any& getDefaultArgument(uint32_t index) const = 0;
    /**
     * @brief Runs the argument's validator (its bounds), if it has one.
     * @param value Converted argument.
     * @param index Position, from 0.
     * @return False when the value is refused; true without a validator.
     */
    virtual bool validateArgument(const entt::meta_any& value, uint32_t index) const = 0;
    /// The owning class; empty for a free function.
    /// @return The class's meta type, or empty.
    virtual std::optional<entt::meta_type> getClassType() const = 0;
    /**
     * @brief Description of an argument (name, default, bounds).
     * @param index Position, from 0; an undescribed argument answers an empty description.
     * @return The description, owned by the function.
     */
    virtual const ArgumentDetails& getArgumentDetails(uint32_t index) const = 0;
    /// The road that skips meta_any, when every parameter and the result are of a kind a runtime converts
    /// directly; null otherwise. The runtime still owes every check that `call` would see the result of.
    virtual const TypedCall* getTypedCall() const { return nullptr; }

protected:
    /**
     * @brief For derived functions.
     * @param privilege What a runtime may let a script do.
     */
    explicit IFunction(Privilege privilege) : privilege(privilege) {}
    /** @brief Copyable by derived functions only. */
    IFunction(const IFunction&) = default;
    /**
     * @brief Copyable by derived functions only.
     * @return This function.
     */
    IFunction& operator=(const IFunction&) = default;
};
} // namespace Scripting::Reflection
