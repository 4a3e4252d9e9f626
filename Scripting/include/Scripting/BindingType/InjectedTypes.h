#pragma once

#include <entt/meta/fwd.hpp>

namespace Scripting
{
// Types that a runtime gives meaning to. A native argument of one of them (or of LifetimeRegistry,
// WeakLifetimeScope, ContextConfig or DependencyLocator*) is filled from the context, never by a script.
struct ScriptObjectFactory
{
};

struct DependencyLocator
{
};

namespace internal
{
// Whether an argument of `type` is filled by the runtime. Reference and const forms are the type itself.
bool isInjectedArgumentType(const entt::meta_type& type);
} // namespace internal
} // namespace Scripting
