#pragma once

#include "Scripting/BindingType/ModuleDescriptor.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Scripting
{
// The condition names that a runtime offers.
struct RuntimeConditions
{
    std::vector<std::string> names;

    bool contains(const std::string& name) const;
};

// Which of the versions that satisfy a request the resolver takes.
enum class VersionSelection : uint32_t
{
    LowestSatisfying = 0,
    HighestSatisfying = 1,
};

// How a script context is to be made. Fields the engine does not read are passed through to the module
// factories and the runtime.
struct ContextConfig
{
    using ContextKey = std::array<uint32_t, 4>;

    std::string runtimeName;
    std::string configParam;
    ModuleDescriptor module;
    // The text of `module`'s UUID.
    std::string moduleUuidText;
    bool enabled = true;
    RuntimeConditions runtimeConditions;
    VersionSelection versionSelection = VersionSelection::LowestSatisfying;
    ContextKey contextKey{};
    std::optional<std::string> description;

    ContextConfig();
    ContextConfig(std::string runtimeName, std::string configParam, ModuleDescriptor module, bool enabled = true,
                  RuntimeConditions runtimeConditions = {},
                  VersionSelection versionSelection = VersionSelection::LowestSatisfying, ContextKey contextKey = {},
                  std::optional<std::string> description = std::nullopt);
};
} // namespace Scripting
