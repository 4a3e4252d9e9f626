-- expect: error "stack overflow"
getmetatable("").__index = function(s, k) return s[k] end
return ("x").y
