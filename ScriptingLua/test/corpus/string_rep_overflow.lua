-- expect: error "resulting string too large"
return string.rep("xx", math.maxinteger)
