-- expect: error "watchdog"
return table.move({}, 1, 1e12, 2)
