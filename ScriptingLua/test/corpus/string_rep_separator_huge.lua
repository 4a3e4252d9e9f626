-- expect: error "Memory limit"
return #string.rep("x", 1e8, "yy")
