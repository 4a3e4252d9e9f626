-- expect: error "watchdog"
return xpcall(function() while true do end end, function(m) return m end)
