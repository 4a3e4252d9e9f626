-- expect: ok false
local game = require('@example/game')
local zoo = require('@test/zoo')
local e = game.Entity.new("a")
local other = game.Entity.new("b")
other:onDamaged(function() return e.health end)
zoo.destroy(e)
other:damage(1)
return pcall(function() return e.health end)
