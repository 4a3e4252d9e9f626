-- expect: error "Memory limit" or "watchdog"
local t = {}
for i = 1, 1e9 do local v = i t[i] = function() return v end end
