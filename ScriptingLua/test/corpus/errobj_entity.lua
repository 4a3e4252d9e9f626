-- expect: error any
local game = require('@example/game')
error(game.Entity.new("thrown"))
