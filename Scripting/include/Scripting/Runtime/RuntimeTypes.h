#pragma once

#include <cstdint>
#include <optional>

namespace Scripting
{
// Handed through to the runtime unchanged with every run and call; the native runtime ignores it.
using RunOption = std::optional<uint8_t>;

// What a runtime reports about a script future. A runtime that knows no such object answers Unknown.
enum class FutureState : uint8_t
{
    Unknown = 0,
    Pending = 1,
    Fulfilled = 2,
    Rejected = 3,
};

// The types below belong to a language runtime. The library only passes them between the application and
// the runtime, so it gives them no content beyond what that passing needs.

struct RuntimeStats
{
    uint64_t memoryUsedBytes = 0;
    uint64_t memoryLimitBytes = 0;
    uint64_t objectCount = 0;
    // The most memory in use at any one time so far.
    uint64_t memoryPeakBytes = 0;
};

struct WatchdogSettings
{
    // 0 leaves the choice to the runtime.
    uint32_t timeoutMilliseconds = 0;
    // How many script instructions one run may execute; 0 sets no such budget.
    uint64_t instructionLimit = 0;
};

class IWatchdog
{
public:
    virtual ~IWatchdog() = default;
};

class IDebuggerController
{
public:
    virtual ~IDebuggerController() = default;
};

class IDebuggerTransport
{
public:
    virtual ~IDebuggerTransport() = default;
};

// Finds the code of modules that a script imports.
class IDependencyLoader
{
public:
    virtual ~IDependencyLoader() = default;
};

// Where a script's printed output goes.
class IPrinter
{
public:
    virtual ~IPrinter() = default;
};
} // namespace Scripting
