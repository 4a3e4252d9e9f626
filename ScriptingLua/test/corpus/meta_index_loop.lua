-- expect: error "watchdog"
local t = setmetatable({}, {__index = function() while true do end end})
return t.x
