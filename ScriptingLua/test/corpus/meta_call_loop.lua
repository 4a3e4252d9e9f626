-- expect: error "watchdog"
local t = setmetatable({}, {__call = function() while true do end end})
return t()
