-- expect: error "watchdog"
local t = setmetatable({}, {__newindex = function() while true do end end})
t.x = 1
