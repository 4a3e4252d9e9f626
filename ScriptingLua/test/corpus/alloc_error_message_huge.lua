-- expect: error any
error(string.rep("x", 2e7))
