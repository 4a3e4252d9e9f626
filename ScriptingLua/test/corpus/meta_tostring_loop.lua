-- expect: error "watchdog"
return tostring(setmetatable({}, {__tostring = function() while true do end end}))
