-- expect: error "attempt to"
getmetatable("").__index = nil
return ("x"):upper()
