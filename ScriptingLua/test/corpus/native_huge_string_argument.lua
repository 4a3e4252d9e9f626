-- expect: ok 1000000
local game = require('@example/game')
local name = string.rep("x", 1e6)
local e = game.Entity.new(name)
name = nil
collectgarbage()
return #e.name
