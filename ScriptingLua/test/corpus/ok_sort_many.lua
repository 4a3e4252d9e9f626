-- expect: ok 1
local t = {}
for i = 1, 2e3 do t[i] = (i * 7919) % 2011 end
table.sort(t)
return t[1] <= t[2] and 1 or 0
