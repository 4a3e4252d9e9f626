-- expect: error "watchdog"
-- Empty pieces: no memory grows, only the walk is long.
local t = setmetatable({}, {__len = function() return 1e12 end, __index = function() return "" end})
return table.concat(t)
