-- expect: ok 5050
local co = coroutine.wrap(function() for i = 1, 100 do coroutine.yield(i) end end)
local s = 0
for i = 1, 100 do s = s + co() end
return s
