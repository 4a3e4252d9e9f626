-- expect: error "watchdog"
local mt = {__lt = function() while true do end end}
return setmetatable({}, mt) < setmetatable({}, mt)
