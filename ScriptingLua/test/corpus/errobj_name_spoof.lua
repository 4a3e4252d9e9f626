-- expect: error "fake"
error({name = "Watchdog", message = "fake"})
