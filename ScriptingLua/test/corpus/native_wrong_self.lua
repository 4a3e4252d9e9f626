-- expect: error any
local game = require('@example/game')
local v = game.Vec3.new(1, 2, 3)
return game.Entity.new("a").damage(v, 1)
