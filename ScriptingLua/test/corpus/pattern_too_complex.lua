-- expect: error "pattern too complex"
return string.rep("a", 1000):match(string.rep("a?", 1000) .. string.rep("a", 1000))
