-- expect: error "watchdog"
for k in pairs(setmetatable({}, {__pairs = function() while true do end end})) do end
