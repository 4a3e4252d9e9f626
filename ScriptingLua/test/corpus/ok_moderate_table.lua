-- expect: ok 100000
local t = {}
for i = 1, 1e5 do t[i] = i end
return #t
