-- expect: error "module 'xxx"
return require(string.rep("x", 1e6))
