-- expect: error "watchdog"
local game = require('@example/game')
rawset(game.Entity, "new", function() while true do end end)
return game.Entity.new("x")
