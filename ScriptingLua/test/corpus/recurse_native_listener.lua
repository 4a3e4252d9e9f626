-- expect: ok
local game = require('@example/game')
-- Each hit calls the listener, which hits again; the entity ignores a listener that fails.
local e = game.Entity.new("a")
e:onDamaged(function() e:damage(0) end)
e:damage(1)
return true
