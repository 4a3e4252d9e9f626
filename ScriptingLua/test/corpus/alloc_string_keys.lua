-- expect: error "Memory limit" or "watchdog"
local t = {}
for i = 1, 1e9 do t["key" .. i] = i end
