-- expect: error "watchdog"
local mt = {__lt = function() while true do end end}
local t = {setmetatable({}, mt), setmetatable({}, mt)}
table.sort(t)
