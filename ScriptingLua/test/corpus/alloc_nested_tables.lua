-- expect: error "Memory limit" or "watchdog"
local t = {}
while true do t = {t, t, {}} end
