#include "Scripting/BindingFactory/CommonModuleFactory.h"

#include "Scripting/BindingType/ClassBindingBuilder.h"
#include "Scripting/BindingType/EnumBindingBuilder.h"
#include "Scripting/BindingType/InterfaceBindingBuilder.h"
#include "Scripting/BindingType/NumberRange.h"
#include "Scripting/BindingType/OptionalHelper.h"
#include "Scripting/Runtime/Error.h"

#include <utility>

namespace Scripting
{
namespace
{
// Scripts read an error's fields like those of a plain data shape, so the interface builder collects them.
template <typename E>
ErrorBinding errorBinding(InterfaceBindingBuilder<E>& fields)
{
    InterfaceBinding shape = fields.finish();
    ErrorBinding error;
    error.name = std::move(shape.name);
    error.type = shape.type;
    error.properties = std::move(shape.properties);
    return error;
}
} // namespace

CommonModuleFactory::CommonModuleFactory() : GenericModuleBindingFactory(MODULE_NAME, MODULE_UUID)
{
    for (const Version& version : {VERSION_1_0_0, VERSION_1_1_0, VERSION_1_2_0})
    {
        addVersionedModuleBinding(
            version,
            [](ModuleBindingBuilder& builder, const std::optional<ContextConfig>&)
            { return _createModuleBinding(builder); },
            version, {}, false);
    }
    // A bound's range may be absent, so scripts receive it as an optional.
    OptionalHelper::registerOptional<NumberRange>();
}

ModuleDescriptor CommonModuleFactory::getDescriptor(Version version)
{
    return ModuleDescriptor{MODULE_NAME, MODULE_UUID, std::move(version), true};
}

const std::string& CommonModuleFactory::getUUIDText()
{
    static const std::string text = MODULE_UUID.asString();
    return text;
}

std::optional<ModuleBinding> CommonModuleFactory::_createModuleBinding(ModuleBindingBuilder& builder)
{
    // Every record is tagged: the module is built without untagged records, and each tag means "from this
    // version on".
    InterfaceBindingBuilder<ArgumentOutOfBoundsError> argumentOutOfBounds("ArgumentOutOfBoundsError");
    argumentOutOfBounds.property<&ArgumentOutOfBoundsError::value>("value").release(VERSION_1_0_0);
    argumentOutOfBounds.property<&ArgumentOutOfBoundsError::minValue>("minValue").release(VERSION_1_0_0);
    argumentOutOfBounds.property<&ArgumentOutOfBoundsError::maxValue>("maxValue").release(VERSION_1_0_0);
    argumentOutOfBounds.property<&ArgumentOutOfBoundsError::index>("index").release(VERSION_1_0_0);
    builder.errorBinding(errorBinding(argumentOutOfBounds)).release(VERSION_1_0_0);

    EnumBindingBuilder<std::string, InvalidArgumentErrorType> argumentErrorType("InvalidArgumentErrorType");
    argumentErrorType.value("Unspecified", InvalidArgumentErrorType::Unspecified).release(VERSION_1_2_0);
    argumentErrorType.value("Empty", InvalidArgumentErrorType::Empty).release(VERSION_1_2_0);
    argumentErrorType.value("Unknown", InvalidArgumentErrorType::Unknown).release(VERSION_1_2_0);
    argumentErrorType.value("Duplicate", InvalidArgumentErrorType::Duplicate).release(VERSION_1_2_0);
    builder.enumBinding(argumentErrorType.finish()).release(VERSION_1_2_0);

    InterfaceBindingBuilder<InvalidArgumentError> invalidArgument("InvalidArgumentError");
    invalidArgument.property<&InvalidArgumentError::type>("type").release(VERSION_1_2_0);
    invalidArgument.property<&InvalidArgumentError::index>("index").release(VERSION_1_0_0);
    builder.errorBinding(errorBinding(invalidArgument)).release(VERSION_1_0_0);

    InterfaceBindingBuilder<EngineError> engineError("EngineError");
    builder.errorBinding(errorBinding(engineError)).release(VERSION_1_1_0);

    ClassBindingBuilder<NumberRange> numberRange("NumberRange");
    numberRange.property<&NumberRange::min>("min").release(VERSION_1_1_0);
    numberRange.property<&NumberRange::max>("max").release(VERSION_1_1_0);
    builder.classBinding(numberRange.finish()).release(VERSION_1_1_0);

    InterfaceBindingBuilder<PropertyOutOfBoundsError> propertyOutOfBounds("PropertyOutOfBoundsError");
    propertyOutOfBounds.property<&PropertyOutOfBoundsError::value>("value").release(VERSION_1_2_0);
    propertyOutOfBounds.property<&PropertyOutOfBoundsError::minValue>("minValue").release(VERSION_1_2_0);
    propertyOutOfBounds.property<&PropertyOutOfBoundsError::maxValue>("maxValue").release(VERSION_1_2_0);
    builder.errorBinding(errorBinding(propertyOutOfBounds)).release(VERSION_1_2_0);

    InterfaceBindingBuilder<RuntimeConditionError> runtimeCondition("RuntimeConditionError");
    builder.errorBinding(errorBinding(runtimeCondition)).release(VERSION_1_2_0);

    InterfaceBindingBuilder<UnsupportedFunctionalityError> unsupported("UnsupportedFunctionalityError");
    builder.errorBinding(errorBinding(unsupported)).release(VERSION_1_2_0);

    return builder.build(false, {}, RuntimeConditions{});
}
} // namespace Scripting
