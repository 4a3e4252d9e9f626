-- expect: error "watchdog"
return ("abc"):gsub(".", setmetatable({}, {__index = function() while true do end end}))
