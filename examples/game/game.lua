-- Runs against version 1.0.0 or 1.1.0 of "@example/game"; what 1.1.0 adds is used when it is there.
local game = require("@example/game")

local hero = game.Entity.new("hero", game.Team.Blue)
hero.position = game.Vec3.new(1, 2, 2)
print(("%s (%s) stands %.1f from the origin"):format(hero.name, hero.team, hero.position:length()))

-- The event: native code calls back into the script after every hit.
local hits = {}
hero:onDamaged(function(health) hits[#hits + 1] = health end)
hero:damage(30)
hero:damage(25)
print("health after each hit: " .. table.concat(hits, ", "))
assert(#hits == 2 and hits[2] == 45)

-- Bounds are enforced: a value out of range is an error value the script can inspect.
local ok, err = pcall(function() hero.health = 150 end)
assert(not ok and err.name == "PropertyOutOfBoundsError")
print(err.name .. ": " .. err.message)

hero:moveBy(game.Vec3.new(2, 0, 0))
print(("moved to (%g, %g, %g), %.2f from (0, 0, 0)"):format(hero.position.x, hero.position.y, hero.position.z,
    game.distance(hero.position, game.Vec3.new(0, 0, 0))))

if hero.heal then
    hero:heal(10)
    print("healed to " .. hero.health .. ", dot product " .. hero.position:dot(game.Vec3.new(1, 1, 1)))
    assert(game.Team.Green == "Green")
else
    assert(game.Team.Green == nil, "Green arrived in 1.1.0")
end

return hero.health
