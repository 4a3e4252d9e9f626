#pragma once

#include "Scripting/LifetimeRegistry/SmartObjectHandleImplementation.h"
#include "Scripting/Runtime/ResultAny.h"

#include <entt/meta/meta.hpp>

#include <optional>

namespace Scripting
{
class IRuntime;

// A runtime's view of its own script objects, for the value types that must compare or read them.
class IObjectInspector
{
public:
    virtual ~IObjectInspector() = default;

    // Whether the two handles name the same script object.
    virtual bool isEqual(ObjectHandle a, ObjectHandle b) = 0;
    virtual bool getBooleanProperty(ObjectHandle object, const char* name, bool defaultValue) = 0;
    virtual ResultAny getProperty(ObjectHandle object, const char* name, const entt::meta_type& expected) = 0;
    // Which extent is which is the runtime's choice.
    virtual unsigned getSecondExtent(ObjectHandle buffer) = 0;
    virtual unsigned getFirstExtent(ObjectHandle buffer) = 0;
    virtual void* getData(ObjectHandle buffer) = 0;
};

// Where a script-side value lives: its runtime, its context and the scope of that context's registry.
class ScriptValue
{
public:
    ScriptValue() = default;
    ScriptValue(IRuntime* runtime, ContextId contextId, WeakLifetimeScope scope)
        : mRuntime(runtime), mContextId(contextId), mScope(std::move(scope))
    {
    }
    ScriptValue(const ScriptValue&) = default;
    ScriptValue& operator=(const ScriptValue&) = default;
    // The source is left with no runtime, id 0 and an empty scope.
    ScriptValue(ScriptValue&& other) noexcept
        : mRuntime(std::exchange(other.mRuntime, nullptr)), mContextId(std::exchange(other.mContextId, ContextId{})),
          mScope(std::move(other.mScope))
    {
    }
    ScriptValue& operator=(ScriptValue&& other) noexcept
    {
        if (this != &other)
        {
            mRuntime = std::exchange(other.mRuntime, nullptr);
            mContextId = std::exchange(other.mContextId, ContextId{});
            mScope = std::move(other.mScope);
        }
        return *this;
    }
    virtual ~ScriptValue() = default;

    ContextId getContextId() const { return mContextId; }
    WeakLifetimeScope getScope() const { return mScope; }

protected:
    IRuntime* mRuntime = nullptr; // not owned
    ContextId mContextId;
    WeakLifetimeScope mScope;
};

namespace internal
{
// A value that stands for one script object and keeps it alive by one strong reference. Every operation
// first asks `_isUsable`: the registry, and with it the runtime that the context keeps, may be gone, and
// then nothing may be called.
class ScriptObjectValue : public ScriptValue
{
public:
    ScriptObjectValue(const ScriptObjectValue&) = default;
    ScriptObjectValue(ScriptObjectValue&& other) noexcept
        : ScriptValue(std::move(other)), mHandle(std::exchange(other.mHandle, std::nullopt))
    {
    }
    // A self-assignment must not reach the handle: dropping its reference first could destroy the object.
    ScriptObjectValue& operator=(const ScriptObjectValue& other)
    {
        if (this != &other)
        {
            ScriptValue::operator=(other);
            mHandle = other.mHandle;
        }
        return *this;
    }
    ScriptObjectValue& operator=(ScriptObjectValue&& other)
    {
        if (this != &other)
        {
            ScriptValue::operator=(std::move(other));
            mHandle = std::exchange(other.mHandle, std::nullopt);
        }
        return *this;
    }
    ~ScriptObjectValue() override = default;

protected:
    ScriptObjectValue() = default;
    ScriptObjectValue(IRuntime* runtime, ContextId contextId, WeakLifetimeScope scope, StrongObjectHandle&& handle)
        : ScriptValue(runtime, contextId, std::move(scope)), mHandle(std::move(handle))
    {
    }

    bool _isUsable() const { return mRuntime != nullptr && mScope.valid() && _hasLiveHandle(); }
    bool _hasLiveHandle() const { return mHandle.has_value() && mHandle->valid(); }
    std::optional<ObjectHandle> _getPlainHandle() const
    {
        return mHandle.has_value() ? std::optional<ObjectHandle>(mHandle->getHandle()) : std::nullopt;
    }

    std::optional<StrongObjectHandle> mHandle;
};

// A script object value that the runtime's inspector can look into.
class InspectedScriptObjectValue : public ScriptObjectValue
{
public:
    InspectedScriptObjectValue(const InspectedScriptObjectValue&) = default;
    InspectedScriptObjectValue(InspectedScriptObjectValue&& other) noexcept
        : ScriptObjectValue(std::move(other)), mInspector(std::exchange(other.mInspector, nullptr))
    {
    }
    InspectedScriptObjectValue& operator=(const InspectedScriptObjectValue&) = default;
    InspectedScriptObjectValue& operator=(InspectedScriptObjectValue&& other)
    {
        if (this != &other)
        {
            ScriptObjectValue::operator=(std::move(other));
            mInspector = std::exchange(other.mInspector, nullptr);
        }
        return *this;
    }
    ~InspectedScriptObjectValue() override = default;

protected:
    InspectedScriptObjectValue() = default;
    InspectedScriptObjectValue(IRuntime* runtime, ContextId contextId, WeakLifetimeScope scope,
                               StrongObjectHandle&& handle, IObjectInspector* inspector)
        : ScriptObjectValue(runtime, contextId, std::move(scope), std::move(handle)), mInspector(inspector)
    {
    }

    // Only the inspector knows whether two handles name one script object. Without an inspector a value is
    // not even equal to itself.
    bool _isSameObject(const InspectedScriptObjectValue& other) const;

    IObjectInspector* mInspector = nullptr; // not owned, may be null
};
} // namespace internal
} // namespace Scripting
