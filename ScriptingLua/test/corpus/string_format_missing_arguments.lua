-- expect: error "bad argument #2"
return string.format(string.rep("%s", 1e5))
