#pragma once

#include "Scripting/Runtime/ScriptValue.h"

#include <cstdint>
#include <optional>

namespace Scripting
{
/// The bytes of a script-side buffer. Its two extents are read once, at construction; the data pointer is
/// asked anew on every access, since the script may move its storage.
class DataBufferAny : public internal::InspectedScriptObjectValue
{
public:
    /** @brief An invalid buffer. */
    DataBufferAny() = default;
    /// Adds a reference of its own.
    /// @param runtime The context's runtime, not owned.
    /// @param contextId The context.
    /// @param scope Scope of the context's registry.
    /// @param handle The runtime's object of the buffer.
    /// @param inspector The runtime's inspector, not owned; without one the buffer is invalid.
    DataBufferAny(IRuntime* runtime, ContextId contextId, WeakLifetimeScope scope, const StrongObjectHandle& handle,
                  IObjectInspector* inspector);
    /** @brief Shares the buffer: one more strong reference. */
    DataBufferAny(const DataBufferAny&) = default;
    /**
     * @brief Shares the other's buffer.
     * @return This buffer.
     */
    DataBufferAny& operator=(const DataBufferAny&) = default;
    /**
     * @brief Takes the buffer over, leaving the source invalid.
     * @param other Buffer to take from.
     */
    DataBufferAny(DataBufferAny&& other) noexcept
        : InspectedScriptObjectValue(std::move(other)), mFirstExtent(std::exchange(other.mFirstExtent, 0)),
          mSecondExtent(std::exchange(other.mSecondExtent, 0))
    {
    }
    /**
     * @brief Takes the buffer over, leaving the source invalid.
     * @param other Buffer to take from.
     * @return This buffer.
     */
    DataBufferAny& operator=(DataBufferAny&& other)
    {
        if (this != &other)
        {
            InspectedScriptObjectValue::operator=(std::move(other));
            mFirstExtent = std::exchange(other.mFirstExtent, 0);
            mSecondExtent = std::exchange(other.mSecondExtent, 0);
        }
        return *this;
    }
    /** @brief Drops the reference. */
    ~DataBufferAny() override = default;

    /// Without an inspector there is nothing to read the bytes through.
    /// @return False once the context, the runtime or the buffer is gone, or without an inspector.
    bool valid() const { return _isUsable() && mInspector != nullptr; }
    /**
     * @brief Handle of the runtime's object.
     * @return The handle, or empty for a default or moved-from buffer.
     */
    std::optional<ObjectHandle> getHandle() const { return _getPlainHandle(); }

    /**
     * @brief First extent, as read at construction.
     * @return The extent; 0 when invalid.
     */
    unsigned getFirstExtent() const { return valid() ? static_cast<unsigned>(mFirstExtent) : 0; }
    /**
     * @brief Second extent, as read at construction.
     * @return The extent; 0 when invalid.
     */
    unsigned getSecondExtent() const { return valid() ? static_cast<unsigned>(mSecondExtent) : 0; }
    /// Null when invalid.
    /// @return The bytes, owned by the runtime; valid until the script runs again.
    void* data();
    /**
     * @brief The bytes, read-only.
     * @return The bytes, owned by the runtime; null when invalid.
     */
    const void* data() const;

private:
    uint64_t mFirstExtent = 0;
    uint64_t mSecondExtent = 0;
};
} // namespace Scripting
