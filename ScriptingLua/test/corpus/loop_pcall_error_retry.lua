-- expect: error "watchdog"
while true do pcall(error, {}) end
