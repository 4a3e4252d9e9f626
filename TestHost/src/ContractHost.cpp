// The least a host may do with a test module: load it, initialise it, and for each class create an object and
// run every case on it, then clean up. It calls no hook (onBeforeTest and the like), selects nothing and knows
// no suite, so a suite that passes under testhost but not here leans on something its module does not promise.
//
//     contracthost MODULE
//
// Prints each failed case, then "<passed> passed, <failed> failed" as testhost's summary does; exits 0 when
// every case passed, 1 when one failed, 2 when the module cannot be used.
#include "ZentaryUnitTest/TestClass.h"
#include "ZentaryUnitTest/TestModule.h"

#include <dlfcn.h>

#include <cstdio>

using namespace Ovelith::CoreTestFramework;

namespace
{
class CountingListener final : public TestResultListener
{
public:
    void reportFailure(TestFailureReport&& report) override
    {
        ++mReports;
        std::printf("    %s:%s: %s\n", report.file.c_str(), report.line.c_str(), report.message.c_str());
    }

    size_t reports() const { return mReports; }

private:
    size_t mReports = 0;
};
} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        std::fprintf(stderr, "usage: %s MODULE\n", argv[0]);
        return 2;
    }
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    const auto entry = library ? reinterpret_cast<GetTestModule2Function>(dlsym(library, "getTestModule2")) : nullptr;
    TestModule* module = entry ? entry() : nullptr;
    if (module == nullptr)
    {
        std::fprintf(stderr, "not a test module: %s\n", argv[1]);
        return 2;
    }

    CountingListener listener;
    module->initialize(PlatformInitializationData{}, &listener);
    size_t passed = 0;
    size_t failed = 0;
    for (const TestClassDescription& testClass : module->getTestClasses())
    {
        const TestModule::TestClassPointer object = module->createTestClass(TestModule::TestClassId{testClass.name});
        for (const TestFunctionDescription& function : testClass.functions)
        {
            const size_t reportsBefore = listener.reports();
            bool escaped = false;
            try
            {
                module->runTest(*object, TestModule::TestFunctionId{testClass.name + "." + function.name});
            }
            catch (...)
            {
                escaped = true;
            }
            if (escaped || listener.reports() != reportsBefore)
            {
                ++failed;
                std::printf("FAILED %s.%s%s\n", testClass.name.c_str(), getTestName(function.name).c_str(),
                            escaped ? " (an exception left runTest)" : "");
            }
            else
            {
                ++passed;
            }
        }
    }
    module->cleanup();
    dlclose(library);
    std::printf("%zu passed, %zu failed\n", passed, failed);
    return failed == 0 ? 0 : 1;
}
