-- watchdog: late
-- expect: ok
local game = require("@example/game")
hero = game.Entity.new("hero")
hero:onDamaged(function() while true do end end)
--- next run ---
-- expect: error "watchdog"
hero:damage(1)
return hero.health
