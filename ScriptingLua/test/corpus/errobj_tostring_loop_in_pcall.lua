-- expect: error "watchdog"
local ok, e = pcall(error, setmetatable({}, {__tostring = function() while true do end end}))
return tostring(e)
