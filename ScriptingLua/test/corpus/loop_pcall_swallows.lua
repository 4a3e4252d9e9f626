-- expect: error "watchdog"
-- Each stop is caught by the script and the loop goes on.
while true do pcall(function() while true do end end) end
