#pragma once

#include "TestRuntimeStubs.h"

#include "Scripting/Runtime/IRuntime.h"
#include "Scripting/Runtime/ScriptClosure.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

namespace Scripting
{
// The message of the error a result holds, or "<no error>", for checks and their failure texts.
inline std::string errorMessage(const ResultAny& result)
{
    const Error* error = result.tryGetError();
    return error != nullptr ? error->message : std::string("<no error>");
}

// A runtime whose every closure is one native callback of signature R(Args...), with a registry of its own
// (id 1) to keep closure objects in. Everything but calling closures is empty, and running answers "Empty".
template <typename R, typename... Args>
class TestClosureRuntime : public TestRuntimeStubs<IRuntime>
{
public:
    using Callback = std::function<R(Args...)>;

    static constexpr const char* WRONG_ARGUMENTS_MESSAGE = "Incorrect args passed!";
    static constexpr const char* NO_CALLBACK_MESSAGE = "No callback given!";

    explicit TestClosureRuntime(Callback callback = {}) : mCallback(std::move(callback)) {}
    // Objects still alive die quietly, before their registry would complain of them.
    ~TestClosureRuntime() override { mRegistry.destroyLifetimeScope(false); }

    WeakLifetimeScope getScope() const { return mRegistry.getScope(); }
    LifetimeRegistry& getRegistry() { return mRegistry; }
    void setCallback(Callback callback) { mCallback = std::move(callback); }

    // A closure of this runtime over a new object, in a context numbered 0.
    template <typename ClosureT = ClosureAny>
    ClosureT makeClosure(IObjectInspector* inspector = nullptr)
    {
        const WeakLifetimeScope scope = mRegistry.getScope();
        return ClosureT(this, ContextId{}, scope,
                        StrongTypedObjectHandle<ClosureType>::toGeneric(scope.makeObject<ClosureType>()), inspector);
    }

    ResultAny callClosure(ContextId, ObjectHandle, entt::meta_any* arguments, unsigned count, const entt::meta_type&,
                          RunOption) override
    {
        if (count != sizeof...(Args))
        {
            return Error(WRONG_ARGUMENTS_MESSAGE);
        }
        if (!mCallback)
        {
            return Error(NO_CALLBACK_MESSAGE);
        }
        return _invoke(arguments, std::index_sequence_for<Args...>{});
    }

    ResultAny run(ContextId, IPayload*, RunOption) override { return Error("Empty"); }

    std::optional<ScriptContext> createContext(ModuleBindingBundle, IDependencyLoader*, IPrinter*,
                                               const ContextConfig&) override
    {
        return std::nullopt;
    }
    void destroyContext(ContextId) override {}

private:
    // Each argument as the parameter's type: a reference parameter gets the caller's object itself.
    template <std::size_t... I>
    ResultAny _invoke([[maybe_unused]] entt::meta_any* arguments, std::index_sequence<I...>)
    {
        std::tuple<std::remove_reference_t<Args>*...> values{
            arguments[I].template try_cast<std::remove_reference_t<Args>>()...};
        if ((!std::get<I>(values) || ...))
        {
            return Error(WRONG_ARGUMENTS_MESSAGE);
        }
        if constexpr (std::is_void_v<R>)
        {
            mCallback(*std::get<I>(values)...);
            return ResultAny();
        }
        else
        {
            return ResultAny::makeResult<R>(mCallback(*std::get<I>(values)...));
        }
    }

    Callback mCallback;
    LifetimeRegistryReference mReference;
    LifetimeRegistry mRegistry{ContextId{1}, mReference};
};
} // namespace Scripting
