#pragma once

#include "Scripting/BindingFactory/GenericModuleBindingFactory.h"

#include <optional>
#include <string>

namespace Scripting
{
// The module every other module depends on: the error types and helper classes that the library itself
// hands to scripts, in three versions.
class CommonModuleFactory : public GenericModuleBindingFactory
{
public:
    static inline const std::string MODULE_NAME = "@zentary/common";
    // 77ec12b4-1b2b-4c98-8d34-d1cd63f849d5
    static constexpr quv::UUID MODULE_UUID{0x77ec12b41b2b4c98ull, 0x8d34d1cd63f849d5ull};
    static inline const Version VERSION_1_0_0{1, 0, 0};
    static inline const Version VERSION_1_1_0{1, 1, 0};
    static inline const Version VERSION_1_2_0{1, 2, 0};
    // What modules depend on unless they name another version.
    static inline const Version LATEST_VERSION = VERSION_1_2_0;

    CommonModuleFactory();

    static ModuleDescriptor getDescriptor(Version version);
    static const std::string& getUUIDText();

private:
    static std::optional<ModuleBinding> _createModuleBinding(ModuleBindingBuilder& builder);
};
} // namespace Scripting
