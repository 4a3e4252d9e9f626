#pragma once

#include <cstdint>
#include <optional>

namespace Scripting
{
/// Handed through to the runtime unchanged with every run and call; the native runtime ignores it.
using RunOption = std::optional<uint8_t>;

/// What a runtime reports about a script future. A runtime that knows no such object answers Unknown.
enum class FutureState : uint8_t
{
    /** @brief Not a future of the runtime, or no runtime to ask. */
    Unknown = 0,
    /** @brief Not settled yet. */
    Pending = 1,
    /** @brief Settled with a value. */
    Fulfilled = 2,
    /** @brief Settled with a reason. */
    Rejected = 3,
};

// The types below belong to a language runtime. The library only passes them between the application and
// the runtime, so it gives them no content beyond what that passing needs.

/** @brief Memory and object figures a runtime reports; the meaning of each is the runtime's. */
struct RuntimeStats
{
    /** @brief Bytes in use now. */
    uint64_t memoryUsedBytes = 0;
    /** @brief Cap on the bytes in use; 0 for none. */
    uint64_t memoryLimitBytes = 0;
    /** @brief Native objects alive in the registries. */
    uint64_t objectCount = 0;
    /// The most memory in use at any one time so far.
    uint64_t memoryPeakBytes = 0;
};

/** @brief Budgets for one entry into a script (a run, a closure call, a settled promise). */
struct WatchdogSettings
{
    /// 0 leaves the choice to the runtime.
    uint32_t timeoutMilliseconds = 0;
    /// How many script instructions one run may execute; 0 sets no such budget.
    uint64_t instructionLimit = 0;
};

/** @brief Handle of a runtime's watchdog; its operations are the runtime's. */
class IWatchdog
{
public:
    virtual ~IWatchdog() = default;
};

/** @brief Handle of a runtime's debugger; its operations are the runtime's. */
class IDebuggerController
{
public:
    virtual ~IDebuggerController() = default;
};

/** @brief Channel between a runtime's debugger and its front end, supplied by the application. */
class IDebuggerTransport
{
public:
    virtual ~IDebuggerTransport() = default;
};

/// Finds the code of modules that a script imports.
class IDependencyLoader
{
public:
    virtual ~IDependencyLoader() = default;
};

/// Where a script's printed output goes.
class IPrinter
{
public:
    virtual ~IPrinter() = default;
};
} // namespace Scripting
