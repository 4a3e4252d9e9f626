-- expect: error "destroyed by native code"
local game = require('@example/game')
local zoo = require('@test/zoo')
local e = game.Entity.new("a")
zoo.destroy(e)
e.health = 5
