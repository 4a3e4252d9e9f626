-- expect: error "string slice too long"
return string.byte(string.rep("x", 2e6), 1, -1)
