-- expect: error "nil"
error(nil)
