#include "Scripting/BindingType/InjectedTypes.h"

#include "Scripting/BindingType/ContextConfig.h"
#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"
#include "Scripting/LifetimeRegistry/LifetimeScopeImplementation.h"
#include "Scripting/Reflection/Reflection.h"

namespace Scripting::internal
{
bool isInjectedArgumentType(const entt::meta_type& type)
{
    return type == Reflection::resolve<LifetimeRegistry>() || type == Reflection::resolve<WeakLifetimeScope>() ||
           type == Reflection::resolve<ScriptObjectFactory>() || type == Reflection::resolve<DependencyLocator>() ||
           type == Reflection::resolve<DependencyLocator*>() || type == Reflection::resolve<ContextConfig>();
}
} // namespace Scripting::internal
