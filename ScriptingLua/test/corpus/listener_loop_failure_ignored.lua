-- expect: error "watchdog"
local game = require('@example/game')
-- The entity ignores a listener that fails; the stop must still end the run.
local e = game.Entity.new("a")
e:onDamaged(function() while true do end end)
e:damage(1)
return e.health
