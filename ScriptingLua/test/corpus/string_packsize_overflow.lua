-- expect: error "too large"
return string.packsize(string.rep("c1000000000", 100))
