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

FunctionBase::FunctionBase(Privilege privilege, std::vector<ArgumentDetails>&& details, const CallableTable& table)
    : IFunction(privilege), mTable(&table), mDetails(std::move(details))
{
    for (const ArgumentDetails& described : mDetails)
    {
        defaultArgumentCount += described.defaultValue ? 1 : 0;
    }
    for (uint32_t index = 0; index < mTable->arity; ++index)
    {
        injectedArgumentCount += Scripting::internal::isInjectedArgumentType(mTable->argumentTypes[index]()) ? 1 : 0;
    }
}

entt::meta_any FunctionBase::call(entt::meta_any instance, entt::meta_any* args, uint32_t count) const
{
    entt::meta_any self = std::move(instance);
    if (count != mTable->arity)
    {
        return {};
    }
    return mTable->call(*this, self, args);
}

entt::meta_type FunctionBase::getReturnType() const
{
    return mTable->returnType();
}

uint32_t FunctionBase::getArgumentCount() const
{
    return mTable->arity;
}

entt::meta_type FunctionBase::getArgumentType(uint32_t index) const
{
    return index < mTable->arity ? mTable->argumentTypes[index]() : entt::meta_type{};
}

std::optional<entt::meta_type> FunctionBase::getClassType() const
{
    if (mTable->classType == nullptr)
    {
        return std::nullopt;
    }
    return mTable->classType();
}

const TypedCall* FunctionBase::getTypedCall() const
{
    return mTable->typedCall;
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

entt::meta_any voidResult()
{
    return entt::meta_any{context(), std::in_place_type<void>};
}

entt::meta_any GetterBase::get(entt::meta_any instance) const
{
    entt::meta_any self = std::move(instance);
    return mTable->get(*this, self);
}

entt::meta_type GetterBase::getType() const
{
    return mTable->type();
}

std::optional<entt::meta_type> GetterBase::getClassType() const
{
    return mTable->classType();
}

bool GetterBase::isBaked() const
{
    return mTable->baked;
}

ReturnPolicy GetterBase::getReturnPolicy() const
{
    return mTable->policy;
}

const TypedPropertyGet* GetterBase::getTypedGet() const
{
    return mTable->typedGet;
}

ResultAny SetterBase::set(entt::meta_any instance, entt::meta_any value) const
{
    entt::meta_any newValue = std::move(value);
    entt::meta_any self = std::move(instance);
    if (!mTable->set(*this, self, newValue))
    {
        // The caller needs no detail.
        return ResultAny(Error("Failed to set member"));
    }
    return ResultAny();
}

entt::meta_type SetterBase::getType() const
{
    return mTable->type();
}

std::optional<entt::meta_type> SetterBase::getClassType() const
{
    return mTable->classType();
}

bool SetterBase::isMethod() const
{
    return mTable->isMethod;
}

const TypedPropertySet* SetterBase::getTypedSet() const
{
    return mTable->typedSet;
}
} // namespace internal
} // namespace Scripting::Reflection
