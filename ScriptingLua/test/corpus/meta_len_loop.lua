-- expect: error "watchdog"
return #setmetatable({}, {__len = function() while true do end end})
