-- expect: error any
local game = require('@example/game')
local e = game.Entity.new("a")
for i = 1, 1e9 do e:onDamaged(function() end) end
