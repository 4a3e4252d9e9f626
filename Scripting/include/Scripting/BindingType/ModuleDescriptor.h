#pragma once

#include "Scripting/Version.h"

#include "UUID.h"

#include <string>
#include <vector>

namespace Scripting
{
struct ModuleDescriptor
{
    std::string name;
    quv::UUID uuid;
    Version version;
    bool isInternal = false;

    bool operator==(const ModuleDescriptor&) const = default;
};

struct ModuleDependency
{
    std::string name;
    quv::UUID uuid;
    // Any of these will do, as the resolver decides.
    std::vector<Version> versions;
    bool isInternal = false;
    bool inheritsExplicit = false;

    // The same module in the same versions, in the same order; the name is only a label.
    bool operator==(const ModuleDependency& other) const { return uuid == other.uuid && versions == other.versions; }
};
} // namespace Scripting
