-- expect: error "watchdog"
return xpcall(function() local t = nil return t.x end, function() while true do end end)
