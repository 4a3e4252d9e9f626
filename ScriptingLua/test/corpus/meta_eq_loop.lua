-- expect: error "watchdog"
local mt = {__eq = function() while true do end end}
return setmetatable({}, mt) == setmetatable({}, mt)
