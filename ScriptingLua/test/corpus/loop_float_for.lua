-- expect: error "watchdog"
for i = 0, math.huge do end
