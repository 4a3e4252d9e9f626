-- expect: error "watchdog"
return xpcall(function() error("x") end, function() while true do pcall(error, "y") end end)
