-- expect: error "watchdog"
return string.rep("a", 30000):find("a*a*a*a*b")
