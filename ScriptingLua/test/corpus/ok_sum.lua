-- expect: ok 42
local s = 0
for i = 1, 6 do s = s + 7 end
return s
