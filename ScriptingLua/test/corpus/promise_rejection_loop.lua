-- expect: error "watchdog"
local p = Promise.new()
p:next(nil, function() while true do end end)
p:reject(1)
