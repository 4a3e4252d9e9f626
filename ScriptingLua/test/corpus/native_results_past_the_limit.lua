-- expect: error "Memory limit" or "watchdog"
local game = require('@example/game')
-- Each read of the name converts a native string into Lua; the slots are made beforehand, so storing takes
-- no allocation that the limit could refuse.
local e = game.Entity.new(string.rep("x", 4e6))
local t = {false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false, false}
for i = 1, 64 do t[i] = e.name end
return #t
