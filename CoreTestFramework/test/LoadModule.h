#pragma once

#include "ZentaryUnitTest/TestModule.h"

#include <dlfcn.h>

#include <stdexcept>
#include <string>

namespace FrameworkTests
{
// The module of a built test module library, loaded for the rest of the process: its classes' code must stay
// mapped while anything of it lives.
inline Ovelith::CoreTestFramework::TestModule& loadTestModule(const char* path)
{
    void* handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr)
    {
        throw std::runtime_error(dlerror());
    }
    auto entry = reinterpret_cast<GetTestModule2Function>(dlsym(handle, "getTestModule2"));
    if (entry == nullptr)
    {
        throw std::runtime_error(std::string(path) + " exports no getTestModule2");
    }
    return *entry();
}
} // namespace FrameworkTests
