-- expect: ok 100
local game = require('@example/game')
-- Each listener adds more while the entity walks its list of listeners.
local e = game.Entity.new("a")
local calls = 0
e:onDamaged(function() calls = calls + 1 for i = 1, 20 do e:onDamaged(function() end) end end)
for i = 1, 5 do e:damage(0) end
return e.health
