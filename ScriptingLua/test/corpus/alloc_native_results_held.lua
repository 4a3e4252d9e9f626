-- expect: error "Memory limit"
-- Each read of a big native string makes a Lua string of its size, kept in slots made beforehand: the reads
-- must stop at the limit, not pass it.
local game = require('@example/game')
local e = game.Entity.new(string.rep("x", 4 * 1024 * 1024))
local kept = {}
for i = 1, 64 do kept[i] = false end
for i = 1, 64 do kept[i] = e.name end
return #kept
