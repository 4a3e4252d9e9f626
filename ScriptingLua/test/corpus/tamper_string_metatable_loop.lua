-- expect: error "watchdog"
getmetatable("").__index = function() while true do end end
return ("x"):upper()
