#pragma once

#include "Scripting/LifetimeRegistry/SmartObjectHandleImplementation.h"
#include "Scripting/Runtime/ResultAny.h"

#include <entt/meta/meta.hpp>

#include <optional>

namespace Scripting
{
class IRuntime;

/// A runtime's view of its own script objects, for the value types that must compare or read them.
/// Implemented by a language runtime; the value types hold it unowned.
class IObjectInspector
{
public:
    virtual ~IObjectInspector() = default;

    /// Whether the two handles name the same script object.
    /// @param a A script object.
    /// @param b A script object.
    /// @return True for the same object.
    virtual bool isEqual(ObjectHandle a, ObjectHandle b) = 0;
    /**
     * @brief Reads a boolean field of a script object.
     * @param object The object.
     * @param name Field name.
     * @param defaultValue Answer when the field is missing or not a boolean.
     * @return The field's value, or the default.
     */
    virtual bool getBooleanProperty(ObjectHandle object, const char* name, bool defaultValue) = 0;
    /**
     * @brief Reads a field of a script object as a native type.
     * @param object The object.
     * @param name Field name.
     * @param expected Native type to convert to.
     * @return The value, or an Error.
     */
    virtual ResultAny getProperty(ObjectHandle object, const char* name, const entt::meta_type& expected) = 0;
    /// Which extent is which is the runtime's choice.
    /// @param buffer A script buffer.
    /// @return One extent of it.
    virtual unsigned getSecondExtent(ObjectHandle buffer) = 0;
    /**
     * @brief The other extent of a script buffer.
     * @param buffer A script buffer.
     * @return The extent.
     */
    virtual unsigned getFirstExtent(ObjectHandle buffer) = 0;
    /**
     * @brief The bytes of a script buffer.
     * @param buffer A script buffer.
     * @return Its memory, owned by the runtime and valid while the buffer lives; null for none.
     */
    virtual void* getData(ObjectHandle buffer) = 0;
};

/// Where a script-side value lives: its runtime, its context and the scope of that context's registry.
/// It never keeps the context alive; once the context's registry died, the value answers as invalid.
class ScriptValue
{
public:
    /** @brief A value of no context. */
    ScriptValue() = default;
    /**
     * @brief A value of a context.
     * @param runtime The context's runtime, not owned.
     * @param contextId The context.
     * @param scope Scope of the context's registry.
     */
    ScriptValue(IRuntime* runtime, ContextId contextId, WeakLifetimeScope scope)
        : mRuntime(runtime), mContextId(contextId), mScope(std::move(scope))
    {
    }
    /** @brief Copies where the value lives. */
    ScriptValue(const ScriptValue&) = default;
    /**
     * @brief Copies where the value lives.
     * @return This value.
     */
    ScriptValue& operator=(const ScriptValue&) = default;
    /// The source is left with no runtime, id 0 and an empty scope.
    /// @param other Value to take from.
    ScriptValue(ScriptValue&& other) noexcept
        : mRuntime(std::exchange(other.mRuntime, nullptr)), mContextId(std::exchange(other.mContextId, ContextId{})),
          mScope(std::move(other.mScope))
    {
    }
    /**
     * @brief Takes over the other value, leaving it with no runtime, id 0 and an empty scope.
     * @param other Value to take from.
     * @return This value.
     */
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
    /** @brief Virtual, as the value types derive from it. */
    virtual ~ScriptValue() = default;

    /** @return The context's id; 0 for none. */
    ContextId getContextId() const { return mContextId; }
    /** @return Scope of the context's registry. */
    WeakLifetimeScope getScope() const { return mScope; }

protected:
    /** @brief The context's runtime, not owned; reach it only while mScope is valid. */
    IRuntime* mRuntime = nullptr; // not owned
    /** @brief The context. */
    ContextId mContextId;
    /** @brief Scope of the context's registry. */
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
