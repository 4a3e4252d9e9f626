-- expect: ok 1
local t = {}
for i = 1, 2e4 do t[i] = (i * 7919) % 20011 end
table.sort(t)
return t[1] <= t[2] and 1 or 0
