#pragma once

#include "Scripting/BindingFactory/GenericModuleBindingFactory.h"

#include <optional>
#include <string>

namespace Scripting
{
/// The module every other module depends on: the error types and helper classes that the library itself
/// hands to scripts, in three versions.
/// The engine does not add it by itself: register one with ScriptEngine::addModuleBindingFactory.
class CommonModuleFactory : public GenericModuleBindingFactory
{
public:
    /** @brief Name scripts import it by. */
    static inline const std::string MODULE_NAME = "@zentary/common";
    /// 77ec12b4-1b2b-4c98-8d34-d1cd63f849d5
    /// The module's identity.
    static constexpr quv::UUID MODULE_UUID{0x77ec12b41b2b4c98ull, 0x8d34d1cd63f849d5ull};
    /** @brief First version. */
    static inline const Version VERSION_1_0_0{1, 0, 0};
    /** @brief Second version. */
    static inline const Version VERSION_1_1_0{1, 1, 0};
    /** @brief Third version. */
    static inline const Version VERSION_1_2_0{1, 2, 0};
    /// What modules depend on unless they name another version.
    static inline const Version LATEST_VERSION = VERSION_1_2_0;

    /** @brief Offers the three versions. */
    CommonModuleFactory();

    /**
     * @brief Descriptor of one version.
     * @param version The version.
     * @return Name, UUID and that version.
     */
    static ModuleDescriptor getDescriptor(Version version);
    /**
     * @brief Text form of MODULE_UUID.
     * @return The text.
     */
    static const std::string& getUUIDText();

private:
    static std::optional<ModuleBinding> _createModuleBinding(ModuleBindingBuilder& builder);
};
} // namespace Scripting
