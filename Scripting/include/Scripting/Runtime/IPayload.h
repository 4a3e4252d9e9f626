#pragma once

#include "Scripting/LifetimeRegistry/LifetimeScopeImplementation.h"
#include "Scripting/Runtime/ModuleBindingBundle.h"
#include "Scripting/Runtime/ResultAny.h"
#include "Scripting/Runtime/RuntimeTypes.h"

#include <functional>
#include <string>

namespace Scripting
{
class StringBasedRuntime;
class NativeRuntime;

/// What is run in a context. Each payload type decides which kinds of runtime it can run on by overriding
/// the matching operation; the others report that it cannot.
class IPayload
{
public:
    virtual ~IPayload() = default;

    /**
     * @brief Runs on a runtime that takes source text.
     * @param contextId The context.
     * @param runtime The runtime.
     * @param option Passed through unchanged.
     * @return The result; by default an Error saying the payload cannot run there.
     */
    virtual ResultAny runOnStringBasedRuntime(ContextId contextId, StringBasedRuntime& runtime, RunOption option);
    /**
     * @brief Runs on a NativeRuntime.
     * @param contextId The context.
     * @param runtime The runtime.
     * @param option Passed through unchanged.
     * @return The result; by default an Error saying the payload cannot run there.
     */
    virtual ResultAny runOnNativeRuntime(ContextId contextId, NativeRuntime& runtime, RunOption option);
};

/// Source text for a runtime of a language.
/// On a NativeRuntime it is an Error value.
class StringPayload : public IPayload
{
public:
    /**
     * @brief Takes the text and its name.
     * @param source Script text.
     * @param sourceName Name the text runs under, in error messages and stacks (a file name, typically).
     */
    StringPayload(std::string source, std::string sourceName);

    /**
     * @brief Hands the text to StringBasedRuntime::runScript.
     * @param contextId The context.
     * @param runtime The runtime.
     * @param option Passed through unchanged.
     * @return What the script returned, or an Error.
     */
    ResultAny runOnStringBasedRuntime(ContextId contextId, StringBasedRuntime& runtime, RunOption option) override;

    /** @return The script text. */
    const std::string& getSource() const { return mSource; }
    /** @return The name the text runs under. */
    const std::string& getSourceName() const { return mSourceName; }

private:
    std::string mSource;
    std::string mSourceName;
};

/// Native code run inside a context, with what the context was made from. The bundle is the runtime's own
/// copy and stays valid until the context is destroyed.
using NativeFunction =
    std::function<ResultAny(ContextId& contextId, WeakLifetimeScope& scope, ModuleBindingBundle& bundle,
                            IDependencyLoader*& dependencyLoader, IPrinter*& printer)>;

/** @brief A NativeFunction to run in a context of a NativeRuntime; on another runtime it is an Error value. */
class NativeFunctionPayload : public IPayload
{
public:
    /**
     * @brief Takes the function.
     * @param function What to run; an empty one is an Error value when run.
     */
    explicit NativeFunctionPayload(NativeFunction function);

    /**
     * @brief Runs the function through NativeRuntime::runNative.
     * @param contextId The context.
     * @param runtime The runtime.
     * @param option Ignored.
     * @return The function's result, or an Error.
     */
    ResultAny runOnNativeRuntime(ContextId contextId, NativeRuntime& runtime, RunOption option) override;

private:
    NativeFunction mFunction;
};
} // namespace Scripting
