#pragma once

#include <filesystem>
#include <memory>
#include <string>

namespace Ovelith::CoreTestFramework
{
class TestModule;
}

namespace Ovelith::TestHost
{
// A test module loaded into this process; unloading it is the last thing its destructor does.
class LoadedModule
{
public:
    struct LoadResult
    {
        std::unique_ptr<LoadedModule> module;
        // One line saying why the module could not be loaded, when `module` is null.
        std::string error;
    };

    static LoadResult load(const std::filesystem::path& path);

    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;
    ~LoadedModule();

    CoreTestFramework::TestModule& module() const { return *mModule; }
    const std::filesystem::path& path() const { return mPath; }

private:
    LoadedModule(std::filesystem::path path, void* handle, CoreTestFramework::TestModule* module);

    std::filesystem::path mPath;
    void* mHandle;
    CoreTestFramework::TestModule* mModule;
};

// Where the module of the project is looked for when none is named: beside the host, so that a host copied
// elsewhere never runs a module of the tree it was built in.
std::filesystem::path defaultModulePath(const std::filesystem::path& executable);
} // namespace Ovelith::TestHost
