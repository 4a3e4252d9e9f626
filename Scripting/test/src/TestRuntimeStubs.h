#pragma once

#include "Scripting/Runtime/IRuntime.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace Scripting
{
// The operations of a runtime that only script values and hosts reach. A test runtime derives from this over
// the runtime kind it stands for and writes the context and run operations itself; these answer as if the
// runtime knew no object and offered no tool.
template <typename Runtime>
class TestRuntimeStubs : public Runtime
{
public:
    ResultAny callClosure(ContextId, ObjectHandle, entt::meta_any*, unsigned, const entt::meta_type&,
                          RunOption) override
    {
        return {};
    }
    ResultAny resolvePromise(ContextId, ObjectHandle, const entt::meta_any&) override { return {}; }
    ResultAny rejectPromise(ContextId, ObjectHandle, const entt::meta_any&) override { return {}; }
    FutureState getFutureState(ContextId, ObjectHandle) override { return FutureState::Unknown; }
    ResultAny getFutureResult(ContextId, ObjectHandle, const entt::meta_type&) override { return {}; }
    Result<std::string> stringifyValue(ContextId, ObjectHandle) override { return std::string(); }
    bool collectGarbage(ContextId) override { return false; }
    IDebuggerController* enableDebugger(IDebuggerTransport&) override { return nullptr; }
    void disableDebugger() override {}
    void startProfiler() override {}
    void stopProfiler(std::function<void(std::string_view)>,
                      std::optional<std::reference_wrapper<const std::string>>) override
    {
    }
    RuntimeStats computeRuntimeStats() const override { return {}; }
    IWatchdog* enableWatchdog(WatchdogSettings) override { return nullptr; }
    void disableWatchdog() override {}
    IWatchdog* getWatchdog() const override { return nullptr; }
    std::optional<CallStackEntry> getCurrentLocation(ContextId) const override { return std::nullopt; }
};
} // namespace Scripting
