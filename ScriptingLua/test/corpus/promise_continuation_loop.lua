-- expect: error "watchdog"
local p = Promise.new()
p:next(function() while true do end end)
p:resolve(1)
