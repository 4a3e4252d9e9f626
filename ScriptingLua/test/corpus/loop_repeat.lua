-- expect: error "watchdog"
repeat local x = 1 until false
