#include "Scripting/BindingType/InjectedTypes.h"
#include "Scripting/Reflection/Function.h"
#include "Scripting/Reflection/IFunction.h"
#include "Scripting/Reflection/IProperty.h"
#include "Scripting/Reflection/Property.h"
#include "Scripting/Runtime/Error.h"

namespace Scripting::Reflection
{
// Out of line so that each interface has one home for its vtable.
IFunction::~IFunction() = default;
IPropertyGetter::~IPropertyGetter() = default;
IPropertySetter::~IPropertySetter() = default;

namespace internal
{
namespace
{
// What an index past the described arguments reads: no default, no bounds, every value passes.
const ArgumentDetails& undescribedArgument()
{
    static const ArgumentDetails sUndescribed;
    return sUndescribed;
}
} // namespace

FunctionBase::FunctionBase(Privilege privilege, std::vector<ArgumentDetails>&& details)
    : IFunction(privilege), mDetails(std::move(details))
{
}

const entt::meta_any& FunctionBase::getDefaultArgument(uint32_t index) const
{
    return getArgumentDetails(index).defaultValue;
}

bool FunctionBase::validateArgument(const entt::meta_any& value, uint32_t index) const
{
    const ArgumentDetails& details = getArgumentDetails(index);
    return details.validator == nullptr || details.validator(details, value);
}

const ArgumentDetails& FunctionBase::getArgumentDetails(uint32_t index) const
{
    return index < mDetails.size() ? mDetails[index] : undescribedArgument();
}

void FunctionBase::_computeArgumentCounts()
{
    defaultArgumentCount = 0;
    for (const ArgumentDetails& details : mDetails)
    {
        defaultArgumentCount += details.defaultValue ? 1 : 0;
    }
    injectedArgumentCount = 0;
    const uint32_t count = getArgumentCount();
    for (uint32_t index = 0; index < count; ++index)
    {
        injectedArgumentCount += Scripting::internal::isInjectedArgumentType(getArgumentType(index)) ? 1 : 0;
    }
}

ResultAny failedToSetMember()
{
    return ResultAny(Error("Failed to set member"));
}
} // namespace internal
} // namespace Scripting::Reflection
