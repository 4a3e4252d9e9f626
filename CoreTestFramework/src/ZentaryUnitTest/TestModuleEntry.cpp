// Linked into every test module, and only there: its one exported function.
#include "ZentaryUnitTest/TestModule.h"

extern "C" Ovelith::CoreTestFramework::TestModule* getTestModule2()
{
    static Ovelith::CoreTestFramework::TestModule sModule;
    return &sModule;
}
