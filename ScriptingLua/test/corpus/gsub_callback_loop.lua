-- expect: error "watchdog"
return ("abc"):gsub(".", function() while true do end end)
