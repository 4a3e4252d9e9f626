-- expect: error "Expected type: Vec3"
local game = require('@example/game')
local e = game.Entity.new("a")
e.position = setmetatable({}, {__index = function() while true do end end})
