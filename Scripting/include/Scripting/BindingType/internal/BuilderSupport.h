#pragma once

#include "Scripting/BindingType/ConstantFactory.h"
#include "Scripting/BindingType/FunctionBinding.h"
#include "Scripting/BindingType/PropertyBinding.h"
#include "Scripting/Reflection/Reflection.h"

#include <string>
#include <vector>

namespace Scripting::internal
{
// The factory of a constant: a copy of the value, whatever the scope.
template <typename V>
struct ConstantValue
{
    V value;

    entt::meta_any operator()(WeakLifetimeScope&) const { return entt::meta_any{Reflection::context(), value}; }
};

// Which report a function whose arguments do not match gets: methods and functions of a class, module-level
// functions, constructors.
enum class FunctionKind : uint8_t
{
    Method,
    Function,
    Constructor,
};

// Reports an empty member name, naming the owner ("Class 'Foo'") and the kind of member ("method"); false then.
bool checkMemberName(const char* ownerKind, const std::string& ownerName, const std::string& memberName,
                     const char* memberKind);
// Reports an empty name of a class, interface or enum, naming its native type.
void checkOwnerName(const char* ownerKind, const std::string& ownerName, const entt::meta_type& type);

// Appends a function whose arguments were filled, or reports the mismatch for its kind and leaves `target`
// alone. Either way the result can be tagged.
FunctionBinding& appendFunctionBinding(std::vector<FunctionBinding>& target, FunctionBinding&& binding,
                                       bool argumentsFilled, FunctionKind kind);

// What a dropped member hands back, so that tags chained after the failed call land somewhere harmless. Each
// call clears it; nothing reads it.
FunctionBinding& droppedFunctionBinding();
PropertyBinding& droppedPropertyBinding();
ConstantFactory& droppedConstant();
} // namespace Scripting::internal
