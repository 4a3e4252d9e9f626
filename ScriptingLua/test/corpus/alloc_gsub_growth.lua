-- expect: error "Memory limit"
return #string.rep("x", 1e6):gsub(".", string.rep("y", 100))
