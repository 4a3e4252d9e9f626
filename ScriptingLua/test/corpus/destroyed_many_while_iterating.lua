-- expect: ok 50
local zoo = require('@test/zoo')
local held = {}
for i = 1, 100 do held[i] = zoo.Counter(i) end
local alive = 0
for i, c in ipairs(held) do
  if i % 2 == 0 then zoo.destroy(c) end
  if pcall(function() return c.value end) then alive = alive + 1 end
end
return alive
