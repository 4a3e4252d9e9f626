-- expect: error "watchdog"
return xpcall(error, function() local n = 0 for i = 1, 3e8 do n = n + i end return n end)
