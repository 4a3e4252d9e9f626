#include "TestHost/ModuleLoader.h"

#include "ZentaryUnitTest/TestModule.h"

#include <dlfcn.h>

#include <fmt/format.h>

#include <system_error>

namespace Ovelith::TestHost
{
namespace
{
constexpr const char* ENTRY_POINT = "getTestModule2";
constexpr const char* DEFAULT_MODULE_FILE = "ScriptingTests.so";
} // namespace

LoadedModule::LoadResult LoadedModule::load(const std::filesystem::path& path)
{
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    if (!std::filesystem::exists(status))
    {
        return {nullptr, fmt::format("test module not found: {}", path.string())};
    }
    if (std::filesystem::is_directory(status))
    {
        return {nullptr, fmt::format("not a shared library: {} is a directory", path.string())};
    }

    // A path without a slash would make dlopen search the library path instead of opening this file.
    const std::filesystem::path openPath = path.has_parent_path() ? path : std::filesystem::path(".") / path;
    void* handle = dlopen(openPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr)
    {
        const char* reason = dlerror();
        return {nullptr, fmt::format("cannot load test module: {}", reason ? reason : path.string())};
    }

    auto entry = reinterpret_cast<GetTestModule2Function>(dlsym(handle, ENTRY_POINT));
    if (entry == nullptr)
    {
        dlclose(handle);
        return {nullptr, fmt::format("not a test module: {} does not export {}", path.string(), ENTRY_POINT)};
    }
    CoreTestFramework::TestModule* module = entry();
    if (module == nullptr)
    {
        dlclose(handle);
        return {nullptr, fmt::format("not a test module: {} of {} returned no module", ENTRY_POINT, path.string())};
    }
    return {std::unique_ptr<LoadedModule>(new LoadedModule(path, handle, module)), {}};
}

LoadedModule::LoadedModule(std::filesystem::path path, void* handle, CoreTestFramework::TestModule* module)
    : mPath(std::move(path)), mHandle(handle), mModule(module)
{
}

LoadedModule::~LoadedModule()
{
    dlclose(mHandle);
}

std::filesystem::path defaultModulePath(const std::filesystem::path& executable)
{
    return executable.parent_path() / DEFAULT_MODULE_FILE;
}
} // namespace Ovelith::TestHost
