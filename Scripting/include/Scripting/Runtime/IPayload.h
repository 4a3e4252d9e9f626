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

// What is run in a context. Each payload type decides which kinds of runtime it can run on by overriding
// the matching operation; the others report that it cannot.
class IPayload
{
public:
    virtual ~IPayload() = default;

    virtual ResultAny runOnStringBasedRuntime(ContextId contextId, StringBasedRuntime& runtime, RunOption option);
    virtual ResultAny runOnNativeRuntime(ContextId contextId, NativeRuntime& runtime, RunOption option);
};

// Source text for a runtime of a language.
class StringPayload : public IPayload
{
public:
    StringPayload(std::string source, std::string sourceName);

    ResultAny runOnStringBasedRuntime(ContextId contextId, StringBasedRuntime& runtime, RunOption option) override;

    const std::string& getSource() const { return mSource; }
    const std::string& getSourceName() const { return mSourceName; }

private:
    std::string mSource;
    std::string mSourceName;
};

// Native code run inside a context, with what the context was made from. The bundle is the runtime's own
// copy and stays valid until the context is destroyed.
using NativeFunction =
    std::function<ResultAny(ContextId& contextId, WeakLifetimeScope& scope, ModuleBindingBundle& bundle,
                            IDependencyLoader*& dependencyLoader, IPrinter*& printer)>;

class NativeFunctionPayload : public IPayload
{
public:
    explicit NativeFunctionPayload(NativeFunction function);

    ResultAny runOnNativeRuntime(ContextId contextId, NativeRuntime& runtime, RunOption option) override;

private:
    NativeFunction mFunction;
};
} // namespace Scripting
