-- expect: error "watchdog"
return "a" .. setmetatable({}, {__concat = function() while true do end end})
