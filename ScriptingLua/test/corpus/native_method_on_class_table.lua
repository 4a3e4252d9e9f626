-- expect: error any
local game = require('@example/game')
return game.Entity.damage(game.Entity, 1)
