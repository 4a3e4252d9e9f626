-- expect: ok
local game = require('@example/game')
-- The metatable of a native object is not the script's to change.
local mt = getmetatable(game.Entity.new("a"))
if type(mt) == "table" then
  mt.__gc = function() while true do end end
  mt.__index = function() while true do end end
end
collectgarbage()
local e = game.Entity.new("b")
return e.health == 100
