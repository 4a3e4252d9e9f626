-- expect: error "Memory limit" or "watchdog"
local t = {}
for i = 1, 2e5 do t[i] = string.rep("x", 200) end
return #table.concat(t, table.concat(t))
