-- expect: error "watchdog"
return load("return x", "c", "t", setmetatable({}, {__index = function() while true do end end}))()
