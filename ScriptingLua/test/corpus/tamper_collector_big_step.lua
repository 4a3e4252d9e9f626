-- expect: ok
local t = {}
for i = 1, 1e4 do t[i] = {} end
return collectgarbage("step", math.maxinteger)
