-- expect: error "stack overflow"
local t = setmetatable({}, {__concat = function(a, b) return a .. b end})
return t .. "x"
