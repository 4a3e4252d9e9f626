-- expect: error "Memory limit" or "watchdog"
local source = setmetatable({}, {__index = function() return 1 end})
return table.move(source, 1, 1e12, 1, {})
