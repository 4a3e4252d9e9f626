-- expect: error "watchdog"
return string.rep("a", 20000):find(".-.-.-.-b")
