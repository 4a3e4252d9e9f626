#include "Scripting/Runtime/NativeRuntime.h"
#include "Scripting/ScriptEngine/ScriptEngine.h"

#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <memory>

using namespace Ovelith::CoreTestFramework;
using namespace Scripting;

ZUT_TEST_CLASS(Scripting_NativeRuntimeTests);
class Scripting_NativeRuntimeTests final : public Scripting_NativeRuntimeTestsBase
{
    ZUT_TEST(NativeRuntime_CreateNativeRuntime_Exists)
    {
        auto engine = std::make_unique<ScriptEngine>();
        auto runtime = std::make_shared<NativeRuntime>(engine->getRegistryManager());
        Assert::IsTrue(runtime != nullptr, true);

        // The runtime makes its contexts through the engine's manager.
        std::optional<ScriptContext> context = runtime->createContext({}, nullptr, nullptr, {});
        Assert::IsTrue(context.has_value(), true);
        Assert::IsTrue(engine->getRegistryManager().getRegistry(context->getContextId()) ==
                       context->getLifetimeRegistry());
        context.reset();
        Assert::AreEqual(engine->getRegistryManager().getRegistryCount(), static_cast<unsigned char>(0));

        runtime.reset();
        engine.reset();
    }
};
