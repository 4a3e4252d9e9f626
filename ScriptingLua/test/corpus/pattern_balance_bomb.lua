-- expect: error "watchdog"
return string.rep("(", 50000):find("%b()%b()%b()x")
