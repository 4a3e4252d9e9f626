-- expect: error "too short"
return string.unpack("c1000000000", "abc")
