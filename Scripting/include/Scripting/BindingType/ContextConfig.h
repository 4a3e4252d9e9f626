#pragma once

#include "Scripting/BindingType/ModuleDescriptor.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Scripting
{
/// The condition names that a runtime offers.
struct RuntimeConditions
{
    /** @brief The names; the embedding application chooses them. */
    std::vector<std::string> names;

    /**
     * @brief Whether a condition is offered.
     * @param name Condition name.
     * @return True when it is among names.
     */
    bool contains(const std::string& name) const;
};

/// Which of the versions that satisfy a request the resolver takes.
enum class VersionSelection : uint32_t
{
    /** @brief The lowest version that meets every request. */
    LowestSatisfying = 0,
    /** @brief The highest version that meets every request. */
    HighestSatisfying = 1,
};

/// How a script context is to be made. Fields the engine does not read are passed through to the module
/// factories and the runtime.
struct ContextConfig
{
    /** @brief Sixteen opaque bytes for the application. */
    using ContextKey = std::array<uint32_t, 4>;

    /** @brief Runtime wanted; failure reports name it ("unknown" when empty). */
    std::string runtimeName;
    /** @brief Free text for the module factories and the runtime. */
    std::string configParam;
    /** @brief The module (the application) the configuration belongs to. */
    ModuleDescriptor module;
    /// The text of `module`'s UUID.
    std::string moduleUuidText;
    /** @brief Passed through; the engine does not read it. */
    bool enabled = true;
    /** @brief What the runtime offers; bindings needing others answer a RuntimeConditionError. */
    RuntimeConditions runtimeConditions;
    /** @brief Which satisfying version the resolver takes. */
    VersionSelection versionSelection = VersionSelection::LowestSatisfying;
    /** @brief Passed through; the engine does not read it. */
    ContextKey contextKey{};
    /** @brief Passed through; the engine does not read it. */
    std::optional<std::string> description;

    /** @brief An empty configuration. */
    ContextConfig();
    /**
     * @brief Sets the fields in their order and computes moduleUuidText.
     * @param runtimeName Runtime wanted.
     * @param configParam Free text for factories and the runtime.
     * @param module The module the configuration belongs to.
     * @param enabled Passed through.
     * @param runtimeConditions What the runtime offers.
     * @param versionSelection Which satisfying version to take.
     * @param contextKey Passed through.
     * @param description Passed through.
     */
    ContextConfig(std::string runtimeName, std::string configParam, ModuleDescriptor module, bool enabled = true,
                  RuntimeConditions runtimeConditions = {},
                  VersionSelection versionSelection = VersionSelection::LowestSatisfying, ContextKey contextKey = {},
                  std::optional<std::string> description = std::nullopt);
};
} // namespace Scripting
