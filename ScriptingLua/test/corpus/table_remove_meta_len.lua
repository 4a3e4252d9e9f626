-- expect: error "watchdog"
return table.remove(setmetatable({}, {__len = function() return 1e12 end}), 1)
