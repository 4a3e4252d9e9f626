#pragma once

#include "Scripting/Runtime/ScriptValue.h"

#include <cstdint>
#include <optional>

namespace Scripting
{
// The bytes of a script-side buffer. Its two extents are read once, at construction; the data pointer is
// asked anew on every access, since the script may move its storage.
class DataBufferAny : public internal::InspectedScriptObjectValue
{
public:
    DataBufferAny() = default;
    // Adds a reference of its own.
    DataBufferAny(IRuntime* runtime, ContextId contextId, WeakLifetimeScope scope, const StrongObjectHandle& handle,
                  IObjectInspector* inspector);
    DataBufferAny(const DataBufferAny&) = default;
    DataBufferAny& operator=(const DataBufferAny&) = default;
    DataBufferAny(DataBufferAny&& other) noexcept
        : InspectedScriptObjectValue(std::move(other)), mFirstExtent(std::exchange(other.mFirstExtent, 0)),
          mSecondExtent(std::exchange(other.mSecondExtent, 0))
    {
    }
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
    ~DataBufferAny() override = default;

    // Without an inspector there is nothing to read the bytes through.
    bool valid() const { return _isUsable() && mInspector != nullptr; }
    std::optional<ObjectHandle> getHandle() const { return _getPlainHandle(); }

    unsigned getFirstExtent() const { return valid() ? static_cast<unsigned>(mFirstExtent) : 0; }
    unsigned getSecondExtent() const { return valid() ? static_cast<unsigned>(mSecondExtent) : 0; }
    // Null when invalid.
    void* data();
    const void* data() const;

private:
    uint64_t mFirstExtent = 0;
    uint64_t mSecondExtent = 0;
};
} // namespace Scripting
