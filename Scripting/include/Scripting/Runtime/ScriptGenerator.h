#pragma once

#include "Scripting/Runtime/ScriptValue.h"

#include <optional>

namespace Scripting
{
/// A script generator. A step calls the object as a function, so the runtime runs it as it runs a closure;
/// what comes back is the iterator result that a GeneratorIteratorAny wraps.
/// Once the context, its runtime or the generator is gone, next() answers an Error and runs nothing.
class GeneratorAny : public internal::ScriptObjectValue
{
public:
    /** @brief Message of the Error that next() of an invalid generator answers. */
    static constexpr const char* INVALID_NEXT_MESSAGE = "Generator is not valid, failed to iterate.";

    /** @brief An invalid generator. */
    GeneratorAny() = default;
    /// Adds a reference of its own.
    /// @param runtime The context's runtime, not owned.
    /// @param contextId The context.
    /// @param scope Scope of the context's registry.
    /// @param handle The runtime's object of the generator.
    GeneratorAny(IRuntime* runtime, ContextId contextId, WeakLifetimeScope scope, const StrongObjectHandle& handle)
        : ScriptObjectValue(runtime, contextId, std::move(scope), StrongObjectHandle(handle))
    {
    }

    /**
     * @brief Whether a step can reach the generator.
     * @return False once the context, the runtime or the generator is gone.
     */
    bool valid() const { return _isUsable(); }
    /**
     * @brief Handle of the runtime's object.
     * @return The handle, or empty for a default or moved-from generator.
     */
    std::optional<ObjectHandle> getHandle() const { return _getPlainHandle(); }

    /// An empty `argument` is no argument at all.
    /// @brief Runs one step.
    /// @param argument Value passed into the step.
    /// @param returnType Native type of the step's result, usually GeneratorIteratorAny.
    /// @return The step's result, or an Error.
    ResultAny next(const entt::meta_any& argument, const entt::meta_type& returnType);
};

/// One step's result of a generator: whether it is done, and the value it yielded.
class GeneratorIteratorAny : public internal::InspectedScriptObjectValue
{
public:
    /** @brief Message of the Error that value() of an invalid iterator answers. */
    static constexpr const char* INVALID_VALUE_MESSAGE = "GeneratorIterator is not valid, failed to get value.";

    /** @brief An invalid iterator, which counts as done. */
    GeneratorIteratorAny() = default;
    /// Adds a reference of its own.
    /// @param runtime The context's runtime, not owned.
    /// @param contextId The context.
    /// @param scope Scope of the context's registry.
    /// @param handle The runtime's object of the step result.
    /// @param inspector The runtime's inspector, not owned; may be null.
    GeneratorIteratorAny(IRuntime* runtime, ContextId contextId, WeakLifetimeScope scope,
                         const StrongObjectHandle& handle, IObjectInspector* inspector)
        : InspectedScriptObjectValue(runtime, contextId, std::move(scope), StrongObjectHandle(handle), inspector)
    {
    }

    /**
     * @brief Whether the step result can still be read.
     * @return False once the context, the runtime or the object is gone.
     */
    bool valid() const { return _isUsable(); }

    /// These two ask only the inspector, so they need only an inspector and a live object; an iterator
    /// without them counts as finished, so that a loop over it ends.
    /// @return The step result's `done` field; true when it is missing or cannot be read.
    bool done();
    /**
     * @brief The value the step yielded.
     * @param type Native type to convert it to.
     * @return The value, or an Error.
     */
    ResultAny value(const entt::meta_type& type);
};
} // namespace Scripting
