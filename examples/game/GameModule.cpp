#include "GameModule.h"

#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/BindingType/ClassBindingBuilder.h"
#include "Scripting/BindingType/EnumBindingBuilder.h"

#include <algorithm>
#include <cmath>

using namespace Scripting;

namespace Game
{
float Vec3::length() const
{
    return std::sqrt(dot(*this));
}

float Vec3::dot(const Vec3& other) const
{
    return x * other.x + y * other.y + z * other.z;
}

Vec3 Vec3::add(const Vec3& other) const
{
    return Vec3{x + other.x, y + other.y, z + other.z};
}

Vec3 Vec3::scaled(float factor) const
{
    return Vec3{x * factor, y * factor, z * factor};
}

Entity::Entity(std::string entityName, Team entityTeam) : name(std::move(entityName)), team(entityTeam)
{
    ++sAlive;
}

Entity::Entity(const Entity& other)
    : name(other.name), health(other.health), team(other.team), mPosition(other.mPosition),
      mDamageListeners(other.mDamageListeners)
{
    ++sAlive;
}

Entity::~Entity()
{
    --sAlive;
}

int Entity::damage(int amount)
{
    health = std::max(0, health - amount);
    const int left = health;
    // A listener is script code: it may add listeners, which moves the list, or have the entity destroyed. So the
    // walk goes over a copy, and nothing of the entity is read once the first listener has run.
    const std::vector<Scripting::Closure<void (*)(int)>> listeners = mDamageListeners;
    for (const auto& listener : listeners)
    {
        // A listener that fails is the script's problem; the hit stands.
        (void)listener(left);
    }
    return left;
}

int Entity::heal(int amount)
{
    health = std::min(100, health + amount);
    return health;
}

void Entity::moveBy(const Vec3& offset)
{
    mPosition = mPosition.add(offset);
}

void Entity::onDamaged(const Closure<void (*)(int)>& callback)
{
    mDamageListeners.push_back(callback);
}

namespace
{
std::optional<ModuleBinding> describeGame(ModuleBindingBuilder& builder)
{
    const Version v110(1, 1, 0);

    ClassBindingBuilder<Vec3> vec3("Vec3");
    vec3.function(
        "new",
        [](float x, float y, float z) {
            return Vec3{x, y, z};
        },
        ArgumentBindingBuilder<float>("x"), ArgumentBindingBuilder<float>("y"), ArgumentBindingBuilder<float>("z"));
    vec3.property<&Vec3::x>("x");
    vec3.property<&Vec3::y>("y");
    vec3.property<&Vec3::z>("z");
    vec3.method<&Vec3::length>("length");
    vec3.method<&Vec3::add>("add", ArgumentBindingBuilder<const Vec3&>("other"));
    vec3.method<&Vec3::scaled>("scaled", ArgumentBindingBuilder<float>("factor"));
    vec3.method<&Vec3::dot>("dot", ArgumentBindingBuilder<const Vec3&>("other")).release(v110);
    builder.classBinding(vec3.finish());

    EnumBindingBuilder<std::string, Team> team("Team");
    team.value("Red", Team::Red);
    team.value("Blue", Team::Blue);
    team.value("Green", Team::Green).release(v110);
    builder.enumBinding(team.finish());

    ClassBindingBuilder<Entity> entity("Entity");
    entity.constructor<const std::string&, Team>(ArgumentBindingBuilder<const std::string&>("name"),
                                                 ArgumentBindingBuilder<Team>("team").defaultValue(Team::Red));
    entity.property<&Entity::name, Privilege::ReadOnly>("name");
    entity.property<&Entity::health>("health").bounds(0, 100);
    entity.property<&Entity::team>("team");
    entity.property<&Entity::getPosition, &Entity::setPosition>("position");
    entity.method<&Entity::damage>("damage", ArgumentBindingBuilder<int>("amount").bounds(0, 1000));
    entity.method<&Entity::moveBy>("moveBy", ArgumentBindingBuilder<const Vec3&>("offset"));
    entity.method<&Entity::onDamaged>("onDamaged", ArgumentBindingBuilder<const Closure<void (*)(int)>&>("callback"));
    entity.method<&Entity::heal>("heal", ArgumentBindingBuilder<int>("amount").bounds(0, 100)).release(v110);
    builder.classBinding(entity.finish());

    builder.function(
        "distance", [](const Vec3& a, const Vec3& b) { return b.add(a.scaled(-1.0f)).length(); },
        ArgumentBindingBuilder<const Vec3&>("a"), ArgumentBindingBuilder<const Vec3&>("b"));
    builder.function("livingEntities", []() { return Entity::sAlive; });
    return builder.build(true, {}, RuntimeConditions{});
}
} // namespace

std::unique_ptr<GenericModuleBindingFactory> makeGameModuleFactory()
{
    auto factory = std::make_unique<GenericModuleBindingFactory>(MODULE_NAME, MODULE_UUID);
    for (const Version& version : {Version(1, 0, 0), Version(1, 1, 0)})
    {
        factory->addVersionedModuleBinding(
            version,
            [](ModuleBindingBuilder& builder, const std::optional<ContextConfig>&) { return describeGame(builder); },
            CommonModuleFactory::LATEST_VERSION, {}, false);
    }
    return factory;
}
} // namespace Game
