-- expect: error "Memory limit" or "watchdog" or "Coroutine limit"
local t = {}
for i = 1, 1e9 do t[i] = coroutine.create(print) end
