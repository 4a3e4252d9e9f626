-- expect: error "watchdog"
local t = setmetatable({}, {__add = function() while true do end end})
return t + 1
