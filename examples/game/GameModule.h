#pragma once

#include "Scripting/BindingFactory/GenericModuleBindingFactory.h"
#include "Scripting/Runtime/ScriptClosure.h"

#include <memory>
#include <string>
#include <vector>

// A small game API, described to scripts in two versions of the module "@example/game".
namespace Game
{
struct Vec3
{
    float x = 0.0f;
    float y = 0.0f;
    float z = 0.0f;

    float length() const;
    float dot(const Vec3& other) const;
    Vec3 add(const Vec3& other) const;
    Vec3 scaled(float factor) const;
};

enum class Team
{
    Red,
    Blue,
    Green,
};

class Entity
{
public:
    // How many entities exist right now, in every context.
    static inline int sAlive = 0;

    Entity(std::string name, Team team);
    Entity(const Entity& other);
    Entity& operator=(const Entity&) = default;
    ~Entity();

    // Lowers the health, never below 0, and tells every listener the health left.
    int damage(int amount);
    int heal(int amount);
    void moveBy(const Vec3& offset);
    // The event: `callback` is called with the health left after each hit.
    void onDamaged(const Scripting::Closure<void (*)(int)>& callback);

    const Vec3& getPosition() const { return mPosition; }
    void setPosition(const Vec3& position) { mPosition = position; }

    std::string name;
    int health = 100;
    Team team = Team::Red;

private:
    Vec3 mPosition;
    std::vector<Scripting::Closure<void (*)(int)>> mDamageListeners;
};

inline const std::string MODULE_NAME = "@example/game";
inline constexpr quv::UUID MODULE_UUID{0x6a1f3c2e9b8d4e57ull, 0xa4c2d9e8f1b07c36ull};

// The module in its versions 1.0.0 and 1.1.0; 1.1.0 adds Vec3:dot, Entity:heal and the team Green.
std::unique_ptr<Scripting::GenericModuleBindingFactory> makeGameModuleFactory();
} // namespace Game
