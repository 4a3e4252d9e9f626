-- expect: error "watchdog"
while true do end
