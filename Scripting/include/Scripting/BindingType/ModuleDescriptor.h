#pragma once

#include "Scripting/Version.h"

#include "UUID.h"

#include <string>
#include <vector>

namespace Scripting
{
/** @brief Names one version of a module: what is requested, what is built. */
struct ModuleDescriptor
{
    /** @brief Name scripts import the module by; only a label for the resolver. */
    std::string name;
    /** @brief Identity of the module. */
    quv::UUID uuid;
    /** @brief The version. */
    Version version;
    /** @brief Carried for the application; the library does not read it. */
    bool isInternal = false;

    /**
     * @brief Equal when every field is.
     * @return Whether the descriptors are equal.
     */
    bool operator==(const ModuleDescriptor&) const = default;
};

/** @brief What a module version needs of another module. */
struct ModuleDependency
{
    /** @brief Name of the module, a label. */
    std::string name;
    /** @brief Identity of the module. */
    quv::UUID uuid;
    /// Any of these will do, as the resolver decides.
    std::vector<Version> versions;
    /** @brief Carried for the application; the library does not read it. */
    bool isInternal = false;
    /** @brief Whether the dependency counts as asked for by the application when its dependent is. */
    bool inheritsExplicit = false;

    /// The same module in the same versions, in the same order; the name is only a label.
    /// @param other Another dependency.
    /// @return Whether the two are the same.
    bool operator==(const ModuleDependency& other) const { return uuid == other.uuid && versions == other.versions; }
};
} // namespace Scripting
