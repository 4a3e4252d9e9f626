-- expect: ok 0
local game = require('@example/game')
-- Numbers at the edges never reach native code as something else.
local e = game.Entity.new("a")
local passed = 0
for _, n in ipairs({0/0, math.huge, -math.huge, 2^63, math.mininteger, 1.5, 1e308}) do
  if pcall(e.damage, e, n) then passed = passed + 1 end
  if pcall(function() e.health = n end) then passed = passed + 1 end
end
return passed
