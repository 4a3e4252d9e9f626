-- expect: error "watchdog"
setmetatable(_G, {__index = function() while true do end end})
return undefined_name
