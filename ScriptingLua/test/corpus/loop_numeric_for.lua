-- expect: error "watchdog"
local n = 0
for i = 1, math.maxinteger do n = n + 1 end
return n
