#pragma once

#include "Scripting/BindingFactory/GenericModuleBindingFactory.h"
#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"
#include "Scripting/Runtime/Error.h"
#include "Scripting/Runtime/ScriptClosure.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// A module with one record of every kind, in two versions, for the end-to-end tests of the Lua runtime.
namespace LuaTest
{
struct Counter
{
    // Engines on several threads make counters at the same time.
    static inline std::atomic<int> sAlive{0};

    explicit Counter(int start) : value(start) { ++sAlive; }
    Counter(const Counter& other) : value(other.value), label(other.label) { ++sAlive; }
    Counter& operator=(const Counter&) = default;
    ~Counter() { --sAlive; }

    int increment(int by)
    {
        value += by;
        return value;
    }

    int value = 0;
    std::string label = "counter";
};

struct Animal
{
    int legs = 4;
    std::string speak() const { return "..."; }
};

struct Dog : Animal
{
    std::string fetch() const { return "stick"; }
};

// Classes with methods only, one derived from the other: their objects find methods by Lua's table look-up.
struct Bell
{
    int rings = 0;
    int ring(int times)
    {
        rings += times;
        return rings;
    }
};

struct LoudBell : Bell
{
    int shout() const { return rings * 10; }
};

enum class Mood
{
    Happy,
    Sad,
    Bored,
};

enum class Level
{
    Low = 1,
    High = 5,
};

struct Settings
{
    int volume = 1;
    std::string title = "untitled";
    std::optional<float> ratio;
    std::vector<int> list;
};

struct ZooError : Scripting::Error
{
    explicit ZooError(int errorCode) : Scripting::Error("ZooError", "the zoo refused"), code(errorCode) {}
    int code = 0;
};

// The counter a script handed to `keepCounter`, which `keptCounter` hands back by reference.
inline Scripting::StrongTypedObjectHandle<Counter> sKeptCounter;

// The last function a script handed to `remember`.
inline std::optional<Scripting::ClosureAny> sRemembered;

inline const std::string MODULE_NAME = "@test/zoo";
inline constexpr quv::UUID MODULE_UUID{0x1b7c0a4e5d2f4c11ull, 0x9a3e6b8d7c5f4a21ull};

std::unique_ptr<Scripting::GenericModuleBindingFactory> makeZooFactory();
} // namespace LuaTest
