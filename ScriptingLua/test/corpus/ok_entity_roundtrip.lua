-- expect: ok 90
local game = require('@example/game')
local e = game.Entity.new("hero", game.Team.Blue)
e:damage(10)
return e.health
