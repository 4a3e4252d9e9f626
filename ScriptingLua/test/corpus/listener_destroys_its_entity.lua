-- expect: ok 99
local game = require('@example/game')
local zoo = require('@test/zoo')
-- The entity is destroyed by native code while its own method walks its listeners.
local e = game.Entity.new("a")
e:onDamaged(function() zoo.destroy(e) end)
e:onDamaged(function() end)
return e:damage(1)
