-- expect: error "Memory limit" or "watchdog"
return #string.rep("x", 1e6):gsub(".", string.rep("y", 100))
