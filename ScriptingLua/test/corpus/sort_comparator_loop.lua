-- expect: error "watchdog"
local t = {3, 1, 2}
table.sort(t, function() while true do end end)
