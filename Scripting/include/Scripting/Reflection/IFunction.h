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
// A native function, method or constructor behind one uniform call. Arguments and results are meta_any.
class IFunction
{
public:
    Privilege privilege;
    // Described arguments whose default value is valid.
    uint32_t defaultArgumentCount = 0;
    // Native arguments the runtime fills from the context.
    uint32_t injectedArgumentCount = 0;
    // The conditions a build found the runtime not to offer.
    std::vector<std::string> missingRuntimeConditions;

    virtual ~IFunction();

    // Calls with exactly getArgumentCount() arguments, defaults already expanded. Anything that does not fit
    // gives an invalid meta_any without running native code; a void function gives an any of void.
    // `args` may be converted in place.
    virtual entt::meta_any call(entt::meta_any instance, entt::meta_any* args, uint32_t count) const = 0;
    virtual entt::meta_type getReturnType() const = 0;
    // All native arguments, injected ones included, the object of an instanced function excluded.
    virtual uint32_t getArgumentCount() const = 0;
    virtual entt::meta_type getArgumentType(uint32_t index) const = 0;
    virtual const entt::meta_any& getDefaultArgument(uint32_t index) const = 0;
    virtual bool validateArgument(const entt::meta_any& value, uint32_t index) const = 0;
    // The owning class; empty for a free function.
    virtual std::optional<entt::meta_type> getClassType() const = 0;
    virtual const ArgumentDetails& getArgumentDetails(uint32_t index) const = 0;
    /// The road that skips meta_any, when every parameter and the result are of a kind a runtime converts
    /// directly; null otherwise. The runtime still owes every check that `call` would see the result of.
    virtual const TypedCall* getTypedCall() const { return nullptr; }

protected:
    explicit IFunction(Privilege privilege) : privilege(privilege) {}
    IFunction(const IFunction&) = default;
    IFunction& operator=(const IFunction&) = default;
};
} // namespace Scripting::Reflection
