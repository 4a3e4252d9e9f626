-- expect: ok 1
local game = require('@example/game')
local mt = getmetatable(game.Vec3.new(1, 2, 3))
if type(mt) == "table" then mt.__index = nil end
return game.Vec3.new(1, 2, 3).x
