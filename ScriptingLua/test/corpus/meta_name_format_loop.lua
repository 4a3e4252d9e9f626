-- expect: error "watchdog"
return string.format("%s", setmetatable({}, {__tostring = function() while true do end end}))
