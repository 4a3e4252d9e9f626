-- expect: error "watchdog"
for x in string.rep("a", 20000):gmatch(".-.-.-.-b") do end
