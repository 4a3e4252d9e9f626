#include "Scripting/BindingType/ArgumentDetails.h"
#include "Scripting/BindingType/ClassBinding.h"
#include "Scripting/BindingType/FunctionBinding.h"
#include "Scripting/BindingType/PropertyBinding.h"
#include "Scripting/Reflection/IFunction.h"
#include "Scripting/Reflection/IProperty.h"

#include <utility>

namespace Scripting
{
ArgumentBinding::ArgumentBinding() = default;
ArgumentBinding::ArgumentBinding(std::string argumentName, entt::meta_type argumentType,
                                 ArgumentDetails argumentDetails)
    : name(std::move(argumentName)), type(std::move(argumentType)), details(std::move(argumentDetails))
{
}
ArgumentBinding::ArgumentBinding(const ArgumentBinding&) = default;
ArgumentBinding::ArgumentBinding(ArgumentBinding&&) noexcept = default;
ArgumentBinding& ArgumentBinding::operator=(const ArgumentBinding&) = default;
ArgumentBinding& ArgumentBinding::operator=(ArgumentBinding&&) noexcept = default;
ArgumentBinding::~ArgumentBinding() = default;

FunctionBinding::FunctionBinding() = default;
FunctionBinding::FunctionBinding(const FunctionBinding&) = default;
FunctionBinding::FunctionBinding(FunctionBinding&&) noexcept = default;
FunctionBinding& FunctionBinding::operator=(const FunctionBinding&) = default;
FunctionBinding& FunctionBinding::operator=(FunctionBinding&&) noexcept = default;
FunctionBinding::~FunctionBinding() = default;

PropertyBinding::PropertyBinding() = default;
PropertyBinding::PropertyBinding(const PropertyBinding&) = default;
PropertyBinding::PropertyBinding(PropertyBinding&&) noexcept = default;
PropertyBinding& PropertyBinding::operator=(const PropertyBinding&) = default;
PropertyBinding& PropertyBinding::operator=(PropertyBinding&&) noexcept = default;
PropertyBinding::~PropertyBinding() = default;

ClassBinding::ClassBinding() = default;
ClassBinding::ClassBinding(const ClassBinding&) = default;
ClassBinding::ClassBinding(ClassBinding&&) noexcept = default;
ClassBinding& ClassBinding::operator=(const ClassBinding&) = default;
ClassBinding& ClassBinding::operator=(ClassBinding&&) noexcept = default;
ClassBinding::~ClassBinding() = default;
} // namespace Scripting
