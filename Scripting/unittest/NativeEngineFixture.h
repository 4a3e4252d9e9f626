#pragma once

#include "Scripting/Runtime/NativeRuntime.h"
#include "Scripting/ScriptEngine/ScriptEngine.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace Scripting
{
// An engine that makes a native runtime on its own manager for every context, and a plugin that asks it for
// modules.
class NativeEngineTest : public testing::Test
{
protected:
    static inline const ModuleDescriptor REQUESTER{"plugin", quv::UUID(0xB0, 1), Version(1, 0, 0)};

    NativeEngineTest()
    {
        mEngine.setRuntimeFactory([this](const ContextConfig&, const std::vector<ModuleDescriptor>&)
                                  { return std::make_shared<NativeRuntime>(mEngine.getRegistryManager()); });
        mConfig.runtimeName = "native";
    }

    ScriptContextResult request(const std::vector<ModuleDescriptor>& requested)
    {
        return mEngine.createScriptingContext(mConfig, REQUESTER, requested, nullptr, nullptr);
    }

    // Name and version of each module the context was made from, in creation order, as native code in the
    // context sees them; the error text when there is no context.
    static std::vector<std::string> modulesOf(ScriptContextResult& result)
    {
        if (!result.context.has_value())
        {
            return {"<no context>" + result.getErrorText()};
        }
        std::vector<std::string> names;
        NativeFunctionPayload payload(
            [&](auto&, auto&, ModuleBindingBundle& bundle, auto&, auto&)
            {
                for (const ModuleBinding& binding : bundle.moduleBindings)
                {
                    names.push_back(binding.descriptor.name + " " + binding.descriptor.version.toString());
                }
                return ResultAny();
            });
        result.context->run(&payload);
        return names;
    }

    ScriptEngine mEngine;
    ContextConfig mConfig;
};
} // namespace Scripting
