-- expect: error "Memory limit" or "watchdog"
local s = "x"
for i = 1, 40 do s = s .. s end
return #s
