-- expect: error "watchdog"
return load("while true do end")()
