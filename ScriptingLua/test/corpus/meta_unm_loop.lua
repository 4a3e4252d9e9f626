-- expect: error "watchdog"
return -setmetatable({}, {__unm = function() while true do end end})
