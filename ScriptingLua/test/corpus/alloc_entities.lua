-- expect: error any
local game = require('@example/game')
-- Native objects made until the budget or the memory limit ends it; all die with the context.
local held = {}
for i = 1, 1e9 do held[i] = game.Entity.new("e" .. i) end
