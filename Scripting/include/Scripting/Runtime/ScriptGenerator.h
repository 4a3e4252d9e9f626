#pragma once

#include "Scripting/Runtime/ScriptValue.h"

#include <optional>

namespace Scripting
{
// A script generator. A step calls the object as a function, so the runtime runs it as it runs a closure;
// what comes back is the iterator result that a GeneratorIteratorAny wraps.
class GeneratorAny : public internal::ScriptObjectValue
{
public:
    static constexpr const char* INVALID_NEXT_MESSAGE = "Generator is not valid, failed to iterate.";

    GeneratorAny() = default;
    // Adds a reference of its own.
    GeneratorAny(IRuntime* runtime, ContextId contextId, WeakLifetimeScope scope, const StrongObjectHandle& handle)
        : ScriptObjectValue(runtime, contextId, std::move(scope), StrongObjectHandle(handle))
    {
    }

    bool valid() const { return _isUsable(); }
    std::optional<ObjectHandle> getHandle() const { return _getPlainHandle(); }

    // An empty `argument` is no argument at all.
    ResultAny next(const entt::meta_any& argument, const entt::meta_type& returnType);
};

// One step's result of a generator: whether it is done, and the value it yielded.
class GeneratorIteratorAny : public internal::InspectedScriptObjectValue
{
public:
    static constexpr const char* INVALID_VALUE_MESSAGE = "GeneratorIterator is not valid, failed to get value.";

    GeneratorIteratorAny() = default;
    // Adds a reference of its own.
    GeneratorIteratorAny(IRuntime* runtime, ContextId contextId, WeakLifetimeScope scope,
                         const StrongObjectHandle& handle, IObjectInspector* inspector)
        : InspectedScriptObjectValue(runtime, contextId, std::move(scope), StrongObjectHandle(handle), inspector)
    {
    }

    bool valid() const { return _isUsable(); }

    // These two ask only the inspector, so they need only an inspector and a live object; an iterator
    // without them counts as finished, so that a loop over it ends.
    bool done();
    ResultAny value(const entt::meta_type& type);
};
} // namespace Scripting
