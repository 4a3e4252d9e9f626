-- expect: error "stack overflow"
local t = setmetatable({}, {__index = function(t, k) return t[k] end})
return t.x
