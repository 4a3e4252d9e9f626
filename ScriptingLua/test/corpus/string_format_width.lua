-- expect: error "invalid conversion"
return string.format("%100d", 1)
