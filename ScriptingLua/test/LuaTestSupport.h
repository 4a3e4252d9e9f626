#pragma once

#include "ZooModule.h"

#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/Lua/LuaRuntime.h"
#include "Scripting/ScriptEngine/ScriptEngine.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

namespace LuaTest
{
inline const Scripting::ModuleDescriptor REQUESTER{"lua-tests", quv::UUID{0x5a5a000011112222ull, 0x3333444455556666ull},
                                                   Scripting::Version(1, 0, 0), false};

inline Scripting::ModuleDescriptor zoo(Scripting::Version version)
{
    return Scripting::ModuleDescriptor{MODULE_NAME, MODULE_UUID, std::move(version), false};
}

// An engine with the Lua runtime, the common module and the zoo module.
class LuaEngineTest : public ::testing::Test
{
protected:
    LuaEngineTest() { configure(Scripting::Lua::LuaRuntimeSettings{}); }

    void configure(Scripting::Lua::LuaRuntimeSettings settings)
    {
        mRuntime = std::make_shared<Scripting::Lua::LuaRuntime>(mEngine.getRegistryManager(), std::move(settings));
        mEngine.clearRuntimeFactory();
        mEngine.setRuntimeFactory([this](const Scripting::ContextConfig&,
                                         const std::vector<Scripting::ModuleDescriptor>&) { return mRuntime; });
        if (!mEngine.hasModuleBindingFactory(Scripting::CommonModuleFactory::MODULE_UUID))
        {
            mEngine.addModuleBindingFactory(std::make_unique<Scripting::CommonModuleFactory>());
            mEngine.addModuleBindingFactory(makeZooFactory());
        }
    }

    std::optional<Scripting::ScriptContext> makeContext(Scripting::Version version = Scripting::Version(1, 0, 0))
    {
        const Scripting::ContextConfig config("lua", "", REQUESTER, true, {},
                                              Scripting::VersionSelection::HighestSatisfying);
        Scripting::ScriptContextResult result =
            mEngine.createScriptingContext(config, REQUESTER, {zoo(version)}, nullptr, nullptr);
        EXPECT_FALSE(result.hasErrors()) << result.getErrorText();
        return std::move(result.context);
    }

    Scripting::ScriptContext& context(Scripting::Version version = Scripting::Version(1, 0, 0))
    {
        if (!mContext.has_value())
        {
            mContext = makeContext(version);
        }
        return *mContext;
    }

    Scripting::ResultAny run(const std::string& source, const std::string& name = "test.lua")
    {
        Scripting::StringPayload payload(source, name);
        return context().run(&payload);
    }

    // The message of a failed run, or a note that it did not fail.
    static std::string errorText(const Scripting::ResultAny& result)
    {
        const Scripting::Error* error = result.tryGetError();
        return error != nullptr ? error->message : "<no error>";
    }

    static int64_t integer(const Scripting::ResultAny& result)
    {
        const int64_t* value = result.any().try_cast<const int64_t>();
        EXPECT_NE(value, nullptr) << errorText(result);
        return value != nullptr ? *value : -1;
    }

    static std::string text(const Scripting::ResultAny& result)
    {
        const std::string* value = result.any().try_cast<const std::string>();
        EXPECT_NE(value, nullptr) << errorText(result);
        return value != nullptr ? *value : "<not a string>";
    }

    Scripting::ScriptEngine mEngine;
    std::shared_ptr<Scripting::Lua::LuaRuntime> mRuntime;
    std::optional<Scripting::ScriptContext> mContext;
};
} // namespace LuaTest

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <thread>

namespace LuaTest
{
// Runs `body` on a thread of its own and ends the process with a failure when it is not done within `limit`:
// a regression of the sandbox must fail the test, not hang it.
inline void runGuarded(const char* what, std::chrono::milliseconds limit, std::function<void()> body)
{
    std::packaged_task<void()> task(std::move(body));
    std::future<void> done = task.get_future();
    std::thread worker(std::move(task));
    if (done.wait_for(limit) != std::future_status::ready)
    {
        std::fprintf(stderr, "HUNG: %s did not end within %lld ms\n", what, static_cast<long long>(limit.count()));
        std::fflush(stderr);
        std::_Exit(3);
    }
    worker.join();
    done.get();
}
} // namespace LuaTest
